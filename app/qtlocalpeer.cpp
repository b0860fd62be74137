#include "qtlocalpeer.h"

#include <QDataStream>
#include <QDebug>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QLocalServer>
#include <QLocalSocket>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QThread>
#include <QTimer>

#ifdef Q_OS_WIN
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace {

const char kAck[] = "ack";

qulonglong sessionOrUserId()
{
#ifdef Q_OS_WIN
    DWORD sessionId = 0;
    ProcessIdToSessionId(GetCurrentProcessId(), &sessionId);
    return sessionId;
#else
    return ::getuid();
#endif
}

} // namespace

QString QtLocalPeer::socketNameFor(const QString &appId)
{
    QString letters = appId;
    letters.remove(QRegularExpression(QStringLiteral("[^a-zA-Z]")));
    const QByteArray utf8 = appId.toUtf8();
    const quint16 checksum = qChecksum(QByteArrayView(utf8));
    return QStringLiteral("qtsingleapp-") + letters + QLatin1Char('-') + QString::number(checksum, 16)
        + QLatin1Char('-') + QString::number(sessionOrUserId(), 16);
}

QString QtLocalPeer::peerFolder(const QString &socketName)
{
#ifdef Q_OS_WIN
    return QDir::tempPath();
#else
    // A local socket path must fit in sockaddr_un (108 bytes); a deep runtime folder falls back
    // to shorter ones.
    constexpr int kMaxSocketPath = 100;
    const qsizetype nameLength = QFile::encodeName(socketName).size() + 1;
    const QStringList candidates{QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation),
                                 QDir::tempPath(), QStringLiteral("/tmp")};
    for (const QString &folder : candidates) {
        if (!folder.isEmpty() && QFile::encodeName(folder).size() + nameLength <= kMaxSocketPath)
            return folder;
    }
    return QStringLiteral("/tmp");
#endif
}

QtLocalPeer::QtLocalPeer(QObject *parent, const QString &appId)
    : QObject(parent)
    , m_id(appId)
{
#ifdef Q_OS_WIN
    m_socketPath = socketNameFor(appId);
#else
    const QString name = socketNameFor(appId);
    m_socketPath = peerFolder(name) + QLatin1Char('/') + name;
#endif
}

QtLocalPeer::~QtLocalPeer()
{
    if (m_server)
        m_server->close();
}

bool QtLocalPeer::isClient()
{
    if (m_server && m_server->isListening())
        return false;

    if (!m_lockFile) {
        m_lockFile = std::make_unique<QLockFile>(lockFilePath());
        // Never treat a live owner's lock as stale because of its age; a dead owner's lock is
        // still recognised by its process id.
        m_lockFile->setStaleLockTime(0);
    }
    if (!m_lockFile->tryLock(0))
        return true;

    // We own the id now: whatever socket is left from an earlier owner is dead.
    QLocalServer::removeServer(m_socketPath);
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server->listen(m_socketPath))
        qWarning() << "QtLocalPeer: listen on local socket failed," << m_server->errorString();
    connect(m_server, &QLocalServer::newConnection, this, &QtLocalPeer::receiveConnection);
    return false;
}

bool QtLocalPeer::sendMessage(const QString &message, int timeout)
{
    if (!isClient())
        return false;

    const QDeadlineTimer deadline(timeout);
    QLocalSocket socket;
    bool connected = false;
    // The owner may still be starting up: retry until it listens or time runs out.
    while (!connected) {
        socket.connectToServer(m_socketPath);
        connected = socket.waitForConnected(int(qMin<qint64>(deadline.remainingTime(), 500)));
        if (connected || deadline.hasExpired())
            break;
        QThread::msleep(100);
    }
    if (!connected)
        return false;

    QByteArray payload;
    QDataStream out(&payload, QIODevice::WriteOnly);
    out.writeBytes(message.toUtf8().constData(), uint(message.toUtf8().size()));
    socket.write(payload);
    bool delivered = socket.waitForBytesWritten(int(qMax<qint64>(deadline.remainingTime(), 1)));
    if (delivered) {
        delivered = socket.waitForReadyRead(int(qMax<qint64>(deadline.remainingTime(), 1)))
            && socket.read(qstrlen(kAck)) == kAck;
    }
    socket.disconnectFromServer();
    return delivered;
}

void QtLocalPeer::receiveConnection()
{
    while (QLocalSocket *socket = m_server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] { readMessage(socket); });
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        // A peer that never finishes its message is dropped rather than kept forever.
        QTimer::singleShot(5000, socket, [socket] { socket->abort(); socket->deleteLater(); });
        if (socket->bytesAvailable() > 0)
            readMessage(socket);
    }
}

void QtLocalPeer::readMessage(QLocalSocket *socket)
{
    if (socket->bytesAvailable() < qint64(sizeof(quint32)))
        return;
    QDataStream peek(socket->peek(sizeof(quint32)));
    quint32 length = 0;
    peek >> length;
    if (length > quint32(kMaxMessageBytes)) {
        qWarning() << "QtLocalPeer: message too long, peer dropped";
        socket->abort();
        return;
    }
    if (socket->bytesAvailable() < qint64(sizeof(quint32) + length))
        return;
    socket->read(sizeof(quint32));
    const QString message = QString::fromUtf8(socket->read(length));
    socket->write(kAck, qstrlen(kAck));
    socket->flush();
    socket->disconnectFromServer();
    emit messageReceived(message);
}
