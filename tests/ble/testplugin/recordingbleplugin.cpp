#include "recordingbleplugin.h"

RecordingBlePlugin::RecordingBlePlugin(QObject *parent)
    : BrivonQXBleInterface(parent)
{
    setProperty("calls", QStringList());
    setProperty("reconnectResult", true);
}

void RecordingBlePlugin::record(const QString &call)
{
    setProperty("calls", property("calls").toStringList() << call);
}

void RecordingBlePlugin::startScan()
{
    record(QStringLiteral("startScan"));
}

void RecordingBlePlugin::stopScan()
{
    record(QStringLiteral("stopScan"));
}

void RecordingBlePlugin::writeData(const QString &devAddr, const QByteArray &data)
{
    record(QStringLiteral("writeData %1 %2").arg(devAddr, QString::fromLatin1(data.toHex(' '))));
}

void RecordingBlePlugin::connectToDevice(const QString &devAddr)
{
    record(QStringLiteral("connectToDevice ") + devAddr);
}

bool RecordingBlePlugin::reconnectDevice(const QString &devAddr)
{
    record(QStringLiteral("reconnectDevice ") + devAddr);
    return property("reconnectResult").toBool();
}

void RecordingBlePlugin::removeDevice(const QString &devAddr)
{
    record(QStringLiteral("removeDevice ") + devAddr);
}

void RecordingBlePlugin::emitError(int error)
{
    emit sigDeviceDiscoveredErrorOccurred(QBluetoothDeviceDiscoveryAgent::Error(error));
}

quintptr RecordingBlePlugin::interfaceMetaObject() const
{
    return quintptr(&BrivonQXBleInterface::staticMetaObject);
}
