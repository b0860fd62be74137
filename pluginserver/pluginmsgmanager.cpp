#include "pluginmsgmanager.h"

#include "devicemgr.h"
#include "websocketserver.h"

#include <QColor>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <cmath>

namespace {

QJsonObject rangeObject(int value, int max, int min, int ratio)
{
    return QJsonObject{{QStringLiteral("value"), value},
                       {QStringLiteral("max"), max},
                       {QStringLiteral("min"), min},
                       {QStringLiteral("ratio"), ratio}};
}

// A number as decks send it: a JSON number or a text holding one. NaN and the infinities are no
// numbers here.
bool readNumber(const QJsonValue &value, double *number)
{
    bool ok = value.isDouble();
    double read = value.toDouble();
    if (value.isString())
        read = value.toString().trimmed().toDouble(&ok);
    if (!ok || !std::isfinite(read))
        return false;
    *number = read;
    return true;
}

// Clamped, then rounded to the nearest whole number (halves away from zero).
int roundedWithin(double number, int low, int high)
{
    if (low > high)
        std::swap(low, high);
    return int(std::lround(std::min(std::max(number, double(low)), double(high))));
}

QString requestKey(const QString &addr, int kind)
{
    return addr + QLatin1Char('\n') + QString::number(kind);
}

} // namespace

PluginMsgManager::PluginMsgManager(QObject *parent)
    : QObject(parent)
    , m_deviceMgr(DeviceMgrSingleton::instance())
    , m_server(new WebSocketServer(this))
    , m_requests(kPaceMs)
    , m_stateNotices(kPaceMs)
{
    connect(m_server, &WebSocketServer::receiveMessage, this, &PluginMsgManager::onReceiveMessage);

    DevDataMgr *store = m_deviceMgr->store();
    connect(store, &DevDataMgr::onAddDev, this, &PluginMsgManager::onStoreChanged);
    connect(store, &DevDataMgr::onDelDev, this, &PluginMsgManager::onStoreChanged);
    connect(store, &DevDataMgr::onAddGroup, this, &PluginMsgManager::onStoreChanged);
    connect(store, &DevDataMgr::onDelGroup, this, &PluginMsgManager::onStoreChanged);
    connect(store, &DevDataMgr::onUpdateDev, this,
            [this](const QString &uuid, const QString &, const DevData &info) { onDeviceUpdated(uuid, info); });
    connect(store, &DevDataMgr::onUpdateGroup, this, [this](const QString &uuid, const QString &newName) {
        send(kCmdNotice, QStringLiteral("rename"),
             QJsonObject{{QStringLiteral("id"), uuid}, {QStringLiteral("value"), newName}});
    });

    const DevDataMgr::DeviceTable &devices = m_deviceMgr->getDevices();
    for (const DevData &dev : devices) {
        m_announced.insert(dev.addr, stateOf(dev));
        m_powerFlag.insert(dev.addr, dev.switchState);
    }
    const DevDataMgr::GroupTable &groups = m_deviceMgr->getGroups();
    for (const GroupData &group : groups)
        m_groupOn.insert(group.uuid, groupIsOn(group.uuid));
}

PluginMsgManager::~PluginMsgManager() = default;

void PluginMsgManager::send(int cmd, const QString &subCmd, const QJsonObject &param)
{
    const QJsonObject envelope{{QStringLiteral("cmd"), cmd},
                               {QStringLiteral("subCmd"), subCmd},
                               {QStringLiteral("param"), param}};
    m_server->sendMessage(QString::fromUtf8(QJsonDocument(envelope).toJson(QJsonDocument::Compact)));
}

void PluginMsgManager::refuse(const QString &id, const QString &subCmd, const QString &reason)
{
    const QJsonObject envelope{
        {QStringLiteral("cmd"), kCmdControl},
        {QStringLiteral("subCmd"), QStringLiteral("error")},
        {QStringLiteral("param"), QJsonObject{{QStringLiteral("id"), id},
                                              {QStringLiteral("subCmd"), subCmd},
                                              {QStringLiteral("reason"), reason}}}};
    m_server->replyToSender(QString::fromUtf8(QJsonDocument(envelope).toJson(QJsonDocument::Compact)));
}

// The lights a group's switch acts on are those whose power may be switched; its listed state
// counts the same lights.
bool PluginMsgManager::groupIsOn(const QString &uuid) const
{
    const QList<DevData> members = m_deviceMgr->getGroupDevices(uuid);
    return std::any_of(members.cbegin(), members.cend(),
                       [](const DevData &dev) { return dev.enablePower && dev.switchState; });
}

