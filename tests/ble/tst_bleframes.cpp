// Frame vectors of both light framings: what the program sends, what it accepts, and
// that no input of any length reads beyond its bytes.
#include "bluetoothprotocol.h"
#include "bluetoothprotocol2.h"

#include <QRandomGenerator>
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

QByteArray toBytes(const std::vector<quint8> &data)
{
    return QByteArray(reinterpret_cast<const char *>(data.data()), qsizetype(data.size()));
}

} // namespace

class TestBleFrames : public QObject
{
    Q_OBJECT

private slots:
    // ---- packing: both framings
    void pack_data()
    {
        QTest::addColumn<bool>("aa");
        QTest::addColumn<int>("cmd");
        QTest::addColumn<int>("length");
        QTest::addColumn<QByteArray>("payload");
        QTest::addColumn<QByteArray>("expected");

        QTest::newRow("documented: brightness 50") << false << 0xA2 << 1 << hex("32") << hex("FF A2 01 32 32 AA");
        QTest::newRow("documented: empty payload") << false << 0x10 << 0 << QByteArray() << hex("FF 10 00 00 AA");
        QTest::newRow("sum of payload only") << false << 0xA3 << 2 << hex("19 64") << hex("FF A3 02 19 64 7D AA");
        QTest::newRow("sum wraps modulo 256") << false << 0xA4 << 3 << hex("FF FF 02") << hex("FF A4 03 FF FF 02 00 AA");
        QTest::newRow("longest payload") << false << 0x10 << 255 << QByteArray(255, '\x01')
                                         << (hex("FF 10 FF") + QByteArray(255, '\x01') + hex("FF AA"));
        QTest::newRow("payload longer than declared") << false << 0xA2 << 1 << hex("32 33") << QByteArray();
        QTest::newRow("payload shorter than declared") << false << 0xA3 << 2 << hex("19") << QByteArray();
        QTest::newRow("declared length but no payload") << false << 0xA2 << 1 << QByteArray() << QByteArray();
        QTest::newRow("AA documented: mode request 06 01") << true << 0x06 << 1 << hex("01") << hex("55 AA 03 06 00 01 01 A0 D8");
        QTest::newRow("AA empty payload") << true << 0x30 << 0 << QByteArray() << hex("55 AA 03 30 00 00 00 6F");
        QTest::newRow("AA payload longer than declared") << true << 0x06 << 1 << hex("01 02") << QByteArray();
        QTest::newRow("AA payload shorter than declared") << true << 0x01 << 5 << hex("01 32") << QByteArray();
    }

    void pack()
    {
        QFETCH(bool, aa);
        QFETCH(int, cmd);
        QFETCH(int, length);
        QFETCH(QByteArray, payload);
        QFETCH(QByteArray, expected);
        const QByteArray frame = aa ? bluetoothProtocol2().pack(quint8(cmd), quint8(length), bytes(payload))
                                    : bluetoothProtocol().pack(quint8(cmd), quint8(length), bytes(payload));
        QCOMPARE(frame.toHex(' '), expected.toHex(' '));
    }

