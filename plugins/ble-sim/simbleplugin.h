#pragma once

// Simulated Bluetooth lights behind the BLE plug-in interface, for development, demos
// and end-to-end tests on machines without the lights. See README.md for the lights file, the
// timing and the control socket.

#include "brivonqxbleinterface.h"
#include "simlight.h"

#include <QList>
#include <QLocalServer>
#include <QPointer>

class QLocalSocket;

struct SimTiming
{
    int discoverFirstMs = 400;  // the first light is seen after this
    int discoverStepMs = 250;   // each further light this much later
    int scanMs = 2500;          // then discovery finishes
    int connectMs = 700;        // a connection is ready after this
    int connectFailMs = 3000;   // a light that is not there fails after this
    int replyMs = 40;           // the light answers a frame after this
};

class SimBlePlugin : public BrivonQXBleInterface
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID BrivonQXBleInterface_iid)
    Q_INTERFACES(BrivonQXBleInterface)

public:
    static constexpr const char *kLightsEnvVar = "BRIVON_SIM_LIGHTS";
    static constexpr const char *kControlEnvVar = "BRIVON_SIM_CONTROL";
    static constexpr const char *kDefaultControlName = "brivon-ble-sim";

    explicit SimBlePlugin(QObject *parent = nullptr);
    ~SimBlePlugin() override;

    void startScan() override;
    void stopScan() override;
    void writeData(const QString &devAddr, const QByteArray &data) override;
    void connectToDevice(const QString &devAddr) override;
    bool reconnectDevice(const QString &devAddr) override;
    void removeDevice(const QString &devAddr) override;

    // One control command, as sent over the control socket; returns the reply line.
    QString command(const QString &line);

signals:
    // Every frame the program writes to a connected light, as it arrives (for benchmarks and tools
    // in the same process, which reach this object through QPluginLoader).
    void frameWritten(QString devAddr, QByteArray data);

private:
    void loadLights();
    void startControlServer();
    void onControlConnection();
    SimLight *find(const QString &addr);
    void deliver(const QString &addr, const QList<QByteArray> &frames, int delayMs);
    void dropLink(SimLight &light);

    QList<SimLight> m_lights;
    SimTiming m_timing;
    QString m_lightsError;
    quint32 m_scanGeneration = 0;
    bool m_scanning = false;
    QLocalServer m_server;
};
