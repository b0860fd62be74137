// Control commands from a WebSocket client to the light, with 100 stored lights connected through
// the simulated-lights plug-in:
// 1. latency: commands to lights that have been quiet for more than the pacing interval, the time
//    from sending to the frame reaching the plug-in (p50, p99), against a bare loopback WebSocket
//    echo as the floor;
// 2. flood: 10 lights driven with 2,000 brightness requests a second for 10 s; frames per light per
//    second, the last value reaching each light and how long after its request, and the p99 time
//    from a request to the frame that carries its value.
//
//   bench_pluginserver [commands] [flood seconds]      (default 2000 commands, 10 s)
#include "devicemgr.h"
#include "pluginmsgmanager.h"
#include "websocketserver.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QLoggingCategory>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPluginLoader>
#include <QTemporaryDir>
#include <QWebSocket>
#include <QWebSocketServer>

#include <algorithm>
#include <cstdio>

namespace {

constexpr int kLights = 100;

QString lightAddr(int i)
{
    return QStringLiteral("BE:00:00:00:%1:%2").arg(i / 100, 2, 10, QLatin1Char('0')).arg(i % 100, 2, 10, QLatin1Char('0'));
}

bool spin(const std::function<bool()> &done, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return true;
}

QString brightnessCommand(const QString &id, int value)
{
    return QString::fromUtf8(QJsonDocument(QJsonObject{{"cmd", 10000}, {"subCmd", "brightness"},
                                                       {"param", QJsonObject{{"id", id}, {"value", value}}}})
                                 .toJson(QJsonDocument::Compact));
}

struct Percentiles
{
    double p50 = 0, p99 = 0;
};

Percentiles percentiles(QList<qint64> nanos)
{
    std::sort(nanos.begin(), nanos.end());
    if (nanos.isEmpty())
        return {};
    auto at = [&](double q) { return nanos.at(qMin(nanos.size() - 1, qsizetype(q * nanos.size()))) / 1000.0; };
    return {at(0.50), at(0.99)};
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(bytes);
}

// Receives the simulated plug-in's frame signal, whose class this program does not know.
class FrameProbe : public QObject
{
    Q_OBJECT

public:
    std::function<void(const QString &, const QByteArray &)> onFrame;

public slots:
    void frame(const QString &addr, const QByteArray &data) { onFrame(addr, data); }
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const int latencyCommands = argc > 1 ? QByteArray(argv[1]).toInt() : 2000;
    const int floodSeconds = argc > 2 ? QByteArray(argv[2]).toInt() : 10;

    // Everything the program stores goes into a throw-away home.
    QTemporaryDir home(QStringLiteral("/tmp/brivon-bench-XXXXXX"));
    qputenv("XDG_DATA_HOME", (home.path() + "/data").toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", (home.path() + "/config").toLocal8Bit());
    QJsonArray stored, simulated;
    for (int i = 0; i < kLights; ++i) {
        stored.append(QJsonObject{{"addr", lightAddr(i)}, {"name", QStringLiteral("Light %1").arg(i)}, {"protocol", 2}});
        simulated.append(QJsonObject{{"addr", lightAddr(i)}, {"protocol", 2}, {"power", true}, {"brightness", 50}});
    }
    writeFile(home.path() + "/data/Brivon/Beamcrafter/config/lightconfig.json",
              QJsonDocument(QJsonObject{{"devs", stored}, {"groups", QJsonArray()}}).toJson());
    writeFile(home.path() + "/lights.json",
              QJsonDocument(QJsonObject{{"timing", QJsonObject{{"discoverFirstMs", 1}, {"discoverStepMs", 1}, {"scanMs", 500},
                                                               {"connectMs", 1}, {"replyMs", 0}}},
                                        {"lights", simulated}}).toJson());
    const QString pluginPath = QStringLiteral(BRIVON_BIN_DIR "/libBrivonBleSim.so");
    qputenv("BRIVON_BLE_PLUGIN", pluginPath.toLocal8Bit());
    qputenv("BRIVON_SIM_LIGHTS", (home.path() + "/lights.json").toLocal8Bit());
    qputenv("BRIVON_SIM_CONTROL", "");
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &message) {
        if (type >= QtWarningMsg)
            std::fprintf(stderr, "%s\n", qPrintable(message));
    });

