// Fuzzes both light framings and the BLE manager's notification handler. The input first goes
// whole through both frame parsers (an accepted payload must be exactly the declared bytes of the
// input); then it is read as a script of records [selector][length][bytes] that deliver
// notifications to stored lights of every protocol, interleaved with link changes, the adjusting
// flag and control operations, so the decoders run against every stored state.
#include "bluetoothmgr.h"
#include "bluetoothprotocol.h"
#include "bluetoothprotocol2.h"
#include "brivonqxbleinterface.h"
#include "devdatamgr.h"

#include <QColor>
#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <type_traits>

namespace {

// Accepts every write; a frame the manager builds must never be empty or malformed.
class SinkPlugin : public BrivonQXBleInterface
{
    Q_OBJECT
    Q_INTERFACES(BrivonQXBleInterface)

public:
    void startScan() override {}
    void stopScan() override {}
    void writeData(const QString &, const QByteArray &data) override
    {
        if (data.isEmpty())
            std::abort();
        const auto first = quint8(data.at(0));
        if (first == 0xFF) {
            FrameHeader header;
            std::vector<quint8> payload;
            if (data.size() != 5 + quint8(data.at(2)) || !bluetoothProtocol().parseFrame(data, header, payload)
                || quint8(data.at(data.size() - 1)) != 0xAA)
                std::abort();
        } else if (first == 0x55) {
            FrameHeader2 header;
            std::vector<quint8> payload;
            if (!bluetoothProtocol2().parseFrame2(data, header, payload) || data.size() != 8 + int(payload.size()))
                std::abort();
            const auto *bytes = reinterpret_cast<const quint8 *>(data.constData());
            const quint16 crc = bluetoothProtocol2::crc16Modbus(bytes + 2, size_t(data.size() - 4));
            if (bytes[data.size() - 2] != (crc & 0xFF) || bytes[data.size() - 1] != (crc >> 8))
                std::abort();
        } else {
            std::abort();
        }
    }
    void connectToDevice(const QString &) override {}
    bool reconnectDevice(const QString &) override { return false; }
    void removeDevice(const QString &) override {}
};

const int kProtocols[] = {1, 2, 3, 5, 6, 7, 162, 163, 1001, 1001, 4, -3, 0, 2001, 1001, 2};

struct Harness
{
    std::unique_ptr<QTemporaryDir> home;
    std::shared_ptr<DevDataMgr> store;
    std::unique_ptr<SinkPlugin> plugin;
    std::unique_ptr<BluetoothMgr> mgr;
    QList<DevData> initial;
};

void quiet(QtMsgType, const QMessageLogContext &, const QString &) {}

Harness &harness()
{
    static Harness h = [] {
        qInstallMessageHandler(quiet);
        if (!QCoreApplication::instance()) {
            static int argc = 1;
            static char name[] = "fuzz_bleframes";
            static char *argv[] = {name, nullptr};
            new QCoreApplication(argc, argv);
        }
        Harness made;
        made.home = std::make_unique<QTemporaryDir>();
        qputenv("XDG_DATA_HOME", QFile::encodeName(made.home->path()));
        made.store = std::make_shared<DevDataMgr>();
        made.plugin = std::make_unique<SinkPlugin>();
        made.mgr = std::make_unique<BluetoothMgr>(made.store, made.plugin.get(), nullptr);
        for (int i = 0; i < 16; ++i) {
            DevData dev;
            dev.addr = QStringLiteral("F0:00:00:00:00:%1").arg(i, 2, 16, QLatin1Char('0'));
            dev.protocol = kProtocols[i];
            dev.linkState = quint8(i % 2);
            dev.switchState = (i / 2) % 2;
            dev.oldBrightness = (i % 3) - 1;
            dev.devCurModel = (i % 4 == 3) ? 2 : 1;
            dev.lightEffect = (i % 5 == 0) ? QString() : QStringLiteral("B-4");
            made.store->addDev(dev);
            made.initial << dev;
        }
        return made;
    }();
    return h;
}

// A frame that decodes, built again from its command and payload, decodes to the same; where the
// input's own framing bytes (checksum, trailer, frame type) are the right ones, it is the same bytes.
template <typename Codec>
void reencodes(Codec codec, const QByteArray &bytes, quint8 cmd, const std::vector<quint8> &payload, int overhead)
{
    if (payload.size() > 255)
        return;
    const QByteArray rebuilt = codec.pack(cmd, quint8(payload.size()), payload);
    if (rebuilt.size() != overhead + int(payload.size()))
        std::abort();
    std::vector<quint8> again;
    bool parsed = false;
    quint8 cmdAgain = 0;
    if constexpr (std::is_same_v<Codec, bluetoothProtocol>) {
        FrameHeader header;
        parsed = codec.parseFrame(rebuilt, header, again);
        cmdAgain = header.cmd;
    } else {
        FrameHeader2 header;
        parsed = codec.parseFrame2(rebuilt, header, again);
        cmdAgain = header.cmd;
    }
    if (!parsed || cmdAgain != cmd || again != payload)
        std::abort();
    const QByteArray original = bytes.left(rebuilt.size());
    bool framingRight = false;
    if constexpr (std::is_same_v<Codec, bluetoothProtocol>) {
        framingRight = original.size() == rebuilt.size() && quint8(original.back()) == bluetoothProtocol::kTrailer
                       && quint8(original.at(original.size() - 2)) == bluetoothProtocol::checksum(payload);
    } else {
        const auto *raw = reinterpret_cast<const quint8 *>(original.constData());
        const quint16 crc = bluetoothProtocol2::crc16Modbus(raw + 2, size_t(original.size() - 4));
        framingRight = raw[2] == bluetoothProtocol2::kFrameType && raw[original.size() - 2] == (crc & 0xFF)
                       && raw[original.size() - 1] == (crc >> 8);
    }
    if (framingRight && original != rebuilt)
        std::abort();
}

void checkParsers(const QByteArray &bytes)
{
    FrameHeader header;
    std::vector<quint8> payload;
    if (bluetoothProtocol().parseFrame(bytes, header, payload)) {
        if (payload.size() != header.length || 3 + qsizetype(payload.size()) > bytes.size()
            || std::memcmp(payload.data(), bytes.constData() + 3, payload.size()) != 0)
            std::abort();
        reencodes(bluetoothProtocol(), bytes, header.cmd, payload, 5);
    }
    FrameHeader2 header2;
    if (bluetoothProtocol2().parseFrame2(bytes, header2, payload)) {
        if (int(payload.size()) != header2.payloadLength() || payload.size() > 255
            || 8 + qsizetype(payload.size()) > bytes.size()
            || std::memcmp(payload.data(), bytes.constData() + 6, payload.size()) != 0)
            std::abort();
        reencodes(bluetoothProtocol2(), bytes, header2.cmd, payload, 8);
    }
    VTypeReport report;
    if (VTypeReport::decode(payload, report) && report.colorName().size() != 7)
        std::abort();
    ProductBaseInfo info;
    ProductBaseInfo::decode(payload, info);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray whole = QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));
    checkParsers(whole);

    Harness &h = harness();
    for (const DevData &dev : qAsConst(h.initial))
        h.store->updateDev(dev);
    for (const DevData &dev : qAsConst(h.initial))
        h.mgr->setAdjusting(dev.addr, false);

    size_t at = 0;
    while (at + 2 <= size) {
        const quint8 selector = data[at];
        const size_t length = qMin<size_t>(data[at + 1], size - at - 2);
        const QByteArray bytes(reinterpret_cast<const char *>(data + at + 2), qsizetype(length));
        at += 2 + length;
        const QString &addr = h.initial.at(selector & 0x0F).addr;
        const int arg = bytes.isEmpty() ? 0 : quint8(bytes.at(0));
        switch (selector >> 4) {
        case 8: h.mgr->setAdjusting(addr, !h.mgr->isAdjusting(addr)); break;
        case 9: h.mgr->handleDeviceConnected(addr); break;
        case 10: h.mgr->handleDeviceDisconnected(addr); break;
        case 11: h.mgr->powerOn(addr); break;
        case 12: h.mgr->powerOff(addr); break;
        case 13: h.mgr->setBrightness(addr, arg); break;
        case 14: h.mgr->setLightEffect(addr, QString::fromLatin1(bytes)); break;
        case 15:
            if (arg % 2)
                h.mgr->setTemperature(addr, arg * 40);
            else
                h.mgr->setColor(addr, QColor::fromHsv(arg * 359 / 255, 255 - arg, 255));
            break;
        default: h.mgr->handleMessageReceived(addr, bytes); break;
        }
    }
    return 0;
}

#include "fuzz_bleframes.moc"
