#include "devicemgr.h"

#include "bluetoothmgr.h"
#include "huedevicemgr.h"

#include <QDebug>

#include <algorithm>
#include <cmath>

DeviceMgr::DeviceMgr(QObject *parent)
    : DeviceMgr([](std::shared_ptr<DevDataMgr> store) -> std::shared_ptr<BaseDevice> {
                    return std::make_shared<BluetoothMgr>(std::move(store));
                },
                [](std::shared_ptr<DevDataMgr> store) -> std::shared_ptr<BaseDevice> {
                    return std::make_shared<HueDeviceMgr>(std::move(store));
                },
                parent)
{
}

DeviceMgr::DeviceMgr(const TransportFactory &ble, const TransportFactory &hue, QObject *parent)
    : BaseDevice(parent)
    , m_devDataMgr(std::make_shared<DevDataMgr>())
{
    m_effectData.readConfig();
    m_devDataMgr->readConfig();
    m_transports.insert(kBleTransport, ble(m_devDataMgr));
    m_transports.insert(kHueTransport, hue(m_devDataMgr));

    for (const std::shared_ptr<BaseDevice> &transport : qAsConst(m_transports)) {
        BaseDevice *source = transport.get();
        connect(source, &BaseDevice::sigDeviceDiscoveredErrorOccurred, this,
                &BaseDevice::sigDeviceDiscoveredErrorOccurred);
        connect(source, &BaseDevice::sigDeviceDiscovered, this, &DeviceMgr::onDeviceDiscovered);
        connect(source, &BaseDevice::sigDeviceDiscoveredFinished, this, &BaseDevice::sigDeviceDiscoveredFinished);
        connect(source, &BaseDevice::sigReconnectDevice, this, &BaseDevice::sigReconnectDevice);
        connect(source, &BaseDevice::sigReconnecting, this, &BaseDevice::sigReconnecting);
    }
}

DeviceMgr::~DeviceMgr() = default;

std::shared_ptr<BaseDevice> DeviceMgr::route(const QString &addr) const
{
    const DevData *dev = m_devDataMgr->findDev(addr);
    return dev ? getDeviceMgrByProtocol(dev->protocol) : nullptr;
}

std::shared_ptr<BaseDevice> DeviceMgr::getDeviceMgrByProtocol(int protocol) const
{
    if (protocol >= 1 && protocol <= 1001)
        return m_transports.value(kBleTransport);
    if (protocol == 2001)
        return m_transports.value(kHueTransport);
    return nullptr;
}

void DeviceMgr::refreshDevices()
{
    for (const std::shared_ptr<BaseDevice> &transport : qAsConst(m_transports))
        transport->refreshDevices();
}

void DeviceMgr::startScan()
{
    m_discovered = {};
    for (const std::shared_ptr<BaseDevice> &transport : qAsConst(m_transports))
        transport->startScan();
}

void DeviceMgr::stopScan()
{
    for (const std::shared_ptr<BaseDevice> &transport : qAsConst(m_transports))
        transport->stopScan();
}

void DeviceMgr::connectToDevice(const QString &addr)
{
    if (const auto transport = route(addr))
        transport->connectToDevice(addr);
}

bool DeviceMgr::reconnectDevice(const QString &addr)
{
    const auto transport = route(addr);
    return transport && transport->reconnectDevice(addr);
}

bool DeviceMgr::isReconnecting(const QString &addr) const
{
    const auto ble = std::dynamic_pointer_cast<BluetoothMgr>(route(addr));
    return ble && ble->isReconnecting(addr);
}

void DeviceMgr::removeDevice(const QString &addr)
{
    if (const auto transport = route(addr))
        transport->removeDevice(addr);
}

void DeviceMgr::delDev(const QString &groupUuid, const QString &addr)
{
    m_devDataMgr->delDev(groupUuid, addr);
}

void DeviceMgr::powerOn(const QString &addr)
{
    if (const auto transport = route(addr))
        transport->powerOn(addr);
}

void DeviceMgr::powerOff(const QString &addr)
{
    if (const auto transport = route(addr))
        transport->powerOff(addr);
}

void DeviceMgr::setTemperature(const QString &addr, int value)
{
    if (const auto transport = route(addr))
        transport->setTemperature(addr, value);
}

void DeviceMgr::setBrightness(const QString &addr, int value)
{
    if (const auto transport = route(addr))
        transport->setBrightness(addr, value);
}

void DeviceMgr::setLightEffect(const QString &addr, const QString &effect)
{
    const auto transport = route(addr);
    if (!transport)
        return;
    // Each family reads effect texts its own way: only the light's own list is passed on.
    const QList<EffectItem> effects = m_effectData.effects(m_devDataMgr->findDev(addr)->protocol);
    const bool listed = std::any_of(effects.cbegin(), effects.cend(),
                                    [&](const EffectItem &item) { return item.cmd == effect; });
    if (!listed) {
        qDebug().noquote() << "[DeviceMgr::setLightEffect]: not an effect of this light, addr:" << addr
                           << ", effect:" << effect;
        return;
    }
    transport->setLightEffect(addr, effect);
}

void DeviceMgr::setColor(const QString &addr, const QColor &color)
{
    if (const auto transport = route(addr))
        transport->setColor(addr, color);
}

void DeviceMgr::setAdjusting(const QString &addr, bool on)
{
    if (const auto transport = route(addr))
        transport->setAdjusting(addr, on);
}

void DeviceMgr::setBrightnessByRatio(const QString &addr, double ratio)
{
    const auto transport = route(addr);
    if (!transport)
        return;
    const DevData *dev = m_devDataMgr->findDev(addr);
    const double value = dev->brightnessMin + double(dev->brightnessMax - dev->brightnessMin) * ratio;
    // Rounded: 29 % of 0..100 is 28.999... in binary and must still reach the light as 29.
    transport->setBrightness(addr, int(std::lround(value)));
}

void DeviceMgr::onDeviceDiscovered(DevData data)
{
    if (m_discovered.contains(data.addr) || m_devDataMgr->findDev(data.addr))
        return;
    m_discovered.insert(data.addr, data);
    emit sigDeviceDiscovered(data);
}

void DeviceMgr::addDev(const DevData &info) { m_devDataMgr->addDev(info); }
void DeviceMgr::addDevToGroup(const QString &uuid, const DevData &info) { m_devDataMgr->addDevToGroup(uuid, info); }
QString DeviceMgr::addGroup(const QString &name) { return m_devDataMgr->addGroup(name); }
void DeviceMgr::delGroup(const QString &uuid) { m_devDataMgr->delGroup(uuid); }
void DeviceMgr::renameGroup(const QString &uuid, const QString &newName) { m_devDataMgr->renameGroup(uuid, newName); }
void DeviceMgr::renameDev(const QString &addr, const QString &newName) { m_devDataMgr->renameDev(addr, newName); }
const DevDataMgr::DeviceTable &DeviceMgr::getDevices() const { return m_devDataMgr->devices(); }
const DevDataMgr::GroupTable &DeviceMgr::getGroups() const { return m_devDataMgr->groups(); }
QList<DevData> DeviceMgr::getGroupDevices(const QString &uuid) const { return m_devDataMgr->groupDevices(uuid); }
int DeviceMgr::deviceCount() const { return int(m_devDataMgr->devices().size()); }
const EffectData &DeviceMgr::getEffectData() const { return m_effectData; }
EffectData &DeviceMgr::effectData() { return m_effectData; }

QList<EffectItem> DeviceMgr::lightEffects(const DevData &dev) const
{
    return dev.lightEffectEnable ? m_effectData.effects(dev.protocol) : QList<EffectItem>();
}
