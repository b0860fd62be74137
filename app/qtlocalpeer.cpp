#include "qtlocalpeer.h"

#include "qtlocalpeer_platform.h"

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

namespace {

const char kAck[] = "ack";

QString lockErrorText(QLockFile::LockError error)
{
    switch (error) {
    case QLockFile::NoError: return QStringLiteral("no error");
    case QLockFile::LockFailedError: return QStringLiteral("held by another process");
    case QLockFile::PermissionError: return QStringLiteral("permission denied");
    case QLockFile::UnknownError: break;
    }
    return QStringLiteral("unknown error");
}

} // namespace

QString QtLocalPeer::socketNameFor(const QString &appId)
{
    QString letters = appId;
    letters.remove(QRegularExpression(QStringLiteral("[^a-zA-Z]")));
    const QByteArray utf8 = appId.toUtf8();
    const quint16 checksum = qChecksum(QByteArrayView(utf8));
    return QStringLiteral("qtsingleapp-") + letters + QLatin1Char('-') + QString::number(checksum, 16)
        + QLatin1Char('-') + QString::number(LocalPeerPlatform::sessionId(), 16);
}

QtLocalPeer::QtLocalPeer(QObject *parent, const QString &appId)
    : QObject(parent)
    , m_id(appId)
{
    const QString name = socketNameFor(appId);
    m_socketPath = LocalPeerPlatform::serverName(name);
    m_lockPath = LocalPeerPlatform::lockFolder(name) + QLatin1Char('/') + name + QStringLiteral("-lockfile");
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
    if (!m_lockFile->tryLock(0)) {
        if (m_lockFile->error() == QLockFile::LockFailedError)
            return true;
        // A lock that cannot be taken at all says nothing about another instance. Ask the socket
        // instead, and without an answer run unguarded rather than not at all.
        qWarning().noquote() << "QtLocalPeer: lock file" << m_lockPath << "unusable:"
                             << lockErrorText(m_lockFile->error())
                             << "- starting without the single-instance lock";
        if (ownerAnswers())
            return true;
    }

    // We own the id now: whatever socket is left from an earlier owner is dead.
    QLocalServer::removeServer(m_socketPath);
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server->listen(m_socketPath))
        qWarning() << "QtLocalPeer: listen on local socket failed," << m_server->errorString();
    connect(m_server, &QLocalServer::newConnection, this, &QtLocalPeer::receiveConnection);
    return false;
}

bool QtLocalPeer::ownerAnswers() const
{
    QLocalSocket socket;
    socket.connectToServer(m_socketPath);
    const bool answered = socket.waitForConnected(500);
    socket.abort();
    return answered;
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
