#pragma once

// What the system's Bluetooth stack remembers about devices, where QtBluetooth has no call for it.

#include <QString>

namespace SystemDevices {

// Drops the device from the stack's cache, unless it is paired with the system (then the user
// manages it in the system's settings). Returns at once; the outcome goes to the log.
void forget(const QString &devAddr);

} // namespace SystemDevices
