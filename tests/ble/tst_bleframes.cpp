// Frame vectors of both light framings: what the program sends and what it accepts.
#include "bluetoothprotocol.h"
#include "bluetoothprotocol2.h"

#include <QTest>

namespace {

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

std::vector<quint8> bytes(const QByteArray &data)
{
    return std::vector<quint8>(data.begin(), data.end());
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
        QTest::newRow("pack: sum wraps") << c.pack(0xA4, 3, bytes(hex("FF FF 02"))) << hex("FF A4 03 FF FF 02 00 AA");
        QTest::newRow("pack: longest") << c.pack(0x10, 255, bytes(QByteArray(255, '\x01')))
                                       << (hex("FF 10 FF") + QByteArray(255, '\x01') + hex("FF AA"));
        QTest::newRow("pack: longer than declared") << c.pack(0xA2, 1, bytes(hex("32 33"))) << QByteArray();
        QTest::newRow("pack: shorter than declared") << c.pack(0xA3, 2, bytes(hex("19"))) << QByteArray();
        QTest::newRow("AA pack: empty payload") << c2.pack(0x30, 0, {}) << hex("55 AA 03 30 00 00 00 6F");
        QTest::newRow("AA pack: longer than declared") << c2.pack(0x06, 1, bytes(hex("01 02"))) << QByteArray();
        QTest::newRow("AA pack: shorter than declared") << c2.pack(0x01, 5, bytes(hex("01 32"))) << QByteArray();
        QTest::newRow("power on is A1 00") << c.powerFrame(true) << hex("FF A1 01 00 00 AA");
        QTest::newRow("power off is A1 01") << c.powerFrame(false) << hex("FF A1 01 01 01 AA");
        QTest::newRow("state request A1 30") << c.stateRequestFrame() << hex("FF A1 01 30 30 AA");
        QTest::newRow("effect 25") << c.effectFrame(QStringLiteral("25")) << hex("FF A1 01 19 19 AA");
        QTest::newRow("effect 255") << c.effectFrame(QStringLiteral("255")) << hex("FF A1 01 FF FF AA");
        // Texts that are no effect number build nothing, least of all on, off or a state request.
        for (const char *text : {"A-3", "300", "0", "1", "48", "3", "", " 5", "+5", "5.0", "x"})
            QTest::newRow(qPrintable(QStringLiteral("effect \"%1\" builds nothing").arg(QLatin1String(text))))
                << c.effectFrame(QLatin1String(text)) << QByteArray();
        QTest::newRow("brightness 0") << c.brightnessFrame(0) << hex("FF A2 01 00 00 AA");
        QTest::newRow("brightness 100") << c.brightnessFrame(100) << hex("FF A2 01 64 64 AA");
        QTest::newRow("temperature 5600 big-endian") << c.temperatureFrame(5600) << hex("FF A3 02 15 E0 F5 AA");
        QTest::newRow("colour hue 300 full saturation") << c.colorFrame(300, 255) << hex("FF A4 03 01 2C 64 91 AA");
        QTest::newRow("colour saturation truncated to percent") << c.colorFrame(0, 128) << hex("FF A4 03 00 00 32 32 AA");
        QTest::newRow("colour without hue sends hue 0") << c.colorFrame(-1, 0) << hex("FF A4 03 00 00 00 00 AA");
        QTest::newRow("AA request mode 06") << c2.requestFrame(0x06) << hex("55 AA 03 06 00 01 01 A0 D8");
        QTest::newRow("AA request product info 21") << c2.requestFrame(0x21) << hex("55 AA 03 21 00 01 01 AA 6C");
        QTest::newRow("AA CCT mode 50% 5600 K") << c2.cctModeFrame(50, 5600) << hex("55 AA 03 01 00 05 01 32 15 E0 00 B4 E5");
        QTest::newRow("AA CCT mode 1% 2900 K") << c2.cctModeFrame(1, 2900) << hex("55 AA 03 01 00 05 01 01 0B 54 00 AC A7");
        QTest::newRow("AA effect C-3") << c2.effectModeFrame(80, QStringLiteral("C-3"))
                                       << hex("55 AA 03 01 00 05 03 50 03 03 00 7A 69");
        QTest::newRow("AA effect A-12") << c2.effectModeFrame(100, QStringLiteral("A-12"))
                                     << hex("55 AA 03 01 00 05 03 64 01 0C 00 D0 69");
        for (const char *text : {"", "7", "A-", "A-0", "A-256", "a-1", "AB-1", "A-1-2"})
            QTest::newRow(qPrintable(QStringLiteral("AA effect \"%1\" builds nothing").arg(QLatin1String(text))))
                << c2.effectModeFrame(100, QLatin1String(text)) << QByteArray();
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
        QTest::newRow("bad checksum, no trailer: accepted") << hex("FF A2 02 32 33") << 0xA2 << hex("32 33");
        QTest::newRow("longest payload") << (hex("FF 01 FF") + QByteArray(255, '\x7F')) << 0x01 << QByteArray(255, '\x7F');
        QTest::newRow("AA mode report 06") << hex("55 AA 03 06 00 04 01 3C 13 88 5B 78") << 0x06 << hex("01 3C 13 88");
        QTest::newRow("AA wrong CRC accepted") << hex("55 AA 03 06 00 04 01 3C 13 88 00 00") << 0x06 << hex("01 3C 13 88");
        QTest::newRow("AA first magic wrong") << hex("54 AA 03 06 00 04 01 3C 13 88 5B 78") << -1 << QByteArray();
        QTest::newRow("AA second magic wrong") << hex("55 AB 03 06 00 04 01 3C 13 88 5B 78") << -1 << QByteArray();
        QTest::newRow("AA five bytes") << hex("55 AA 03 06 00") << -1 << QByteArray();
        QTest::newRow("AA declared length exceeds bytes") << hex("55 AA 03 06 00 09 01 3C 13 88 5B 78") << -1 << QByteArray();
        QTest::newRow("AA CRC missing") << hex("55 AA 03 06 00 04 01 3C 13 88") << -1 << QByteArray();
        QTest::newRow("AA zero-length payload") << hex("55 AA 03 30 00 00 00 6F") << -1 << QByteArray();
        QTest::newRow("AA declared 255") << (hex("55 AA 03 21 00 FF") + QByteArray(255, '\x11') + hex("00 00")) << 0x21
                                         << QByteArray(255, '\x11');
        QTest::newRow("AA declared 256") << (hex("55 AA 03 21 01 00") + QByteArray(256, '\x11') + hex("00 00")) << -1
                                         << QByteArray();
    }

