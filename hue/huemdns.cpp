#include "huemdns.h"

#include <QDebug>
#include <QHash>
#include <QNetworkDatagram>
#include <QUdpSocket>
#include <QtEndian>

namespace {

const char kService[] = "_hue._tcp.local";
constexpr quint16 kTypeA = 1;
constexpr quint16 kTypePtr = 12;
constexpr quint16 kTypeTxt = 16;
constexpr quint16 kTypeSrv = 33;
constexpr int kMaxRecords = 256;

// Reads a possibly compressed name at `offset`; moves `offset` past it. Empty on a malformed name.
QString readName(const QByteArray &packet, int &offset)
{
    QStringList labels;
    int position = offset;
    bool jumped = false;
    for (int jumps = 0; jumps < 32; ) {
        if (position >= packet.size())
            return QString();
        const quint8 length = quint8(packet.at(position));
        if (length == 0) {
            if (!jumped)
                offset = position + 1;
            return labels.join(QLatin1Char('.'));
        }
        if ((length & 0xC0) == 0xC0) {
            if (position + 1 >= packet.size())
                return QString();
            if (!jumped)
                offset = position + 2;
            jumped = true;
            ++jumps;
            position = ((length & 0x3F) << 8) | quint8(packet.at(position + 1));
            continue;
        }
        if (length > 63 || position + 1 + length > packet.size())
            return QString();
        labels << QString::fromUtf8(packet.mid(position + 1, length));
        position += 1 + length;
    }
    return QString();
}

quint16 read16(const QByteArray &packet, int offset)
{
    return qFromBigEndian<quint16>(packet.constData() + offset);
}

} // namespace

HueMdns::HueMdns(QObject *parent)
    : QObject(parent)
{
    m_timer.setSingleShot(true);
    m_timer.setInterval(kListenMs);
    connect(&m_timer, &QTimer::timeout, this, &HueMdns::finish);
}

HueMdns::~HueMdns() = default;

QPair<QHostAddress, quint16> HueMdns::target()
{
    const QString configured = qEnvironmentVariable("BRIVON_HUE_MDNS");
    const int colon = configured.lastIndexOf(QLatin1Char(':'));
    if (colon > 0) {
        const QHostAddress address(configured.left(colon));
        bool ok = false;
        const uint port = configured.mid(colon + 1).toUInt(&ok);
        if (!address.isNull() && ok && port > 0 && port < 65536)
            return {address, quint16(port)};
    }
    return {QHostAddress(QStringLiteral("224.0.0.251")), 5353};
}

QByteArray HueMdns::buildQuery(quint16 id)
{
    QByteArray packet(12, '\0');
    qToBigEndian<quint16>(id, packet.data());
    qToBigEndian<quint16>(1, packet.data() + 4); // one question
    for (const QByteArray &label : QByteArray(kService).split('.'))
        packet += char(label.size()) + label;
    packet += '\0';
    packet += QByteArray("\x00\x0C\x00\x01", 4); // PTR, IN
    return packet;
}

