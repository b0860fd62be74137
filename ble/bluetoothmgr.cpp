#include "bluetoothmgr.h"

#include "bluetoothprotocol.h"
#include "bluetoothprotocol2.h"
#include "brivonqxbleinterface.h"
#include "devdatamgr.h"

#include <QDebug>
#include <QFileInfo>

namespace {

constexpr int kVTypeKey = 1;
constexpr int k55AAKey = 1001;
constexpr quint8 kOnline = 1;
constexpr quint8 kOffline = 0;

// The 55 AA lights' fixed control ranges.
constexpr int k55AABrightnessMin = 0;
constexpr int k55AABrightnessMax = 100;
constexpr int k55AATemperatureMin = 2900;
constexpr int k55AATemperatureMax = 6500;

bool isVTypeAlwaysApplied(int protocol)
{
    return protocol == 1 || protocol == 2 || protocol == 3 || protocol == 5 || protocol == 6 || protocol == 7;
}

bool isVTypeHeld(int protocol)
{
    return protocol == 162 || protocol == 163;
}

bool isColorCapable(int protocol)
{
    return protocol == 2 || protocol == 7;
}

int u16(const std::vector<quint8> &payload, size_t at)
{
    return (int(payload[at]) << 8) | int(payload[at + 1]);
}

template<typename T, typename V>
void assign(T &field, const V &value, bool &changed)
{
    if (field != value) {
        field = value;
        changed = true;
    }
}

// A 55 AA light is dark at brightness 0 and has no power switch of its own: the brightness it had
// before going dark is what switching it on brings back, so it is kept in oldBrightness (stored).
void assignAaBrightness(DevData &dev, int value, bool &changed)
{
    if (value < 1 && dev.brightness >= 1)
        assign(dev.oldBrightness, dev.brightness, changed);
    assign(dev.brightness, value, changed);
}

} // namespace

BluetoothMgr::BluetoothMgr(std::shared_ptr<DevDataMgr> store, QObject *parent)
    : BaseDevice(parent)
    , m_store(std::move(store))
{
    m_protocols.insert(kVTypeKey, std::make_shared<bluetoothProtocol>());
    m_protocols.insert(k55AAKey, std::make_shared<bluetoothProtocol2>());
    loadPlugin();
}

BluetoothMgr::BluetoothMgr(std::shared_ptr<DevDataMgr> store, QObject *pluginInstance, QObject *parent)
    : BaseDevice(parent)
    , m_store(std::move(store))
{
    m_protocols.insert(kVTypeKey, std::make_shared<bluetoothProtocol>());
    m_protocols.insert(k55AAKey, std::make_shared<bluetoothProtocol2>());
    if (pluginInstance)
        attachPlugin(pluginInstance);
}

// The plug-in's instance belongs to its loader and may be shared with another manager: it is
// neither deleted nor unloaded here.
BluetoothMgr::~BluetoothMgr() = default;

void BluetoothMgr::loadPlugin()
{
    const QString override = qEnvironmentVariable(kPluginEnvVar);
    // A bare name lets Qt add the platform's prefix and suffix and search the library paths,
    // which start with the executable's folder.
    m_loader.setFileName(override.isEmpty() ? QString::fromLatin1(kPluginBaseName)
                                            : QFileInfo(override).absoluteFilePath());
    QObject *instance = m_loader.instance();
    if (!instance) {
        qWarning().noquote() << "Failed to load BLE plugin:" << m_loader.errorString();
        return;
    }
    attachPlugin(instance);
}

