#pragma once

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QStringList>
#include <QTcpServer>
#include <QUrl>

class QTcpSocket;

// A plain HTTP/1.1 server on 127.0.0.1 that plays the maker's update server and its download host.
//
//   GET <any prefix>/beamcrafter/checkVersion?...  the check reply set by setCheckReply (or a drop)
//   GET /files/<name>                              the body set by setFile
//   GET /redirect/<hops>/<name>                    302 chains ending at /files/<name>
//   GET /slow/<name>                               the file body, trickled out in small pieces
//   GET /broken/<name>                             half the file body, then the connection drops
//   GET /drop                                      the connection drops before any answer
// Every answer closes its connection.
class FakeUpdateServer : public QObject
{
    Q_OBJECT

public:
    explicit FakeUpdateServer(QObject *parent = nullptr);

    bool listen(quint16 port = 0);
    QString baseUrl() const;
    QString url(const QString &path) const { return baseUrl() + path; }

    // The check answers with this body and HTTP status.
    void setCheckReply(const QByteArray &body, int status = 200);
    // When set, a check request is answered by closing the connection.
    void setCheckDrops(bool drops) { m_checkDrops = drops; }
    void setFile(const QString &name, const QByteArray &body) { m_files.insert(name, body); }
    // How fast /slow/ trickles: bytes per piece and the pause between pieces.
    void setSlowPace(int bytes, int intervalMs);

    // Request targets (path and query, as sent) in arrival order.
    QStringList requests() const { return m_requests; }

    // The JSON the real server sends: "needUpdate" false, or an offer of version with downloadUrl.
    static QByteArray upToDateReply();
    static QByteArray offerReply(const QString &version, const QString &versionInfo,
                                 const QString &downloadUrl, qint64 size, const QString &md5);

private:
    void onNewConnection();
    void onReadyRead(QTcpSocket *socket);
    void answer(QTcpSocket *socket, const QString &target);
    void send(QTcpSocket *socket, int status, const QByteArray &body,
              const QByteArray &extraHeaders = QByteArray());
    void trickle(QTcpSocket *socket, const QByteArray &body);

    QTcpServer m_server;
    QByteArray m_checkBody;
    int m_checkStatus = 200;
    bool m_checkDrops = false;
    QHash<QString, QByteArray> m_files;
    QStringList m_requests;
    int m_slowBytes = 1024;
    int m_slowIntervalMs = 20;
};
