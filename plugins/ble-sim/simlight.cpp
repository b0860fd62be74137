#include "simlight.h"

#include <QJsonValue>

namespace simframes {

QByteArray ff(quint8 cmd, const QByteArray &payload)
{
    QByteArray frame;
    frame.append(char(0xFF)).append(char(cmd)).append(char(payload.size()));
    quint8 sum = 0;
    for (char c : payload)
        sum = quint8(sum + quint8(c));
    frame.append(payload).append(char(sum)).append(char(0xAA));
    return frame;
}

quint16 crc16Modbus(const QByteArray &bytes)
{
    quint16 crc = 0xFFFF;
    for (char c : bytes) {
        crc ^= quint8(c);
        for (int i = 0; i < 8; ++i)
            crc = (crc & 1) ? quint16((crc >> 1) ^ 0xA001) : quint16(crc >> 1);
    }
    return crc;
}

QByteArray aa(quint8 cmd, const QByteArray &payload)
{
    QByteArray covered;
    covered.append(char(0x03)).append(char(cmd)).append(char(payload.size() >> 8)).append(char(payload.size()));
    covered.append(payload);
    const quint16 crc = crc16Modbus(covered);
    QByteArray frame;
    frame.append(char(0x55)).append(char(0xAA)).append(covered).append(char(crc & 0xFF)).append(char(crc >> 8));
    return frame;
}

} // namespace simframes

namespace {

QByteArray bytes(std::initializer_list<int> values)
{
    QByteArray out;
    for (int v : values)
        out.append(char(quint8(v)));
    return out;
}

int u8(const QByteArray &data, int at)
{
    return quint8(data.at(at));
}

} // namespace

bool SimLight::fromJson(const QJsonObject &obj, SimLight &light, QString *error)
{
    light = SimLight();
    light.addr = obj.value(QLatin1String("addr")).toString();
    if (light.addr.isEmpty()) {
        *error = QStringLiteral("a light without \"addr\"");
        return false;
    }
    light.name = obj.value(QLatin1String("name")).toString(light.addr);
    light.protocol = obj.value(QLatin1String("protocol")).toInt(1);
    light.present = obj.value(QLatin1String("present")).toBool(true);
    light.power = obj.value(QLatin1String("power")).toBool(true);
    light.brightness = qBound(0, obj.value(QLatin1String("brightness")).toInt(50), light.family() == Family::Frame55AA ? 100 : 255);
    light.temperature = qBound(0, obj.value(QLatin1String("temperature")).toInt(4400), 0xFFFF);
    light.hue = qBound(0, obj.value(QLatin1String("hue")).toInt(0), 359);
    light.saturation = qBound(0, obj.value(QLatin1String("saturation")).toInt(100), 100);
    const QJsonValue effect = obj.value(QLatin1String("effect"));
    if (light.family() == Family::Frame55AA) {
        light.mode = obj.value(QLatin1String("mode")).toInt(1) == 3 ? 3 : 1;
        const QString text = effect.toString(QStringLiteral("A-1"));
        if (!text.isEmpty()) {
            light.effectLetter = qBound(1, int(text.at(0).unicode()) - 0x40, 26);
            light.effectNumber = qBound(0, text.mid(2).toInt(), 255);
        }
        if (!light.power)
            light.brightness = 0;
        light.lastBrightness = light.brightness > 0 ? light.brightness : 50;
    } else {
        light.mode = qBound(0, obj.value(QLatin1String("mode")).toInt(2), 255);
        if (effect.isDouble() || effect.isString())
            light.mode = qBound(4, effect.toVariant().toInt(), 255);
    }
    return true;
}

QJsonObject SimLight::toJson() const
{
    QJsonObject obj{{QLatin1String("addr"), addr},
                    {QLatin1String("name"), name},
                    {QLatin1String("protocol"), protocol},
                    {QLatin1String("present"), present},
                    {QLatin1String("connected"), connected},
                    {QLatin1String("connectAttempts"), connectAttempts},
                    {QLatin1String("overlappingAttempts"), overlappingAttempts},
                    {QLatin1String("power"), family() == Family::Frame55AA ? brightness > 0 : power},
                    {QLatin1String("brightness"), brightness},
                    {QLatin1String("temperature"), temperature},
                    {QLatin1String("mode"), mode},
                    {QLatin1String("framesReceived"), int(frames.size())},
                    {QLatin1String("unknownFrames"), unknownFrames}};
    if (family() == Family::Frame55AA) {
        obj.insert(QLatin1String("effect"),
                   QStringLiteral("%1-%2").arg(QChar(char16_t(0x40 + effectLetter))).arg(effectNumber));
    } else {
        obj.insert(QLatin1String("hue"), hue);
        obj.insert(QLatin1String("saturation"), saturation);
        if (mode >= 4)
            obj.insert(QLatin1String("effect"), QString::number(mode));
    }
    return obj;
}

