#include "huedevicemgr.h"

#include "devdatamgr.h"

#include <QStringList>
#include <cmath>

namespace {

// (ip, bridge id, light id) of a Hue address, or an empty list when it has not exactly three parts.
QStringList splitAddress(const QString &addr)
{
    const QStringList parts = addr.split(QLatin1Char('/'), Qt::KeepEmptyParts);
    return parts.size() == 3 ? parts : QStringList();
}

// The part of a light's record that its bridge reports.
void applyLight(DevData &dev, const Light &light)
{
    dev.name = light.name;
    dev.protocol = HueDeviceMgr::kProtocol;
    dev.brightness = light.brightness;
    // Kept in mirek as reported; commands from the interface write kelvin into the same field.
    dev.temperature = light.mirek;
    dev.switchState = light.on;
    dev.linkState = 1;
    dev.brightnessMin = 0;
    dev.brightnessMax = 100;
    dev.brightnessRatio = 1;
    dev.temperatureMin = light.temperatureMin;
    dev.temperatureMax = light.temperatureMax;
    dev.temperatureRatio = 100;
}

float linearise(float value)
{
    return value > 0.04045f ? std::pow((value + 0.055f) / 1.055f, 2.4f) : value / 12.92f;
}

} // namespace

HueDeviceMgr::HueDeviceMgr(std::shared_ptr<DevDataMgr> store, QObject *parent)
    : BaseDevice(parent)
    , m_bridge(std::make_shared<HueBridge>())
    , m_store(std::move(store))
{
    connect(m_bridge.get(), &HueBridge::discoverLight, this, &HueDeviceMgr::onDiscoverLight);
    connect(m_bridge.get(), &HueBridge::updateLightState, this, &HueDeviceMgr::onUpdateLightState);
    connect(m_bridge.get(), &HueBridge::updatePower, this, &HueDeviceMgr::onUpdatePower);
    connect(m_bridge.get(), &HueBridge::updateBrightness, this, &HueDeviceMgr::onUpdateBrightness);
    connect(m_bridge.get(), &HueBridge::updateTemperature, this, &HueDeviceMgr::onUpdateTemperature);
}

HueDeviceMgr::~HueDeviceMgr() = default;

QString HueDeviceMgr::deviceAddress(const QString &ip, const QString &id, const QString &light)
{
    return ip + QLatin1Char('/') + id + QLatin1Char('/') + light;
}

void HueDeviceMgr::colorToXy(const QColor &color, float xy[2])
{
    const float r = linearise(color.redF());
    const float g = linearise(color.greenF());
    const float b = linearise(color.blueF());
    const float x = 0.664511f * r + 0.154324f * g + 0.162028f * b;
    const float y = 0.283881f * r + 0.668433f * g + 0.047685f * b;
    const float z = 0.000088f * r + 0.072310f * g + 0.986039f * b;
    const float sum = x + y + z;
    xy[0] = x / sum;
    xy[1] = y / sum;
    // Black divides zero by zero.
    if (std::isnan(xy[0]))
        xy[0] = 0.0f;
    if (std::isnan(xy[1]))
        xy[1] = 0.0f;
}

void HueDeviceMgr::refreshDevices()
{
    if (!m_store)
        return;
    // Collected first: the replies arrive later, but keep the loop independent of the table anyway.
    QList<QStringList> targets;
    for (const DevData &dev : m_store->devices()) {
        if (dev.protocol != kProtocol)
            continue;
        const QStringList parts = splitAddress(dev.addr);
        if (!parts.isEmpty())
            targets.append(parts);
    }
    for (const QStringList &parts : qAsConst(targets))
        m_bridge->getLight(parts.at(0), parts.at(1), parts.at(2));
}

void HueDeviceMgr::startScan()
{
    m_bridge->getAllLights();
    m_bridge->discoverBridges();
}

void HueDeviceMgr::connectToDevice(const QString &addr)
{
    const QStringList parts = splitAddress(addr);
    if (!parts.isEmpty())
        m_bridge->getLight(parts.at(0), parts.at(1), parts.at(2));
}

bool HueDeviceMgr::reconnectDevice(const QString &addr)
{
    const QStringList parts = splitAddress(addr);
    if (parts.isEmpty())
        return true;
    emit sigReconnectDevice(addr);
    m_bridge->queryLight(parts.at(0), parts.at(1), parts.at(2));
    return true;
}

