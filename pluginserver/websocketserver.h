#pragma once

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

class QTcpServer;
class QTcpSocket;
class QWebSocket;
class QWebSocketServer;

// The loopback WebSocket server for control-deck plug-ins. Text messages from any client come out
// of receiveMessage; replies go to the most recently connected client only, answers to a refused
// request go back to the client that sent it.
//
// Any web page can open a WebSocket to 127.0.0.1, so handshakes from browsers on other origins
// (and requests naming another host, as DNS rebinding does) are refused before the upgrade.
// Native clients send no Origin and are unaffected.
class WebSocketServer : public QObject
{
    Q_OBJECT

public:
    static constexpr quint16 kFirstPort = 8000;
    static constexpr int kMaxHandshakeBytes = 16 * 1024;
    static constexpr int kHandshakeTimeoutMs = 5000;
    static constexpr quint64 kMaxMessageBytes = 1024 * 1024;
    // A client that lets this much go unread is closed: its backlog would otherwise grow unbounded.
    static constexpr qint64 kMaxUnsentBytes = 4 * 1024 * 1024;
    // How long a closed slow client may take to read its backlog and the close frame.
    static constexpr int kSlowCloseGraceMs = 10000;

    explicit WebSocketServer(QObject *parent = nullptr);
    ~WebSocketServer() override;

    quint16 port() const { return m_port; }
    bool listensOnIPv6() const;
    int clientCount() const { return int(m_clients.size()); }

    // Handshake policy: an absent Origin is accepted; a present one must be "file://" (HTML deck
    // plug-ins) or http(s) on localhost, 127.0.0.1 or [::1] with an optional port. Host must be
    // 127.0.0.1, localhost or [::1] with the port listened on. Host names compare without case.
    static bool isAllowedOrigin(const QByteArray &origin);
    static bool isAllowedHost(const QByteArray &host, quint16 port);

    // Sends to the client whose message is being handled (valid only while receiveMessage is
    // being emitted); dropped when there is none.
    void replyToSender(const QString &message);

signals:
    void receiveMessage(QString message);

public slots:
    void sendMessage(QString message);
    void on_newConnection();

private:
    bool listenOnLoopback(quint16 port);
    void onTcpConnection(QTcpServer *listener);
    void inspectHandshake(QTcpSocket *socket);
    void refuse(QTcpSocket *socket, const QByteArray &what, const QByteArray &value);
    void deliver(QWebSocket *client, const QString &message);
    void unpublish();

    QTcpServer *m_listener = nullptr;
    QTcpServer *m_listener6 = nullptr;
    QWebSocketServer *m_server = nullptr;
    QList<QWebSocket *> m_clients;
    QPointer<QWebSocket> m_currentClient;
    QPointer<QWebSocket> m_sender;
    quint16 m_port = 0;
};
