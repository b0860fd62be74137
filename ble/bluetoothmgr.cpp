#include "bluetoothmgr.h"

#include "bluetoothprotocol.h"
#include "bluetoothprotocol2.h"
#include "brivonqxbleinterface.h"
#include "devdatamgr.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QTimer>

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

ReconnectSchedule ReconnectSchedule::fromEnvironment()
{
    ReconnectSchedule schedule;
    const QStringList parts = qEnvironmentVariable(BluetoothMgr::kReconnectEnvVar).split(QLatin1Char(','));
    int *const fields[] = {&schedule.baseMs, &schedule.limitMs, &schedule.attemptTimeoutMs};
    for (int i = 0; i < parts.size() && i < 3; ++i) {
        bool ok = false;
        const int value = parts.at(i).trimmed().toInt(&ok);
        if (ok && value > 0 && value <= 3600 * 1000)
            *fields[i] = value;
    }
    schedule.limitMs = qMax(schedule.limitMs, schedule.baseMs);
    return schedule;
}

int ReconnectSchedule::pauseMs(int attempt, double unit) const
{
    qint64 nominal = baseMs;
    for (int i = 1; i < attempt && nominal < limitMs; ++i)
        nominal *= 2;
    nominal = qMin<qint64>(nominal, limitMs);
    return int(nominal - qint64(double(nominal) * 0.15 * qBound(0.0, unit, 1.0)));
}

BluetoothMgr::BluetoothMgr(std::shared_ptr<DevDataMgr> store, QObject *parent)
    : BluetoothMgr(std::move(store), nullptr, parent)
{
    loadPlugin();
}

BluetoothMgr::BluetoothMgr(std::shared_ptr<DevDataMgr> store, QObject *pluginInstance, QObject *parent)
    : BaseDevice(parent)
    , m_store(std::move(store))
    , m_schedule(ReconnectSchedule::fromEnvironment())
{
    m_protocols.insert(kVTypeKey, std::make_shared<bluetoothProtocol>());
    m_protocols.insert(k55AAKey, std::make_shared<bluetoothProtocol2>());
    if (pluginInstance)
        attachPlugin(pluginInstance);
    // A light the user removed is not tried again; on the way out nothing is.
    if (m_store) {
        connect(m_store.get(), &DevDataMgr::onDelDev, this, [this](const QString &uuid, const QString &, const QString &addr) {
            if (uuid == defaultGroupUuid())
                stopReconnecting(addr);
        });
    }
    if (QCoreApplication::instance())
        connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, this, &BluetoothMgr::stopAllReconnecting);
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
    m_unlinking.remove(addr);
    const DevData *stored = m_store ? m_store->findDev(addr) : nullptr;
    if (!stored || stored->linkState != kOffline) {
        if (auto *iface = plugin())
            iface->connectToDevice(addr);
        return;
    }
    // One attempt at a time per light: a scan that sees it while one runs changes nothing.
    if (linkRetry(addr).inFlight)
        return;
    beginAttempt(addr, false);
}

bool BluetoothMgr::reconnectDevice(const QString &addr)
{
    qDebug().noquote() << "[BluetoothMgr::reconnectDevice]:  addr:" << addr;
    emit sigReconnectDevice(addr);
    m_unlinking.remove(addr);
    auto *iface = plugin();
    if (!iface)
        return false;
    if (!m_store || !m_store->findDev(addr))
        return iface->reconnectDevice(addr);
    if (linkRetry(addr).inFlight)
        return true; // the attempt already under way answers for this one
    return beginAttempt(addr, true);
}

void BluetoothMgr::removeDevice(const QString &addr)
{
    qDebug().noquote() << "[BluetoothMgr::removeDevice]:  addr:" << addr;
    stopReconnecting(addr);
    m_unlinking.insert(addr);
    m_adjusting.remove(addr);
    if (auto *iface = plugin())
        iface->removeDevice(addr);
}