QList<Bridge> HueMdns::parseResponse(const QByteArray &packet, const QHostAddress &sender)
{
    QList<Bridge> bridges;
    if (packet.size() < 12 || packet.size() > kMaxPacketBytes || !(quint8(packet.at(2)) & 0x80))
        return bridges;
    const int questions = read16(packet, 4);
    const int records = read16(packet, 6) + read16(packet, 8) + read16(packet, 10);
    int offset = 12;
    for (int i = 0; i < questions && i < kMaxRecords; ++i) {
        if (readName(packet, offset).isNull() || offset + 4 > packet.size())
            return bridges;
        offset += 4;
    }
    QStringList instances;
    QHash<QString, QString> bridgeIds;       // instance -> bridge id
    QHash<QString, QPair<QString, quint16>> services; // instance -> (host, port)
    QHash<QString, QString> addresses;       // host -> IPv4
    const QString service = QLatin1String(kService);
    for (int i = 0; i < records && i < kMaxRecords; ++i) {
        const QString owner = readName(packet, offset).toLower();
        if (owner.isNull() || offset + 10 > packet.size())
            break;
        const quint16 type = read16(packet, offset);
        const int length = read16(packet, offset + 8);
        const int data = offset + 10;
        offset = data + length;
        if (offset > packet.size())
            break;
        if (type == kTypePtr && owner == service) {
            int at = data;
            const QString instance = readName(packet, at).toLower();
            if (!instance.isEmpty() && !instances.contains(instance))
                instances << instance;
        } else if (type == kTypeTxt) {
            for (int at = data; at < data + length;) {
                const int size = quint8(packet.at(at));
                const QByteArray entry = packet.mid(at + 1, qMin(size, data + length - at - 1));
                at += 1 + size;
                if (entry.toLower().startsWith("bridgeid="))
                    bridgeIds.insert(owner, QString::fromLatin1(entry.mid(9)).toLower());
            }
        } else if (type == kTypeSrv && length >= 7) {
            int at = data + 6;
            services.insert(owner, {readName(packet, at).toLower(), read16(packet, data + 4)});
        } else if (type == kTypeA && length == 4) {
            addresses.insert(owner, QHostAddress(qFromBigEndian<quint32>(packet.constData() + data)).toString());
        }
    }
    // A responder may leave out the PTR record and answer with the instance's own records only.
    for (auto it = bridgeIds.constBegin(); it != bridgeIds.constEnd(); ++it) {
        if (it.key().endsWith(QLatin1Char('.') + service) && !instances.contains(it.key()))
            instances << it.key();
    }
    for (const QString &instance : qAsConst(instances)) {
        Bridge bridge;
        bridge.id = bridgeIds.value(instance);
        if (bridge.id.isEmpty())
            continue;
        const QPair<QString, quint16> srv = services.value(instance);
        bridge.ip = addresses.value(srv.first);
        if (bridge.ip.isEmpty())
            bridge.ip = QHostAddress(sender.toIPv4Address()).toString();
        if (srv.second != 0 && srv.second != 443)
            bridge.ip += QLatin1Char(':') + QString::number(srv.second);
        if (srv.second != 0)
            bridge.port = QString::number(srv.second);
        bridges << bridge;
    }
    return bridges;
}

void HueMdns::query()
{
    if (isRunning())
        return;
    m_found.clear();
    delete m_socket;
    m_socket = new QUdpSocket(this);
    connect(m_socket, &QUdpSocket::readyRead, this, &HueMdns::readPending);
    const QPair<QHostAddress, quint16> to = target();
    if (!m_socket->bind(QHostAddress(QHostAddress::AnyIPv4), 0)) {
        qDebug() << "[HueMdns::query]: bind failed:" << m_socket->errorString();
        QTimer::singleShot(0, this, &HueMdns::finish);
        return;
    }
    m_socket->writeDatagram(buildQuery(0), to.first, to.second);
    m_timer.start();
}

void HueMdns::readPending()
{
    while (m_socket && m_socket->hasPendingDatagrams()) {
        const QNetworkDatagram datagram = m_socket->receiveDatagram(kMaxPacketBytes);
        const QList<Bridge> bridges = parseResponse(datagram.data(), datagram.senderAddress());
        for (const Bridge &bridge : bridges) {
            const bool known = std::any_of(m_found.cbegin(), m_found.cend(), [&](const Bridge &found) {
                return found.id == bridge.id && found.ip == bridge.ip;
            });
            if (!known && m_found.size() < HueBridge::kMaxBridges)
                m_found << bridge;
        }
    }
}

void HueMdns::finish()
{
    m_timer.stop();
    if (m_socket) {
        readPending();
        m_socket->deleteLater();
        m_socket = nullptr;
    }
    emit finished(m_found);
}
