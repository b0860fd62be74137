#include "devdatamgr.h"

#include "appdatapaths.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QUuid>

namespace {

const QString kConfigFileName = QStringLiteral("lightconfig.json");

void readRange(const QJsonObject &obj, qint32 &value, qint32 &max, qint32 &min, qint32 &ratio)
{
    if (obj.contains(QLatin1String("value")))
        value = obj.value(QLatin1String("value")).toInt();
    if (obj.contains(QLatin1String("max")))
        max = obj.value(QLatin1String("max")).toInt();
    if (obj.contains(QLatin1String("min")))
        min = obj.value(QLatin1String("min")).toInt();
    if (obj.contains(QLatin1String("ratio")))
        ratio = obj.value(QLatin1String("ratio")).toInt();
}

void readSwitchable(const QJsonObject &obj, QString &value, bool &enable)
{
    if (obj.contains(QLatin1String("value")))
        value = obj.value(QLatin1String("value")).toString();
    if (obj.contains(QLatin1String("enable")))
        enable = obj.value(QLatin1String("enable")).toBool();
}

DevData deviceFromJson(const QJsonObject &obj)
{
    DevData dev;
    if (obj.contains(QLatin1String("addr")))
        dev.addr = obj.value(QLatin1String("addr")).toString();
    if (obj.contains(QLatin1String("name")))
        dev.name = obj.value(QLatin1String("name")).toString();
    if (obj.contains(QLatin1String("enablePower")))
        dev.enablePower = obj.value(QLatin1String("enablePower")).toBool(false);
    if (obj.contains(QLatin1String("protocol")))
        dev.protocol = obj.value(QLatin1String("protocol")).toInt();
    if (obj.contains(QLatin1String("oldBrightness")))
        dev.oldBrightness = obj.value(QLatin1String("oldBrightness")).toInt();
    if (obj.contains(QLatin1String("colorLight")))
        readSwitchable(obj.value(QLatin1String("colorLight")).toObject(), dev.colorLight, dev.colorLightEnable);
    if (obj.contains(QLatin1String("lightEffect")))
        readSwitchable(obj.value(QLatin1String("lightEffect")).toObject(), dev.lightEffect, dev.lightEffectEnable);
    if (obj.contains(QLatin1String("brightness")))
        readRange(obj.value(QLatin1String("brightness")).toObject(),
                  dev.brightness, dev.brightnessMax, dev.brightnessMin, dev.brightnessRatio);
    if (obj.contains(QLatin1String("temperature")))
        readRange(obj.value(QLatin1String("temperature")).toObject(),
                  dev.temperature, dev.temperatureMax, dev.temperatureMin, dev.temperatureRatio);
    return dev;
}

QJsonObject deviceToJson(const DevData &dev)
{
    QJsonObject obj;
    obj.insert(QLatin1String("addr"), dev.addr);
    obj.insert(QLatin1String("name"), dev.name);
    obj.insert(QLatin1String("enablePower"), dev.enablePower);
    obj.insert(QLatin1String("protocol"), dev.protocol);
    obj.insert(QLatin1String("oldBrightness"), dev.oldBrightness);
    obj.insert(QLatin1String("colorLight"),
               QJsonObject{{QLatin1String("value"), dev.colorLight},
                           {QLatin1String("enable"), dev.colorLightEnable}});
    obj.insert(QLatin1String("lightEffect"),
               QJsonObject{{QLatin1String("value"), dev.lightEffect},
                           {QLatin1String("enable"), dev.lightEffectEnable}});
    obj.insert(QLatin1String("brightness"),
               QJsonObject{{QLatin1String("value"), dev.brightness},
                           {QLatin1String("max"), dev.brightnessMax},
                           {QLatin1String("min"), dev.brightnessMin},
                           {QLatin1String("ratio"), dev.brightnessRatio}});
    obj.insert(QLatin1String("temperature"),
               QJsonObject{{QLatin1String("value"), dev.temperature},
                           {QLatin1String("max"), dev.temperatureMax},
                           {QLatin1String("min"), dev.temperatureMin},
                           {QLatin1String("ratio"), dev.temperatureRatio}});
    return obj;
}

} // namespace

