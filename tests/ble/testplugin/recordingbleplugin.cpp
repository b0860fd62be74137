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

bool RecordingBlePlugin::reconnectDevice(const QString &devAddr)
{
    record(QStringLiteral("reconnectDevice ") + devAddr);
    return property("reconnectResult").toBool();
}

void RecordingBlePlugin::emitError(int error)
{
    emit sigDeviceDiscoveredErrorOccurred(QBluetoothDeviceDiscoveryAgent::Error(error));
}

quintptr RecordingBlePlugin::interfaceMetaObject() const
{
    return quintptr(&BrivonQXBleInterface::staticMetaObject);
}
