#pragma once

#include "bluetoothprotocolbase.h"

#include <QString>

// The short FF framing of the V-type lights: FF, command, length, payload, 8-bit sum of the
// payload, AA.
class bluetoothProtocol : public bluetoothProtocolBase
{
public:
    static constexpr quint8 kStart = 0xFF;
    static constexpr quint8 kTrailer = 0xAA;

    // Commands the program sends.
    static constexpr quint8 kCmdSwitch = 0xA1;      // on 00, off 01, effect number, state request 30
    static constexpr quint8 kCmdBrightness = 0xA2;
    static constexpr quint8 kCmdTemperature = 0xA3;
    static constexpr quint8 kCmdColor = 0xA4;
    static constexpr quint8 kSwitchOn = 0x00;       // the lights' own convention, inverted as it reads
    static constexpr quint8 kSwitchOff = 0x01;
    static constexpr quint8 kStateRequest = 0x30;
    static constexpr int kFirstEffect = 4;          // below are on, off and the report's modes

    QByteArray pack(quint8 cmd, quint8 length, std::vector<quint8> payload) override;
    bool parseFrame(const QByteArray &frame, FrameHeader &header, std::vector<quint8> &payload) override;
    bool parseFrame2(const QByteArray &frame, FrameHeader2 &header, std::vector<quint8> &payload) override;

    static quint8 checksum(const std::vector<quint8> &payload);

    // Frames of the command catalogue.
    QByteArray powerFrame(bool on);
    QByteArray stateRequestFrame();
    // Empty unless the text is a plain effect number (4 to 255, never the state request 30 hex):
    // an effect must not turn into power on, power off or a state request.
    QByteArray effectFrame(const QString &effect);
    QByteArray brightnessFrame(int brightness);
    QByteArray temperatureFrame(int temperature);
    QByteArray colorFrame(int hue, int saturation255);

    // The effect number of an effect text, 0 when it names no effect the lights can run.
    static quint8 effectNumber(const QString &effect);
};

// A V-type state report, the payload of every FF notification.
struct VTypeReport
{
    static constexpr int kSize = 9;

    int brightness = 0;
    int temperature = 0;
    int hue = 0;
    int saturation = 0; // percent
    int mode = 0;       // 2 colour temperature, 3 colour, 4 and above the effect number
    bool powerOn = false;

    // False when the payload is shorter than the report.
    static bool decode(const std::vector<quint8> &payload, VTypeReport &report);
    // Mode byte to devCurModel: 2 -> 1, 3 -> 3, 4 and above -> 2, else -1.
    int devCurModel() const;
    // The colour of a mode-3 report as #rrggbb.
    QString colorName() const;
    // The effect text: the mode byte in decimal, whatever the mode.
    QString effectText() const;
};