void BluetoothMgr::attachPlugin(QObject *instance)
{
    m_pluginRoot = instance;
    // Goes through qt_metacast with the interface id, so a plug-in with its own copy of the
    // interface's meta-object casts as well.
    auto *iface = qobject_cast<BrivonQXBleInterface *>(instance);
    if (!iface) {
        qWarning().noquote() << "Failed to cast plugin to BrivonQXBleInterface.";
        return;
    }
    m_interface = iface;
    connect(iface, &BrivonQXBleInterface::sigMessageReceived,
            this, &BluetoothMgr::handleMessageReceived, Qt::UniqueConnection);
    connect(iface, &BrivonQXBleInterface::sigDeviceDiscovered,
            this, &BluetoothMgr::handleDeviceDiscovered, Qt::UniqueConnection);
    connect(iface, &BrivonQXBleInterface::sigDeviceDiscoveredErrorOccurred,
            this, &BaseDevice::sigDeviceDiscoveredErrorOccurred, Qt::UniqueConnection);
    connect(iface, &BrivonQXBleInterface::sigDeviceDiscoveredFinished,
            this, &BaseDevice::sigDeviceDiscoveredFinished, Qt::UniqueConnection);
    connect(iface, &BrivonQXBleInterface::sigDeviceConnected,
            this, &BluetoothMgr::handleDeviceConnected, Qt::UniqueConnection);
    connect(iface, &BrivonQXBleInterface::sigDeviceDisconnected,
            this, &BluetoothMgr::handleDeviceDisconnected, Qt::UniqueConnection);
}

BrivonQXBleInterface *BluetoothMgr::plugin() const
{
    return m_pluginRoot ? m_interface : nullptr;
}

// ---- BaseDevice operations ---------------------------------------------------------------------

void BluetoothMgr::refreshDevices()
{
    startScan();
}

void BluetoothMgr::startScan()
{
    if (auto *iface = plugin())
        iface->startScan();
}

void BluetoothMgr::stopScan()
{
    if (auto *iface = plugin())
        iface->stopScan();
}

void BluetoothMgr::connectToDevice(const QString &addr)
{
    qDebug().noquote() << "[BluetoothMgr::connectToDevice]: addr:" << addr;
    if (auto *iface = plugin())
        iface->connectToDevice(addr);
}

bool BluetoothMgr::reconnectDevice(const QString &addr)
{
    qDebug().noquote() << "[BluetoothMgr::reconnectDevice]:  addr:" << addr;
    emit sigReconnectDevice(addr);
    auto *iface = plugin();
    return iface ? iface->reconnectDevice(addr) : false;
}

void BluetoothMgr::removeDevice(const QString &addr)
{
    qDebug().noquote() << "[BluetoothMgr::removeDevice]:  addr:" << addr;
    m_adjusting.remove(addr);
    if (auto *iface = plugin())
        iface->removeDevice(addr);
}

void BluetoothMgr::setAdjusting(const QString &addr, bool on)
{
    if (on)
        m_adjusting.insert(addr);
    else
        m_adjusting.remove(addr);
}

void BluetoothMgr::delDev(const QString &groupUuid, const QString &addr)
{
    Q_UNUSED(groupUuid)
    removeDevice(addr);
}

int BluetoothMgr::getProtocolType(const QString &addr)
{
    const DevData *dev = m_store ? m_store->findDev(addr) : nullptr;
    if (!dev) {
        qDebug().noquote() << "[BluetoothMgr::getProtocolType] not found mac addr:" << addr;
        return -1;
    }
    return dev->protocol;
}

// ---- frames ------------------------------------------------------------------------------------

BluetoothMgr::Family BluetoothMgr::familyOf(int protocol) const
{
    if (protocol < 0) {
        qDebug().noquote().nospace() << "protocol type error: " << protocol;
        return Family::None;
    }
    if (isVTypeAlwaysApplied(protocol) || isVTypeHeld(protocol))
        return Family::VType;
    if (protocol == k55AAKey)
        return Family::Frame55AA;
    return Family::None;
}

bluetoothProtocolBase *BluetoothMgr::codec(int key) const
{
    return m_protocols.value(key).get();
}

bluetoothProtocol *BluetoothMgr::vCodec() const
{
    return static_cast<bluetoothProtocol *>(codec(kVTypeKey));
}

bluetoothProtocol2 *BluetoothMgr::aaCodec() const
{
    return static_cast<bluetoothProtocol2 *>(codec(k55AAKey));
}

void BluetoothMgr::send(const QString &addr, const QByteArray &frame)
{
    if (frame.isEmpty())
        return;
    if (auto *iface = plugin())
        iface->writeData(addr, frame);
}

