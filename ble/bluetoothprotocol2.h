#pragma once

#include "bluetoothprotocolbase.h"

#include <QString>

// The 55 AA framing: 55 AA, frame type, command, 16-bit big-endian length, payload, and a
// CRC-16/MODBUS over everything after the magic bytes, low byte first.
class bluetoothProtocol2 : public bluetoothProtocolBase
{
public:
    static constexpr quint8 kMagic1 = 0x55;
    static constexpr quint8 kMagic2 = 0xAA;
    static constexpr quint8 kFrameType = 0x03;
    // Declared lengths from here on are rejected: the lights never send them and the original
    // copy loop could not count that far.
    static constexpr int kMaxPayload = 255;

    static constexpr quint8 kCmdMode = 0x01;
    static constexpr quint8 kCmdCurMode = 0x06;
    static constexpr quint8 kCmdCCTData = 0x07;
    static constexpr quint8 kCmdProductInfo = 0x21;
    static constexpr quint8 kCmdModeReport = 0x30;
    static constexpr quint8 kCmdModifyUpload = 0x32;
    static constexpr quint8 kModeCCT = 0x01;
    static constexpr quint8 kModeEffect = 0x03;

    QByteArray pack(quint8 cmd, quint8 length, std::vector<quint8> payload) override;
    bool parseFrame(const QByteArray &frame, FrameHeader &header, std::vector<quint8> &payload) override;
    bool parseFrame2(const QByteArray &frame, FrameHeader2 &header, std::vector<quint8> &payload) override;

    // CRC-16/MODBUS: reflected 0x8005 (0xA001 shifting right), initial 0xFFFF, no final XOR.
    static quint16 crc16Modbus(const quint8 *data, size_t size);

    // Frames of the command catalogue.
    QByteArray cctModeFrame(int brightness, int temperature);
    // Empty unless the effect text is a letter and a number, such as "C-3".
    QByteArray effectModeFrame(int brightness, const QString &effect);
    // The one-byte requests 06, 07 and 21, payload 01.
    QByteArray requestFrame(quint8 cmd);

    // Effect text <-> letter index and number: "A-7" <-> 1, 7. Both give 0 for any other text.
    static bool isEffectText(const QString &effect);
    static quint8 effectLetterIndex(const QString &effect);
    static quint8 effectNumber(const QString &effect);
    static QString effectText(int letterIndex, int number);
};

// Product base information (command 21), shown in the log only.
struct ProductBaseInfo
{
    QString productId;
    QString softwareVersion;
    QString hardwareVersion;

    // False when the payload is shorter than 24 bytes.
    static bool decode(const std::vector<quint8> &payload, ProductBaseInfo &info);
};
