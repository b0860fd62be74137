// Fuzzes the readers of what a Hue bridge or the discovery service sends back: any bytes must be
// read without a crash, and nothing read may exceed the bounds the client promises.
#include "huebridge.h"

#include <QCoreApplication>
#include <QDir>

#include <cstdint>
#include <cstdlib>

namespace {

void quiet(QtMsgType, const QMessageLogContext &, const QString &) {}

HueBridge &client()
{
    static int argc = 1;
    static char name[] = "fuzz_huereplies";
    static char *argv[] = {name, nullptr};
    static QCoreApplication *app = QCoreApplication::instance() ? nullptr : new QCoreApplication(argc, argv);
    Q_UNUSED(app)
    // The client reads its paired bridges at construction; keep it away from the user's settings.
    qputenv("XDG_CONFIG_HOME", QDir::tempPath().toLocal8Bit() + "/fuzz_huereplies-config");
    qInstallMessageHandler(quiet);
    static HueBridge bridge;
    return bridge;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    HueBridge &bridge = client();
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));

    const QList<Light> lights = HueBridge::parseLightList(bytes);
    if (lights.size() > HueBridge::kMaxLights)
        std::abort();
    for (const Light &light : lights) {
        if (light.temperatureMin % 100 != 0 || light.temperatureMax % 100 != 0)
            std::abort();
    }
    if (HueBridge::parseBridgeList(bytes).size() > HueBridge::kMaxBridges)
        std::abort();

    QString rid;
    if (!bridge.recieveSetStateResponse(bytes, rid) && !rid.isEmpty())
        std::abort();
    return 0;
}