PluginMsgManager::LightState PluginMsgManager::stateOf(const DevData &dev)
{
    return LightState{dev.switchState, dev.brightness, dev.temperature, dev.colorLight, dev.lightEffect,
                      dev.linkState != 0};
}

QJsonObject PluginMsgManager::lightObject(const DevData &dev) const
{
    QJsonArray effects;
    const QList<EffectItem> items = m_deviceMgr->lightEffects(dev);
    for (const EffectItem &effect : items)
        effects.append(QJsonObject{{QStringLiteral("name"), effect.name}, {QStringLiteral("cmd"), effect.cmd}});
    return QJsonObject{
        {QStringLiteral("type"), dev.protocol},
        {QStringLiteral("name"), dev.name},
        {QStringLiteral("id"), dev.addr},
        {QStringLiteral("switch"), dev.switchState},
        {QStringLiteral("brightness"), dev.brightness},
        {QStringLiteral("temperature"),
         rangeObject(dev.temperature, dev.temperatureMax, dev.temperatureMin, dev.temperatureRatio)},
        {QStringLiteral("isEnableColor"), dev.colorLightEnable},
        {QStringLiteral("isEnableEffect"), dev.lightEffectEnable},
        {QStringLiteral("linked"), dev.linkState != 0},
        {QStringLiteral("effects"), effects},
    };
}

QJsonObject PluginMsgManager::deviceList() const
{
    QJsonArray lights;
    const DevDataMgr::DeviceTable &devices = m_deviceMgr->getDevices();
    for (const DevData &dev : devices)
        lights.append(lightObject(dev));

    // A group carries only its name, id and combined power state; the rest is fixed on purpose.
    QJsonArray groups;
    const DevDataMgr::GroupTable &groupTable = m_deviceMgr->getGroups();
    for (const GroupData &group : groupTable) {
        groups.append(QJsonObject{
            {QStringLiteral("name"), group.name},
            {QStringLiteral("id"), group.uuid},
            {QStringLiteral("type"), 1001},
            {QStringLiteral("switch"), groupIsOn(group.uuid)},
            {QStringLiteral("brightness"), 0},
            {QStringLiteral("temperature"), rangeObject(0, 100, 0, 1)},
            {QStringLiteral("isEnableColor"), false},
            {QStringLiteral("isEnableEffect"), false},
        });
    }

    // Kept for clients written before each light carried its own list.
    QJsonArray effects;
    QSet<int> protocols;
    for (const DevData &dev : devices)
        protocols.insert(dev.protocol);
    QList<int> sorted(protocols.cbegin(), protocols.cend());
    std::sort(sorted.begin(), sorted.end());
    QSet<QString> seen;
    for (int protocol : qAsConst(sorted)) {
        const QList<EffectItem> items = m_deviceMgr->getEffectData().effects(protocol);
        for (const EffectItem &effect : items) {
            if (seen.contains(effect.cmd + QLatin1Char('\n') + effect.name))
                continue;
            seen.insert(effect.cmd + QLatin1Char('\n') + effect.name);
            effects.append(QJsonObject{{QStringLiteral("name"), effect.name}, {QStringLiteral("cmd"), effect.cmd}});
        }
    }

    return QJsonObject{{QStringLiteral("light"), lights},
                       {QStringLiteral("group"), groups},
                       {QStringLiteral("effect"), effects}};
}

void PluginMsgManager::updateDeviceListNotice()
{
    send(kCmdNotice, QStringLiteral("listdevice"), deviceList());
}

void PluginMsgManager::onStoreChanged()
{
    // What decks were last told follows the store's lights and groups; the list notice itself
    // carries any change that came with the addition or removal.
    const DevDataMgr::DeviceTable &devices = m_deviceMgr->getDevices();
    for (const DevData &dev : devices) {
        if (!m_announced.contains(dev.addr)) {
            m_announced.insert(dev.addr, stateOf(dev));
            m_powerFlag.insert(dev.addr, dev.switchState);
        }
    }
    const QStringList known = m_announced.keys();
    for (const QString &addr : known) {
        if (devices.contains(addr))
            continue;
        m_announced.remove(addr);
        m_powerFlag.remove(addr);
        m_powerTarget.remove(addr);
        m_stateNotices.forget(addr);
        for (int kind = int(Kind::Power); kind <= int(Kind::Effect); ++kind)
            m_requests.forget(requestKey(addr, kind));
    }
    m_groupOn.clear();
    const DevDataMgr::GroupTable &groups = m_deviceMgr->getGroups();
    for (const GroupData &group : groups)
        m_groupOn.insert(group.uuid, groupIsOn(group.uuid));
    updateDeviceListNotice();
}