DevDataMgr::DevDataMgr(QObject *parent)
    : QObject(parent)
    , m_configDir(configFolderPath())
{
    registerDeviceMetaTypes();
    m_liveWriteTimer.setSingleShot(true);
    connect(&m_liveWriteTimer, &QTimer::timeout, this, [this] { writeConfig(); });
    // The store lives as long as the process and is never destroyed: the end of the event loop
    // is the last moment to write (tray exit, last window closed, SIGTERM turned into a quit).
    if (QCoreApplication::instance())
        connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, this, &DevDataMgr::flush);
}

DevDataMgr::~DevDataMgr()
{
    flush();
}

void DevDataMgr::flush()
{
    if (!m_pendingWrite)
        return;
    qDebug().noquote() << "[DevDataMgr::flush]: writing pending changes";
    writeConfig();
}

QString DevDataMgr::configFilePath() const
{
    return m_configDir + kConfigFileName;
}

bool DevDataMgr::parseConfig(const QByteArray &bytes, DeviceTable &devices, GroupTable &groups)
{
    const QJsonDocument doc = QJsonDocument::fromJson(bytes);
    if (!doc.isObject())
        return false;
    const QJsonObject root = doc.object();

    const QJsonValue devs = root.value(QLatin1String("devs"));
    if (devs.isArray()) {
        const QJsonArray array = devs.toArray();
        for (const QJsonValue &element : array) {
            const QJsonObject obj = element.toObject();
            if (obj.isEmpty())
                continue;
            const DevData dev = deviceFromJson(obj);
            if (dev.addr.isEmpty())
                continue;
            if (devices.size() >= kMaxDevices && !devices.contains(dev.addr))
                continue;
            devices.insert(dev.addr, dev);
        }
    }

    const QJsonValue groupValues = root.value(QLatin1String("groups"));
    if (groupValues.isArray()) {
        const QJsonArray array = groupValues.toArray();
        for (const QJsonValue &element : array) {
            const QJsonObject obj = element.toObject();
            if (obj.isEmpty())
                continue;
            GroupData group;
            if (obj.contains(QLatin1String("name")))
                group.name = obj.value(QLatin1String("name")).toString();
            if (obj.contains(QLatin1String("uuid")))
                group.uuid = obj.value(QLatin1String("uuid")).toString();
            const QJsonArray members = obj.value(QLatin1String("devs")).toArray();
            for (const QJsonValue &member : members) {
                if (group.devs.size() >= kMaxGroupMembers)
                    break;
                if (member.isString())
                    group.devs.append(member.toString());
            }
            // The built-in group stands for all lights; a stored copy of it would shadow that.
            if (group.uuid.isEmpty() || group.uuid == defaultGroupUuid())
                continue;
            if (groups.size() >= kMaxGroups && !groups.contains(group.uuid))
                continue;
            groups.insert(group.uuid, group);
        }
    }
    return true;
}

QByteArray DevDataMgr::serializeConfig(const DeviceTable &devices, const GroupTable &groups)
{
    QJsonArray devs;
    for (const DevData &dev : devices)
        devs.append(deviceToJson(dev));

    QJsonArray groupArray;
    for (const GroupData &group : groups) {
        groupArray.append(QJsonObject{{QLatin1String("name"), group.name},
                                      {QLatin1String("uuid"), group.uuid},
                                      {QLatin1String("devs"), QJsonArray::fromStringList(group.devs)}});
    }

    QJsonObject root;
    root.insert(QLatin1String("devs"), devs);
    root.insert(QLatin1String("groups"), groupArray);
    return QJsonDocument(root).toJson(QJsonDocument::Indented);
}

void DevDataMgr::readConfig()
{
    m_devices.clear();
    m_groups.clear();
    m_fileBytes.clear();
    m_unreadableFile = false;

    QFile file(configFilePath());
    if (!file.exists()) {
        qDebug() << "[" << "DevDataMgr::readConfig" << "]" << "lightconfig.json is not existed";
        return;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        qDebug() << "[" << "DevDataMgr::readConfig" << "]" << "lightconfig.json is not opened";
        return;
    }
    if (file.size() > kMaxFileBytes) {
        qWarning() << "[DevDataMgr::readConfig]: file too large, not loaded, size:" << file.size();
        m_unreadableFile = true;
        return;
    }
    const QByteArray bytes = file.readAll();
    file.close();
    if (bytes.isEmpty())
        return;

    m_fileBytes = bytes;
    if (!parseConfig(bytes, m_devices, m_groups)) {
        qWarning() << "[DevDataMgr::readConfig]: lightconfig.json is not a JSON object, nothing loaded";
        m_unreadableFile = true;
    }
}

