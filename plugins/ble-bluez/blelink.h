#pragma once

// One light's GATT link: connect, find the light's service, switch its notifications on, then
// write frames and pass notifications up. A link ends once: with `lost` when it failed, or with
// `closed` when its owner closed it; either comes only after the radio link is down (or after
// CloseTimeoutMs), so that a new link to the same light is never cut by this one's late
// disconnection. A new attempt is a new link.

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
    // Longest wait for the stack to confirm a disconnection.
    static constexpr int CloseTimeoutMs = 3000;

    BleLink(const QString &devAddr, const QBluetoothDeviceInfo &info, const BleProfile &profile,
            QObject *parent = nullptr);
    ~BleLink() override;

    // False when the attempt failed at once (no adapter, for example); `lost` still follows.
    bool start();
    const QString &address() const { return m_addr; }
    bool isReady() const { return m_state == State::Ready; }
    bool isDead() const { return m_state == State::Dead; }
    // The stack did not know the device when the link started (its cache entry has expired).
    bool deviceUnknown() const { return m_deviceUnknown; }
    void write(const QByteArray &data);
    // Disconnect; `closed` follows instead of `lost`, even when a loss was already on its way.
    void close();

signals:
    void ready(const QString &devAddr);
    void lost(const QString &devAddr);
    void closed(const QString &devAddr);
    void notification(const QString &devAddr, const QByteArray &data);

private:
    enum class State { Idle, Connecting, Discovering, Picking, EnablingNotify, Ready, Closing, Dead };

    void onConnected();
    void onServicesDiscovered();
    void useService(const QBluetoothUuid &service);
    // For a profile without UUIDs: look at the candidates one by one.
    void pickNextService();
    void onServiceStateChanged(QLowEnergyService::ServiceState state);
    void onDescriptorWritten(const QLowEnergyDescriptor &descriptor, const QByteArray &value);
    void onCharacteristicChanged(const QLowEnergyCharacteristic &characteristic, const QByteArray &value);
    void becomeReady();
    void fail(const QString &why);
    void shutDown();
    void finishShutDown();

    const QString m_addr;
    const QBluetoothDeviceInfo m_info;
    const BleProfile m_profile;
    State m_state = State::Idle;
    bool m_reportLoss = true;
    bool m_deviceUnknown = false;
    QBluetoothUuid m_serviceUuid;
    QBluetoothUuid m_writeUuid;
    QBluetoothUuid m_notifyUuid;
    QList<QBluetoothUuid> m_candidates;
    QLowEnergyController *m_controller = nullptr;
    QLowEnergyService *m_service = nullptr;
    QLowEnergyCharacteristic m_write;
    QLowEnergyService::WriteMode m_writeMode = QLowEnergyService::WriteWithResponse;
    QTimer m_setUpTimer;
    QTimer m_closeTimer;
};
