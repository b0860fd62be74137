// Fuzzes the reader of mDNS answers to the Hue bridge query: any packet must be read without a crash,
// and the bridges it names, written back as a well-formed answer, must be read again as the same
// bridges.
#include "huemdns.h"

#include <QtEndian>

#include <cstdint>
#include <cstdlib>

namespace {

void put16(QByteArray &packet, int value)
{
    char bytes[2];
    qToBigEndian<quint16>(quint16(value), bytes);
    packet.append(bytes, 2);
}

void putName(QByteArray &packet, const QByteArray &name)
{
    for (const QByteArray &label : name.split('.')) {
        packet.append(char(label.size()));
        packet.append(label);
    }
    packet.append('\0');
}

void putRecord(QByteArray &packet, const QByteArray &owner, int type, const QByteArray &rdata)
{
    putName(packet, owner);
    put16(packet, type);
    put16(packet, 1);     // class IN
    packet.append(QByteArray(4, '\0')); // TTL
    put16(packet, int(rdata.size()));
    packet.append(rdata);
}

// An answer with a PTR, SRV, TXT and A record for each bridge.
QByteArray answerFor(const QList<Bridge> &bridges)
{
    QByteArray packet;
    put16(packet, 0);
    put16(packet, 0x8400);
    put16(packet, 0);
    put16(packet, int(bridges.size() * 4));
    put16(packet, 0);
    put16(packet, 0);
    for (int i = 0; i < bridges.size(); ++i) {
        const QByteArray instance = "bridge" + QByteArray::number(i) + "._hue._tcp.local";
        const QByteArray host = "host" + QByteArray::number(i) + ".local";
        QByteArray name;
        putName(name, instance);
        putRecord(packet, "_hue._tcp.local", 12, name);
        QByteArray srv;
        put16(srv, 0);
        put16(srv, 0);
        put16(srv, bridges.at(i).port.toInt());
        putName(srv, host);
        putRecord(packet, instance, 33, srv);
        const QByteArray entry = "bridgeid=" + bridges.at(i).id.toLatin1();
        putRecord(packet, instance, 16, char(entry.size()) + entry);
        char address[4];
        qToBigEndian<quint32>(QHostAddress(bridges.at(i).ip.section(QLatin1Char(':'), 0, 0)).toIPv4Address(), address);
        putRecord(packet, host, 1, QByteArray(address, 4));
    }
    return packet;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray packet = QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));
    const QHostAddress sender(QStringLiteral("192.0.2.7"));
    const QList<Bridge> bridges = HueMdns::parseResponse(packet, sender);
    if (!bridges.isEmpty() && size < 12)
        std::abort();
    for (const Bridge &bridge : bridges) {
        if (bridge.id.isEmpty() || bridge.id != bridge.id.toLower() || bridge.id.size() > 255 - 9
            || QHostAddress(bridge.ip.section(QLatin1Char(':'), 0, 0)).protocol() != QAbstractSocket::IPv4Protocol)
            std::abort();
        // A port is named in the address only when it is not the usual one.
        const bool portInIp = bridge.ip.contains(QLatin1Char(':'));
        if (portInIp != (!bridge.port.isEmpty() && bridge.port != QLatin1String("443")))
            std::abort();
    }
    // Each bridge takes four records in the answer written back, within the reader's record limit.
    if (bridges.size() * 4 > 256)
        return 0;
    const QList<Bridge> again = HueMdns::parseResponse(answerFor(bridges), sender);
    if (again.size() != bridges.size())
        std::abort();
    for (int i = 0; i < bridges.size(); ++i) {
        if (again.at(i).id != bridges.at(i).id || again.at(i).ip != bridges.at(i).ip || again.at(i).port != bridges.at(i).port)
            std::abort();
    }
    return 0;
}