    PluginMsgManager manager;
    DeviceMgr *devices = DeviceMgrSingleton::instance();
    // The loader hands back the instance the program already loaded.
    QObject *plugin = QPluginLoader(pluginPath).instance();
    if (!plugin) {
        std::fprintf(stderr, "simulated lights not loaded\n");
        return 1;
    }
    QHash<QString, qint64> arrivals;
    QElapsedTimer clock;
    clock.start();
    FrameProbe probe;
    probe.onFrame = [&](const QString &addr, const QByteArray &data) {
        if (data.size() > 1 && quint8(data.at(1)) == 0xA2) // brightness frames only
            arrivals.insert(addr, clock.nsecsElapsed());
    };
    if (!QObject::connect(plugin, SIGNAL(frameWritten(QString,QByteArray)), &probe, SLOT(frame(QString,QByteArray)))) {
        std::fprintf(stderr, "the plug-in reports no frames\n");
        return 1;
    }

    devices->refreshDevices();
    const bool online = spin([&] {
        const auto &table = devices->getDevices();
        return std::all_of(table.cbegin(), table.cend(), [](const DevData &d) { return d.linkState == 1 && d.switchState; });
    }, 20000);
    if (!online) {
        std::fprintf(stderr, "lights did not come online\n");
        return 1;
    }