    void parse()
    {
        QFETCH(QByteArray, frame);
        QFETCH(int, cmd);
        QFETCH(QByteArray, payload);
        std::vector<quint8> out;
        int got = -1;
        if (frame.startsWith(char(0x55))) {
            FrameHeader2 header;
            if (bluetoothProtocol2().parseFrame2(frame, header, out)) {
                got = header.cmd;
                QCOMPARE(header.payloadLength(), payload.size());
            }
        } else {
            FrameHeader header;
            if (bluetoothProtocol().parseFrame(frame, header, out)) {
                got = header.cmd;
                QCOMPARE(int(header.length), payload.size());
            }
        }
        QCOMPARE(got, cmd);
        if (cmd >= 0)
            QCOMPARE(QByteArray(reinterpret_cast<const char *>(out.data()), qsizetype(out.size())), payload);
        // CRC-16/MODBUS reference value.
        QCOMPARE(bluetoothProtocol2::crc16Modbus(reinterpret_cast<const quint8 *>("123456789"), 9), quint16(0x4B37));
    }

    void productBaseInfo()
    {
        std::vector<quint8> payload;
        for (int i = 0; i < 24; ++i)
            payload.push_back(quint8(i));
        ProductBaseInfo info;
        QVERIFY(ProductBaseInfo::decode(payload, info));
        QCOMPARE(info.productId, QStringLiteral("010203040506"));
        QCOMPARE(info.softwareVersion, QStringLiteral("1415"));
        QCOMPARE(info.hardwareVersion, QStringLiteral("1617"));
        payload.insert(payload.end(), {0xAB, 0xCD});
        QVERIFY(ProductBaseInfo::decode(payload, info));
        QCOMPARE(info.hardwareVersion, QStringLiteral("abcd"));
        payload.resize(23);
        QVERIFY(!ProductBaseInfo::decode(payload, info));
    }
};

QTEST_APPLESS_MAIN(TestBleFrames)
#include "tst_bleframes.moc"