void DevDataMgr::preserveUnreadableFile()
{
    // The user may want to recover a file we could not read; keep it beside the new one.
    const QString backup = configFilePath() + QStringLiteral(".bak");
    QFile::remove(backup);
    if (QFile::copy(configFilePath(), backup))
        qWarning() << "[DevDataMgr::writeConfig]: unreadable configuration kept as" << backup;
    m_unreadableFile = false;
}

void DevDataMgr::writeConfig()
{
    m_liveWriteTimer.stop();
    m_pendingWrite = false;
    m_sinceLastWrite.start();

    const QByteArray bytes = serializeConfig(m_devices, m_groups);
    if (bytes == m_fileBytes && QFile::exists(configFilePath()))
        return;

    QDir dir(m_configDir);
    if (!dir.exists() && !dir.mkpath(QStringLiteral("."))) {
        qDebug() << "[" << "DevDataMgr::writeConfig" << "]" << "Failed to create lightconfig.json";
        return;
    }
    if (m_unreadableFile)
        preserveUnreadableFile();

    QSaveFile file(configFilePath());
    if (!file.open(QIODevice::WriteOnly))
        return;
    file.write(bytes);
    if (!file.commit()) {
        qWarning() << "[DevDataMgr::writeConfig]: write failed:" << file.errorString();
        return;
    }
    m_fileBytes = bytes;
}

void DevDataMgr::scheduleLiveWrite()
{
    m_pendingWrite = true;
    if (m_liveWriteTimer.isActive())
        return;
    const qint64 elapsed = m_sinceLastWrite.isValid() ? m_sinceLastWrite.elapsed() : kLiveWriteIntervalMs;
    if (elapsed >= kLiveWriteIntervalMs)
        writeConfig();
    else
        m_liveWriteTimer.start(int(kLiveWriteIntervalMs - elapsed));
}

DevData *DevDataMgr::findDev(const QString &addr)
{
    auto it = m_devices.find(addr);
    return it == m_devices.end() ? nullptr : &it.value();
}

void DevDataMgr::addDev(const DevData &info)
{
    if (m_devices.contains(info.addr))
        return;
    m_devices.insert(info.addr, info);
    emit onAddDev(defaultGroupUuid(), tr("设备列表"), info);
    writeConfig();
}

void DevDataMgr::addDevToGroup(const QString &uuid, const DevData &info)
{
    auto it = m_groups.find(uuid);
    if (it == m_groups.end())
        return;
    it->devs.append(info.addr);
    emit onAddDev(uuid, it->name, info);
    writeConfig();
}

void DevDataMgr::delDev(const QString &uuid, const QString &addr)
{
    if (uuid != defaultGroupUuid()) {
        auto it = m_groups.find(uuid);
        if (it == m_groups.end())
            return;
        if (it->devs.removeAll(addr) > 0)
            emit onDelDev(uuid, it->name, addr);
        writeConfig();
        return;
    }

    // Collect first: a slot reacting to onDelDev may change the group table.
    QList<QPair<QString, QString>> touched;
    for (auto it = m_groups.begin(); it != m_groups.end(); ++it) {
        if (it->devs.removeAll(addr) > 0)
            touched.append({it->uuid, it->name});
    }
    for (const auto &group : touched)
        emit onDelDev(group.first, group.second, addr);
    if (m_devices.remove(addr) > 0)
        emit onDelDev(defaultGroupUuid(), tr("设备列表"), addr);
    writeConfig();
}

