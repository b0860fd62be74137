#pragma once

// A BLE plug-in built on its own against the interface header, with its own copy of the
// interface's meta-object, as the maker's library is. It records every call in the dynamic
// property "calls" and emits its signals when a test asks through the invokable emit* methods,
// so that every signal leaves from code compiled into the plug-in.

#include "brivonqxbleinterface.h"

#include <QStringList>

class RecordingBlePlugin : public BrivonQXBleInterface
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID BrivonQXBleInterface_iid)
    Q_INTERFACES(BrivonQXBleInterface)

public:
    explicit RecordingBlePlugin(QObject *parent = nullptr);

    void startScan() override;
    void stopScan() override;
    void writeData(const QString &devAddr, const QByteArray &data) override;
    void connectToDevice(const QString &devAddr) override;
    bool reconnectDevice(const QString &devAddr) override;
    void removeDevice(const QString &devAddr) override;

    // The answer of reconnectDevice is the property "reconnectResult" (bool, default true).
    Q_INVOKABLE void emitDiscovered(int protocolType, const QString &devAddr, const QString &devName);
    Q_INVOKABLE void emitError(int error);
    Q_INVOKABLE void emitFinished();
    Q_INVOKABLE void emitConnected(const QString &devAddr);
    Q_INVOKABLE void emitDisconnected(const QString &devAddr);
    Q_INVOKABLE void emitMessage(const QString &devAddr, const QByteArray &data);
    // Where this plug-in's copy of the interface meta-object lives.
    Q_INVOKABLE quintptr interfaceMetaObject() const;

private:
    void record(const QString &call);
};
