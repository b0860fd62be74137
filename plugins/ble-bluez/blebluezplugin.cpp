#include "blebluezplugin.h"

#include "systemdevices.h"

#include <QBluetoothLocalDevice>
#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QEventLoop>
#include <QFileInfo>
#include <QStandardPaths>
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
    // The lights must be let go while the event loop can still carry the disconnections: a
    // plug-in destroyed at library unload would leave them connected to the system.
    if (QCoreApplication *app = QCoreApplication::instance())
        connect(app, &QCoreApplication::aboutToQuit, this, &BleBluezPlugin::onAboutToQuit);
}

BleBluezPlugin::~BleBluezPlugin()
{
    // Tear down without signals: the program is going away or has already let go of us. Each
    // link still asks the stack to disconnect.
    for (BleLink *link : std::as_const(m_links)) {
        disconnect(link, nullptr, this, nullptr);
        delete link;
    }
    m_links.clear();
    for (BleLink *link : std::as_const(m_closing)) {
        disconnect(link, nullptr, this, nullptr);
        delete link;
    }
    m_closing.clear();
    if (m_agent) {
        disconnect(m_agent, nullptr, this, nullptr);
        m_agent->stop();
    }
}

void BleBluezPlugin::initialize()
{
    loadProfiles();
}

QString BleBluezPlugin::userProfilePath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
            + QStringLiteral("/brivon/ble-profiles.json");
}

void BleBluezPlugin::loadProfiles()
{
    QStringList paths;
    // The user's file is optional; when present its profiles win a match.
    if (QFileInfo::exists(userProfilePath()))
        paths << userProfilePath();
    paths << profilesPath();
    const bool ok = m_profiles.loadFiles(paths);
    for (const QString &problem : m_profiles.problems())
        qWarning().noquote() << "[BleBluezPlugin::loadProfiles]: problem:" << problem;
    if (!ok || m_profiles.profiles().isEmpty())
        qWarning().noquote() << "[BleBluezPlugin::loadProfiles]: no light profiles, no light will be recognised";
}

void BleBluezPlugin::ensureAgent()
{
    if (m_agent)
        return;
    m_agent = new QBluetoothDeviceDiscoveryAgent(this);
    m_agent->setLowEnergyDiscoveryTimeout(ScanTimeoutMs);
    connect(m_agent, &QBluetoothDeviceDiscoveryAgent::deviceDiscovered, this, &BleBluezPlugin::onDeviceSeen);
    // A name often arrives only with the scan response, and a cached device is heard only when
    // its signal strength is refreshed: both come as updates.
    connect(m_agent, &QBluetoothDeviceDiscoveryAgent::deviceUpdated, this,
            [this](const QBluetoothDeviceInfo &info, QBluetoothDeviceInfo::Fields) { onDeviceSeen(info); });
    connect(m_agent, &QBluetoothDeviceDiscoveryAgent::finished, this, &BleBluezPlugin::onScanFinished);
    connect(m_agent, &QBluetoothDeviceDiscoveryAgent::errorOccurred, this,
            [this](QBluetoothDeviceDiscoveryAgent::Error error) {
        if (!m_userScan)
            return; // a search for one light: its deadline reports the failure
        m_userScan = false;
        reportScanError(error);
    });
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

    ensureAgent();
    if (m_userScan && m_agent->isActive())
        return; // the running scan reports its own end
    m_userScan = true;
    m_reportedThisScan.clear();
    m_unmatchedThisScan.clear();
    // A search for one light may be running: the user's scan starts afresh with its full time.
    if (m_agent->isActive())
        m_agent->stop();
    m_agent->start(QBluetoothDeviceDiscoveryAgent::LowEnergyMethod);
}

void BleBluezPlugin::stopScan()
{
    m_userScan = false;
    stopAgentWhenIdle();
}

void BleBluezPlugin::stopAgentWhenIdle()
{
    if (!m_userScan && m_searches.isEmpty() && m_agent && m_agent->isActive())
        m_agent->stop();
}

