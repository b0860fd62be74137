#include "httpserver.h"

#include <QSslConfiguration>
#include <QSslSocket>

namespace {

QByteArray reasonPhrase(int status)
{
    switch (status) {
    case 200: return "OK";
    case 400: return "Bad Request";
    case 403: return "Forbidden";
    case 404: return "Not Found";
    case 405: return "Method Not Allowed";
    case 411: return "Length Required";
    case 413: return "Payload Too Large";
    case 429: return "Too Many Requests";
    case 431: return "Request Header Fields Too Large";
    case 500: return "Internal Server Error";
    case 501: return "Not Implemented";
    case 503: return "Service Unavailable";
    default: return "Status";
    }
}

} // namespace

HttpListener::HttpListener(Mode mode, HttpHandler handler, QObject *parent)
    : QTcpServer(parent)
    , m_mode(mode)
    , m_handler(std::move(handler))
{
}

void HttpListener::setTlsIdentity(const QList<QSslCertificate> &chain, const QSslKey &key)
{
    m_chain = chain;
    m_key = key;
}

void HttpListener::incomingConnection(qintptr socketDescriptor)
{
    auto *socket = new QSslSocket(this);
    if (!socket->setSocketDescriptor(socketDescriptor)) {
        delete socket;
        return;
    }
    socket->setLocalCertificateChain(m_chain);
    socket->setPrivateKey(m_key);
    socket->setPeerVerifyMode(QSslSocket::VerifyNone);
    auto *connection = new HttpConnection(socket, m_mode, m_handler, m_sink, socket);
    Q_UNUSED(connection)
    connect(socket, &QAbstractSocket::disconnected, socket, &QObject::deleteLater);
    // A client that gives up half-way through the handshake must not leave the socket behind.
    connect(socket, &QAbstractSocket::errorOccurred, socket, [socket]() { socket->abort(); socket->deleteLater(); });
}

HttpConnection::HttpConnection(QSslSocket *socket, HttpListener::Mode mode, HttpHandler handler, StreamSink sink,
                               QObject *parent)
    : QObject(parent)
    , m_socket(socket)
    , m_mode(mode)
    , m_handler(std::move(handler))
    , m_sink(std::move(sink))
{
    connect(m_socket, &QIODevice::readyRead, this, &HttpConnection::onReadyRead);
    if (m_mode == HttpListener::Mode::Tls) {
        m_decided = true;
        m_socket->startServerEncryption();
    } else if (m_mode == HttpListener::Mode::Plain) {
        m_decided = true;
    }
}

void HttpConnection::onReadyRead()
{
    if (!m_decided) {
        char first = 0;
        // peek() on an unencrypted QSslSocket looks at the raw stream without consuming it, so the
        // TLS layer still sees the whole ClientHello.
        if (m_socket->peek(&first, 1) < 1)
            return;
        m_decided = true;
        if (first == 0x16) {
            m_socket->startServerEncryption();
            return;
        }
    }
    m_buffer += m_socket->readAll();
    processBuffer();
}

void HttpConnection::processBuffer()
{
    while (!m_closing) {
        const int headerEnd = m_buffer.indexOf("\r\n\r\n");
        if (headerEnd < 0) {
            if (m_buffer.size() > HttpListener::kMaxHeaderBytes)
                fail(431);
            return;
        }
        if (headerEnd > HttpListener::kMaxHeaderBytes) {
            fail(431);
            return;
        }
        const QList<QByteArray> lines = m_buffer.left(headerEnd).split('\n');
        const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
        if (requestLine.size() != 3 || !requestLine.at(2).startsWith("HTTP/1.")) {
            fail(400);
            return;
        }
        HttpRequest request;
        request.tls = m_socket->isEncrypted();
        request.method = requestLine.at(0);
        request.target = requestLine.at(1);
        const int query = request.target.indexOf('?');
        request.path = query < 0 ? request.target : request.target.left(query);
        for (int i = 1; i < lines.size(); ++i) {
            const QByteArray line = lines.at(i).trimmed();
            const int colon = line.indexOf(':');
            if (colon <= 0) {
                fail(400);
                return;
            }
            request.headers.insert(line.left(colon).trimmed().toLower(), line.mid(colon + 1).trimmed());
        }
        if (request.headers.contains("transfer-encoding")) {
            fail(501);
            return;
        }
        qint64 length = 0;
        if (request.headers.contains("content-length")) {
            bool ok = false;
            length = request.headers.value("content-length").toLongLong(&ok);
            if (!ok || length < 0) {
                fail(400);
                return;
            }
            if (length > HttpListener::kMaxBodyBytes) {
                fail(413);
                return;
            }
        }
        const qint64 total = headerEnd + 4 + length;
        if (m_buffer.size() < total)
            return;
        request.body = m_buffer.mid(headerEnd + 4, int(length));
        m_buffer.remove(0, int(total));

        const bool keepAlive = request.headers.value("connection").toLower() != "close"
            && requestLine.at(2) == "HTTP/1.1";
        const HttpResponse response = m_handler(request);
        if (response.drop) {
            m_closing = true;
            m_socket->abort();
            return;
        }
        if (response.hold) {
            // Read on, answer nothing: the client sees a bridge that has stopped responding.
            m_closing = true;
            return;
        }
        if (response.stream) {
            m_closing = true;
            m_socket->write("HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nCache-Control: no-cache\r\n"
                            "Connection: close\r\n\r\n" + response.body);
            if (m_sink)
                m_sink(m_socket);
            return;
        }
        reply(response, keepAlive);
    }
}

void HttpConnection::reply(const HttpResponse &response, bool keepAlive)
{
    QByteArray head = "HTTP/1.1 " + QByteArray::number(response.status) + ' ' + reasonPhrase(response.status) + "\r\n";
    head += "Content-Type: " + response.contentType + "\r\n";
    head += "Content-Length: " + QByteArray::number(response.body.size()) + "\r\n";
    for (const auto &header : response.headers)
        head += header.first + ": " + header.second + "\r\n";
    head += keepAlive ? "Connection: keep-alive\r\n\r\n" : "Connection: close\r\n\r\n";
    m_socket->write(head + response.body);
    if (!keepAlive) {
        m_closing = true;
        m_socket->disconnectFromHost();
    }
}

void HttpConnection::fail(int status)
{
    HttpResponse response;
    response.status = status;
    response.contentType = "text/plain";
    response.body = reasonPhrase(status) + '\n';
    m_buffer.clear();
    reply(response, false);
}
