#include "websocketserver.h"

#include <QDebug>
#include <QRegularExpression>
#include <QSettings>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QWebSocket>
#include <QWebSocketServer>

namespace {

const char kHandshakeChecked[] = "brivonHandshakeChecked";

// Value of one header in a raw HTTP request head, or a null array when absent.
// A header given twice is treated as hostile and reported as present-but-invalid.
QByteArray headerValue(const QByteArray &head, const QByteArray &name, bool *duplicated)
{
    QByteArray found;
    *duplicated = false;
    const QList<QByteArray> lines = head.split('\n');
    for (int i = 1; i < lines.size(); ++i) {
        const QByteArray line = lines.at(i).trimmed();
        const int colon = line.indexOf(':');
        if (colon <= 0)
            continue;
        if (line.left(colon).trimmed().compare(name, Qt::CaseInsensitive) != 0)
            continue;
        if (!found.isNull())
            *duplicated = true;
        found = line.mid(colon + 1).trimmed();
        if (found.isNull())
            found = QByteArray("");
    }
    return found;
}

QSettings serverSettings()
{
    return QSettings(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("brivon"),
                     QStringLiteral("com.brivon.beamcrafter.pluginserver"));
}

} // namespace

WebSocketServer::WebSocketServer(QObject *parent)
    : QObject(parent)
    , m_listener(new QTcpServer(this))
    , m_listener6(new QTcpServer(this))
    , m_server(new QWebSocketServer(QStringLiteral("Server"), QWebSocketServer::NonSecureMode, this))
{
    connect(m_server, &QWebSocketServer::newConnection, this, &WebSocketServer::on_newConnection);
    connect(m_listener, &QTcpServer::newConnection, this, [this] { onTcpConnection(m_listener); });
    connect(m_listener6, &QTcpServer::newConnection, this, [this] { onTcpConnection(m_listener6); });

    // From 8000 upward until a port is free; a full wrap-around means no port at all.
    quint16 port = kFirstPort;
    for (int attempt = 0; attempt < 65536; ++attempt, ++port) {
        if (port != 0 && listenOnLoopback(port)) {
            m_port = port;
            break;
        }
    }
    if (m_port != 0) {
        QSettings settings = serverSettings();
        settings.setValue(QStringLiteral("server/address"), QStringLiteral("127.0.0.1"));
        settings.setValue(QStringLiteral("server/port"), int(m_port));
    }
    qDebug() << "WebSocketServer::WebSocketServer" << "WebSocketServer is start... ";
}

WebSocketServer::~WebSocketServer()
{
    unpublish();
    m_listener->close();
    m_listener6->close();
    m_server->close();
    m_server->deleteLater();
    for (QWebSocket *client : qAsConst(m_clients)) {
        client->disconnect(this);
        client->close(QWebSocketProtocol::CloseCodeNormal, QString());
        delete client;
    }
    m_clients.clear();
}

bool WebSocketServer::listenOnLoopback(quint16 port)
{
    if (!m_listener->listen(QHostAddress(QHostAddress::LocalHost), port))
        return false;
    // Node and browsers try "localhost" as ::1 first: the same port must answer there. A machine
    // without IPv6 keeps the IPv4 listener alone; a port taken on ::1 means the next port.
    if (m_listener6->listen(QHostAddress(QHostAddress::LocalHostIPv6), port))
        return true;
    if (m_listener6->serverError() != QAbstractSocket::AddressInUseError) {
        qDebug().noquote() << "[WebSocketServer::listenOnLoopback]: no IPv6 loopback:" << m_listener6->errorString();
        return true;
    }
    m_listener->close();
    return false;
}

bool WebSocketServer::listensOnIPv6() const
{
    return m_listener6->isListening();
}

void WebSocketServer::unpublish()
{
    // Only while the settings still name this server: a newer instance may have replaced them.
    QSettings settings = serverSettings();
    if (m_port != 0 && settings.value(QStringLiteral("server/port")).toInt() == int(m_port))
        settings.remove(QStringLiteral("server"));
}

bool WebSocketServer::isAllowedOrigin(const QByteArray &origin)
{
    static const QRegularExpression allowed(
        QStringLiteral("^(file://|https?://(localhost|127\\.0\\.0\\.1|\\[::1\\])(:[0-9]{1,5})?)$"),
        QRegularExpression::CaseInsensitiveOption);
    return allowed.match(QString::fromLatin1(origin)).hasMatch();
}

bool WebSocketServer::isAllowedHost(const QByteArray &host, quint16 port)
{
    const QByteArray suffix = ':' + QByteArray::number(port);
    if (!host.endsWith(suffix))
        return false;
    const QByteArray name = host.left(host.size() - suffix.size()).toLower();
    return name == "127.0.0.1" || name == "localhost" || name == "[::1]";
}