void BleBluezPlugin::onScanFinished()
{
    if (m_userScan) {
        // BlueZ does not always signal a name learnt after the first sighting; the final list has it.
        const QList<QBluetoothDeviceInfo> seen = m_agent->discoveredDevices();
        for (const QBluetoothDeviceInfo &info : seen)
            onDeviceSeen(info);
        m_userScan = false;
        qDebug().noquote() << "[BleBluezPlugin::startScan]: finished, lights:" << m_reportedThisScan.size();
        emit sigDeviceDiscoveredFinished();
    }
    if (!m_searches.isEmpty() && !m_quitting)
        m_agent->start(QBluetoothDeviceDiscoveryAgent::LowEnergyMethod);
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
    // BlueZ hands out every device in its cache as if it had just been seen; only one with a
    // signal strength has been heard during this discovery.
    if (info.rssi() == 0)
        return;
    const QString addr = addressText(info);
    if (addr.isEmpty())
        return;
    const BleProfile *profile = m_profiles.match(info.name());
    if (!profile) {
        if (m_userScan && !m_unmatchedThisScan.contains(addr) && m_unmatchedThisScan.size() < MaxKnownDevices) {
            m_unmatchedThisScan.insert(addr);
            QStringList uuids;
            for (const QBluetoothUuid &uuid : info.serviceUuids())
                uuids << uuid.toString(QUuid::WithoutBraces);
            qInfo().noquote() << "[BleBluezPlugin::onDeviceSeen]: no profile for name:"
                              << ('"' + BleProfiles::cleanName(info.name()) + '"') << "addr:" << addr
                              << "serviceUuids:" << (uuids.isEmpty() ? QStringLiteral("none") : uuids.join(QLatin1Char(',')));
        }
        return;
    }
    if (!m_known.contains(addr) && m_known.size() >= MaxKnownDevices) {
        qWarning().noquote() << "[BleBluezPlugin::onDeviceSeen]: too many lights, ignored addr:" << addr;
        return;
    }
    m_known.insert(addr, KnownDevice{info, *profile});
    if (m_searches.contains(addr)) {
        qDebug().noquote() << "[BleBluezPlugin::onDeviceSeen]: found again, addr:" << addr;
        endSearch(addr);
        startLink(addr);
    }
    if (!m_userScan || m_reportedThisScan.contains(addr))
        return;
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
    if (m_links.contains(devAddr) || m_searches.contains(devAddr) || m_startWhenClosed.contains(devAddr))
        return; // already connecting or connected
    startLink(devAddr);
}

bool BleBluezPlugin::reconnectDevice(const QString &devAddr)
{
    if (!m_known.contains(devAddr))
        return false;
    endSearch(devAddr);
    dropLink(devAddr);
    return startLink(devAddr);
}

void BleBluezPlugin::removeDevice(const QString &devAddr)
{
    const bool hadLink = m_links.contains(devAddr) || m_searches.contains(devAddr);
    endSearch(devAddr);
    m_startWhenClosed.remove(devAddr);
    dropLink(devAddr);
    m_known.remove(devAddr);
    m_reportedThisScan.remove(devAddr);
    // Otherwise BlueZ keeps offering the light from its cache.
    SystemDevices::forget(devAddr);
    if (hadLink)
        emit sigDeviceDisconnected(devAddr);
}

bool BleBluezPlugin::startLink(const QString &devAddr)
{
    if (m_quitting)
        return false;
    const auto known = m_known.constFind(devAddr);
    if (known == m_known.constEnd()) {
        // The device and its profile are learnt from a scan; without one there is nothing to connect to.
        qDebug().noquote() << "[BleBluezPlugin::startLink]: not seen in a scan, addr:" << devAddr.left(64);
        return false;
    }
    if (isClosing(devAddr)) {
        // The old link's late disconnection would cut the new one: wait for it.
        qDebug().noquote() << "[BleBluezPlugin::startLink]: waiting for the previous link to close, addr:" << devAddr;
        m_startWhenClosed.insert(devAddr);
        return true;
    }
    qDebug().noquote() << "[BleBluezPlugin::startLink]: addr:" << devAddr;
    auto *link = new BleLink(devAddr, known->info, known->profile, this);
    connect(link, &BleLink::ready, this, &BleBluezPlugin::sigDeviceConnected);
    connect(link, &BleLink::notification, this, &BleBluezPlugin::sigMessageReceived);
    connect(link, &BleLink::lost, this, &BleBluezPlugin::onLinkLost);
    connect(link, &BleLink::closed, this, &BleBluezPlugin::onLinkClosed);
    m_links.insert(devAddr, link);
    return link->start();
}

