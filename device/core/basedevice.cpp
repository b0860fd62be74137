#include "basedevice.h"

BaseDevice::BaseDevice(QObject *parent)
    : QObject(parent)
{
    registerDeviceMetaTypes();
    qRegisterMetaType<QBluetoothDeviceDiscoveryAgent::Error>("QBluetoothDeviceDiscoveryAgent::Error");
}

BaseDevice::~BaseDevice() = default;