    QWebSocket client;
    client.open(QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(manager.server()->port())));
    spin([&] { return client.state() == QAbstractSocket::ConnectedState; }, 5000);

    // 1. Latency, one command at a time, each light quiet for longer than the pacing interval.
    QList<qint64> latencies;
    QHash<QString, qint64> lastSent;
    for (int i = 0; i < latencyCommands; ++i) {
        const QString addr = lightAddr(i % kLights);
        const qint64 quietUntil = lastSent.value(addr, -1'000'000'000) + (PluginMsgManager::kPaceMs + 5) * 1'000'000LL;
        spin([&] { return clock.nsecsElapsed() >= quietUntil; }, 1000);
        arrivals.remove(addr);
        const qint64 sent = clock.nsecsElapsed();
        lastSent.insert(addr, sent);
        client.sendTextMessage(brightnessCommand(addr, 10 + i % 80));
        client.flush();
        if (!spin([&] { return arrivals.contains(addr); }, 2000)) {
            std::fprintf(stderr, "command %d lost\n", i);
            return 1;
        }
        latencies << arrivals.value(addr) - sent;
    }

    // 2. Flood: requests at a steady rate, values cycling per light so that each frame names the
    // request it carries.
    constexpr int kFloodLights = 10;
    constexpr int kFloodRate = 2000;
    struct FloodLight
    {
        qint64 sentAt[101] = {};
        int lastValue = -1;
        qint64 lastSentAt = 0;
        int lastFrameValue = -1;
        qint64 lastFrameAt = 0;
        int frames = 0;
    };
    QHash<QString, FloodLight> flood;
    QList<qint64> floodLatencies;
    probe.onFrame = [&](const QString &addr, const QByteArray &data) {
        if (data.size() < 4 || quint8(data.at(1)) != 0xA2 || !flood.contains(addr))
            return;
        FloodLight &light = flood[addr];
        const int value = quint8(data.at(3));
        const qint64 now = clock.nsecsElapsed();
        ++light.frames;
        light.lastFrameValue = value;
        light.lastFrameAt = now;
        if (value <= 100 && light.sentAt[value] > 0)
            floodLatencies << now - light.sentAt[value];
    };
    for (int i = 0; i < kFloodLights; ++i)
        flood.insert(lightAddr(i), FloodLight());
    const qint64 floodStart = clock.nsecsElapsed();
    const qint64 total = qint64(kFloodRate) * floodSeconds;
    qint64 sentCount = 0;
    while (sentCount < total) {
        const qint64 due = qMin(total, (clock.nsecsElapsed() - floodStart) * kFloodRate / 1'000'000'000LL);
        for (; sentCount < due; ++sentCount) {
            const QString addr = lightAddr(int(sentCount % kFloodLights));
            FloodLight &light = flood[addr];
            const int value = int((sentCount / kFloodLights) % 100) + 1;
            const qint64 now = clock.nsecsElapsed();
            light.sentAt[value] = now;
            light.lastValue = value;
            light.lastSentAt = now;
            client.sendTextMessage(brightnessCommand(addr, value));
        }
        client.flush();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
    }
    const double floodElapsed = (clock.nsecsElapsed() - floodStart) / 1e9;
    // Let the last values go out.
    spin([] { return false; }, 500);

    // 3. The floor: a bare WebSocket echo on loopback, same process, same event loop.
    QWebSocketServer echo(QStringLiteral("echo"), QWebSocketServer::NonSecureMode);
    echo.listen(QHostAddress::LocalHost, 0);
    QObject::connect(&echo, &QWebSocketServer::newConnection, [&] {
        QWebSocket *peer = echo.nextPendingConnection();
        QObject::connect(peer, &QWebSocket::textMessageReceived, peer, [peer](const QString &m) { peer->sendTextMessage(m); });
    });
    QWebSocket echoClient;
    qint64 echoed = -1;
    QObject::connect(&echoClient, &QWebSocket::textMessageReceived, [&](const QString &) { echoed = clock.nsecsElapsed(); });
    echoClient.open(QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(echo.serverPort())));
    spin([&] { return echoClient.state() == QAbstractSocket::ConnectedState; }, 5000);
    QList<qint64> echoes;
    for (int i = 0; i < latencyCommands; ++i) {
        echoed = -1;
        const qint64 sent = clock.nsecsElapsed();
        echoClient.sendTextMessage(brightnessCommand(lightAddr(i % kLights), 10 + i % 80));
        echoClient.flush();
        if (!spin([&] { return echoed >= 0; }, 2000))
            return 1;
        echoes << echoed - sent;
    }

    const Percentiles command = percentiles(latencies);
    const Percentiles floor = percentiles(echoes);
    std::printf("lights: %d\n", kLights);
    std::printf("quiet light, command to frame: p50 %.1f us, p99 %.1f us (%d commands)\n", command.p50, command.p99,
                latencyCommands);
    std::printf("loopback echo round trip: p50 %.1f us, p99 %.1f us\n", floor.p50, floor.p99);
    std::printf("p99 ratio to echo: %.2f (target <= 3)\n", floor.p99 > 0 ? command.p99 / floor.p99 : 0.0);

    std::printf("flood: %lld brightness requests to %d lights in %.2f s (%.0f requests/s)\n", total, kFloodLights,
                floodElapsed, total / floodElapsed);
    bool allReached = true;
    for (int i = 0; i < kFloodLights; ++i) {
        const FloodLight &light = flood[lightAddr(i)];
        const bool reached = light.lastFrameValue == light.lastValue;
        allReached = allReached && reached;
        std::printf("  %s: %.1f frames/s, last value %d, reached %d %.1f ms after its request%s\n",
                    qPrintable(lightAddr(i)), light.frames / floodElapsed, light.lastValue, light.lastFrameValue,
                    (light.lastFrameAt - light.lastSentAt) / 1e6, reached ? "" : "  NOT REACHED");
    }
    const Percentiles floodPercentiles = percentiles(floodLatencies);
    std::printf("flood, request to the frame carrying its value: p50 %.1f ms, p99 %.1f ms (%lld frames)\n",
                floodPercentiles.p50 / 1000.0, floodPercentiles.p99 / 1000.0, qint64(floodLatencies.size()));
    return allReached ? 0 : 1;
}

#include "bench_pluginserver.moc"