    // Every frame the program builds, in both framings.
    void catalogue_data()
    {
        QTest::addColumn<QByteArray>("frame");
        QTest::addColumn<QByteArray>("expected");
        bluetoothProtocol c;
        bluetoothProtocol2 c2;

        QTest::newRow("power on is A1 00") << c.powerFrame(true) << hex("FF A1 01 00 00 AA");
        QTest::newRow("power off is A1 01") << c.powerFrame(false) << hex("FF A1 01 01 01 AA");
        QTest::newRow("state request A1 30") << c.stateRequestFrame() << hex("FF A1 01 30 30 AA");
        QTest::newRow("effect 4") << c.effectFrame(QStringLiteral("4")) << hex("FF A1 01 04 04 AA");
        QTest::newRow("effect 25") << c.effectFrame(QStringLiteral("25")) << hex("FF A1 01 19 19 AA");
        QTest::newRow("effect 255") << c.effectFrame(QStringLiteral("255")) << hex("FF A1 01 FF FF AA");
        // Texts that are no effect number build nothing, least of all on, off or a state request.
        for (const char *text : {"A-3", "300", "0", "1", "48", "3", "", " 5", "+5", "5.0", "x"})
            QTest::newRow(qPrintable(QStringLiteral("effect \"%1\" builds nothing").arg(QLatin1String(text))))
                << c.effectFrame(QLatin1String(text)) << QByteArray();
        QTest::newRow("brightness 0") << c.brightnessFrame(0) << hex("FF A2 01 00 00 AA");
        QTest::newRow("brightness 100") << c.brightnessFrame(100) << hex("FF A2 01 64 64 AA");
        QTest::newRow("temperature 5600 big-endian") << c.temperatureFrame(5600) << hex("FF A3 02 15 E0 F5 AA");
        QTest::newRow("temperature 2700") << c.temperatureFrame(2700) << hex("FF A3 02 0A 8C 96 AA");
        QTest::newRow("colour hue 300 full saturation") << c.colorFrame(300, 255) << hex("FF A4 03 01 2C 64 91 AA");
        QTest::newRow("colour saturation truncated to percent") << c.colorFrame(0, 128) << hex("FF A4 03 00 00 32 32 AA");
        QTest::newRow("colour without hue sends hue 0") << c.colorFrame(-1, 0) << hex("FF A4 03 00 00 00 00 AA");
        QTest::newRow("AA request mode 06") << c2.requestFrame(0x06) << hex("55 AA 03 06 00 01 01 A0 D8");
        QTest::newRow("AA request CCT data 07") << c2.requestFrame(0x07) << hex("55 AA 03 07 00 01 01 A1 24");
        QTest::newRow("AA request product info 21") << c2.requestFrame(0x21) << hex("55 AA 03 21 00 01 01 AA 6C");
        QTest::newRow("AA CCT mode 50% 5600 K") << c2.cctModeFrame(50, 5600) << hex("55 AA 03 01 00 05 01 32 15 E0 00 B4 E5");
        QTest::newRow("AA CCT mode brightness 0 (off)") << c2.cctModeFrame(0, 5600) << hex("55 AA 03 01 00 05 01 00 15 E0 00 BA 5D");
        QTest::newRow("AA CCT mode 1% 2900 K") << c2.cctModeFrame(1, 2900) << hex("55 AA 03 01 00 05 01 01 0B 54 00 AC A7");
        QTest::newRow("AA documented: effect C-3") << c2.effectModeFrame(80, QStringLiteral("C-3"))
                                          << hex("55 AA 03 01 00 05 03 50 03 03 00 7A 69");
        QTest::newRow("AA effect A-12") << c2.effectModeFrame(100, QStringLiteral("A-12"))
                                     << hex("55 AA 03 01 00 05 03 64 01 0C 00 D0 69");
        for (const char *text : {"", "7", "A-", "A-0", "A-256", "a-1", "AB-1", "A-1-2"})
            QTest::newRow(qPrintable(QStringLiteral("AA effect \"%1\" builds nothing").arg(QLatin1String(text))))
                << c2.effectModeFrame(100, QLatin1String(text)) << QByteArray();
    }

    void catalogue()
    {
        QFETCH(QByteArray, frame);
        QFETCH(QByteArray, expected);
        QCOMPARE(frame.toHex(' '), expected.toHex(' '));
    }

    // ---- FF framing
    void ffParse_data()
    {
        QTest::addColumn<QByteArray>("frame");
        QTest::addColumn<bool>("accepted");
        QTest::addColumn<int>("cmd");
        QTest::addColumn<QByteArray>("payload");

        QTest::newRow("documented: any command id") << hex("FF 10 09 01 02 03 04 05 06 07 08 09 2D AA") << true << 0x10
                                              << hex("01 02 03 04 05 06 07 08 09");
        QTest::newRow("documented: FE start dropped") << hex("FE 10 09 01 02 03 04 05 06 07 08 09 2D AA") << false << 0 << QByteArray();
        QTest::newRow("empty") << QByteArray() << false << 0 << QByteArray();
        QTest::newRow("two bytes") << hex("FF 10") << false << 0 << QByteArray();
        QTest::newRow("zero-length payload") << hex("FF 10 00 00 AA") << false << 0 << QByteArray();
        QTest::newRow("declared longer than present") << hex("FF 10 05 01 02 03") << false << 0 << QByteArray();
        QTest::newRow("bad checksum still accepted") << hex("FF A2 01 32 00 AA") << true << 0xA2 << hex("32");
        QTest::newRow("no checksum nor trailer needed") << hex("FF A2 02 32 33") << true << 0xA2 << hex("32 33");
        QTest::newRow("trailing bytes ignored") << hex("FF A2 01 32 32 AA FF FF") << true << 0xA2 << hex("32");
        QTest::newRow("longest payload") << (hex("FF 01 FF") + QByteArray(255, '\x7F')) << true << 0x01
                                         << QByteArray(255, '\x7F');
    }

