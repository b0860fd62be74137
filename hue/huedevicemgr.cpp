#include "huedevicemgr.h"

#include "devdatamgr.h"

#include <QJsonObject>
#include <QStringList>
#include <algorithm>
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
    // Kelvin, like everything the interface and the plug-in clients write and read.
    dev.temperature = HueBridge::lightKelvin(light);
    dev.colorLightEnable = light.hasColor;
    dev.lightEffectEnable = false;
    if (light.hasColor && !light.mirekValid) {
        dev.colorLight = HueDeviceMgr::xyToColorName(light.colorX, light.colorY);
        dev.devCurModel = 3;
    } else if (light.mirekValid) {
        dev.devCurModel = 1;
    }
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
    connect(m_bridge.get(), &HueBridge::bridgeOnline, this, &HueDeviceMgr::onBridgeOnline);
    connect(m_bridge.get(), &HueBridge::lightEvent, this, &HueDeviceMgr::onLightEvent);
    connect(m_bridge.get(), &HueBridge::bridgeMoved, this, &HueDeviceMgr::onBridgeMoved);
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

QString HueDeviceMgr::xyToColorName(double x, double y)
{
    if (y <= 0.0)
        return QStringLiteral("#000000");
    // The inverse of colorToXy's matrix, at full brightness (Y = 1).
    const double X = x / y;
    const double Z = (1.0 - x - y) / y;
    double rgb[3] = {1.656492 * X - 0.354851 - 0.255038 * Z, -0.707196 * X + 1.655397 + 0.036152 * Z,
                     0.051713 * X - 0.121364 + 1.011530 * Z};
    const double peak = std::max({rgb[0], rgb[1], rgb[2], 1e-9});
    int channels[3];
    for (int i = 0; i < 3; ++i) {
        const double linear = qBound(0.0, rgb[i] / peak, 1.0);
        const double encoded = linear <= 0.0031308 ? 12.92 * linear : 1.055 * std::pow(linear, 1.0 / 2.4) - 0.055;
        channels[i] = qBound(0, int(std::lround(encoded * 255.0)), 255);
    }
    return QColor(channels[0], channels[1], channels[2]).name();
}

QStringList HueDeviceMgr::lampsOf(const QString &ip, const QString &id) const
{
    QStringList lamps;
    if (!m_store)
        return lamps;
    for (const DevData &dev : m_store->devices()) {
        const QStringList parts = splitAddress(dev.addr);
        if (dev.protocol == kProtocol && !parts.isEmpty() && parts.at(0) == ip && parts.at(1) == id)
            lamps << dev.addr;
    }
    return lamps;
}

void HueDeviceMgr::refreshDevices()
{
    if (!m_store)
        return;
    m_bridge->startEventStreams();
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

void HueDeviceMgr::onBridgeOnline(Bridge bridge, bool online)
{
    const QStringList lamps = lampsOf(bridge.ip, bridge.id);
    for (const QString &addr : lamps) {
        DevData dev = *m_store->findDev(addr);
        dev.linkState = online ? 1 : 0;
        m_store->updateDev(dev);
        // Back from an outage: show what the lamp does now, not what it did before.
        if (online)
            m_bridge->getLight(bridge.ip, bridge.id, splitAddress(addr).at(2));
    }
}

void HueDeviceMgr::onLightEvent(Bridge bridge, QString light, QJsonObject resource)
{
    const DevData *stored = m_store ? m_store->findDev(deviceAddress(bridge.ip, bridge.id, light)) : nullptr;
    if (!stored)
        return;
    DevData dev = *stored;
    dev.linkState = 1;
    const QJsonValue on = resource.value(QLatin1String("on")).toObject().value(QLatin1String("on"));
    if (on.isBool())
        dev.switchState = on.toBool();
    const QJsonValue brightness = resource.value(QLatin1String("dimming")).toObject().value(QLatin1String("brightness"));
    if (brightness.isDouble())
        dev.brightness = qBound(0, int(brightness.toDouble()), 100);
    const QJsonObject temperature = resource.value(QLatin1String("color_temperature")).toObject();
    if (temperature.value(QLatin1String("mirek_valid")).toBool() && temperature.value(QLatin1String("mirek")).toInt() > 0) {
        Light reading;
        reading.mirek = temperature.value(QLatin1String("mirek")).toInt();
        reading.mirekValid = true;
        reading.temperatureMin = dev.temperatureMin;
        reading.temperatureMax = dev.temperatureMax;
        dev.temperature = HueBridge::lightKelvin(reading);
        dev.devCurModel = 1;
    }
    const QJsonObject xy = resource.value(QLatin1String("color")).toObject().value(QLatin1String("xy")).toObject();
    if (xy.value(QLatin1String("x")).isDouble() && xy.value(QLatin1String("y")).isDouble() && dev.colorLightEnable
        && !temperature.value(QLatin1String("mirek_valid")).toBool()) {
        dev.colorLight = xyToColorName(qBound(0.0, xy.value(QLatin1String("x")).toDouble(), 1.0),
                                       qBound(0.0, xy.value(QLatin1String("y")).toDouble(), 1.0));
        dev.devCurModel = 3;
    }
    m_store->updateDev(dev);
}

void HueDeviceMgr::onBridgeMoved(QString oldIp, Bridge bridge)
{
    const QStringList lamps = lampsOf(oldIp, bridge.id);
    for (const QString &addr : lamps) {
        const QString light = splitAddress(addr).at(2);
        if (m_store->changeDevAddr(addr, deviceAddress(bridge.ip, bridge.id, light)))
            m_bridge->getLight(bridge.ip, bridge.id, light);
    }
}
