#pragma once

#include "basedevice.h"
#include "bluetoothprotocolbase.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QHash>
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

// When a stored light that lost its link is tried again: the pause before the n-th attempt is
// base * 2^(n-1), at most limit, shortened by up to 15 % at random so that many lights dropped
// together do not retry in step. An attempt without an answer after attemptTimeout has failed.
struct ReconnectSchedule
{
    int baseMs = 1000;
    int limitMs = 60000;
    int attemptTimeoutMs = 15000;

    // BRIVON_BLE_RECONNECT_MS="base,limit[,attempt timeout]" overrides the defaults (tests, demos).
    static ReconnectSchedule fromEnvironment();
    // unit is a random number in [0, 1).
    int pauseMs(int attempt, double unit) const;
};

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
    // True while the light's link is being brought back on its own.
    bool isReconnecting(const QString &addr) const;
    const ReconnectSchedule &reconnectSchedule() const { return m_schedule; }

    static constexpr const char *kPluginBaseName = "BrivonQXBleDLL";
    static constexpr const char *kPluginEnvVar = "BRIVON_BLE_PLUGIN";
    static constexpr const char *kReconnectEnvVar = "BRIVON_BLE_RECONNECT_MS";

public slots:
    void handleMessageReceived(QString devAddr, QByteArray data);
    void handleDeviceDiscovered(int protocolType, QString devAddr, QString devName);
    void handleDeviceConnected(QString devAddr);
    void handleDeviceDisconnected(QString devAddr);

private:
    enum class Family { None, VType, Frame55AA };

    // The connection attempts of one stored light that is not connected.
    struct LinkRetry
    {
        quint64 timer = 0;         // only the latest armed timer counts; earlier ones find it changed
        int failed = 0;            // attempts failed since the link was lost
        bool inFlight = false;
        bool reconnecting = false; // announced through sigReconnecting
        QElapsedTimer since;
    };

    LinkRetry &linkRetry(const QString &addr);
    // After ms, the running attempt's deadline or the end of the pause before the next one.
    void arm(const QString &addr, int ms);
    void onRetryTimer(const QString &addr, quint64 timer);
    // Starts an attempt; `replace` drops whatever the plug-in still has going for the light.
    // False when it could not even start (and has been counted as failed).
    bool beginAttempt(const QString &addr, bool replace);
    void attemptFailed(const QString &addr, const char *why);
    void scheduleReconnect(const QString &addr);
    void stopReconnecting(const QString &addr);
    void stopAllReconnecting();

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
    // The 55 AA frame of the light's current mode with the given brightness. An effect mode whose
    // text builds no frame falls back to colour temperature (devCurModel becomes 1).
    QByteArray modeFrame(DevData &dev, int brightness) const;

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
    ReconnectSchedule m_schedule;
    QHash<QString, LinkRetry> m_retries;
    quint64 m_lastTimer = 0;
    QSet<QString> m_unlinking; // removed by request: their link's end is not a drop
};
