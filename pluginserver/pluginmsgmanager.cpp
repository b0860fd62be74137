#include "pluginmsgmanager.h"

#include "devicemgr.h"
#include "websocketserver.h"

#include <QColor>
#include <QJsonArray>
#include <QJsonDocument>

namespace {

QJsonObject rangeObject(int value, int max, int min, int ratio)
{
    return QJsonObject{{QStringLiteral("value"), value},
                       {QStringLiteral("max"), max},
                       {QStringLiteral("min"), min},
                       {QStringLiteral("ratio"), ratio}};
}

} // namespace

PluginMsgManager::PluginMsgManager(QObject *parent)
    : QObject(parent)
    , m_deviceMgr(DeviceMgrSingleton::instance())
    , m_server(new WebSocketServer(this))
{
    connect(m_server, &WebSocketServer::receiveMessage, this, &PluginMsgManager::onReceiveMessage);

    DevDataMgr *store = m_deviceMgr->store();
    connect(store, &DevDataMgr::onAddDev, this, &PluginMsgManager::updateDeviceListNotice);
    connect(store, &DevDataMgr::onDelDev, this, &PluginMsgManager::updateDeviceListNotice);
    connect(store, &DevDataMgr::onAddGroup, this, &PluginMsgManager::updateDeviceListNotice);
    connect(store, &DevDataMgr::onDelGroup, this, &PluginMsgManager::updateDeviceListNotice);
    connect(store, &DevDataMgr::onUpdateDev, this,
            [this](const QString &uuid, const QString &, const DevData &info) { onDeviceUpdated(uuid, info); });
    connect(store, &DevDataMgr::onUpdateGroup, this, [this](const QString &uuid, const QString &newName) {
        send(kCmdNotice, QStringLiteral("rename"),
             QJsonObject{{QStringLiteral("id"), uuid}, {QStringLiteral("value"), newName}});
    });
}

PluginMsgManager::~PluginMsgManager() = default;

void PluginMsgManager::send(int cmd, const QString &subCmd, const QJsonObject &param)
{
    const QJsonObject envelope{{QStringLiteral("cmd"), cmd},
                               {QStringLiteral("subCmd"), subCmd},
                               {QStringLiteral("param"), param}};
    m_server->sendMessage(QString::fromUtf8(QJsonDocument(envelope).toJson(QJsonDocument::Compact)));
}

bool PluginMsgManager::groupIsOn(const QString &uuid) const
{
    const QList<DevData> members = m_deviceMgr->getGroupDevices(uuid);
    return std::any_of(members.cbegin(), members.cend(), [](const DevData &dev) { return dev.switchState; });
}

QJsonObject PluginMsgManager::deviceList() const
{
    QJsonArray lights;
    const DevDataMgr::DeviceTable &devices = m_deviceMgr->getDevices();
    for (const DevData &dev : devices) {
        lights.append(QJsonObject{
            {QStringLiteral("type"), dev.protocol},
            {QStringLiteral("name"), dev.name},
            {QStringLiteral("id"), dev.addr},
            {QStringLiteral("switch"), dev.switchState},
            {QStringLiteral("brightness"), dev.brightness},
            {QStringLiteral("temperature"),
             rangeObject(dev.temperature, dev.temperatureMax, dev.temperatureMin, dev.temperatureRatio)},
            {QStringLiteral("isEnableColor"), dev.colorLightEnable},
            {QStringLiteral("isEnableEffect"), dev.lightEffectEnable},
        });
    }

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

void PluginMsgManager::onDeviceUpdated(const QString &uuid, const DevData &info)
{
    // The store announces one update per group holding the light; answer the first one only.
    if (uuid != defaultGroupUuid())
        return;
    send(kCmdNotice, QStringLiteral("switch"),
         QJsonObject{{QStringLiteral("id"), info.addr}, {QStringLiteral("value"), info.switchState}});
    const DevDataMgr::GroupTable &groups = m_deviceMgr->getGroups();
    for (const GroupData &group : groups) {
        if (!group.devs.contains(info.addr))
            continue;
        const bool on = groupIsOn(group.uuid);
        if (on == info.switchState)
            send(kCmdNotice, QStringLiteral("switch"),
                 QJsonObject{{QStringLiteral("id"), group.uuid}, {QStringLiteral("value"), on}});
    }
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
    if (cmd != kCmdControl)
        return;
    const QJsonObject param = request.value(QLatin1String("param")).toObject();
    if (param.isEmpty() || !param.contains(QLatin1String("id")))
        return;
    handleControl(subCmd, param);
}

void PluginMsgManager::handleControl(const QString &subCmd, const QJsonObject &param)
{
    const QString id = param.value(QLatin1String("id")).toString();
    if (id.isEmpty())
        return;
    const bool isLight = m_deviceMgr->getDevices().contains(id);
    const bool isGroup = !isLight && m_deviceMgr->getGroups().contains(id);
    if (!isLight && !isGroup)
        return;
    const QList<DevData> targets = isLight ? QList<DevData>{m_deviceMgr->getDevices().value(id)}
                                           : m_deviceMgr->getGroupDevices(id);

    if (subCmd == QLatin1String("switch")) {
        if (isLight) {
            if (targets.first().switchState)
                m_deviceMgr->powerOff(id);
            else
                m_deviceMgr->powerOn(id);
            return;
        }
        QList<DevData> enabled;
        for (const DevData &dev : targets) {
            if (dev.enablePower)
                enabled.append(dev);
        }
        const bool anyOn = std::any_of(enabled.cbegin(), enabled.cend(), [](const DevData &dev) { return dev.switchState; });
        for (const DevData &dev : qAsConst(enabled)) {
            if (anyOn)
                m_deviceMgr->powerOff(dev.addr);
            else
                m_deviceMgr->powerOn(dev.addr);
        }
        return;
    }

    if (!param.contains(QLatin1String("value")))
        return;
    const QJsonValue value = param.value(QLatin1String("value"));
    if (subCmd == QLatin1String("brightness")) {
        if (!value.isDouble())
            return;
        const double ratio = qBound(0, value.toInt(), 100) * 0.01;
        for (const DevData &dev : targets)
            m_deviceMgr->setBrightnessByRatio(dev.addr, ratio);
    } else if (subCmd == QLatin1String("temperature")) {
        if (!value.isDouble())
            return;
        for (const DevData &dev : targets)
            m_deviceMgr->setTemperature(dev.addr, value.toInt());
    } else if (subCmd == QLatin1String("color")) {
        const QColor color(value.toString());
        if (!color.isValid())
            return;
        for (const DevData &dev : targets)
            m_deviceMgr->setColor(dev.addr, color);
    } else if (subCmd == QLatin1String("effect")) {
        if (!value.isString())
            return;
        for (const DevData &dev : targets)
            m_deviceMgr->setLightEffect(dev.addr, value.toString());
    }
}
