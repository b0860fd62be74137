#pragma once

// The two byte framings of the Bluetooth lights on one abstract base. The light manager
// keeps one instance of each codec; they hold no state.

#include <QByteArray>
#include <QtGlobal>

#include <vector>

// FF header as it stood on the wire: start byte, command id, payload length.
struct FrameHeader
{
    quint8 start = 0;
    quint8 cmd = 0;
    quint8 length = 0;
};

// 55 AA header as it stood on the wire. `length` holds the two length bytes copied unswapped
// (big-endian on the wire); payloadLength() gives the value.
struct FrameHeader2
{
    quint8 magic1 = 0;
    quint8 magic2 = 0;
    quint8 type = 0;
    quint8 cmd = 0;
    quint16 length = 0;

    int payloadLength() const
    {
        const auto *bytes = reinterpret_cast<const quint8 *>(&length);
        return (int(bytes[0]) << 8) | int(bytes[1]);
    }
};

class bluetoothProtocolBase
{
public:
    virtual ~bluetoothProtocolBase() = default;

    // A complete frame for one command; empty when payload's size differs from length.
    virtual QByteArray pack(quint8 cmd, quint8 length, std::vector<quint8> payload) = 0;
    // Splits an FF frame. Only the FF codec answers true.
    virtual bool parseFrame(const QByteArray &frame, FrameHeader &header, std::vector<quint8> &payload) = 0;
    // Splits a 55 AA frame. Only the 55 AA codec answers true.
    virtual bool parseFrame2(const QByteArray &frame, FrameHeader2 &header, std::vector<quint8> &payload) = 0;
};