void BleBluezPlugin::dropLink(const QString &devAddr)
{
    BleLink *link = m_links.take(devAddr);
    if (!link)
        return;
    disconnect(link, &BleLink::ready, this, nullptr);
    disconnect(link, &BleLink::notification, this, nullptr);
    m_closing.append(link);
    link->close();
}

bool BleBluezPlugin::isClosing(const QString &devAddr) const
{
    for (const BleLink *link : m_closing) {
        if (link->address() == devAddr)
            return true;
    }
    return false;
}

void BleBluezPlugin::onLinkLost(const QString &devAddr)
{
    // Only the current link of the address speaks for it; a replaced one is already forgotten.
    auto *link = qobject_cast<BleLink *>(sender());
    if (!link || m_links.value(devAddr) != link)
        return;
    m_links.remove(devAddr);
    link->deleteLater();
    if (link->deviceUnknown() && !m_quitting && m_known.contains(devAddr)) {
        // BlueZ has dropped the light from its cache since the scan: look for it again.
        startSearch(devAddr);
        return;
    }
    emit sigDeviceDisconnected(devAddr);
}

void BleBluezPlugin::onLinkClosed(const QString &devAddr)
{
    auto *link = qobject_cast<BleLink *>(sender());
    if (!link || !m_closing.removeOne(link))
        return;
    link->deleteLater();
    if (m_quitLoop && m_closing.isEmpty())
        m_quitLoop->quit();
    if (!isClosing(devAddr) && m_startWhenClosed.remove(devAddr))
        startLink(devAddr);
}

void BleBluezPlugin::startSearch(const QString &devAddr)
{
    if (m_searches.contains(devAddr))
        return;
    qDebug().noquote() << "[BleBluezPlugin::startSearch]: not in the system's cache, looking for addr:" << devAddr;
    auto *deadline = new QTimer(this);
    deadline->setSingleShot(true);
    deadline->setInterval(SearchTimeoutMs);
    connect(deadline, &QTimer::timeout, this, [this, devAddr] {
        qWarning().noquote() << "[BleBluezPlugin::startSearch]: not found within" << SearchTimeoutMs << "ms, addr:" << devAddr;
        endSearch(devAddr);
        stopAgentWhenIdle();
        emit sigDeviceDisconnected(devAddr);
    });
    m_searches.insert(devAddr, deadline);
    deadline->start();
    ensureAgent();
    if (!m_agent->isActive())
        m_agent->start(QBluetoothDeviceDiscoveryAgent::LowEnergyMethod);
}

void BleBluezPlugin::endSearch(const QString &devAddr)
{
    if (QTimer *deadline = m_searches.take(devAddr))
        deadline->deleteLater();
}

void BleBluezPlugin::onAboutToQuit()
{
    m_quitting = true;
    m_userScan = false;
    for (QTimer *deadline : std::as_const(m_searches))
        deadline->deleteLater();
    m_searches.clear();
    m_startWhenClosed.clear();
    if (m_agent && m_agent->isActive())
        m_agent->stop();
    const QStringList addrs = m_links.keys();
    for (const QString &addr : addrs)
        dropLink(addr);
    if (m_closing.isEmpty())
        return;
    qDebug().noquote() << "[BleBluezPlugin::onAboutToQuit]: disconnecting lights:" << m_closing.size();
    // The main loop has ended; a local one carries the disconnections, for a bounded time.
    QEventLoop loop;
    m_quitLoop = &loop;
    QTimer::singleShot(QuitWaitMs, &loop, &QEventLoop::quit);
    loop.exec();
    m_quitLoop = nullptr;
    qDebug().noquote() << "[BleBluezPlugin::onAboutToQuit]: still disconnecting:" << m_closing.size();
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
