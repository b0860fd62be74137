#pragma once

#include "devdata.h"

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QTimer>

// The one in-memory store of the user's lights and groups, and the only writer of lightconfig.json.
// Changes the user made are written at once; live light state is written at most twice a second,
// and whatever is still waiting is written when the program quits.
class DevDataMgr : public QObject
{
    Q_OBJECT

public:
    using DeviceTable = QHash<QString, DevData>;
    using GroupTable = QHash<QString, GroupData>;

    // Bounds applied to what a configuration file may contribute.
    static constexpr qint64 kMaxFileBytes = 32 * 1024 * 1024;
    static constexpr int kMaxDevices = 10000;
    static constexpr int kMaxGroups = 10000;
    static constexpr int kMaxGroupMembers = 10000;
    static constexpr int kLiveWriteIntervalMs = 500;

    explicit DevDataMgr(QObject *parent = nullptr);
    ~DevDataMgr() override;

    void readConfig();
    void writeConfig();
    // Writes live state still waiting for its turn. Runs by itself when the application's event
    // loop ends (aboutToQuit); the program also calls it when the session ends.
    void flush();

    DevData *findDev(const QString &addr);
    void addDev(const DevData &info);
    void addDevToGroup(const QString &uuid, const DevData &info);
    void delDev(const QString &uuid, const QString &addr);
    void updateDev(const DevData &info);
    void updateDevParamRange(const DevData &info);
    // Gives a stored light a new address, keeping its place in every group; false when the old
    // address is unknown or the new one is taken.
    bool changeDevAddr(const QString &oldAddr, const QString &newAddr);
    QString addGroup(const QString &name);
    void delGroup(const QString &uuid);
    void renameGroup(const QString &uuid, const QString &newName);
    // The user's own name for a light; announced like any other change of the light.
    void renameDev(const QString &addr, const QString &newName);

    const DeviceTable &devices() const { return m_devices; }
    const GroupTable &groups() const { return m_groups; }
    // Stored records of a group's members in the group's order; the default uuid gives every light.
    QList<DevData> groupDevices(const QString &uuid) const;

    QString configDir() const { return m_configDir; }
    QString configFilePath() const;
    bool hasPendingWrite() const { return m_pendingWrite; }

    // Pure conversions between the file's bytes and the two tables. parseConfig returns false
    // when the bytes are not a JSON object at all.
    static bool parseConfig(const QByteArray &bytes, DeviceTable &devices, GroupTable &groups);
    static QByteArray serializeConfig(const DeviceTable &devices, const GroupTable &groups);

signals:
    void onAddDev(QString uuid, QString groupName, DevData info);
    void onDelDev(QString uuid, QString groupName, QString addr);
    void onUpdateDev(QString uuid, QString groupName, DevData info);
    void onUpdateDevParamRange(DevData info);
    void onAddGroup(QString uuid, QString groupName);
    void onDelGroup(QString uuid);
    void onUpdateGroup(QString uuid, QString newName);

private:
    bool copyLiveState(const DevData &info);
    void scheduleLiveWrite();
    void preserveUnreadableFile();

    DeviceTable m_devices;
    GroupTable m_groups;
    QString m_configDir;
    QByteArray m_fileBytes;       // what the file holds, as far as this store knows
    bool m_unreadableFile = false; // the file on disk could not be parsed: keep a copy before replacing it
    bool m_pendingWrite = false;
    QTimer m_liveWriteTimer;
    QElapsedTimer m_sinceLastWrite;
};