QByteArray BluetoothMgr::modeFrame(const DevData &dev, int brightness) const
{
    if (dev.devCurModel == 2) {
        if (dev.lightEffect.isEmpty()) {
            // The same text for powerOn, powerOff and setBrightness, as the original has it.
            qDebug().noquote() << "[BluetoothMgr::setBrightness], lightEffect is empty, devCurModel:" << dev.devCurModel;
            return {};
        }
        return aaCodec()->effectModeFrame(brightness, dev.lightEffect);
    }
    return aaCodec()->cctModeFrame(brightness, dev.temperature);
}

// ---- control operations ------------------------------------------------------------------------

void BluetoothMgr::powerOn(const QString &addr)
{
    const DevData *stored = m_store ? m_store->findDev(addr) : nullptr;
    if (!stored || stored->linkState == kOffline || stored->switchState)
        return;
    DevData dev = *stored;
    switch (familyOf(dev.protocol)) {
    case Family::VType:
        send(addr, vCodec()->powerFrame(true));
        break;
    case Family::Frame55AA: {
        // Only a light whose brightness was never known comes back at 1.
        const int brightness = dev.oldBrightness < 1 ? 1 : dev.oldBrightness;
        dev.brightness = brightness;
        send(addr, modeFrame(dev, brightness));
        break;
    }
    case Family::None:
        break;
    }
    dev.switchState = true;
    m_store->updateDev(dev);
}

std::optional<DevData> BluetoothMgr::poweredRecord(const QString &addr) const
{
    const DevData *stored = m_store ? m_store->findDev(addr) : nullptr;
    if (!stored || !stored->switchState)
        return std::nullopt;
    return *stored;
}

void BluetoothMgr::powerOff(const QString &addr)
{
    std::optional<DevData> switchedOn = poweredRecord(addr);
    if (!switchedOn)
        return;
    DevData &dev = *switchedOn;
    QByteArray frame;
    switch (familyOf(dev.protocol)) {
    case Family::VType:
        frame = vCodec()->powerFrame(false);
        break;
    case Family::Frame55AA:
        frame = modeFrame(dev, 0);
        if (dev.brightness >= 1)
            dev.oldBrightness = dev.brightness;
        break;
    case Family::None:
        break;
    }
    if (frame.isEmpty())
        return;
    send(addr, frame);
    dev.switchState = false;
    m_store->updateDev(dev);
}

void BluetoothMgr::setBrightness(const QString &addr, int value)
{
    std::optional<DevData> switchedOn = poweredRecord(addr);
    if (!switchedOn)
        return;
    DevData &dev = *switchedOn;
    if (dev.protocol == k55AAKey) {
        bool changed = false;
        assignAaBrightness(dev, value, changed);
    } else {
        dev.brightness = value;
    }
    m_store->updateDev(dev);
    switch (familyOf(dev.protocol)) {
    case Family::VType:
        send(addr, vCodec()->brightnessFrame(value));
        break;
    case Family::Frame55AA:
        send(addr, modeFrame(dev, value));
        break;
    case Family::None:
        break;
    }
}

void BluetoothMgr::setTemperature(const QString &addr, int value)
{
    std::optional<DevData> switchedOn = poweredRecord(addr);
    if (!switchedOn)
        return;
    DevData &dev = *switchedOn;
    dev.temperature = value;
    dev.devCurModel = 1;
    m_store->updateDev(dev);
    switch (familyOf(dev.protocol)) {
    case Family::VType:
        send(addr, vCodec()->temperatureFrame(value));
        break;
    case Family::Frame55AA:
        send(addr, aaCodec()->cctModeFrame(dev.brightness, value));
        break;
    case Family::None:
        break;
    }
}

void BluetoothMgr::setLightEffect(const QString &addr, const QString &effect)
{
    std::optional<DevData> switchedOn = poweredRecord(addr);
    if (!switchedOn)
        return;
    DevData &dev = *switchedOn;
    dev.lightEffect = effect;
    dev.devCurModel = 2;
    m_store->updateDev(dev);
    if (effect.isEmpty())
        return;
    switch (familyOf(dev.protocol)) {
    case Family::VType:
        send(addr, vCodec()->effectFrame(effect));
        break;
    case Family::Frame55AA:
        send(addr, aaCodec()->effectModeFrame(dev.brightness, effect));
        break;
    case Family::None:
        break;
    }
}