bool DevDataMgr::changeDevAddr(const QString &oldAddr, const QString &newAddr)
{
    if (oldAddr == newAddr || !m_devices.contains(oldAddr) || m_devices.contains(newAddr) || newAddr.isEmpty())
        return false;
    DevData dev = m_devices.take(oldAddr);
    dev.addr = newAddr;
    m_devices.insert(newAddr, dev);
    QList<QPair<QString, QString>> memberOf;
    for (auto it = m_groups.begin(); it != m_groups.end(); ++it) {
        const int index = int(it->devs.indexOf(oldAddr));
        if (index < 0)
            continue;
        it->devs.removeAll(newAddr);
        it->devs.replace(int(it->devs.indexOf(oldAddr)), newAddr);
        it->devs.removeAll(oldAddr);
        memberOf.append({it->uuid, it->name});
    }
    // Written before anyone hears of it: the change must survive whatever the listeners do.
    writeConfig();
    for (const auto &group : memberOf)
        emit onDelDev(group.first, group.second, oldAddr);
    emit onDelDev(defaultGroupUuid(), tr("设备列表"), oldAddr);
    emit onAddDev(defaultGroupUuid(), tr("设备列表"), dev);
    for (const auto &group : memberOf)
        emit onAddDev(group.first, group.second, dev);
    return true;
}

bool DevDataMgr::copyLiveState(const DevData &info)
{
    DevData *dev = findDev(info.addr);
    if (!dev)
        return false;
    dev->protocol = info.protocol;
    dev->temperature = info.temperature;
    dev->brightness = info.brightness;
    dev->oldBrightness = info.oldBrightness;
    dev->auxValue1 = info.auxValue1;
    dev->auxValue2 = info.auxValue2;
    dev->lightEffect = info.lightEffect;
    dev->colorLight = info.colorLight;
    dev->linkState = info.linkState;
    dev->switchState = info.switchState;
    dev->devCurModel = info.devCurModel;
    dev->brightnessMin = info.brightnessMin;
    dev->brightnessMax = info.brightnessMax;
    dev->brightnessRatio = info.brightnessRatio;
    dev->temperatureMin = info.temperatureMin;
    dev->temperatureMax = info.temperatureMax;
    dev->temperatureRatio = info.temperatureRatio;
    return true;
}

void DevDataMgr::updateDev(const DevData &info)
{
    if (!copyLiveState(info))
        return;
    QList<QPair<QString, QString>> memberOf;
    for (const GroupData &group : qAsConst(m_groups)) {
        if (group.devs.contains(info.addr))
            memberOf.append({group.uuid, group.name});
    }
    emit onUpdateDev(defaultGroupUuid(), tr("设备列表"), info);
    for (const auto &group : memberOf)
        emit onUpdateDev(group.first, group.second, info);
    scheduleLiveWrite();
}

void DevDataMgr::updateDevParamRange(const DevData &info)
{
    if (!copyLiveState(info))
        return;
    emit onUpdateDevParamRange(info);
    scheduleLiveWrite();
}

QString DevDataMgr::addGroup(const QString &name)
{
    const QString uuid = QUuid::createUuid().toString();
    m_groups.insert(uuid, GroupData{name, uuid, {}});
    emit onAddGroup(uuid, name);
    writeConfig();
    return uuid;
}

void DevDataMgr::delGroup(const QString &uuid)
{
    if (m_groups.remove(uuid) == 0)
        return;
    emit onDelGroup(uuid);
    writeConfig();
}

void DevDataMgr::renameGroup(const QString &uuid, const QString &newName)
{
    auto it = m_groups.find(uuid);
    if (it == m_groups.end())
        return;
    it->name = newName;
    emit onUpdateGroup(uuid, newName);
    writeConfig();
}

void DevDataMgr::renameDev(const QString &addr, const QString &newName)
{
    DevData *dev = findDev(addr);
    const QString name = newName.trimmed();
    if (!dev || name.isEmpty() || dev->name == name)
        return;
    dev->name = name;
    writeConfig();
    const DevData info = *dev;
    emit onUpdateDev(defaultGroupUuid(), tr("设备列表"), info);
    for (const GroupData &group : qAsConst(m_groups)) {
        if (group.devs.contains(addr))
            emit onUpdateDev(group.uuid, group.name, info);
    }
}

QList<DevData> DevDataMgr::groupDevices(const QString &uuid) const
{
    if (uuid == defaultGroupUuid())
        return m_devices.values();
    QList<DevData> result;
    const auto group = m_groups.constFind(uuid);
    if (group == m_groups.constEnd())
        return result;
    for (const QString &addr : group->devs) {
        const auto dev = m_devices.constFind(addr);
        if (dev != m_devices.constEnd())
            result.append(*dev);
    }
    return result;
}
