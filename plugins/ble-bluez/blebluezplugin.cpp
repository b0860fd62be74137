#include "blebluezplugin.h"

#include <QBluetoothLocalDevice>
#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QTimer>

#ifndef BRIVON_INSTALL_DATA_RELDIR
#define BRIVON_INSTALL_DATA_RELDIR "../share/beamcrafter"
#endif

namespace {

// data/ beside the program when it runs in place, its share folder once installed.
QString profilesPath()
{
    const QString folder = QCoreApplication::applicationDirPath();
    const QString inPlace = folder + QStringLiteral("/data/ble-profiles.json");
    const QString installed =
        QDir::cleanPath(folder + QStringLiteral("/" BRIVON_INSTALL_DATA_RELDIR "/ble-profiles.json"));
    return QFileInfo::exists(inPlace) || !QFileInfo::exists(installed) ? inPlace : installed;
}

} // namespace

BleBluezPlugin::BleBluezPlugin(QObject *parent) : BrivonQXBleInterface(parent)
{
    loadProfiles();
}

BleBluezPlugin::~BleBluezPlugin()
{
    // Tear down without signals: the program is going away or has already let go of us.
    for (BleLink *link : std::as_const(m_links)) {
        disconnect(link, nullptr, this, nullptr);
        delete link;
    }
    m_links.clear();
    if (m_agent) {
        disconnect(m_agent, nullptr, this, nullptr);
        m_agent->stop();
    }
}

void BleBluezPlugin::initialize()
{
    loadProfiles();
}

void BleBluezPlugin::loadProfiles()
{
    const QString path = profilesPath();
    const bool ok = m_profiles.loadFile(path);
    for (const QString &problem : m_profiles.problems())
        qWarning().noquote() << "[BleBluezPlugin::loadProfiles]: file:" << path << "problem:" << problem;
    if (!ok || m_profiles.profiles().isEmpty())
        qWarning().noquote() << "[BleBluezPlugin::loadProfiles]: no light profiles, no light will be recognised";
}

void BleBluezPlugin::startScan()
{
    // Re-read the table so that an edited file takes effect with the next scan.
    loadProfiles();

    // Without BlueZ the discovery agent only says "input/output error"; the program needs to know
    // that there is no adapter, so ask first.
    if (QBluetoothLocalDevice::allDevices().isEmpty()) {
        reportScanError(QBluetoothDeviceDiscoveryAgent::InvalidBluetoothAdapterError);
        return;
    }
    QBluetoothLocalDevice adapter;
    if (!adapter.isValid()) {
        reportScanError(QBluetoothDeviceDiscoveryAgent::InvalidBluetoothAdapterError);
        return;
    }
    if (adapter.hostMode() == QBluetoothLocalDevice::HostPoweredOff) {
        reportScanError(QBluetoothDeviceDiscoveryAgent::PoweredOffError);
        return;
    }

    if (!m_agent) {
        m_agent = new QBluetoothDeviceDiscoveryAgent(this);
        m_agent->setLowEnergyDiscoveryTimeout(ScanTimeoutMs);
        connect(m_agent, &QBluetoothDeviceDiscoveryAgent::deviceDiscovered, this, &BleBluezPlugin::onDeviceSeen);
        // A name often arrives only with the scan response, after the first sighting.
        connect(m_agent, &QBluetoothDeviceDiscoveryAgent::deviceUpdated, this,
                [this](const QBluetoothDeviceInfo &info, QBluetoothDeviceInfo::Fields) { onDeviceSeen(info); });
        connect(m_agent, &QBluetoothDeviceDiscoveryAgent::finished, this, [this] {
            // BlueZ does not always signal a name learnt after the first sighting; the final list has it.
            const QList<QBluetoothDeviceInfo> seen = m_agent->discoveredDevices();
            for (const QBluetoothDeviceInfo &info : seen)
                onDeviceSeen(info);
            qDebug().noquote() << "[BleBluezPlugin::startScan]: finished, lights:" << m_reportedThisScan.size();
            emit sigDeviceDiscoveredFinished();
        });
        connect(m_agent, &QBluetoothDeviceDiscoveryAgent::errorOccurred, this, &BleBluezPlugin::reportScanError);
    }
    if (m_agent->isActive())
        return; // the running scan reports its own end
    m_reportedThisScan.clear();
    m_agent->start(QBluetoothDeviceDiscoveryAgent::LowEnergyMethod);
}