void BluetoothMgr::setColor(const QString &addr, const QColor &color)
{
    std::optional<DevData> switchedOn = poweredRecord(addr);
    if (!switchedOn)
        return;
    DevData &dev = *switchedOn;
    dev.colorLight = color.name();
    dev.devCurModel = 3;
    m_store->updateDev(dev);
    if (familyOf(dev.protocol) == Family::VType && isColorCapable(dev.protocol))
        send(addr, vCodec()->colorFrame(color.hsvHue(), color.hsvSaturation()));
}

// ---- plug-in signals ---------------------------------------------------------------------------

void BluetoothMgr::handleDeviceDiscovered(int protocolType, QString devAddr, QString devName)
{
    qDebug().noquote() << "[BluetoothMgr::handleDeviceDiscovered]:  addr:" << devAddr;
    DevData dev;
    dev.protocol = protocolType;
    dev.addr = devAddr;
    dev.name = devName;
    dev.switchState = false;
    dev.devCurModel = -1;
    dev.lightEffectEnable = true;
    switch (protocolType) {
    case 1: case 3: case 5: case 6: case 162: case 163:
        dev.colorLightEnable = false;
        break;
    case 2: case 7:
        dev.colorLightEnable = true;
        break;
    case 1001:
        dev.colorLightEnable = false;
        dev.lightEffectEnable = false;
        dev.brightnessMin = k55AABrightnessMin;
        dev.brightnessMax = k55AABrightnessMax;
        dev.temperatureMin = k55AATemperatureMin;
        dev.temperatureMax = k55AATemperatureMax;
        break;
    default:
        break;
    }
    emit sigDeviceDiscovered(dev);

    // Known lights reconnect as soon as they are seen.
    const DevData *stored = m_store ? m_store->findDev(devAddr) : nullptr;
    if (stored && stored->linkState == kOffline)
        connectToDevice(devAddr);
}

void BluetoothMgr::handleDeviceConnected(QString devAddr)
{
    qDebug().noquote() << "[BluetoothMgr::handleDeviceConnected]:  addr:" << devAddr;
    const DevData *stored = m_store ? m_store->findDev(devAddr) : nullptr;
    if (!stored)
        return;
    DevData dev = *stored;
    dev.linkState = kOnline;
    if (dev.protocol == k55AAKey) {
        dev.brightnessMin = k55AABrightnessMin;
        dev.brightnessMax = k55AABrightnessMax;
        dev.temperatureMin = k55AATemperatureMin;
        dev.temperatureMax = k55AATemperatureMax;
        // A 55 AA light is online only once it has reported its mode (command 06).
        dev.linkState = kOffline;
        m_store->updateDevParamRange(dev);
    }
    m_store->updateDev(dev);

    switch (familyOf(dev.protocol)) {
    case Family::VType:
        send(devAddr, vCodec()->stateRequestFrame());
        break;
    case Family::Frame55AA:
        send(devAddr, aaCodec()->requestFrame(bluetoothProtocol2::kCmdCurMode));
        break;
    case Family::None:
        break;
    }
}

void BluetoothMgr::handleDeviceDisconnected(QString devAddr)
{
    qDebug().noquote() << "[BluetoothMgr::handleDeviceDisconnected]:  addr:" << devAddr;
    const DevData *stored = m_store ? m_store->findDev(devAddr) : nullptr;
    if (!stored)
        return;
    DevData dev = *stored;
    dev.linkState = kOffline;
    m_store->updateDev(dev);
}

