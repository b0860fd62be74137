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
// of receiveMessage; replies go to the most recently connected client only.
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

    explicit WebSocketServer(QObject *parent = nullptr);
    ~WebSocketServer() override;

    quint16 port() const { return m_port; }
    int clientCount() const { return int(m_clients.size()); }

    // Handshake policy: an absent Origin is accepted; a present one must be exactly
    // http(s)://localhost[:port] or http(s)://127.0.0.1[:port]. Host must be 127.0.0.1:<port> or
    // localhost:<port> for the port listened on.
    static bool isAllowedOrigin(const QByteArray &origin);
    static bool isAllowedHost(const QByteArray &host, quint16 port);

signals:
    void receiveMessage(QString message);

public slots:
    void sendMessage(QString message);
    void on_newConnection();

private:
    void onTcpConnection();
    void inspectHandshake(QTcpSocket *socket);
    void refuse(QTcpSocket *socket, const QByteArray &what, const QByteArray &value);

    QTcpServer *m_listener = nullptr;
    QWebSocketServer *m_server = nullptr;
    QList<QWebSocket *> m_clients;
    QPointer<QWebSocket> m_currentClient;
    quint16 m_port = 0;
};