void WebSocketServer::onTcpConnection(QTcpServer *listener)
{
    while (QTcpSocket *socket = listener->nextPendingConnection()) {
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { inspectHandshake(socket); });
        connect(socket, &QTcpSocket::disconnected, socket, [socket] {
            if (!socket->property(kHandshakeChecked).toBool())
                socket->deleteLater();
        });
        QTimer::singleShot(kHandshakeTimeoutMs, socket, [socket] {
            if (!socket->property(kHandshakeChecked).toBool())
                socket->abort();
        });
        inspectHandshake(socket);
    }
}

void WebSocketServer::inspectHandshake(QTcpSocket *socket)
{
    if (socket->property(kHandshakeChecked).toBool())
        return;
    // Only peek: the WebSocket server reads the handshake itself once it is let through.
    const QByteArray buffered = socket->peek(kMaxHandshakeBytes + 1);
    const int end = buffered.indexOf("\r\n\r\n");
    if (end < 0) {
        if (buffered.size() > kMaxHandshakeBytes)
            socket->abort();
        return;
    }
    const QByteArray head = buffered.left(end);

    bool duplicated = false;
    const QByteArray origin = headerValue(head, "Origin", &duplicated);
    if (duplicated || (!origin.isNull() && !isAllowedOrigin(origin))) {
        refuse(socket, "origin", origin);
        return;
    }
    const QByteArray host = headerValue(head, "Host", &duplicated);
    if (duplicated || !isAllowedHost(host, m_port)) {
        refuse(socket, "host", host);
        return;
    }

    socket->setProperty(kHandshakeChecked, true);
    socket->disconnect(this);
    disconnect(socket, &QTcpSocket::disconnected, socket, nullptr);
    m_server->handleConnection(socket);
}

void WebSocketServer::refuse(QTcpSocket *socket, const QByteArray &what, const QByteArray &value)
{
    qWarning().noquote() << "[WebSocketServer::refuse]: handshake refused, " + QString::fromLatin1(what)
            + ":" << QString::fromLatin1(value.left(256));
    socket->setProperty(kHandshakeChecked, true);
    socket->disconnect(this);
    socket->write("HTTP/1.1 403 Forbidden\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
    socket->disconnectFromHost();
    connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    if (socket->state() == QAbstractSocket::UnconnectedState)
        socket->deleteLater();
}

void WebSocketServer::sendMessage(QString message)
{
    if (!m_currentClient || m_currentClient->state() != QAbstractSocket::ConnectedState)
        return;
    qDebug() << "WebSocketServer::sendMessage:" << message;
    deliver(m_currentClient, message);
}

void WebSocketServer::replyToSender(const QString &message)
{
    if (!m_sender || m_sender->state() != QAbstractSocket::ConnectedState)
        return;
    qDebug() << "WebSocketServer::replyToSender:" << message;
    deliver(m_sender, message);
}

void WebSocketServer::deliver(QWebSocket *client, const QString &message)
{
    client->sendTextMessage(message);
    const qint64 unsent = client->bytesToWrite();
    if (unsent <= kMaxUnsentBytes)
        return;
    qWarning().noquote().nospace() << "[WebSocketServer::deliver]: client too slow, closed: peer: "
                                   << client->peerAddress().toString() << ":" << client->peerPort()
                                   << ", unsent bytes: " << unsent;
    client->close(QWebSocketProtocol::CloseCodePolicyViolated, QStringLiteral("too much unread data"));
    // The close frame waits behind the backlog; a client that still does not read is dropped, so
    // that its buffer is freed.
    QPointer<QWebSocket> closing(client);
    QTimer::singleShot(kSlowCloseGraceMs, this, [closing] {
        if (closing && closing->state() != QAbstractSocket::UnconnectedState)
            closing->abort();
    });
}

void WebSocketServer::on_newConnection()
{
    QWebSocket *client = m_server->nextPendingConnection();
    if (!client)
        return;
    client->setMaxAllowedIncomingMessageSize(kMaxMessageBytes);
    client->setMaxAllowedIncomingFrameSize(kMaxMessageBytes);
    m_clients.append(client);
    m_currentClient = client;
    qDebug() << "WebSocketServer::on_newConnection" << "new Connection";

    connect(client, &QWebSocket::textMessageReceived, this, [this, client](const QString &message) {
        const QPointer<QWebSocket> previous = m_sender;
        m_sender = client;
        emit receiveMessage(message);
        m_sender = previous;
    });
    connect(client, &QWebSocket::disconnected, this, [this, client] {
        if (m_currentClient == client)
            m_currentClient = nullptr;
        m_clients.removeAll(client);
        client->deleteLater();
        qDebug() << Q_FUNC_INFO << "disconnected";
    }, Qt::QueuedConnection);
}