void BleBluezPlugin::stopScan()
{
    if (m_agent && m_agent->isActive())
        m_agent->stop();
}

void BleBluezPlugin::reportScanError(QBluetoothDeviceDiscoveryAgent::Error error)
{
    qWarning().noquote() << "[BleBluezPlugin::reportScanError]: error:" << int(error)
                         << (m_agent ? m_agent->errorString() : QString());
    QTimer::singleShot(0, this, [this, error] { emit sigDeviceDiscoveredErrorOccurred(error); });
}

void BleBluezPlugin::onDeviceSeen(const QBluetoothDeviceInfo &info)
{
    if (!(info.coreConfigurations() & QBluetoothDeviceInfo::LowEnergyCoreConfiguration))
        return;
    const QString addr = addressText(info);
    if (addr.isEmpty() || m_reportedThisScan.contains(addr))
        return;
    const BleProfile *profile = m_profiles.match(info.name());
    if (!profile)
        return;
    if (!m_known.contains(addr) && m_known.size() >= MaxKnownDevices) {
        qWarning().noquote() << "[BleBluezPlugin::onDeviceSeen]: too many lights, ignored addr:" << addr;
        return;
    }
    m_known.insert(addr, KnownDevice{info, *profile});
    m_reportedThisScan.insert(addr);
    const QString name = BleProfiles::cleanName(info.name());
    qDebug().noquote() << "[BleBluezPlugin::onDeviceSeen]: addr:" << addr << "name:" << name
                       << "protocolType:" << profile->protocolType << "profile:" << profile->name;
    emit sigDeviceDiscovered(profile->protocolType, addr, name);
}

void BleBluezPlugin::writeData(const QString &devAddr, const QByteArray &data)
{
    BleLink *link = m_links.value(devAddr);
    if (link && link->isReady())
        link->write(data);
}

void BleBluezPlugin::connectToDevice(const QString &devAddr)
{
    if (m_links.contains(devAddr))
        return; // already connecting or connected
    startLink(devAddr);
}

bool BleBluezPlugin::reconnectDevice(const QString &devAddr)
{
    if (!m_known.contains(devAddr))
        return false;
    dropLink(devAddr);
    return startLink(devAddr);
}

void BleBluezPlugin::removeDevice(const QString &devAddr)
{
    const bool hadLink = m_links.contains(devAddr);
    dropLink(devAddr);
    m_known.remove(devAddr);
    m_reportedThisScan.remove(devAddr);
    if (hadLink)
        emit sigDeviceDisconnected(devAddr);
}

bool BleBluezPlugin::startLink(const QString &devAddr)
{
    const auto known = m_known.constFind(devAddr);
    if (known == m_known.constEnd()) {
        // The device and its profile are learnt from a scan; without one there is nothing to connect to.
        qDebug().noquote() << "[BleBluezPlugin::startLink]: not seen in a scan, addr:" << devAddr.left(64);
        return false;
    }
    qDebug().noquote() << "[BleBluezPlugin::startLink]: addr:" << devAddr;
    auto *link = new BleLink(devAddr, known->info, known->profile, this);
    connect(link, &BleLink::ready, this, &BleBluezPlugin::sigDeviceConnected);
    connect(link, &BleLink::notification, this, &BleBluezPlugin::sigMessageReceived);
    connect(link, &BleLink::lost, this, &BleBluezPlugin::onLinkLost);
    m_links.insert(devAddr, link);
    return link->start();
}

void BleBluezPlugin::dropLink(const QString &devAddr)
{
    BleLink *link = m_links.take(devAddr);
    if (!link)
        return;
    disconnect(link, nullptr, this, nullptr);
    link->close();
    link->deleteLater();
}

void BleBluezPlugin::onLinkLost(const QString &devAddr)
{
    // Only the current link of the address speaks for it; a replaced one is already forgotten.
    auto *link = qobject_cast<BleLink *>(sender());
    if (!link || m_links.value(devAddr) != link)
        return;
    m_links.remove(devAddr);
    link->deleteLater();
    emit sigDeviceDisconnected(devAddr);
}

QString BleBluezPlugin::addressText(const QBluetoothDeviceInfo &info)
{
    // Platforms that hide addresses (macOS) identify a device by a UUID instead.
    if (!info.address().isNull())
        return info.address().toString();
    if (!info.deviceUuid().isNull())
        return info.deviceUuid().toString(QUuid::WithoutBraces);
    return QString();
}