void PluginMsgManager::onDeviceUpdated(const QString &uuid, const DevData &info)
{
    // The store announces one update per group holding the light; answer the first one only.
    if (uuid != defaultGroupUuid())
        return;

    // "switch" notices tell real changes of power only, not every report of the light.
    const auto flag = m_powerFlag.find(info.addr);
    if (flag == m_powerFlag.end() || *flag != info.switchState) {
        m_powerFlag.insert(info.addr, info.switchState);
        send(kCmdNotice, QStringLiteral("switch"),
             QJsonObject{{QStringLiteral("id"), info.addr}, {QStringLiteral("value"), info.switchState}});
    }
    const DevDataMgr::GroupTable &groups = m_deviceMgr->getGroups();
    for (const GroupData &group : groups) {
        if (!group.devs.contains(info.addr))
            continue;
        const bool on = groupIsOn(group.uuid);
        const auto known = m_groupOn.find(group.uuid);
        if (known != m_groupOn.end() && *known == on)
            continue;
        m_groupOn.insert(group.uuid, on);
        send(kCmdNotice, QStringLiteral("switch"),
             QJsonObject{{QStringLiteral("id"), group.uuid}, {QStringLiteral("value"), on}});
    }

    if (stateOf(info) != m_announced.value(info.addr)) {
        const QString addr = info.addr;
        m_stateNotices.submit(addr, [this, addr] { sendState(addr); });
    }
}

void PluginMsgManager::sendState(const QString &addr)
{
    const DevData *dev = m_deviceMgr->store()->findDev(addr);
    if (!dev)
        return;
    // The latest state, whatever happened in between; nothing when it ended where it was.
    const LightState state = stateOf(*dev);
    if (m_announced.value(addr) == state)
        return;
    m_announced.insert(addr, state);
    send(kCmdNotice, QStringLiteral("state"), lightObject(*dev));
}

void PluginMsgManager::onReceiveMessage(QString message)
{
    const QJsonObject request = QJsonDocument::fromJson(message.toUtf8()).object();
    if (request.isEmpty() || !request.contains(QLatin1String("cmd")) || !request.contains(QLatin1String("subCmd")))
        return;
    const int cmd = request.value(QLatin1String("cmd")).toInt();
    const QString subCmd = request.value(QLatin1String("subCmd")).toString();

    if (cmd == kCmdQuery) {
        if (subCmd == QLatin1String("listdevice"))
            send(kCmdQuery, subCmd, deviceList());
        return;
    }
    if (cmd == kCmdControl)
        handleControl(subCmd, request.value(QLatin1String("param")));
}

bool PluginMsgManager::effectivePower(const DevData &dev) const
{
    return m_powerTarget.value(dev.addr, dev.switchState);
}

QString PluginMsgManager::refusal(const DevData &dev, Kind kind, const QString &effect) const
{
    if (dev.linkState == 0)
        return QStringLiteral("light is not connected");
    switch (kind) {
    case Kind::Power:
        return dev.enablePower ? QString() : QStringLiteral("power of this light cannot be switched");
    case Kind::Color:
        if (!dev.colorLightEnable)
            return QStringLiteral("colour not available on this light");
        break;
    case Kind::Effect: {
        const QList<EffectItem> effects = m_deviceMgr->lightEffects(dev);
        if (std::none_of(effects.cbegin(), effects.cend(), [&](const EffectItem &item) { return item.cmd == effect; }))
            return QStringLiteral("effect not available on this light");
        break;
    }
    case Kind::Brightness:
    case Kind::Temperature:
        break;
    }
    // As in the window, a light that is off has its controls off.
    return effectivePower(dev) ? QString() : QStringLiteral("light is switched off");
}

void PluginMsgManager::enqueue(const QString &addr, Kind kind, std::function<void()> action)
{
    // A request behind a waiting power request goes out after it: a light that is still off
    // would drop it.
    const bool behindPower = kind != Kind::Power && m_requests.isWaiting(requestKey(addr, int(Kind::Power)));
    m_requests.submit(requestKey(addr, int(kind)), std::move(action), behindPower);
}

