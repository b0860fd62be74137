#pragma once

// A BLE plug-in built on its own against the interface header, with its own copy of the
// interface's meta-object, as the maker's library is. It records the scan and link calls in the
// dynamic property "calls" and emits a scan error from its own code when a test asks (emitError).

#include "brivonqxbleinterface.h"


class RecordingBlePlugin : public BrivonQXBleInterface
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID BrivonQXBleInterface_iid)
    Q_INTERFACES(BrivonQXBleInterface)

public:
    explicit RecordingBlePlugin(QObject *parent = nullptr);

    void startScan() override { record(QStringLiteral("startScan")); }
    void stopScan() override { record(QStringLiteral("stopScan")); }
    void writeData(const QString &, const QByteArray &) override {}
    void connectToDevice(const QString &) override {}
    // Answers with the property "reconnectResult" (bool, default true).
    bool reconnectDevice(const QString &devAddr) override;
    void removeDevice(const QString &) override {}

    Q_INVOKABLE void emitError(int error);
    // Where this plug-in's copy of the interface meta-object lives.
    Q_INVOKABLE quintptr interfaceMetaObject() const;

private:
    void record(const QString &call);
};