void BluetoothMgr::handleMessageReceived(QString devAddr, QByteArray data)
{
    qDebug().noquote() << "[BluetoothMgr::handleMessageReceived]:  addr:" << devAddr << data.toHex();
    const int protocol = getProtocolType(devAddr);
    if (protocol < 0) {
        qDebug().noquote().nospace() << "protocol type error: " << protocol;
        return;
    }

    const bool adjusting = m_adjusting.contains(devAddr);
    if (isVTypeAlwaysApplied(protocol) || (isVTypeHeld(protocol) && !adjusting)) {
        FrameHeader header;
        std::vector<quint8> payload;
        if (vCodec()->parseFrame(data, header, payload))
            doVTypeDevRecvData(devAddr, payload);
        return;
    }
    if (protocol != k55AAKey || adjusting)
        return;

    FrameHeader2 header;
    std::vector<quint8> payload;
    if (!aaCodec()->parseFrame2(data, header, payload))
        return;
    switch (header.cmd) {
    case bluetoothProtocol2::kCmdMode:
    case bluetoothProtocol2::kCmdModeReport:
        doDevModeReport(devAddr, payload);
        break;
    case bluetoothProtocol2::kCmdCurMode: {
        if (payload.size() < 4)
            return;
        const DevData *stored = m_store->findDev(devAddr);
        if (!stored)
            return;
        DevData dev = *stored;
        dev.linkState = kOnline;
        m_store->updateDev(dev);
        doDevCurModelData(devAddr, payload);
        send(devAddr, aaCodec()->requestFrame(bluetoothProtocol2::kCmdProductInfo));
        break;
    }
    case bluetoothProtocol2::kCmdCCTData:
        doDevCCTModelData(devAddr, payload);
        break;
    case bluetoothProtocol2::kCmdProductInfo:
        doDevProductBaseInfo(devAddr, payload);
        break;
    case bluetoothProtocol2::kCmdModifyUpload:
        doDevModifyDataUpload(devAddr, payload);
        break;
    default:
        break;
    }
}

// ---- notification decoding ---------------------------------------------------------------------

void BluetoothMgr::doVTypeDevRecvData(const QString &addr, const std::vector<quint8> &payload)
{
    VTypeReport report;
    if (!VTypeReport::decode(payload, report))
        return;
    const DevData *stored = m_store->findDev(addr);
    if (!stored)
        return;
    DevData dev = *stored;
    bool changed = false;
    assign(dev.brightness, report.brightness, changed);
    assign(dev.temperature, report.temperature, changed);
    // Hue and saturation (percent) are the BLE manager's run-time values.
    assign(dev.auxValue1, report.hue, changed);
    assign(dev.auxValue2, report.saturation, changed);
    assign(dev.lightEffect, report.effectText(), changed);
    if (report.mode == 3)
        assign(dev.colorLight, report.colorName(), changed);
    assign(dev.devCurModel, report.devCurModel(), changed);
    assign(dev.switchState, report.powerOn, changed);
    if (dev.linkState == kOffline)
        assign(dev.linkState, kOnline, changed);

    qDebug().noquote() << "[BluetoothMgr::doVTypeDevRecvData]:  addr:" << addr
                       << ", brightness:" << report.brightness << ", temperature:" << report.temperature
                       << ", hue:" << report.hue << ", saturation:" << report.saturation
                       << ", lightEffect:" << dev.lightEffect << ", devCurModel:" << dev.devCurModel
                       << ", powerOn:" << report.powerOn;
    if (changed)
        m_store->updateDev(dev);
}

void BluetoothMgr::doDevModeReport(const QString &addr, const std::vector<quint8> &payload)
{
    if (payload.size() < 4 || payload[0] != bluetoothProtocol2::kModeCCT)
        return;
    const DevData *stored = m_store->findDev(addr);
    if (!stored)
        return;
    DevData dev = *stored;
    bool changed = false;
    assignAaBrightness(dev, int(payload[1]), changed);
    assign(dev.temperature, u16(payload, 2), changed);
    if (changed)
        m_store->updateDev(dev);
}

void BluetoothMgr::doDevCurModelData(const QString &addr, const std::vector<quint8> &payload)
{
    if (payload.size() < 4)
        return;
    if (payload[0] == bluetoothProtocol2::kModeEffect) {
        applyEffectModeReport("[BluetoothMgr::doDevCurModelData], addr:", addr, payload);
        return;
    }
    if (payload[0] != bluetoothProtocol2::kModeCCT)
        return;
    const DevData *stored = m_store->findDev(addr);
    if (!stored)
        return;
    DevData dev = *stored;
    bool changed = false;
    const int brightness = payload[1];
    if (dev.switchState) {
        assignAaBrightness(dev, brightness, changed);
    } else {
        changed = true;
        if (brightness != 0) {
            dev.switchState = true;
            dev.brightness = brightness;
        } else {
            dev.brightness = dev.oldBrightness < 1 ? 0 : dev.oldBrightness;
        }
    }
    assign(dev.temperature, u16(payload, 2), changed);
    assign(dev.devCurModel, 1, changed);
    qDebug().noquote() << "[BluetoothMgr::doDevCurModelData], addr:" << addr << ", brightness:" << dev.brightness
                       << ", temperature:" << dev.temperature << ", devCurModel:" << dev.devCurModel
                       << ", toUpdate:" << changed;
    if (changed)
        m_store->updateDev(dev);
}