void HueDeviceMgr::powerOn(const QString &addr)
{
    const QStringList parts = splitAddress(addr);
    if (!parts.isEmpty())
        m_bridge->setPower(parts.at(0), parts.at(1), parts.at(2), true);
}

void HueDeviceMgr::powerOff(const QString &addr)
{
    const QStringList parts = splitAddress(addr);
    if (!parts.isEmpty())
        m_bridge->setPower(parts.at(0), parts.at(1), parts.at(2), false);
}

void HueDeviceMgr::setBrightness(const QString &addr, int value)
{
    const QStringList parts = splitAddress(addr);
    if (!parts.isEmpty())
        m_bridge->setBrightness(parts.at(0), parts.at(1), parts.at(2), value);
    const DevData *stored = m_store ? m_store->findDev(addr) : nullptr;
    if (!stored || !stored->switchState)
        return;
    DevData dev = *stored;
    dev.brightness = value;
    m_store->updateDev(dev);
}

void HueDeviceMgr::setTemperature(const QString &addr, int value)
{
    const QStringList parts = splitAddress(addr);
    if (!parts.isEmpty())
        m_bridge->setTemperature(parts.at(0), parts.at(1), parts.at(2), value);
    const DevData *stored = m_store ? m_store->findDev(addr) : nullptr;
    if (!stored || !stored->switchState)
        return;
    DevData dev = *stored;
    dev.temperature = value;
    m_store->updateDev(dev);
}

void HueDeviceMgr::setColor(const QString &addr, const QColor &color)
{
    const QStringList parts = splitAddress(addr);
    if (!parts.isEmpty()) {
        float xy[2];
        colorToXy(color, xy);
        m_bridge->setColor(parts.at(0), parts.at(1), parts.at(2), xy);
    }
    const DevData *stored = m_store ? m_store->findDev(addr) : nullptr;
    if (!stored || !stored->switchState)
        return;
    DevData dev = *stored;
    dev.colorLight = color.name();
    m_store->updateDev(dev);
}

void HueDeviceMgr::onDiscoverLight(Bridge bridge, QList<Light> lights)
{
    for (const Light &light : qAsConst(lights)) {
        DevData dev;
        dev.enablePower = true;
        dev.colorLightEnable = true;
        dev.protocol = -1;
        dev.temperature = -1;
        dev.brightness = -1;
        dev.oldBrightness = -1;
        dev.auxValue1 = -1;
        dev.auxValue2 = -1;
        dev.colorLight = QStringLiteral("#FFFFFF");
        dev.devCurModel = -1;
        dev.addr = deviceAddress(bridge.ip, bridge.id, light.id);
        applyLight(dev, light);
        emit sigDeviceDiscovered(dev);
    }
}

void HueDeviceMgr::onUpdateLightState(Bridge bridge, Light light)
{
    const DevData *stored = m_store ? m_store->findDev(deviceAddress(bridge.ip, bridge.id, light.id)) : nullptr;
    if (!stored)
        return;
    DevData dev = *stored;
    dev.colorLightEnable = true;
    dev.lightEffectEnable = false;
    applyLight(dev, light);
    m_store->updateDev(dev);
}

void HueDeviceMgr::onUpdatePower(Bridge bridge, QString light, bool on)
{
    const DevData *stored = m_store ? m_store->findDev(deviceAddress(bridge.ip, bridge.id, light)) : nullptr;
    if (!stored)
        return;
    DevData dev = *stored;
    dev.switchState = on;
    if (on && dev.linkState == 0)
        dev.linkState = 1;
    m_store->updateDev(dev);
}

void HueDeviceMgr::onUpdateBrightness(Bridge bridge, QString light, int brightness)
{
    const DevData *stored = m_store ? m_store->findDev(deviceAddress(bridge.ip, bridge.id, light)) : nullptr;
    if (!stored)
        return;
    DevData dev = *stored;
    dev.brightness = brightness;
    m_store->updateDev(dev);
}

void HueDeviceMgr::onUpdateTemperature(Bridge bridge, QString light, int temperature)
{
    const DevData *stored = m_store ? m_store->findDev(deviceAddress(bridge.ip, bridge.id, light)) : nullptr;
    if (!stored)
        return;
    DevData dev = *stored;
    dev.temperature = temperature;
    m_store->updateDev(dev);
}