QList<SimLight> SimLight::defaultLights()
{
    struct Seed { const char *addr; const char *name; int protocol; int brightness; int temperature; };
    static const Seed seeds[] = {
        {"C4:7F:0E:10:00:01", "Brivon V60 Bi-Color", 1, 60, 4300},
        {"C4:7F:0E:20:00:02", "Brivon V80C RGB", 2, 45, 5600},
        {"C4:7F:0E:70:00:07", "Brivon V120C RGB", 7, 80, 3200},
        {"C4:7F:0E:A2:01:62", "Brivon P60 Panel", 162, 35, 5000},
        {"C4:7F:0E:E9:10:01", "Brivon Q300 COB", 1001, 70, 5600},
    };
    QList<SimLight> lights;
    for (const Seed &seed : seeds) {
        SimLight light;
        light.addr = QString::fromLatin1(seed.addr);
        light.name = QString::fromLatin1(seed.name);
        light.protocol = seed.protocol;
        light.brightness = seed.brightness;
        light.lastBrightness = seed.brightness;
        light.temperature = seed.temperature;
        light.mode = light.family() == Family::Frame55AA ? 1 : 2;
        lights << light;
    }
    return lights;
}

SimLight::Family SimLight::family() const
{
    switch (protocol) {
    case 1: case 2: case 3: case 5: case 6: case 7: case 162: case 163:
        return Family::VType;
    case 1001:
        return Family::Frame55AA;
    default:
        return Family::Mute;
    }
}

QByteArray SimLight::stateReport(quint8 ffCommand) const
{
    if (family() == Family::Frame55AA)
        return mode == 3 ? aaModeReport(0x32) : aaCctReport(0x32);
    return simframes::ff(ffCommand, bytes({brightness, temperature >> 8, temperature, hue >> 8, hue, saturation, 0,
                                           mode, power ? 1 : 0}));
}

QList<QByteArray> SimLight::receive(const QByteArray &frame)
{
    frames << QString::fromLatin1(frame.toHex(' '));
    while (frames.size() > 200)
        frames.removeFirst();
    switch (family()) {
    case Family::VType:
        return receiveV(frame);
    case Family::Frame55AA:
        return receive55AA(frame);
    case Family::Mute:
        break;
    }
    ++unknownFrames;
    return {};
}

QList<QByteArray> SimLight::receiveV(const QByteArray &frame)
{
    // The light checks its framing strictly, checksum and trailer included.
    if (frame.size() < 5 || u8(frame, 0) != 0xFF || frame.size() != 5 + u8(frame, 2)
        || u8(frame, frame.size() - 1) != 0xAA) {
        ++unknownFrames;
        return {};
    }
    const QByteArray payload = frame.mid(3, u8(frame, 2));
    quint8 sum = 0;
    for (char c : payload)
        sum = quint8(sum + quint8(c));
    if (sum != u8(frame, frame.size() - 2)) {
        ++unknownFrames;
        return {};
    }
    const int cmd = u8(frame, 1);
    switch (cmd) {
    case 0xA1: {
        if (payload.size() != 1)
            break;
        const int value = u8(payload, 0);
        if (value == 0x00)
            power = true;
        else if (value == 0x01)
            power = false;
        else if (value >= 4 && value != 0x30)
            mode = value;
        else if (value != 0x30)
            break;
        return {stateReport(quint8(cmd))};
    }
    case 0xA2:
        if (payload.size() != 1)
            break;
        brightness = u8(payload, 0);
        return {stateReport(quint8(cmd))};
    case 0xA3:
        if (payload.size() != 2)
            break;
        temperature = (u8(payload, 0) << 8) | u8(payload, 1);
        mode = 2;
        return {stateReport(quint8(cmd))};
    case 0xA4:
        if (payload.size() != 3 || !isColorCapable())
            break;
        hue = ((u8(payload, 0) << 8) | u8(payload, 1)) % 360;
        saturation = qMin(u8(payload, 2), 100);
        mode = 3;
        return {stateReport(quint8(cmd))};
    default:
        break;
    }
    ++unknownFrames;
    return {};
}

