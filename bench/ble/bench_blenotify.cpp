// Notification decoding plus store update: how many changing light reports per second the BLE
// manager turns into store updates (with one listener on onUpdateDev, as the control panel has),
// with 10, 100 and 1000 stored lights. Every report changes the light's state, so every report
// reaches the store; the store writes the configuration file at most twice a second, as it does
// in the program. The debug stream is discarded (its lines are still formatted), and separately
// measured going to stderr for one size with --with-log.
//
//   bench_blenotify [seconds per case, default 2] [--with-log]
#include "bluetoothmgr.h"
#include "bluetoothprotocol.h"
#include "bluetoothprotocol2.h"
#include "devdatamgr.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QDir>
#include <QTemporaryDir>

#include <cstdio>
#include <memory>

namespace {

void discard(QtMsgType, const QMessageLogContext &, const QString &) {}

QString addrOf(int i)
{
    return QStringLiteral("C4:7F:0E:%1:%2:%3")
        .arg((i >> 16) & 0xFF, 2, 16, QLatin1Char('0'))
        .arg((i >> 8) & 0xFF, 2, 16, QLatin1Char('0'))
        .arg(i & 0xFF, 2, 16, QLatin1Char('0'))
        .toUpper();
}

enum class Kind { VType, Frame55AA };

struct Result
{
    qint64 reports = 0;
    double seconds = 0;
    qint64 updates = 0;
};

Result run(int lights, Kind kind, double seconds)
{
    QTemporaryDir home;
    qputenv("XDG_DATA_HOME", QFile::encodeName(home.path()));
    auto store = std::make_shared<DevDataMgr>();

    // Load the lights from a file, as at start-up.
    DevDataMgr::DeviceTable table;
    QStringList addrs;
    for (int i = 0; i < lights; ++i) {
        DevData dev;
        dev.addr = addrOf(i);
        dev.name = QStringLiteral("Light %1").arg(i);
        dev.protocol = kind == Kind::VType ? (i % 2 ? 2 : 162) : 1001;
        table.insert(dev.addr, dev);
        addrs << dev.addr;
    }
    QDir().mkpath(store->configDir());
    QFile file(store->configFilePath());
    file.open(QIODevice::WriteOnly);
    file.write(DevDataMgr::serializeConfig(table, {}));
    file.close();
    store->readConfig();

    BluetoothMgr mgr(store, nullptr, nullptr);
    Result result;
    QObject::connect(store.get(), &DevDataMgr::onUpdateDev, store.get(), [&result] { ++result.updates; });

    // Pre-built changing reports: brightness steps through 256 values.
    bluetoothProtocol ff;
    bluetoothProtocol2 aa;
    QList<QByteArray> frames;
    for (int b = 0; b < 256; ++b) {
        if (kind == Kind::VType)
            frames << ff.pack(0x10, 9, {quint8(b), 0x15, 0xE0, 0x00, 0x78, 0x50, 0x00, 0x02, 0x01});
        else
            frames << aa.pack(0x30, 4, {0x01, quint8(b % 101), 0x15, quint8(b)});
    }

    QElapsedTimer clock;
    clock.start();
    const qint64 limitNs = qint64(seconds * 1e9);
    while (clock.nsecsElapsed() < limitNs) {
        for (int batch = 0; batch < 256; ++batch) {
            // Round-robin over the lights; each light's next report differs from its last.
            const int light = int(result.reports % lights);
            const int step = int(result.reports / lights);
            mgr.handleMessageReceived(addrs.at(light), frames.at(step % 256));
            ++result.reports;
        }
        QCoreApplication::processEvents(); // the store's coalesced write timer
    }
    result.seconds = clock.nsecsElapsed() / 1e9;
    return result;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    double seconds = 2.0;
    bool withLog = false;
    for (const QString &arg : app.arguments().mid(1)) {
        if (arg == QLatin1String("--with-log"))
            withLog = true;
        else if (arg.toDouble() > 0)
            seconds = arg.toDouble();
    }
    const QtMessageHandler original = qInstallMessageHandler(discard);

    std::printf("BLE notification decoding + store update (%.1f s per case, debug stream discarded)\n", seconds);
    std::printf("%-8s %-6s %12s %14s %10s\n", "lights", "frames", "reports", "reports/s", "updates");
    bool meetsTarget = true;
    for (const Kind kind : {Kind::VType, Kind::Frame55AA}) {
        for (int lights : {10, 100, 1000}) {
            const Result r = run(lights, kind, seconds);
            const double rate = r.reports / r.seconds;
            std::printf("%-8d %-6s %12lld %14.0f %10lld\n", lights, kind == Kind::VType ? "FF" : "55AA",
                        static_cast<long long>(r.reports), rate, static_cast<long long>(r.updates));
            if (lights == 100 && rate < 2000)
                meetsTarget = false;
        }
    }
    if (withLog) {
        qInstallMessageHandler(original);
        const Result r = run(100, Kind::VType, seconds);
        std::fprintf(stdout, "with the debug stream on stderr, 100 lights, FF: %.0f reports/s\n", r.reports / r.seconds);
    }
    std::printf("target (100 lights, 2000 changing reports/s on one core): %s\n", meetsTarget ? "met" : "NOT met");
    return 0;
}
