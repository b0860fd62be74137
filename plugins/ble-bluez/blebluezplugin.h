#pragma once

// The Bluetooth LE plug-in on QtBluetooth (BlueZ on Linux). It reports only devices whose
// advertised name matches a profile of data/ble-profiles.json, and drives each connected light
// through the GATT service and characteristics of its profile.

#include "blelink.h"
#include "bleprofiles.h"
#include "brivonqxbleinterface.h"

#include <QBluetoothDeviceDiscoveryAgent>
#include <QBluetoothDeviceInfo>
#include <QHash>
#include <QSet>

class BleBluezPlugin : public BrivonQXBleInterface
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID BrivonQXBleInterface_iid)
    Q_INTERFACES(BrivonQXBleInterface)

public:
    // How long one scan listens before it reports that it has finished.
    static constexpr int ScanTimeoutMs = 10000;
    // Lights remembered from scans; a crowded room must not grow this without end.
    static constexpr int MaxKnownDevices = 512;

    explicit BleBluezPlugin(QObject *parent = nullptr);
    ~BleBluezPlugin() override;

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
    // Defers the signal so that it never arrives inside the caller's startScan.
    void reportScanError(QBluetoothDeviceDiscoveryAgent::Error error);
    void onDeviceSeen(const QBluetoothDeviceInfo &info);
    bool startLink(const QString &devAddr);
    void dropLink(const QString &devAddr);
    void onLinkLost(const QString &devAddr);
    static QString addressText(const QBluetoothDeviceInfo &info);

    BleProfiles m_profiles;
    QBluetoothDeviceDiscoveryAgent *m_agent = nullptr;
    QHash<QString, KnownDevice> m_known;
    QSet<QString> m_reportedThisScan;
    QHash<QString, BleLink *> m_links;
};
