#include "bluetoothprotocol2.h"

#include <QRegularExpression>

#include <cstring>

QByteArray bluetoothProtocol2::pack(quint8 cmd, quint8 length, std::vector<quint8> payload)
{
    if (payload.size() != length)
        return {};
    std::vector<quint8> covered;
    covered.reserve(4 + length);
    covered.push_back(kFrameType);
    covered.push_back(cmd);
    covered.push_back(0x00);
    covered.push_back(length);
    covered.insert(covered.end(), payload.begin(), payload.end());
    const quint16 crc = crc16Modbus(covered.data(), covered.size());

    QByteArray frame;
    frame.reserve(int(covered.size()) + 4);
    frame.append(char(kMagic1));
    frame.append(char(kMagic2));
    frame.append(reinterpret_cast<const char *>(covered.data()), qsizetype(covered.size()));
    frame.append(char(crc & 0xFF));
    frame.append(char(crc >> 8));
    return frame;
}

bool bluetoothProtocol2::parseFrame(const QByteArray &, FrameHeader &, std::vector<quint8> &)
{
    return false;
}

bool bluetoothProtocol2::parseFrame2(const QByteArray &frame, FrameHeader2 &header, std::vector<quint8> &payload)
{
    payload.clear();
    if (frame.size() < 6)
        return false;
    const auto *bytes = reinterpret_cast<const quint8 *>(frame.constData());
    header.magic1 = bytes[0];
    header.magic2 = bytes[1];
    header.type = bytes[2];
    header.cmd = bytes[3];
    std::memcpy(&header.length, bytes + 4, sizeof header.length);
    if (header.magic1 != kMagic1 || header.magic2 != kMagic2)
        return false;
    const int length = header.payloadLength();
    if (length > kMaxPayload)
        return false;
    // The CRC must be present but is not verified: the lights are trusted on it.
    if (frame.size() < length + 8)
        return false;
    payload.assign(bytes + 6, bytes + 6 + length);
    return !payload.empty();
}

quint16 bluetoothProtocol2::crc16Modbus(const quint8 *data, size_t size)
{
    quint16 crc = 0xFFFF;
    for (size_t i = 0; i < size; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) ? quint16((crc >> 1) ^ 0xA001) : quint16(crc >> 1);
    }
    return crc;
}

QByteArray bluetoothProtocol2::cctModeFrame(int brightness, int temperature)
{
    const auto value = quint16(temperature);
    return pack(kCmdMode, 5, {kModeCCT, quint8(brightness), quint8(value >> 8), quint8(value), 0x00});
}

QByteArray bluetoothProtocol2::effectModeFrame(int brightness, const QString &effect)
{
    if (!isEffectText(effect))
        return {};
    return pack(kCmdMode, 5,
                {kModeEffect, quint8(brightness), effectLetterIndex(effect), effectNumber(effect), 0x00});
}

QByteArray bluetoothProtocol2::requestFrame(quint8 cmd)
{
    return pack(cmd, 1, {0x01});
}

bool bluetoothProtocol2::isEffectText(const QString &effect)
{
    static const QRegularExpression letterNumber(QStringLiteral("^[A-Z]-[1-9][0-9]{0,2}$"));
    return letterNumber.match(effect).hasMatch() && effect.mid(2).toInt() <= 255;
}

quint8 bluetoothProtocol2::effectLetterIndex(const QString &effect)
{
    if (!isEffectText(effect))
        return 0;
    return quint8(effect.at(0).unicode() - 0x40);
}

quint8 bluetoothProtocol2::effectNumber(const QString &effect)
{
    if (!isEffectText(effect))
        return 0;
    return quint8(effect.mid(2).toInt());
}

QString bluetoothProtocol2::effectText(int letterIndex, int number)
{
    return QStringLiteral("%1-%2").arg(QChar(char16_t(letterIndex + 0x40))).arg(number);
}

bool ProductBaseInfo::decode(const std::vector<quint8> &payload, ProductBaseInfo &info)
{
    const QString hex = QString::fromLatin1(
        QByteArray(reinterpret_cast<const char *>(payload.data()), qsizetype(payload.size())).toHex());
    if (hex.size() < 48)
        return false;
    info.productId = hex.mid(2, 12);
    info.softwareVersion = hex.mid(40, 4);
    info.hardwareVersion = hex.right(4);
    return true;
}