void BluetoothMgr::applyEffectModeReport(const char *where, const QString &addr, const std::vector<quint8> &payload)
{
    const DevData *stored = m_store->findDev(addr);
    if (!stored)
        return;
    DevData dev = *stored;
    bool changed = false;
    assignAaBrightness(dev, int(payload[1]), changed);
    // An effect that shines means the light is on, whoever switched it on.
    if (payload[1] > 0)
        assign(dev.switchState, true, changed);
    assign(dev.lightEffect, bluetoothProtocol2::effectText(payload[2], payload[3]), changed);
    assign(dev.devCurModel, 2, changed);
    qDebug().noquote() << where << addr << ", brightness:" << dev.brightness << ", effectCmd:" << dev.lightEffect
                       << ", devCurModel:" << dev.devCurModel << ", toUpdate:" << changed;
    if (changed)
        m_store->updateDev(dev);
    // Keep the stored temperature current while the light runs an effect.
    send(addr, aaCodec()->requestFrame(bluetoothProtocol2::kCmdCCTData));
}

void BluetoothMgr::doDevCCTModelData(const QString &addr, const std::vector<quint8> &payload)
{
    if (payload.size() < 3)
        return;
    const DevData *stored = m_store->findDev(addr);
    if (!stored)
        return;
    DevData dev = *stored;
    bool changed = false;
    assignAaBrightness(dev, int(payload[0]), changed);
    assign(dev.temperature, u16(payload, 1), changed);
    qDebug().noquote() << "[BluetoothMgr::doDevCCTModelData], brightness:" << dev.brightness
                       << ", temperature:" << dev.temperature << ", toUpdate:" << changed;
    if (changed)
        m_store->updateDev(dev);
}

void BluetoothMgr::doDevProductBaseInfo(const QString &addr, const std::vector<quint8> &payload)
{
    ProductBaseInfo info;
    if (!ProductBaseInfo::decode(payload, info))
        return;
    qDebug().noquote() << "[BluetoothMgr::doDevProductBaseInfo], addr:" << addr << ", productId:" << info.productId
                       << ", softwareVersion:" << info.softwareVersion
                       << ", hardwareVersion:" << info.hardwareVersion;
}

void BluetoothMgr::doDevModifyDataUpload(const QString &addr, const std::vector<quint8> &payload)
{
    if (payload.size() < 4)
        return;
    if (payload[0] == bluetoothProtocol2::kModeEffect) {
        applyEffectModeReport("[BluetoothMgr::doDevModifyDataUpload], addr:", addr, payload);
        return;
    }
    if (payload[0] != bluetoothProtocol2::kModeCCT)
        return;
    const DevData *stored = m_store->findDev(addr);
    if (!stored)
        return;
    DevData dev = *stored;
    bool changed = false;
    bool resend = false;
    const int brightness = payload[1];
    if (dev.switchState) {
        assignAaBrightness(dev, brightness, changed);
    } else {
        dev.switchState = true;
        changed = true;
        if (brightness != 0) {
            dev.brightness = brightness;
            if (dev.oldBrightness < 1)
                dev.oldBrightness = brightness;
            resend = true;
        } else {
            resend = dev.oldBrightness >= 1;
        }
    }
    assign(dev.temperature, u16(payload, 2), changed);
    if (!dev.lightEffect.isEmpty())
        assign(dev.lightEffect, QStringLiteral("#-100"), changed);
    assign(dev.devCurModel, 1, changed);
    qDebug().noquote() << "[BluetoothMgr::doDevModifyDataUpload], addr:" << addr << ", brightness:" << dev.brightness
                       << ", temperature:" << dev.temperature << ", devCurModel:" << dev.devCurModel
                       << ", toUpdate:" << changed;
    if (changed)
        m_store->updateDev(dev);
    if (resend)
        setBrightness(addr, dev.oldBrightness);
}
