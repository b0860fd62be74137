#pragma once

#include "huebridge.h"

#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QTimer>

class QUdpSocket;

// Asks the local network for Hue bridges by mDNS ("_hue._tcp.local"), as the Hue guidance asks for
// before the cloud service. The query goes out from an ordinary port, so responders answer it
// directly (a "legacy unicast" query) and nothing needs to join the multicast group.
class HueMdns : public QObject
{
    Q_OBJECT

public:
    static constexpr int kListenMs = 2000;
    static constexpr int kMaxPacketBytes = 9000;

    explicit HueMdns(QObject *parent = nullptr);
    ~HueMdns() override;

    // Sends one query; what answers within kListenMs is reported once by finished().
    void query();
    bool isRunning() const { return m_timer.isActive(); }

    // BRIVON_HUE_MDNS ("address:port") when set, else 224.0.0.251:5353.
    static QPair<QHostAddress, quint16> target();
    static QByteArray buildQuery(quint16 id);
    // The bridges a response names: id from the TXT record's "bridgeid", address from the A record
    // (else the sender), with ":port" when the SRV record names a port other than 443.
    static QList<Bridge> parseResponse(const QByteArray &packet, const QHostAddress &sender);

signals:
    void finished(QList<Bridge> bridges);

private:
    void readPending();
    void finish();

    QUdpSocket *m_socket = nullptr;
    QTimer m_timer;
    QList<Bridge> m_found;
};