QList<QByteArray> SimLight::receive55AA(const QByteArray &frame)
{
    if (frame.size() < 8 || u8(frame, 0) != 0x55 || u8(frame, 1) != 0xAA) {
        ++unknownFrames;
        return {};
    }
    const int length = (u8(frame, 4) << 8) | u8(frame, 5);
    if (frame.size() != length + 8) {
        ++unknownFrames;
        return {};
    }
    const quint16 crc = simframes::crc16Modbus(frame.mid(2, length + 4));
    if (u8(frame, frame.size() - 2) != (crc & 0xFF) || u8(frame, frame.size() - 1) != (crc >> 8)) {
        ++unknownFrames;
        return {};
    }
    const QByteArray payload = frame.mid(6, length);
    switch (u8(frame, 3)) {
    case 0x01:
        if (payload.size() != 5)
            break;
        if (u8(payload, 0) == 0x01) {
            mode = 1;
            brightness = qMin(u8(payload, 1), 100);
            temperature = (u8(payload, 2) << 8) | u8(payload, 3);
        } else if (u8(payload, 0) == 0x03) {
            mode = 3;
            brightness = qMin(u8(payload, 1), 100);
            effectLetter = u8(payload, 2);
            effectNumber = u8(payload, 3);
        } else {
            break;
        }
        if (brightness > 0)
            lastBrightness = brightness;
        return {};
    case 0x06:
        return {mode == 3 ? aaModeReport(0x06) : aaCctReport(0x06)};
    case 0x07:
        return {simframes::aa(0x07, bytes({brightness, temperature >> 8, temperature}))};
    case 0x21:
        return {simframes::aa(0x21, productInfo())};
    default:
        break;
    }
    ++unknownFrames;
    return {};
}

QByteArray SimLight::aaCctReport(quint8 cmd) const
{
    return simframes::aa(cmd, bytes({0x01, brightness, temperature >> 8, temperature}));
}

QByteArray SimLight::aaModeReport(quint8 cmd) const
{
    return simframes::aa(cmd, bytes({0x03, brightness, effectLetter, effectNumber}));
}

QByteArray SimLight::productInfo() const
{
    // 26 bytes: a type byte, six bytes of product id (from the address), a model text, software
    // version in bytes 20-21 and hardware version in the last two.
    QByteArray info;
    info.append(char(0x01));
    const QByteArray mac = QByteArray::fromHex(addr.toLatin1().replace(':', ""));
    info.append(mac.leftJustified(6, '\0', true));
    info.append(QByteArray("Q300-COB-SIM").leftJustified(13, '\0', true));
    info.append(char(0x01)).append(char(0x07)); // software 1.7
    info.append(char(0x00)).append(char(0x00)).append(char(0x00)).append(char(0x00));
    info.append(char(0x02)).append(char(0x01)); // hardware 2.1
    return info;
}

QList<QByteArray> SimLight::knob(const QStringList &args, QString *error)
{
    // args: <what> <value...>
    if (args.isEmpty()) {
        *error = QStringLiteral("knob needs what to turn");
        return {};
    }
    const QString what = args.at(0);
    const QString value = args.value(1);
    bool ok = true;
    const bool is55AA = family() == Family::Frame55AA;
    if (what == QLatin1String("brightness")) {
        const int v = value.toInt(&ok);
        if (!ok || v < 0 || v > (is55AA ? 100 : 255)) {
            *error = QStringLiteral("brightness out of range");
            return {};
        }
        brightness = v;
        if (is55AA && v > 0)
            lastBrightness = v;
    } else if (what == QLatin1String("temperature")) {
        const int v = value.toInt(&ok);
        if (!ok || v < 0 || v > 0xFFFF) {
            *error = QStringLiteral("temperature out of range");
            return {};
        }
        temperature = v;
        mode = is55AA ? 1 : 2;
    } else if (what == QLatin1String("power")) {
        if (value != QLatin1String("on") && value != QLatin1String("off")) {
            *error = QStringLiteral("power takes on or off");
            return {};
        }
        const bool on = value == QLatin1String("on");
        if (is55AA) {
            if (on)
                brightness = brightness > 0 ? brightness : lastBrightness;
            else
                brightness = 0;
            mode = 1;
        } else {
            power = on;
        }
    } else if (what == QLatin1String("effect")) {
        if (is55AA) {
            if (value.size() < 3 || !value.at(0).isUpper() || value.at(1) != QLatin1Char('-')) {
                *error = QStringLiteral("a 55 AA effect looks like A-3");
                return {};
            }
            effectLetter = value.at(0).unicode() - 0x40;
            effectNumber = qBound(0, value.mid(2).toInt(), 255);
            mode = 3;
        } else {
            const int v = value.toInt(&ok);
            if (!ok || v < 4 || v > 255) {
                *error = QStringLiteral("an effect number is 4 to 255");
                return {};
            }
            mode = v;
        }
    } else if (what == QLatin1String("color") && isColorCapable()) {
        const int h = value.toInt(&ok);
        bool okSat = false;
        const int s = args.value(2).toInt(&okSat);
        if (!ok || !okSat || h < 0 || h > 359 || s < 0 || s > 100) {
            *error = QStringLiteral("color takes a hue 0-359 and a saturation 0-100");
            return {};
        }
        hue = h;
        saturation = s;
        mode = 3;
    } else {
        *error = QStringLiteral("this light has no knob \"%1\"").arg(what);
        return {};
    }
    return {stateReport()};
}
