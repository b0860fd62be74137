#pragma once

#include "basedevice.h"
#include "bluetoothprotocolbase.h"

#include <QByteArray>
#include <QMap>
#include <QPluginLoader>
#include <QPointer>
#include <QSet>
#include <QString>

#include <memory>
#include <optional>
#include <vector>

class BrivonQXBleInterface;
class DevDataMgr;
class bluetoothProtocol;
class bluetoothProtocol2;

// Drives every Bluetooth light: loads the BLE plug-in library, turns control operations
// into frames for the light, and turns the lights' notifications into changes of their stored
// records. The store is the only state; every operation works on a copy that goes back through it.
class BluetoothMgr : public BaseDevice
{
    Q_OBJECT

public:
    // Loads the plug-in named by BRIVON_BLE_PLUGIN (a path), else the bare name "BrivonQXBleDLL".
    explicit BluetoothMgr(std::shared_ptr<DevDataMgr> store, QObject *parent = nullptr);
    // Uses pluginInstance as if the loader had returned it (tests and benchmarks); null means
    // no plug-in.
    BluetoothMgr(std::shared_ptr<DevDataMgr> store, QObject *pluginInstance, QObject *parent);
    ~BluetoothMgr() override;

    void refreshDevices() override;
    void startScan() override;
    void stopScan() override;
    void connectToDevice(const QString &addr) override;
    bool reconnectDevice(const QString &addr) override;
    void removeDevice(const QString &addr) override;
    using BaseDevice::setAdjusting;
    // Reports of 162, 163 and 1001 lights are held back while that light is being adjusted.
    void setAdjusting(const QString &addr, bool on) override;
    void delDev(const QString &groupUuid, const QString &addr) override;
    void powerOn(const QString &addr) override;
    void powerOff(const QString &addr) override;
    void setTemperature(const QString &addr, int value) override;
    void setBrightness(const QString &addr, int value) override;
    void setLightEffect(const QString &addr, const QString &effect) override;
    void setColor(const QString &addr, const QColor &color) override;

    // The stored protocol of a light, -1 when the address is not stored.
    int getProtocolType(const QString &addr);

    bool isPluginLoaded() const { return m_interface != nullptr; }
    bool isAdjusting(const QString &addr) const { return m_adjusting.contains(addr); }

    static constexpr const char *kPluginBaseName = "BrivonQXBleDLL";
    static constexpr const char *kPluginEnvVar = "BRIVON_BLE_PLUGIN";

public slots:
    void handleMessageReceived(QString devAddr, QByteArray data);
    void handleDeviceDiscovered(int protocolType, QString devAddr, QString devName);
    void handleDeviceConnected(QString devAddr);
    void handleDeviceDisconnected(QString devAddr);

private:
    enum class Family { None, VType, Frame55AA };

    void loadPlugin();
    void attachPlugin(QObject *instance);

    // The codec family of a protocol value; logs "protocol type error: " for negative values.
    Family familyOf(int protocol) const;
    // A copy of the stored record when the light is switched on: control requests act only then.
    std::optional<DevData> poweredRecord(const QString &addr) const;
    bluetoothProtocolBase *codec(int key) const;
    bluetoothProtocol *vCodec() const;
    bluetoothProtocol2 *aaCodec() const;
    BrivonQXBleInterface *plugin() const;
    void send(const QString &addr, const QByteArray &frame);
    // The 55 AA frame of the light's current mode with the given brightness; empty (and logged)
    // for an effect mode without an effect text.
    QByteArray modeFrame(const DevData &dev, int brightness) const;

    void doVTypeDevRecvData(const QString &addr, const std::vector<quint8> &payload);
    void doDevModeReport(const QString &addr, const std::vector<quint8> &payload);
    void doDevCurModelData(const QString &addr, const std::vector<quint8> &payload);
    void doDevCCTModelData(const QString &addr, const std::vector<quint8> &payload);
    void doDevProductBaseInfo(const QString &addr, const std::vector<quint8> &payload);
    void doDevModifyDataUpload(const QString &addr, const std::vector<quint8> &payload);
    // The effect-mode part shared by 06 and 32 reports.
    void applyEffectModeReport(const char *where, const QString &addr, const std::vector<quint8> &payload);

    QPluginLoader m_loader;
    QPointer<QObject> m_pluginRoot;
    BrivonQXBleInterface *m_interface = nullptr;
    std::shared_ptr<DevDataMgr> m_store;
    QMap<int, std::shared_ptr<bluetoothProtocolBase>> m_protocols;
    QSet<QString> m_adjusting;
};
