#pragma once

// The Bluetooth LE plug-in on QtBluetooth (BlueZ on Linux). It reports only devices heard during
// the running scan whose advertised name matches a light profile (the user's profile file first,
// then data/ble-profiles.json), and drives each connected light through the GATT service and
// characteristics of its profile.

#include "blelink.h"
#include "bleprofiles.h"
#include "brivonqxbleinterface.h"

#include <QBluetoothDeviceDiscoveryAgent>
#include <QBluetoothDeviceInfo>
#include <QHash>
#include <QList>
#include <QSet>

class QEventLoop;
class QTimer;

class BleBluezPlugin : public BrivonQXBleInterface
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID BrivonQXBleInterface_iid)
    Q_INTERFACES(BrivonQXBleInterface)

public:
    // How long one scan listens before it reports that it has finished.
    static constexpr int ScanTimeoutMs = 10000;
    // How long a light whose cache entry has expired is looked for before its connection fails.
    static constexpr int SearchTimeoutMs = 10000;
    // How long quitting waits, in total, for the lights to be disconnected.
    static constexpr int QuitWaitMs = 2000;
    // Lights remembered from scans; a crowded room must not grow this without end.
    static constexpr int MaxKnownDevices = 512;

    explicit BleBluezPlugin(QObject *parent = nullptr);
    ~BleBluezPlugin() override;

    // The user's own profile file, read before the shipped table.
    static QString userProfilePath();

public slots:
    void initialize() override;
    void startScan() override;
    void stopScan() override;
    void writeData(const QString &devAddr, const QByteArray &data) override;
    void connectToDevice(const QString &devAddr) override;
    bool reconnectDevice(const QString &devAddr) override;
    void removeDevice(const QString &devAddr) override;

private:
    struct KnownDevice
    {
        QBluetoothDeviceInfo info;
        BleProfile profile;
    };

    void loadProfiles();
    void ensureAgent();
    void onScanFinished();
    // Defers the signal so that it never arrives inside the caller's startScan.
    void reportScanError(QBluetoothDeviceDiscoveryAgent::Error error);
    void onDeviceSeen(const QBluetoothDeviceInfo &info);
    bool startLink(const QString &devAddr);
    void dropLink(const QString &devAddr);
    bool isClosing(const QString &devAddr) const;
    void onLinkLost(const QString &devAddr);
    void onLinkClosed(const QString &devAddr);
    void startSearch(const QString &devAddr);
    void endSearch(const QString &devAddr);
    void stopAgentWhenIdle();
    void onAboutToQuit();
    static QString addressText(const QBluetoothDeviceInfo &info);

    BleProfiles m_profiles;
    QBluetoothDeviceDiscoveryAgent *m_agent = nullptr;
    bool m_userScan = false;
    QHash<QString, KnownDevice> m_known;
    QSet<QString> m_reportedThisScan;
    QSet<QString> m_unmatchedThisScan;
    QHash<QString, BleLink *> m_links;
    // Links asked to close whose disconnection has not been confirmed yet.
    QList<BleLink *> m_closing;
    // Connections to start once the light's previous link is down.
    QSet<QString> m_startWhenClosed;
    // Lights looked for again, each with its deadline.
    QHash<QString, QTimer *> m_searches;
    bool m_quitting = false;
    QEventLoop *m_quitLoop = nullptr;
};
