// Fuzzes the configuration loader: any bytes must load without a crash, and what loads must come
// back unchanged after a write and a second load.
#include "devdatamgr.h"

#include <cstdint>
#include <cstdlib>

namespace {

QByteArray single(const DevData &dev)
{
    return DevDataMgr::serializeConfig({{dev.addr, dev}}, {});
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));
    DevDataMgr::DeviceTable devices;
    DevDataMgr::GroupTable groups;
    if (!DevDataMgr::parseConfig(bytes, devices, groups))
        return 0;

    DevDataMgr::DeviceTable devicesAgain;
    DevDataMgr::GroupTable groupsAgain;
    if (!DevDataMgr::parseConfig(DevDataMgr::serializeConfig(devices, groups), devicesAgain, groupsAgain))
        std::abort();
    if (devicesAgain.size() != devices.size() || groupsAgain.size() != groups.size())
        std::abort();
    for (auto it = devices.constBegin(); it != devices.constEnd(); ++it) {
        if (!devicesAgain.contains(it.key()) || single(it.value()) != single(devicesAgain.value(it.key())))
            std::abort();
    }
    for (auto it = groups.constBegin(); it != groups.constEnd(); ++it) {
        const GroupData again = groupsAgain.value(it.key());
        if (again.name != it->name || again.devs != it->devs)
            std::abort();
    }
    return 0;
}
