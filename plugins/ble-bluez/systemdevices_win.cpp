#include "systemdevices.h"

// Windows keeps no cache entry for an unpaired LE device that a program could remove.
void SystemDevices::forget(const QString &devAddr)
{
    Q_UNUSED(devAddr)
}
