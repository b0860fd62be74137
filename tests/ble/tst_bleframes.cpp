// Frame vectors of both light framings: what the program sends and what it accepts (the 55 AA
// vectors carry the CRC-16/MODBUS of their bytes). The frames of every control operation as sent
// to a light are checked in tst_bluetoothmgr.
#include "bluetoothprotocol.h"
#include "bluetoothprotocol2.h"

#include <QTest>

namespace {

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

} // namespace

class TestBleFrames : public QObject
{
    Q_OBJECT

private slots:
    // Every frame the program builds, in both framings, and the packing rules behind them.
    void frames_data()
    {
        QTest::addColumn<QByteArray>("frame");
        QTest::addColumn<QByteArray>("expected");
        bluetoothProtocol c;
        bluetoothProtocol2 c2;

        QTest::newRow("pack: empty payload") << c.pack(0x10, 0, {}) << hex("FF 10 00 00 AA");
        QTest::newRow("pack: sum wraps") << c.pack(0xA4, 3, {0xFF, 0xFF, 0x02}) << hex("FF A4 03 FF FF 02 00 AA");
        QTest::newRow("pack: longest") << c.pack(0x10, 255, std::vector<quint8>(255, 1))
                                       << (hex("FF 10 FF") + QByteArray(255, '\x01') + hex("FF AA"));
        QTest::newRow("pack: longer than declared") << c.pack(0xA2, 1, {0x32, 0x33}) << QByteArray();
        QTest::newRow("AA pack: empty payload") << c2.pack(0x30, 0, {}) << hex("55 AA 03 30 00 00 00 6F");
        QTest::newRow("AA pack: longer than declared") << c2.pack(0x06, 1, {0x01, 0x02}) << QByteArray();
        QTest::newRow("effect 255") << c.effectFrame(QStringLiteral("255")) << hex("FF A1 01 FF FF AA");
        // Texts that are no effect number build nothing, least of all on, off or a state request.
        for (const char *text : {"A-3", "300", "0", "1", "48", "3", "", " 5", "+5", "5.0", "x"})
            QTest::addRow("effect \"%s\" builds nothing", text) << c.effectFrame(QLatin1String(text)) << QByteArray();
        QTest::newRow("colour saturation truncated to percent") << c.colorFrame(0, 128) << hex("FF A4 03 00 00 32 32 AA");
        QTest::newRow("colour without hue sends hue 0") << c.colorFrame(-1, 0) << hex("FF A4 03 00 00 00 00 AA");
        QTest::newRow("AA CCT mode 1% 2900 K") << c2.cctModeFrame(1, 2900) << hex("55 AA 03 01 00 05 01 01 0B 54 00 AC A7");
        QTest::newRow("AA effect A-12") << c2.effectModeFrame(100, "A-12") << hex("55 AA 03 01 00 05 03 64 01 0C 00 D0 69");
        for (const char *text : {"", "7", "A-", "A-0", "A-256", "a-1", "AB-1", "A-1-2"})
            QTest::addRow("AA effect \"%s\" builds nothing", text) << c2.effectModeFrame(100, text) << QByteArray();
    }

    void frames()
    {
        QFETCH(QByteArray, frame);
        QFETCH(QByteArray, expected);
        QCOMPARE(frame.toHex(' '), expected.toHex(' '));
    }

    void parse_data()
    {
        QTest::addColumn<QByteArray>("frame");
        QTest::addColumn<int>("cmd"); // -1: refused
        QTest::addColumn<QByteArray>("payload");

        QTest::newRow("any command id") << hex("FF 10 09 01 02 03 04 05 06 07 08 09 2D AA") << 0x10
                                        << hex("01 02 03 04 05 06 07 08 09");
        QTest::newRow("FE start dropped") << hex("FE 10 09 01 02 03 04 05 06 07 08 09 2D AA") << -1 << QByteArray();
        QTest::newRow("empty") << QByteArray() << -1 << QByteArray();
        QTest::newRow("zero-length payload") << hex("FF 10 00 00 AA") << -1 << QByteArray();
        QTest::newRow("declared longer than present") << hex("FF 10 05 01 02 03") << -1 << QByteArray();
        QTest::newRow("longest payload") << (hex("FF 01 FF") + QByteArray(255, '\x7F')) << 0x01 << QByteArray(255, '\x7F');
        QTest::newRow("AA first magic wrong") << hex("54 AA 03 06 00 04 01 3C 13 88 5B 78") << -1 << QByteArray();
        QTest::newRow("AA second magic wrong") << hex("55 AB 03 06 00 04 01 3C 13 88 5B 78") << -1 << QByteArray();
        QTest::newRow("AA five bytes") << hex("55 AA 03 06 00") << -1 << QByteArray();
        QTest::newRow("AA CRC missing") << hex("55 AA 03 06 00 04 01 3C 13 88") << -1 << QByteArray();
        QTest::newRow("AA zero-length payload") << hex("55 AA 03 30 00 00 00 6F") << -1 << QByteArray();
        const auto aa21 = [](const char *head, int n) { return hex(head) + QByteArray(n, '\x11') + hex("00 00"); };
        QTest::newRow("AA declared 255") << aa21("55 AA 03 21 00 FF", 255) << 0x21 << QByteArray(255, '\x11');
        QTest::newRow("AA declared 256") << aa21("55 AA 03 21 01 00", 256) << -1 << QByteArray();
    }

    void parse()
    {
        QFETCH(QByteArray, frame);
        QFETCH(int, cmd);
        QFETCH(QByteArray, payload);
        std::vector<quint8> out;
        FrameHeader header;
        FrameHeader2 header2;
        const bool aa = frame.startsWith(char(0x55));
        const bool ok = aa ? bluetoothProtocol2().parseFrame2(frame, header2, out)
                           : bluetoothProtocol().parseFrame(frame, header, out);
        QCOMPARE(ok ? int(aa ? header2.cmd : header.cmd) : -1, cmd);
        if (ok)
            QCOMPARE(aa ? header2.payloadLength() : int(header.length), payload.size());
        QCOMPARE(QByteArray(reinterpret_cast<const char *>(out.data()), qsizetype(out.size())), payload);
    }
};

QTEST_APPLESS_MAIN(TestBleFrames)
#include "tst_bleframes.moc"
