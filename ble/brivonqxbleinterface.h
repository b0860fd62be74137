#pragma once

// The boundary between the program and a Bluetooth LE plug-in library. The program and every
// plug-in compile this same header, each with its own meta-object: connections are made by
// member-function pointer and the cast goes through the interface id, so the method order below
// is part of the contract and must not change.

#include <QBluetoothDeviceDiscoveryAgent>
#include <QByteArray>
#include <QObject>
#include <QString>
#include <QtPlugin>

#define BrivonQXBleInterface_iid "org.example.BrivonQXBleInterface"

class BrivonQXBleInterface : public QObject
{
    Q_OBJECT

public:
    explicit BrivonQXBleInterface(QObject *parent = nullptr) : QObject(parent) {}
    ~BrivonQXBleInterface() override = default;

public slots:
    // Reserved for the library; the program never calls it.
    virtual void initialize() {}
    virtual void startScan() = 0;
    virtual void stopScan() = 0;
    // One complete command frame; the library adds no framing of its own.
    virtual void writeData(const QString &devAddr, const QByteArray &data) = 0;
    virtual void connectToDevice(const QString &devAddr) = 0;
    virtual bool reconnectDevice(const QString &devAddr) = 0;
    virtual void removeDevice(const QString &devAddr) = 0;

signals:
    void sigDeviceDiscovered(int protocolType, QString devAddr, QString devName);
    void sigDeviceDiscoveredErrorOccurred(QBluetoothDeviceDiscoveryAgent::Error error);
    void sigDeviceDiscoveredFinished();
    void sigDeviceConnected(QString devAddr);
    void sigDeviceDisconnected(QString devAddr);
    // One notification frame, bytes exactly as received from the light.
    void sigMessageReceived(QString devAddr, QByteArray data);
};

Q_DECLARE_INTERFACE(BrivonQXBleInterface, BrivonQXBleInterface_iid)
