#include "devdata.h"

void registerDeviceMetaTypes()
{
    qRegisterMetaType<DevData>("DevData");
    qRegisterMetaType<GroupData>("GroupData");
}

// Registered before main() so that queued connections work from the first signal on.
static const int devDataTypeId = (registerDeviceMetaTypes(), 0);