// ---- lost links --------------------------------------------------------------------------------

bool BluetoothMgr::isReconnecting(const QString &addr) const
{
    const auto it = m_retries.constFind(addr);
    return it != m_retries.constEnd() && it->reconnecting;
}

BluetoothMgr::LinkRetry &BluetoothMgr::linkRetry(const QString &addr)
{
    auto it = m_retries.find(addr);
    if (it == m_retries.end()) {
        it = m_retries.insert(addr, LinkRetry());
        it->since.start();
    }
    return *it;
}

void BluetoothMgr::arm(const QString &addr, int ms)
{
    const quint64 timer = ++m_lastTimer;
    linkRetry(addr).timer = timer;
    QTimer::singleShot(ms, this, [this, addr, timer] { onRetryTimer(addr, timer); });
}

void BluetoothMgr::onRetryTimer(const QString &addr, quint64 timer)
{
    const auto it = m_retries.find(addr);
    if (it == m_retries.end() || it->timer != timer)
        return;
    const DevData *dev = m_store ? m_store->findDev(addr) : nullptr;
    if (!dev || dev->linkState != kOffline) {
        stopReconnecting(addr);
        return;
    }
    if (it->inFlight) {
        attemptFailed(addr, "no answer");
        return;
    }
    qDebug().noquote() << "[BluetoothMgr::reconnect]: addr:" << addr << ", attempt:" << it->failed + 1;
    beginAttempt(addr, true);
}

bool BluetoothMgr::beginAttempt(const QString &addr, bool replace)
{
    linkRetry(addr).inFlight = true;
    auto *iface = plugin();
    // reconnectDevice drops what the plug-in still has going for the light before it starts again,
    // so two attempts for one light never run side by side.
    bool started = false;
    if (iface && replace) {
        started = iface->reconnectDevice(addr);
    } else if (iface) {
        iface->connectToDevice(addr);
        started = true;
    }
    if (!started) {
        attemptFailed(addr, "not started");
        return false;
    }
    arm(addr, m_schedule.attemptTimeoutMs);
    return true;
}

void BluetoothMgr::attemptFailed(const QString &addr, const char *why)
{
    const auto it = m_retries.find(addr);
    if (it == m_retries.end() || !it->inFlight)
        return;
    it->inFlight = false;
    ++it->failed;
    qDebug().noquote() << "[BluetoothMgr::attemptFailed]: addr:" << addr << ", reason:" << why
                       << ", failed:" << it->failed;
    scheduleReconnect(addr);
}

void BluetoothMgr::scheduleReconnect(const QString &addr)
{
    if (!m_store || !m_store->findDev(addr) || !plugin()) {
        stopReconnecting(addr);
        return;
    }
    LinkRetry &retry = linkRetry(addr);
    const int attempt = retry.failed + 1;
    const int pause = m_schedule.pauseMs(attempt, QRandomGenerator::global()->generateDouble());
    qDebug().noquote() << "[BluetoothMgr::scheduleReconnect]: addr:" << addr << ", attempt:" << attempt
                       << ", inMs:" << pause;
    const bool announce = !retry.reconnecting;
    retry.reconnecting = true;
    arm(addr, pause);
    if (announce)
        emit sigReconnecting(addr, true);
}

void BluetoothMgr::stopReconnecting(const QString &addr)
{
    const auto it = m_retries.find(addr);
    if (it == m_retries.end())
        return;
    const bool announced = it->reconnecting;
    m_retries.erase(it);
    if (announced)
        emit sigReconnecting(addr, false);
}

