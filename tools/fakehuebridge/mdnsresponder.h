#pragma once

#include <QHostAddress>
#include <QObject>
#include <QString>

class QUdpSocket;

// Answers mDNS questions for "_hue._tcp.local" the way a bridge does: PTR, SRV, TXT (bridgeid,
// modelid) and A records. A question from a port other than 5353 is answered to its sender.
class MdnsResponder : public QObject
{
    Q_OBJECT

public:
    explicit MdnsResponder(QObject *parent = nullptr);

    // Listens on `address`:`port`; a multicast address is joined on every interface.
    bool listen(const QHostAddress &address, quint16 port);
    QString errorString() const;
    quint16 port() const;

    // What the answers say: the bridge's id, its IPv4 address and its HTTPS port.
    void setBridge(const QString &id, const QHostAddress &address, quint16 port);

    // The answer to question `queryId` about bridge `id`. Without `pointer` it carries the instance's
    // own records only (SRV, TXT, A), as some responders send them.
    static QByteArray answer(quint16 queryId, const QString &id, const QHostAddress &address, quint16 port,
                             bool pointer = true);

private:
    void onReadyRead();

    QUdpSocket *m_socket;
    QHostAddress m_group;
    QString m_id;
    QHostAddress m_address;
    quint16 m_port = 443;
};
