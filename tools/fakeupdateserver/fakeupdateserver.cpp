#include "fakeupdateserver.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QFile>
#include <QPointer>
#include <QSslSocket>
#include <QTcpSocket>
#include <QTimer>
#include <QUrlQuery>

#include <memory>

// Hands out QSslSocket in server mode once a certificate is set, plain sockets before.
class FakeUpdateServer::Server : public QTcpServer
{
public:
    QList<QSslCertificate> chain;
    QSslKey key;

protected:
    void incomingConnection(qintptr descriptor) override
    {
        if (chain.isEmpty()) {
            QTcpServer::incomingConnection(descriptor);
            return;
        }
        auto *socket = new QSslSocket(this);
        if (!socket->setSocketDescriptor(descriptor)) {
            delete socket;
            return;
        }
        socket->setLocalCertificateChain(chain);
        socket->setPrivateKey(key);
        // A client that refuses the certificate just goes away.
        connect(socket, &QSslSocket::sslErrors, socket, [socket] { socket->abort(); });
        socket->startServerEncryption();
        addPendingConnection(socket);
    }
};

namespace {

// Requests larger than this are not ours; the connection is dropped.
constexpr int kMaxRequestBytes = 64 * 1024;

QByteArray reasonPhrase(int status)
{
    switch (status) {
    case 200: return "OK";
    case 302: return "Found";
    case 400: return "Bad Request";
    case 404: return "Not Found";
    case 500: return "Internal Server Error";
    default: return "Status";
    }
}

} // namespace

FakeUpdateServer::FakeUpdateServer(QObject *parent)
    : QObject(parent)
    , m_server(std::make_unique<Server>())
    , m_checkBody(upToDateReply())
{
    connect(m_server.get(), &QTcpServer::newConnection, this, &FakeUpdateServer::onNewConnection);
}

FakeUpdateServer::~FakeUpdateServer() = default;

bool FakeUpdateServer::listen(quint16 port, const QHostAddress &address)
{
    return m_server->listen(address, port);
}

bool FakeUpdateServer::isListening() const
{
    return m_server->isListening();
}

bool FakeUpdateServer::setTls(const QString &certificateFile, const QString &keyFile)
{
    const QList<QSslCertificate> chain = QSslCertificate::fromPath(certificateFile, QSsl::Pem);
    QFile file(keyFile);
    if (chain.isEmpty() || !file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray pem = file.readAll();
    QSslKey key(pem, QSsl::Rsa);
    if (key.isNull())
        key = QSslKey(pem, QSsl::Ec);
    if (key.isNull())
        return false;
    m_server->chain = chain;
    m_server->key = key;
    return true;
}

QString FakeUpdateServer::baseUrl() const
{
    const QString host = m_server->serverAddress().protocol() == QAbstractSocket::IPv6Protocol
                             ? QLatin1Char('[') + m_server->serverAddress().toString() + QLatin1Char(']')
                             : m_server->serverAddress().toString();
    return QStringLiteral("%1://%2:%3")
        .arg(m_server->chain.isEmpty() ? QLatin1String("http") : QLatin1String("https"), host)
        .arg(m_server->serverPort());
}

void FakeUpdateServer::setCheckReply(const QByteArray &body, int status)
{
    m_checkBody = body;
    m_checkStatus = status;
}

void FakeUpdateServer::setSlowPace(int bytes, int intervalMs)
{
    m_slowBytes = qMax(1, bytes);
    m_slowIntervalMs = qMax(0, intervalMs);
}

QByteArray FakeUpdateServer::upToDateReply()
{
    const QJsonObject data{{QStringLiteral("needUpdate"), false}};
    const QJsonObject root{{QStringLiteral("code"), 200},
                           {QStringLiteral("succ"), true},
                           {QStringLiteral("message"), QStringLiteral("success")},
                           {QStringLiteral("data"), data}};
    return QJsonDocument(root).toJson(QJsonDocument::Compact);
}

QByteArray FakeUpdateServer::offerReply(const QString &version, const QString &versionInfo,
                                        const QString &downloadUrl, qint64 size, const QString &md5)
{
    const QJsonObject data{{QStringLiteral("needUpdate"), true},
                           {QStringLiteral("version"), version},
                           {QStringLiteral("versionInfo"), versionInfo},
                           {QStringLiteral("downloadUrl"), downloadUrl},
                           {QStringLiteral("size"), size},
                           {QStringLiteral("md5"), md5}};
    const QJsonObject root{{QStringLiteral("code"), 200},
                           {QStringLiteral("succ"), true},
                           {QStringLiteral("message"), QStringLiteral("success")},
                           {QStringLiteral("data"), data}};
    return QJsonDocument(root).toJson(QJsonDocument::Compact);
}

void FakeUpdateServer::onNewConnection()
{
    while (QTcpSocket *socket = m_server->nextPendingConnection()) {
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onReadyRead(socket); });
    }
}

