#pragma once

// One virtual light as it behaves on the wire. It speaks its family's framing on its own (the
// frames are built and split here, not with the program's codecs, so the end-to-end tests check
// the program against an independent reading of the wire format).

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

class SimLight
{
public:
    enum class Family { VType, Frame55AA, Mute };

    // Reads one light from the lights file; false (with the reason) when it has no address.
    static bool fromJson(const QJsonObject &obj, SimLight &light, QString *error);
    QJsonObject toJson() const;
    static QList<SimLight> defaultLights();

    Family family() const;
    bool isColorCapable() const { return protocol == 2 || protocol == 7; }

    // One frame the program wrote; returns the notifications the light answers with.
    QList<QByteArray> receive(const QByteArray &frame);
    // A change made on the light itself ("knob" commands); returns what the light reports.
    QList<QByteArray> knob(const QStringList &args, QString *error);

    // The light's report of its whole state in its own framing (FF: V-type report; 55 AA: 32).
    QByteArray stateReport(quint8 ffCommand = 0x10) const;

    QString addr;
    QString name;
    int protocol = 1;
    bool present = true;     // in range and powered at the mains; false after "unplug"
    bool connected = false;
    quint32 attempt = 0;     // a pending connection is valid only while this is unchanged
    bool connecting = false; // a connection attempt is pending
    int connectAttempts = 0;     // connectToDevice and reconnectDevice calls
    int overlappingAttempts = 0; // of those, made while an earlier attempt was still pending
    bool power = true;
    int brightness = 50;
    int temperature = 4400;
    int hue = 0;
    int saturation = 100;    // percent
    int mode = 2;            // FF: 2 CCT, 3 colour, 4+ effect number; 55 AA: 1 CCT, 3 effect
    int effectLetter = 1;    // 55 AA effect, e.g. A-1
    int effectNumber = 1;
    int lastBrightness = 50; // 55 AA: where the light comes back after being dimmed to 0
    QStringList frames;      // what the program wrote, as hex, newest last
    int unknownFrames = 0;   // frames the light could not read

private:
    QList<QByteArray> receiveV(const QByteArray &frame);
    QList<QByteArray> receive55AA(const QByteArray &frame);
    QByteArray aaCctReport(quint8 cmd) const;
    QByteArray aaModeReport(quint8 cmd) const;
    QByteArray productInfo() const;
};

namespace simframes {
QByteArray ff(quint8 cmd, const QByteArray &payload);
QByteArray aa(quint8 cmd, const QByteArray &payload);
quint16 crc16Modbus(const QByteArray &bytes);
}
