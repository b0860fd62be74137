#include "mdnsresponder.h"

#include <QNetworkDatagram>
#include <QUdpSocket>
#include <QtEndian>

namespace {

QByteArray encodeName(const QString &name)
{
    QByteArray encoded;
    for (const QString &label : name.split(QLatin1Char('.'), Qt::SkipEmptyParts)) {
        const QByteArray bytes = label.toUtf8().left(63);
        encoded += char(bytes.size()) + bytes;
    }
    return encoded + '\0';
}

QByteArray u16(quint16 value)
{
    QByteArray bytes(2, '\0');
    qToBigEndian(value, bytes.data());
    return bytes;
}

QByteArray record(const QString &owner, quint16 type, const QByteArray &data)
{
    QByteArray ttl(4, '\0');
    qToBigEndian<quint32>(120, ttl.data());
    return encodeName(owner) + u16(type) + u16(0x8001) + ttl + u16(quint16(data.size())) + data;
}

// The first question's name, uncompressed as queries send it; empty when there is none.
QString firstQuestion(const QByteArray &packet)
{
    if (packet.size() < 12 || qFromBigEndian<quint16>(packet.constData() + 4) == 0)
        return QString();
    QStringList labels;
    for (int at = 12; at < packet.size();) {
        const int length = quint8(packet.at(at));
        if (length == 0)
            return labels.join(QLatin1Char('.'));
        if (length > 63 || at + 1 + length > packet.size())
            return QString();
        labels << QString::fromUtf8(packet.mid(at + 1, length));
        at += 1 + length;
    }
    return QString();
}

} // namespace

MdnsResponder::MdnsResponder(QObject *parent)
    : QObject(parent)
    , m_socket(new QUdpSocket(this))
{
    connect(m_socket, &QUdpSocket::readyRead, this, &MdnsResponder::onReadyRead);
}

bool MdnsResponder::listen(const QHostAddress &address, quint16 port)
{
    const bool multicast = address.isMulticast();
    if (!m_socket->bind(multicast ? QHostAddress(QHostAddress::AnyIPv4) : address, port,
                        QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint))
        return false;
    if (multicast) {
        m_group = address;
        return m_socket->joinMulticastGroup(address);
    }
    return true;
}

QString MdnsResponder::errorString() const
{
    return m_socket->errorString();
}

quint16 MdnsResponder::port() const
{
    return m_socket->localPort();
}

void MdnsResponder::setBridge(const QString &id, const QHostAddress &address, quint16 port)
{
    m_id = id;
    m_address = address;
    m_port = port;
}

QByteArray MdnsResponder::answer(quint16 queryId, const QString &id, const QHostAddress &address, quint16 port,
                                 bool pointer)
{
    const QString service = QStringLiteral("_hue._tcp.local");
    const QString instance = QStringLiteral("Hue Bridge - %1.").arg(id.right(6).toUpper()) + service;
    const QString host = id + QStringLiteral(".local");
    QByteArray txt;
    for (const QByteArray &entry : {QByteArray("bridgeid=") + id.toLatin1(), QByteArray("modelid=BSB002")})
        txt += char(entry.size()) + entry;
    QByteArray a(4, '\0');
    qToBigEndian<quint32>(address.toIPv4Address(), a.data());
    QByteArray packet = u16(queryId) + u16(0x8400) + u16(0) + u16(pointer ? 1 : 3) + u16(0) + u16(pointer ? 3 : 1);
    if (pointer)
        packet += record(service, 12, encodeName(instance));
    packet += record(instance, 33, u16(0) + u16(0) + u16(port) + encodeName(host));
    packet += record(instance, 16, txt);
    packet += record(host, 1, a);
    return packet;
}

void MdnsResponder::onReadyRead()
{
    while (m_socket->hasPendingDatagrams()) {
        const QNetworkDatagram query = m_socket->receiveDatagram(9000);
        const QByteArray packet = query.data();
        // Only questions (QR clear) about the Hue service.
        if (packet.size() < 12 || (quint8(packet.at(2)) & 0x80)
            || firstQuestion(packet).compare(QLatin1String("_hue._tcp.local"), Qt::CaseInsensitive) != 0)
            continue;
        const quint16 id = qFromBigEndian<quint16>(packet.constData());
        if (query.senderPort() == 5353 && !m_group.isNull())
            m_socket->writeDatagram(answer(0, m_id, m_address, m_port), m_group, 5353);
        else
            m_socket->writeDatagram(answer(id, m_id, m_address, m_port), query.senderAddress(),
                                    quint16(query.senderPort()));
    }
}