void PluginMsgManager::handleControl(const QString &subCmd, const QJsonValue &paramValue)
{
    const QJsonObject param = paramValue.toObject();
    const QJsonValue idValue = param.value(QLatin1String("id"));
    const QString id = idValue.toString();
    if (!idValue.isString() || id.isEmpty()) {
        refuse(id, subCmd, QStringLiteral("param must be an object with an id"));
        return;
    }

    static const QHash<QString, Kind> kinds{{QStringLiteral("switch"), Kind::Power},
                                            {QStringLiteral("brightness"), Kind::Brightness},
                                            {QStringLiteral("temperature"), Kind::Temperature},
                                            {QStringLiteral("color"), Kind::Color},
                                            {QStringLiteral("effect"), Kind::Effect}};
    const auto kindIt = kinds.constFind(subCmd);
    if (kindIt == kinds.constEnd()) {
        refuse(id, subCmd, QStringLiteral("unknown command"));
        return;
    }
    const Kind kind = *kindIt;

    const bool isLight = m_deviceMgr->getDevices().contains(id);
    if (!isLight && !m_deviceMgr->getGroups().contains(id)) {
        refuse(id, subCmd, QStringLiteral("unknown id"));
        return;
    }
    const QList<DevData> targets = isLight ? QList<DevData>{m_deviceMgr->getDevices().value(id)}
                                           : m_deviceMgr->getGroupDevices(id);

    // The value, read once for all lights.
    const QJsonValue value = param.value(QLatin1String("value"));
    double number = 0;
    QColor color;
    QString effect;
    if (kind != Kind::Power && value.isUndefined()) {
        refuse(id, subCmd, QStringLiteral("value is missing"));
        return;
    }
    switch (kind) {
    case Kind::Power:
        break;
    case Kind::Brightness:
    case Kind::Temperature:
        if (!readNumber(value, &number)) {
            refuse(id, subCmd, QStringLiteral("value must be a number"));
            return;
        }
        break;
    case Kind::Color:
        color = QColor(value.toString());
        if (!value.isString() || !color.isValid()) {
            refuse(id, subCmd, QStringLiteral("value must be a colour name such as #ff8800"));
            return;
        }
        break;
    case Kind::Effect:
        // Some decks send an effect number as a JSON number.
        if (value.isDouble() && value.toDouble() == std::floor(value.toDouble()) && std::abs(value.toDouble()) < 1e9)
            effect = QString::number(qint64(value.toDouble()));
        else if (value.isString())
            effect = value.toString();
        else {
            refuse(id, subCmd, QStringLiteral("value must be an effect's cmd text"));
            return;
        }
        break;
    }

    // A group's switch: off when any of its switchable lights is on, else on.
    bool powerTarget = true;
    if (kind == Kind::Power) {
        powerTarget = !std::any_of(targets.cbegin(), targets.cend(), [this, isLight](const DevData &dev) {
            return (isLight || dev.enablePower) && effectivePower(dev);
        });
    }

    // Each light takes the request or refuses it on its own.
    QStringList reasons;
    bool anyTaken = false;
    for (const DevData &dev : targets) {
        const QString reason = refusal(dev, kind, effect);
        if (!reason.isEmpty()) {
            reasons << reason;
            continue;
        }
        anyTaken = true;
        const QString addr = dev.addr;
        switch (kind) {
        case Kind::Power:
            if (effectivePower(dev) == powerTarget)
                break;
            m_powerTarget.insert(addr, powerTarget);
            enqueue(addr, kind, [this, addr, powerTarget] {
                m_powerTarget.remove(addr);
                if (powerTarget)
                    m_deviceMgr->powerOn(addr);
                else
                    m_deviceMgr->powerOff(addr);
                for (int other = int(Kind::Brightness); other <= int(Kind::Effect); ++other)
                    m_requests.release(requestKey(addr, other));
            });
            break;
        case Kind::Brightness: {
            const int percent = roundedWithin(number, 0, 100);
            enqueue(addr, kind, [this, addr, percent] { m_deviceMgr->setBrightnessByRatio(addr, percent / 100.0); });
            break;
        }
        case Kind::Temperature: {
            const int kelvin = roundedWithin(number, dev.temperatureMin, dev.temperatureMax);
            enqueue(addr, kind, [this, addr, kelvin] { m_deviceMgr->setTemperature(addr, kelvin); });
            break;
        }
        case Kind::Color:
            enqueue(addr, kind, [this, addr, color] { m_deviceMgr->setColor(addr, color); });
            break;
        case Kind::Effect:
            enqueue(addr, kind, [this, addr, effect] { m_deviceMgr->setLightEffect(addr, effect); });
            break;
        }
    }
    if (anyTaken)
        return;
    if (targets.isEmpty())
        refuse(id, subCmd, QStringLiteral("group has no lights"));
    else if (reasons.count(reasons.first()) == reasons.size())
        refuse(id, subCmd, reasons.first());
    else
        refuse(id, subCmd, QStringLiteral("no light of this group can take this request"));
}
