#pragma once

#include "basedevice.h"
#include "devdatamgr.h"
#include "effectdata.h"
#include "singleton.h"

#include <QHash>

#include <functional>
#include <memory>

// The entry point for everything that concerns lights: owns the store, the effect catalogue and
// both transports, and routes every per-light request by the light's stored protocol.
class DeviceMgr : public BaseDevice
{
    Q_OBJECT

public:
    static constexpr int kBleTransport = 1;
    static constexpr int kHueTransport = 101;

    using TransportFactory = std::function<std::shared_ptr<BaseDevice>(std::shared_ptr<DevDataMgr>)>;

    explicit DeviceMgr(QObject *parent = nullptr);
    // Builds the manager over other transports (tests drive the routing through this).
    DeviceMgr(const TransportFactory &ble, const TransportFactory &hue, QObject *parent = nullptr);
    ~DeviceMgr() override;

    void refreshDevices() override;
    void startScan() override;
    void stopScan() override;
    void connectToDevice(const QString &addr) override;
    bool reconnectDevice(const QString &addr) override;
    void removeDevice(const QString &addr) override;
    void delDev(const QString &groupUuid, const QString &addr) override;
    void powerOn(const QString &addr) override;
    void powerOff(const QString &addr) override;
    void setTemperature(const QString &addr, int value) override;
    void setBrightness(const QString &addr, int value) override;
    void setLightEffect(const QString &addr, const QString &effect) override;
    void setColor(const QString &addr, const QColor &color) override;

    using BaseDevice::setAdjusting;
    void setAdjusting(const QString &addr, bool on) override;
    // Brightness as a fraction of the light's range, rounded to the nearest level.
    void setBrightnessByRatio(const QString &addr, double ratio);
    // True while a light's lost link is being tried again on its own.
    bool isReconnecting(const QString &addr) const;

    void addDev(const DevData &info);
    void addDevToGroup(const QString &uuid, const DevData &info);
    QString addGroup(const QString &name);
    void delGroup(const QString &uuid);
    void renameGroup(const QString &uuid, const QString &newName);
    void renameDev(const QString &addr, const QString &newName);
    const DevDataMgr::DeviceTable &getDevices() const;
    const DevDataMgr::GroupTable &getGroups() const;
    QList<DevData> getGroupDevices(const QString &uuid) const;
    int deviceCount() const;
    std::shared_ptr<BaseDevice> getDeviceMgrByProtocol(int protocol) const;
    const EffectData &getEffectData() const;
    // The catalogue itself, for reloading it (tests load a known table through it).
    EffectData &effectData();
    // The effects a light offers: its protocol's list, empty when it has no effect capability.
    QList<EffectItem> lightEffects(const DevData &dev) const;
    // The store itself, for views that follow its signals.
    DevDataMgr *store() const { return m_devDataMgr.get(); }

public slots:
    void onDeviceDiscovered(DevData data);

private:
    std::shared_ptr<BaseDevice> route(const QString &addr) const;

    QHash<int, std::shared_ptr<BaseDevice>> m_transports;
    QHash<QString, DevData> m_discovered;
    std::shared_ptr<DevDataMgr> m_devDataMgr;
    EffectData m_effectData;
};

using DeviceMgrSingleton = Singleton<DeviceMgr, SingletonFactory<DeviceMgr>>;
