#pragma once

#include <QLockFile>
#include <QObject>
#include <QString>

#include <memory>

class QLocalServer;
class QLocalSocket;

// The link between instances of one application: the first instance holds a lock file and listens
// on a local socket; later instances find the lock taken and deliver their message over the socket.
// A lock or socket left behind by a killed instance is detected and replaced.
class QtLocalPeer : public QObject
{
    Q_OBJECT

public:
    static constexpr int kMaxMessageBytes = 64 * 1024;

    QtLocalPeer(QObject *parent, const QString &appId);
    ~QtLocalPeer() override;

    // True when another instance owns the id; otherwise this instance becomes the owner.
    bool isClient();
    bool sendMessage(const QString &message, int timeout);
    QString applicationId() const { return m_id; }

    // "qtsingleapp-" + the id's letters + "-" + checksum of the id + "-" + the user id, in hex.
    static QString socketNameFor(const QString &appId);
    // The socket and the lock file live in a folder of the user (the runtime folder here, the
    // temporary folder on Windows), never in the working directory.
    QString socketPath() const { return m_socketPath; }
    QString lockFilePath() const { return m_lockPath; }

signals:
    void messageReceived(const QString &message);

private:
    void receiveConnection();
    void readMessage(QLocalSocket *socket);
    bool ownerAnswers() const;

    QString m_id;
    QString m_socketPath;
    QString m_lockPath;
    QLocalServer *m_server = nullptr;
    std::unique_ptr<QLockFile> m_lockFile;
};
