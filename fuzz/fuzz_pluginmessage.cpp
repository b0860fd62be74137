// Fuzzes the plug-in message handler: any text a WebSocket client sends must be handled or dropped
// without a crash, with lights and groups stored so that every command path is reachable.
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
    manager()->onReceiveMessage(QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size)));
    return 0;
}
