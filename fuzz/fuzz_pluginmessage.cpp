// Fuzzes the plug-in message handler: any text a WebSocket client sends must be handled or dropped
// without a crash, with lights and groups stored so that every command path is reachable. A client
// drives lights; it never adds, removes or renames one, nor changes a group.
#include "devicemgr.h"
#include "pluginmsgmanager.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdint>

namespace {

PluginMsgManager *manager()
{
    static PluginMsgManager *instance = [] {
        static int argc = 1;
        static char name[] = "fuzz_pluginmessage";
        static char *argv[] = {name, nullptr};
        if (!QCoreApplication::instance())
            new QCoreApplication(argc, argv);
        // Keep the fuzzer's settings and configuration out of the user's home.
        static QTemporaryDir home;
        qputenv("XDG_CONFIG_HOME", (home.path() + QStringLiteral("/config")).toLocal8Bit());
        qputenv("XDG_DATA_HOME", (home.path() + QStringLiteral("/data")).toLocal8Bit());
        qputenv("BRIVON_BLE_PLUGIN", "/nonexistent/plugin.so");

        // A fixed group id lets the corpus reach the group commands.
        QDir().mkpath(home.path() + QStringLiteral("/data/Brivon/Beamcrafter/config"));
        QFile config(home.path() + QStringLiteral("/data/Brivon/Beamcrafter/config/lightconfig.json"));
        if (config.open(QIODevice::WriteOnly)) {
            config.write(R"({"devs":[{"addr":"AA:BB:CC:00:00:01","protocol":2},
                                      {"addr":"AA:BB:CC:00:00:02","protocol":1001,"enablePower":false},
                                      {"addr":"192.168.1.2/bridge/light-1","protocol":2001}],
                             "groups":[{"name":"g","uuid":"{group}","devs":["AA:BB:CC:00:00:01","AA:BB:CC:00:00:02","gone"]}]})");
            config.close();
        }
        return new PluginMsgManager();
    }();
    return instance;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    PluginMsgManager *handler = manager();
    const DevDataMgr *store = DeviceMgrSingleton::instance()->store();
    const DevDataMgr::DeviceTable before = store->devices();
    const DevDataMgr::GroupTable groupsBefore = store->groups();

    handler->onReceiveMessage(QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size)));

    const DevDataMgr::DeviceTable &after = store->devices();
    if (after.size() != before.size() || store->groups().size() != groupsBefore.size())
        std::abort();
    for (auto it = before.constBegin(); it != before.constEnd(); ++it) {
        const auto now = after.constFind(it.key());
        if (now == after.constEnd() || now->name != it->name || now->protocol != it->protocol)
            std::abort();
    }
    for (auto it = groupsBefore.constBegin(); it != groupsBefore.constEnd(); ++it) {
        if (store->groups().value(it.key()).devs != it->devs)
            std::abort();
    }
    return 0;
}
