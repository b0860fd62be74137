#include "bluetoothprotocol.h"

#include <QColor>
#include <QRegularExpression>

QByteArray bluetoothProtocol::pack(quint8 cmd, quint8 length, std::vector<quint8> payload)
{
    if (payload.size() != length)
        return {};
    QByteArray frame;
    frame.reserve(5 + length);
    frame.append(char(kStart));
    frame.append(char(cmd));
    frame.append(char(length));
    quint8 sum = 0;
    for (quint8 byte : payload) {
        frame.append(char(byte));
        sum = quint8(sum + byte);
    }
    frame.append(char(sum));
    frame.append(char(kTrailer));
    return frame;
}

bool bluetoothProtocol::parseFrame(const QByteArray &frame, FrameHeader &header, std::vector<quint8> &payload)
{
    payload.clear();
    if (frame.size() < 3)
        return false;
    const auto *bytes = reinterpret_cast<const quint8 *>(frame.constData());
    header.start = bytes[0];
    header.cmd = bytes[1];
    header.length = bytes[2];
    if (header.start != kStart)
        return false;
    // The checksum and the trailer are not required: the lights are trusted on those.
    if (frame.size() < 3 + int(header.length))
        return false;
    payload.assign(bytes + 3, bytes + 3 + header.length);
    return !payload.empty();
}

bool bluetoothProtocol::parseFrame2(const QByteArray &, FrameHeader2 &, std::vector<quint8> &)
{
    return false;
}

quint8 bluetoothProtocol::checksum(const std::vector<quint8> &payload)
{
    quint8 sum = 0;
    for (quint8 byte : payload)
        sum = quint8(sum + byte);
    return sum;
}

QByteArray bluetoothProtocol::powerFrame(bool on)
{
    return pack(kCmdSwitch, 1, {on ? kSwitchOn : kSwitchOff});
}

QByteArray bluetoothProtocol::stateRequestFrame()
{
    return pack(kCmdSwitch, 1, {kStateRequest});
}

QByteArray bluetoothProtocol::effectFrame(const QString &effect)
{
    const quint8 number = effectNumber(effect);
    if (number == 0)
        return {};
    return pack(kCmdSwitch, 1, {number});
}

QByteArray bluetoothProtocol::brightnessFrame(int brightness)
{
    return pack(kCmdBrightness, 1, {quint8(brightness)});
}

QByteArray bluetoothProtocol::temperatureFrame(int temperature)
{
    const auto value = quint16(temperature);
    return pack(kCmdTemperature, 2, {quint8(value >> 8), quint8(value)});
}

QByteArray bluetoothProtocol::colorFrame(int hue, int saturation255)
{
    // An achromatic colour has no hue (QColor answers -1): send 0 rather than 0xFFFF.
    const auto wireHue = quint16(qBound(0, hue, 359));
    const auto percent = quint8(qBound(0, saturation255, 255) * 100 / 255);
    return pack(kCmdColor, 3, {quint8(wireHue >> 8), quint8(wireHue), percent});
}

quint8 bluetoothProtocol::effectNumber(const QString &effect)
{
    static const QRegularExpression digits(QStringLiteral("^[0-9]{1,3}$"));
    if (!digits.match(effect).hasMatch())
        return 0;
    const int number = effect.toInt();
    if (number < kFirstEffect || number > 255 || number == kStateRequest)
        return 0;
    return quint8(number);
}

bool VTypeReport::decode(const std::vector<quint8> &payload, VTypeReport &report)
{
    if (payload.size() < size_t(kSize))
        return false;
    report.brightness = payload[0];
    report.temperature = (int(payload[1]) << 8) | payload[2];
    report.hue = (int(payload[3]) << 8) | payload[4];
    report.saturation = payload[5];
    report.mode = payload[7];
    report.powerOn = payload[8] == 1;
    return true;
}

int VTypeReport::devCurModel() const
{
    if (mode == 2)
        return 1;
    if (mode == 3)
        return 3;
    if (mode >= 4)
        return 2;
    return -1;
}

QString VTypeReport::colorName() const
{
    // Out-of-range values from a light would make QColor invalid (and black); keep them in range.
    const int h = hue % 360;
    const int s = qMin(saturation, 100) * 255 / 100;
    return QColor::fromHsv(h, s, 255).name();
}

QString VTypeReport::effectText() const
{
    return QStringLiteral("%1").arg(mode);
}