    void ffParse()
    {
        QFETCH(QByteArray, frame);
        QFETCH(bool, accepted);
        QFETCH(int, cmd);
        QFETCH(QByteArray, payload);
        bluetoothProtocol codec;
        FrameHeader header;
        std::vector<quint8> out;
        QCOMPARE(codec.parseFrame(frame, header, out), accepted);
        if (accepted) {
            QCOMPARE(int(header.start), 0xFF);
            QCOMPARE(int(header.cmd), cmd);
            QCOMPARE(int(header.length), payload.size());
            QCOMPARE(toBytes(out).toHex(' '), payload.toHex(' '));
        }
    }

    // ---- 55 AA framing
    void crcReference_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<int>("crc");
        QTest::addColumn<QByteArray>("onTheWire");

        // Reference values of CRC-16/MODBUS as published for the algorithm.
        QTest::newRow("modbus read request") << hex("01 03 00 00 00 01") << 0x0A84 << hex("84 0A");
        QTest::newRow("check string 123456789") << QByteArray("123456789") << 0x4B37 << hex("37 4B");
        QTest::newRow("nothing") << QByteArray() << 0xFFFF << hex("FF FF");
        QTest::newRow("one zero byte") << hex("00") << 0x40BF << hex("BF 40");
    }

    void crcReference()
    {
        QFETCH(QByteArray, data);
        QFETCH(int, crc);
        QFETCH(QByteArray, onTheWire);
        const quint16 value = bluetoothProtocol2::crc16Modbus(reinterpret_cast<const quint8 *>(data.constData()),
                                                              size_t(data.size()));
        QCOMPARE(int(value), crc);
        QByteArray lowFirst;
        lowFirst.append(char(value & 0xFF)).append(char(value >> 8));
        QCOMPARE(lowFirst.toHex(' '), onTheWire.toHex(' '));
    }

    void aaParse_data()
    {
        QTest::addColumn<QByteArray>("frame");
        QTest::addColumn<bool>("accepted");
        QTest::addColumn<int>("cmd");
        QTest::addColumn<QByteArray>("payload");

        QTest::newRow("mode report 06") << hex("55 AA 03 06 00 04 01 3C 13 88 5B 78") << true << 0x06 << hex("01 3C 13 88");
        QTest::newRow("CCT data 07") << hex("55 AA 03 07 00 03 46 19 64 C2 5D") << true << 0x07 << hex("46 19 64");
        QTest::newRow("documented: wrong CRC still accepted") << hex("55 AA 03 06 00 04 01 3C 13 88 00 00") << true << 0x06
                                                       << hex("01 3C 13 88");
        QTest::newRow("frame type not examined") << hex("55 AA 7E 07 00 01 05 00 00") << true << 0x07 << hex("05");
        QTest::newRow("first magic wrong") << hex("54 AA 03 06 00 04 01 3C 13 88 5B 78") << false << 0 << QByteArray();
        QTest::newRow("second magic wrong") << hex("55 AB 03 06 00 04 01 3C 13 88 5B 78") << false << 0 << QByteArray();
        QTest::newRow("five bytes") << hex("55 AA 03 06 00") << false << 0 << QByteArray();
        QTest::newRow("empty") << QByteArray() << false << 0 << QByteArray();
        QTest::newRow("documented: declared length exceeds bytes") << hex("55 AA 03 06 00 09 01 3C 13 88 5B 78") << false << 0
                                                             << QByteArray();
        QTest::newRow("CRC missing") << hex("55 AA 03 06 00 04 01 3C 13 88") << false << 0 << QByteArray();
        QTest::newRow("zero-length payload") << hex("55 AA 03 30 00 00 00 6F") << false << 0 << QByteArray();
        QTest::newRow("declared 255 accepted") << (hex("55 AA 03 21 00 FF") + QByteArray(255, '\x11') + hex("00 00"))
                                               << true << 0x21 << QByteArray(255, '\x11');
        QTest::newRow("declared 256 rejected although present")
            << (hex("55 AA 03 21 01 00") + QByteArray(256, '\x11') + hex("00 00")) << false << 0 << QByteArray();
        QTest::newRow("declared 65535 rejected") << (hex("55 AA 03 21 FF FF") + QByteArray(300, '\x11')) << false << 0
                                                 << QByteArray();
    }

    void aaParse()
    {
        QFETCH(QByteArray, frame);
        QFETCH(bool, accepted);
        QFETCH(int, cmd);
        QFETCH(QByteArray, payload);
        bluetoothProtocol2 codec;
        FrameHeader2 header;
        std::vector<quint8> out;
        QCOMPARE(codec.parseFrame2(frame, header, out), accepted);
        if (accepted) {
            QCOMPARE(int(header.magic1), 0x55);
            QCOMPARE(int(header.magic2), 0xAA);
            QCOMPARE(int(header.cmd), cmd);
            QCOMPARE(header.payloadLength(), payload.size());
            // The length field keeps the wire's byte order.
            QCOMPARE(QByteArray(reinterpret_cast<const char *>(&header.length), 2), frame.mid(4, 2));
            QCOMPARE(toBytes(out).toHex(' '), payload.toHex(' '));
        }
    }

    void eachCodecRefusesTheOtherFraming()
    {
        bluetoothProtocol ff;
        bluetoothProtocol2 aa;
        FrameHeader header;
        FrameHeader2 header2;
        std::vector<quint8> payload;
        QVERIFY(!ff.parseFrame2(aa.requestFrame(0x06), header2, payload));
        QVERIFY(!aa.parseFrame(ff.brightnessFrame(10), header, payload));
        QVERIFY(!ff.parseFrame(aa.requestFrame(0x06), header, payload));
        QVERIFY(!aa.parseFrame2(ff.brightnessFrame(10), header2, payload));
    }

    void randomInputStaysInBounds()
    {
        // Every length from 0 to 300 with the right start bytes and random declared lengths: an
        // accepted payload is exactly the declared length and lies inside the input.
        QRandomGenerator rng(20240611);
        bluetoothProtocol ff;
        bluetoothProtocol2 aa;
        for (int round = 0; round < 20; ++round) {
            for (int size = 0; size <= 300; ++size) {
                QByteArray data(size, '\0');
                for (char &c : data)
                    c = char(rng.bounded(256));
                FrameHeader header;
                FrameHeader2 header2;
                std::vector<quint8> payload;
                if (size > 0)
                    data[0] = char(0xFF);
                if (ff.parseFrame(data, header, payload)) {
                    QCOMPARE(int(payload.size()), int(header.length));
                    QVERIFY(3 + int(payload.size()) <= size);
                    QCOMPARE(toBytes(payload), data.mid(3, int(payload.size())));
                }
                if (size > 1) {
                    data[0] = char(0x55);
                    data[1] = char(0xAA);
                }
                if (size > 5 && round % 2)
                    data[4] = 0; // keep many declared lengths plausible
                if (aa.parseFrame2(data, header2, payload)) {
                    QCOMPARE(int(payload.size()), header2.payloadLength());
                    QVERIFY(int(payload.size()) <= 255);
                    QVERIFY(8 + int(payload.size()) <= size);
                    QCOMPARE(toBytes(payload), data.mid(6, int(payload.size())));
                }
            }
        }
    }

    // ---- payload decoding
    void vTypeReport_data()
    {
        QTest::addColumn<QByteArray>("payload");
        QTest::addColumn<int>("brightness");
        QTest::addColumn<int>("temperature");
        QTest::addColumn<int>("hue");
        QTest::addColumn<int>("saturation");
        QTest::addColumn<int>("devCurModel");
        QTest::addColumn<QString>("effect");
        QTest::addColumn<QString>("color");
        QTest::addColumn<bool>("powerOn");

        QTest::newRow("CCT mode, on") << hex("32 15 E0 00 00 00 00 02 01") << 50 << 5600 << 0 << 0 << 1
                                      << QStringLiteral("2") << QStringLiteral("#ffffff") << true;
        QTest::newRow("colour mode red") << hex("64 0A 8C 00 00 64 00 03 01") << 100 << 2700 << 0 << 100 << 3
                                         << QStringLiteral("3") << QStringLiteral("#ff0000") << true;
        QTest::newRow("colour mode blue") << hex("0A 0A 8C 00 F0 64 00 03 01") << 10 << 2700 << 240 << 100 << 3
                                          << QStringLiteral("3") << QStringLiteral("#0000ff") << true;
        QTest::newRow("colour mode green") << hex("0A 0A 8C 00 78 64 FF 03 01") << 10 << 2700 << 120 << 100 << 3
                                           << QStringLiteral("3") << QStringLiteral("#00ff00") << true;
        QTest::newRow("colour no saturation is white") << hex("0A 0A 8C 01 2C 00 00 03 01") << 10 << 2700 << 300 << 0
                                                       << 3 << QStringLiteral("3") << QStringLiteral("#ffffff") << true;
        QTest::newRow("effect 12, off") << hex("50 19 64 00 00 00 00 0C 00") << 80 << 6500 << 0 << 0 << 2
                                        << QStringLiteral("12") << QStringLiteral("#ffffff") << false;
        QTest::newRow("effect 255") << hex("50 19 64 00 00 00 00 FF 01") << 80 << 6500 << 0 << 0 << 2
                                    << QStringLiteral("255") << QStringLiteral("#ffffff") << true;
        QTest::newRow("mode 1 unknown") << hex("50 19 64 00 00 00 00 01 01") << 80 << 6500 << 0 << 0 << -1
                                        << QStringLiteral("1") << QStringLiteral("#ffffff") << true;
        QTest::newRow("mode 0 unknown, power 2 is off") << hex("50 19 64 00 00 00 00 00 02") << 80 << 6500 << 0 << 0
                                                        << -1 << QStringLiteral("0") << QStringLiteral("#ffffff") << false;
        QTest::newRow("longer payload uses first nine") << hex("01 00 01 00 00 00 00 02 01 EE EE") << 1 << 1 << 0 << 0
                                                        << 1 << QStringLiteral("2") << QStringLiteral("#ffffff") << true;
    }

    void vTypeReport()
    {
        QFETCH(QByteArray, payload);
        VTypeReport report;
        QVERIFY(VTypeReport::decode(bytes(payload), report));
        QTEST(report.brightness, "brightness");
        QTEST(report.temperature, "temperature");
        QTEST(report.hue, "hue");
        QTEST(report.saturation, "saturation");
        QTEST(report.devCurModel(), "devCurModel");
        QTEST(report.effectText(), "effect");
        QTEST(report.colorName(), "color");
        QTEST(report.powerOn, "powerOn");
    }

    void vTypeReportTooShortIsRejected()
    {
        VTypeReport report;
        for (int size = 0; size < VTypeReport::kSize; ++size)
            QVERIFY(!VTypeReport::decode(std::vector<quint8>(size_t(size), 1), report));
        // Out-of-range hue and saturation from a light still give a valid colour name.
        report.hue = 0xFFFF;
        report.saturation = 0xFF;
        report.mode = 3;
        QVERIFY(QColor(report.colorName()).isValid());
        QCOMPARE(report.colorName().size(), 7);
    }

    void effectTextConversions_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("letter");
        QTest::addColumn<int>("number");

        QTest::newRow("A-7") << QStringLiteral("A-7") << 1 << 7;
        QTest::newRow("C-3") << QStringLiteral("C-3") << 3 << 3;
        QTest::newRow("B-12") << QStringLiteral("B-12") << 2 << 12;
        // Anything else names no effect: no part of it reaches a frame.
        QTest::newRow("number above a byte") << QStringLiteral("A-300") << 0 << 0;
        QTest::newRow("no dash") << QStringLiteral("B") << 0 << 0;
        QTest::newRow("not a number") << QStringLiteral("A-x") << 0 << 0;
        QTest::newRow("lower-case letter") << QStringLiteral("c-3") << 0 << 0;
        QTest::newRow("number 0") << QStringLiteral("A-0") << 0 << 0;
        QTest::newRow("trailing text") << QStringLiteral("A-1 ") << 0 << 0;
        QTest::newRow("empty") << QString() << 0 << 0;
    }

    void effectTextConversions()
    {
        QFETCH(QString, text);
        QTEST(int(bluetoothProtocol2::effectLetterIndex(text)), "letter");
        QTEST(int(bluetoothProtocol2::effectNumber(text)), "number");
        if (bluetoothProtocol2::effectNumber(text) != 0) {
            QCOMPARE(bluetoothProtocol2::effectText(bluetoothProtocol2::effectLetterIndex(text),
                                                    bluetoothProtocol2::effectNumber(text)), text);
        }
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

        payload.push_back(0xAB);
        payload.push_back(0xCD);
        QVERIFY(ProductBaseInfo::decode(payload, info));
        QCOMPARE(info.hardwareVersion, QStringLiteral("abcd"));

        payload.resize(23);
        QVERIFY(!ProductBaseInfo::decode(payload, info));
    }
};

QTEST_APPLESS_MAIN(TestBleFrames)
#include "tst_bleframes.moc"