void FakeUpdateServer::onReadyRead(QTcpSocket *socket)
{
    if (socket->property("answered").toBool()) {
        socket->readAll();
        return;
    }
    QByteArray request = socket->property("request").toByteArray() + socket->readAll();
    if (request.size() > kMaxRequestBytes) {
        socket->abort();
        return;
    }
    const int headerEnd = request.indexOf("\r\n\r\n");
    if (headerEnd < 0) {
        socket->setProperty("request", request);
        return;
    }
    socket->setProperty("answered", true);

    const QList<QByteArray> requestLine = request.left(request.indexOf("\r\n")).split(' ');
    if (requestLine.size() != 3 || requestLine.at(0) != "GET") {
        send(socket, 404, "not found\n");
        return;
    }
    const QString target = QString::fromLatin1(requestLine.at(1));
    m_requests.append(target);
    if (m_movedTo.isEmpty())
        answer(socket, target);
    else
        redirect(socket, m_movedTo + requestLine.at(1));
}

void FakeUpdateServer::answer(QTcpSocket *socket, const QString &target)
{
    const QString path = QUrl(target).path();
    // Split before decoding, so that an encoded "/" or "\\" stays inside its segment.
    const QList<QByteArray> rawParts = target.toLatin1().split('?').first().split('/');
    QStringList parts;
    for (const QByteArray &raw : rawParts) {
        if (!raw.isEmpty())
            parts << QUrl::fromPercentEncoding(raw);
    }

    if (path.endsWith(QLatin1String("/beamcrafter/checkVersion"))) {
        if (m_checkDrops)
            socket->abort();
        else
            send(socket, m_checkStatus, m_checkBody, "Content-Type: application/json\r\n");
        return;
    }
    if (path == QLatin1String("/drop")) {
        socket->abort();
        return;
    }

    const QString name = parts.isEmpty() ? QString() : parts.last();
    const auto file = m_files.constFind(name);
    const bool known = file != m_files.constEnd();
    const QString kind = parts.isEmpty() ? QString() : parts.first();

    if (kind == QLatin1String("files") && parts.size() == 2 && known) {
        send(socket, 200, *file, "Content-Type: application/octet-stream\r\n");
    } else if (kind == QLatin1String("redirect") && parts.size() == 3 && known) {
        const int hops = parts.at(1).toInt();
        // Relative locations, so that the client has to resolve them against the current URL.
        const QByteArray encodedName = QUrl::toPercentEncoding(name);
        redirect(socket, hops > 1 ? "/redirect/" + QByteArray::number(hops - 1) + '/' + encodedName
                                  : "/files/" + encodedName);
    } else if (kind == QLatin1String("loop") && parts.size() == 2) {
        redirect(socket, target.toLatin1().split('?').first());
    } else if (path == QLatin1String("/moved")) {
        const QString to = QUrlQuery(QUrl(target)).queryItemValue(QStringLiteral("to"), QUrl::FullyDecoded);
        if (to.isEmpty())
            send(socket, 400, "to= missing\n");
        else
            redirect(socket, QUrl(to).toEncoded());
    } else if (kind == QLatin1String("slow") && parts.size() == 2 && known) {
        trickle(socket, *file, Length::Declared);
    } else if (kind == QLatin1String("chunked") && parts.size() == 2 && known) {
        trickle(socket, *file, Length::Chunked);
    } else if (kind == QLatin1String("unsized") && parts.size() == 2 && known) {
        trickle(socket, *file, Length::ConnectionClose);
    } else if (kind == QLatin1String("broken") && parts.size() == 2 && known) {
        socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nContent-Length: "
                      + QByteArray::number(file->size()) + "\r\nConnection: close\r\n\r\n");
        socket->write(file->left(file->size() / 2));
        socket->flush();
        // Let the client see the first half before the connection goes.
        QPointer<QTcpSocket> guarded(socket);
        QTimer::singleShot(50, this, [guarded] {
            if (guarded)
                guarded->abort();
        });
    } else {
        send(socket, 404, "not found\n");
    }
}

void FakeUpdateServer::send(QTcpSocket *socket, int status, const QByteArray &body,
                            const QByteArray &extraHeaders)
{
    QByteArray head = "HTTP/1.1 " + QByteArray::number(status) + ' ' + reasonPhrase(status) + "\r\n";
    head += extraHeaders;
    head += "Content-Length: " + QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n";
    socket->write(head + body);
    socket->disconnectFromHost();
}

void FakeUpdateServer::redirect(QTcpSocket *socket, const QByteArray &location)
{
    send(socket, 302, "<html>moved</html>\n", "Location: " + location + "\r\nContent-Type: text/html\r\n");
}

void FakeUpdateServer::trickle(QTcpSocket *socket, const QByteArray &body, Length length)
{
    QByteArray head = "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\n";
    if (length == Length::Declared)
        head += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
    else if (length == Length::Chunked)
        head += "Transfer-Encoding: chunked\r\n";
    socket->write(head + "Connection: close\r\n\r\n");
    auto *timer = new QTimer(socket);
    auto sent = std::make_shared<qsizetype>(0);
    connect(timer, &QTimer::timeout, socket, [this, socket, timer, body, sent, length] {
        if (socket->state() != QAbstractSocket::ConnectedState) {
            timer->stop();
            return;
        }
        const QByteArray piece = body.mid(*sent, m_slowBytes);
        *sent += piece.size();
        if (length == Length::Chunked)
            socket->write(QByteArray::number(piece.size(), 16) + "\r\n" + piece + "\r\n");
        else
            socket->write(piece);
        if (*sent >= body.size()) {
            if (length == Length::Chunked)
                socket->write("0\r\n\r\n");
            timer->stop();
            socket->disconnectFromHost();
        }
    });
    timer->start(m_slowIntervalMs);
}
