#pragma once

// One light's GATT link: connect, find the light's service, switch its notifications on, then
// write frames and pass notifications up. A link reports `lost` at most once and is then dead;
// a new attempt is a new link.

#include "bleprofiles.h"

#include <QBluetoothDeviceInfo>
#include <QLowEnergyCharacteristic>
#include <QLowEnergyController>
#include <QLowEnergyService>
#include <QObject>
#include <QPointer>
#include <QTimer>

class BleLink : public QObject
{
    Q_OBJECT

public:
    // Longest a connection may take from the request to notifications being on.
    static constexpr int SetUpTimeoutMs = 30000;
    // The largest value an attribute can hold; longer frames cannot be written.
    static constexpr int MaxWriteBytes = 512;

    BleLink(const QString &devAddr, const QBluetoothDeviceInfo &info, const BleProfile &profile,
            QObject *parent = nullptr);
    ~BleLink() override;

    // False when the attempt failed at once (no adapter, for example); `lost` still follows.
    bool start();
    bool isReady() const { return m_state == State::Ready; }
    void write(const QByteArray &data);
    // Drop the connection without reporting it, not even a loss already on its way: the owner
    // asked for it.
    void close();

signals:
    void ready(const QString &devAddr);
    void lost(const QString &devAddr);
    void notification(const QString &devAddr, const QByteArray &data);

private:
    enum class State { Idle, Connecting, Discovering, EnablingNotify, Ready, Dead };

    void onConnected();
    void onServicesDiscovered();
    void onServiceStateChanged(QLowEnergyService::ServiceState state);
    void onDescriptorWritten(const QLowEnergyDescriptor &descriptor, const QByteArray &value);
    void onCharacteristicChanged(const QLowEnergyCharacteristic &characteristic, const QByteArray &value);
    void becomeReady();
    void fail(const QString &why);
    void tearDown();

    const QString m_addr;
    const QBluetoothDeviceInfo m_info;
    const BleProfile m_profile;
    State m_state = State::Idle;
    bool m_reportLoss = true;
    QLowEnergyController *m_controller = nullptr;
    QLowEnergyService *m_service = nullptr;
    QLowEnergyCharacteristic m_write;
    QLowEnergyService::WriteMode m_writeMode = QLowEnergyService::WriteWithResponse;
    QTimer m_setUpTimer;
};