void BluetoothMgr::stopAllReconnecting()
{
    if (!m_retries.isEmpty())
        qDebug().noquote() << "[BluetoothMgr::stopAllReconnecting]: lights:" << m_retries.size();
    m_retries.clear();
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

QByteArray BluetoothMgr::modeFrame(DevData &dev, int brightness) const
{
    if (dev.devCurModel == 2) {
        const QByteArray effectFrame = aaCodec()->effectModeFrame(brightness, dev.lightEffect);
        if (!effectFrame.isEmpty())
            return effectFrame;
        // An effect that cannot be named again must not leave switch and brightness dead: the
        // light goes back to colour temperature.
        qDebug().noquote() << "[BluetoothMgr::modeFrame]: no effect frame, colour temperature instead, effect:"
                           << dev.lightEffect << ", addr:" << dev.addr;
        dev.devCurModel = 1;
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
    QByteArray frame;
    switch (familyOf(dev.protocol)) {
    case Family::VType:
        frame = vCodec()->powerFrame(true);
        break;
    case Family::Frame55AA: {
        // Only a light whose brightness was never known comes back at 1.
        const int brightness = dev.oldBrightness < 1 ? 1 : dev.oldBrightness;
        dev.brightness = brightness;
        frame = modeFrame(dev, brightness);
        break;
    }
    case Family::None:
        break;
    }
    // Nothing was sent, so the light did not come on.
    if (frame.isEmpty())
        return;
    send(addr, frame);
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
    QByteArray frame;
    switch (familyOf(dev.protocol)) {
    case Family::VType:
        frame = vCodec()->brightnessFrame(value);
        break;
    case Family::Frame55AA:
        frame = modeFrame(dev, value);
        break;
    case Family::None:
        break;
    }
    m_store->updateDev(dev);
    send(addr, frame);
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
    QByteArray frame;
    switch (familyOf(dev.protocol)) {
    case Family::VType:
        frame = vCodec()->effectFrame(effect);
        break;
    case Family::Frame55AA:
        frame = aaCodec()->effectModeFrame(dev.brightness, effect);
        break;
    case Family::None:
        break;
    }
    // A text the light's family cannot run changes nothing: no frame, no stored effect mode.
    if (frame.isEmpty()) {
        qDebug().noquote() << "[BluetoothMgr::setLightEffect]: no such effect, addr:" << addr << ", effect:" << effect;
        return;
    }
    dev.lightEffect = effect;
    dev.devCurModel = 2;
    m_store->updateDev(dev);
    send(addr, frame);
}

void BluetoothMgr::setColor(const QString &addr, const QColor &color)
{
    std::optional<DevData> switchedOn = poweredRecord(addr);
    if (!switchedOn)
        return;
    // Only the colour lights have a colour mode; the others keep theirs.
    if (familyOf(switchedOn->protocol) != Family::VType || !isColorCapable(switchedOn->protocol))
        return;
    DevData &dev = *switchedOn;
    dev.colorLight = color.name();
    dev.devCurModel = 3;
    m_store->updateDev(dev);
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
    m_unlinking.remove(devAddr);
    const auto retry = m_retries.constFind(devAddr);
    if (retry != m_retries.constEnd()) {
        if (retry->reconnecting) {
            qDebug().noquote() << "[BluetoothMgr::handleDeviceConnected]: reconnected, addr:" << devAddr
                               << ", failed attempts:" << retry->failed << ", afterMs:" << retry->since.elapsed();
        }
        stopReconnecting(devAddr);
    }
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
    if (!stored) {
        stopReconnecting(devAddr);
        return;
    }
    DevData dev = *stored;
    dev.linkState = kOffline;
    m_store->updateDev(dev);

    if (m_unlinking.contains(devAddr))
        return;
    const auto retry = m_retries.constFind(devAddr);
    if (retry == m_retries.constEnd()) {
        // The link dropped (or an attempt made elsewhere failed): bring it back on its own.
        qDebug().noquote() << "[BluetoothMgr::handleDeviceDisconnected]: link lost, addr:" << devAddr;
        scheduleReconnect(devAddr);
    } else if (retry->inFlight) {
        attemptFailed(devAddr, "refused");
    }
    // Otherwise a late word about an attempt already given up: the next one is scheduled.
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
