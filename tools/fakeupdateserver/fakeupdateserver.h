#pragma once

#include <QByteArray>
#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QSslCertificate>
#include <QSslKey>
#include <QStringList>
#include <QTcpServer>
#include <QUrl>

class QTcpSocket;

// An HTTP/1.1 server on a loopback address that plays the maker's update server and its download
// host, plain or over TLS (setTls), with the hostile answers a download must survive.
//
//   GET <any prefix>/beamcrafter/checkVersion?...  the check reply set by setCheckReply (or a drop)
//   GET /files/<name>                              the body set by setFile (name percent-decoded)
//   GET /redirect/<hops>/<name>                    302 chains ending at /files/<name>
//   GET /loop/<name>                               302 to itself, for ever
//   GET /moved?to=<url>                            302 to any URL (another host, http from https)
//   GET /slow/<name>                               the file body, trickled out in small pieces
//   GET /chunked/<name>                            trickled, chunked transfer encoding: no length
//   GET /unsized/<name>                            trickled, no length: the end of the connection ends it
//   GET /broken/<name>                             half the file body, then the connection drops
//   GET /drop                                      the connection drops before any answer
// Every answer closes its connection. setMovedTo redirects everything elsewhere.
class FakeUpdateServer : public QObject
{
    Q_OBJECT

public:
    explicit FakeUpdateServer(QObject *parent = nullptr);
    ~FakeUpdateServer() override;

    bool listen(quint16 port = 0, const QHostAddress &address = QHostAddress::LocalHost);
    // Serves HTTPS from now on with this certificate chain (leaf first) and private key (PEM files).
    bool setTls(const QString &certificateFile, const QString &keyFile);
    bool isListening() const;
    // http(s)://<address>:<port>
    QString baseUrl() const;
    QString url(const QString &path) const { return baseUrl() + path; }

    // The check answers with this body and HTTP status.
    void setCheckReply(const QByteArray &body, int status = 200);
    // When set, a check request is answered by closing the connection.
    void setCheckDrops(bool drops) { m_checkDrops = drops; }
    void setFile(const QString &name, const QByteArray &body) { m_files.insert(name, body); }
    // When set, every request is answered by a redirect to the same target on this origin
    // ("http://127.0.0.1:8000"): the whole server has moved.
    void setMovedTo(const QString &origin) { m_movedTo = origin.toUtf8(); }
    // How fast the trickled answers go: bytes per piece and the pause between pieces.
    void setSlowPace(int bytes, int intervalMs);

    // Request targets (path and query, as sent) in arrival order.
    QStringList requests() const { return m_requests; }

    // The JSON the real server sends: "needUpdate" false, or an offer of version with downloadUrl.
    static QByteArray upToDateReply();
    static QByteArray offerReply(const QString &version, const QString &versionInfo,
                                 const QString &downloadUrl, qint64 size, const QString &md5);

private:
    enum class Length { Declared, Chunked, ConnectionClose };

    void onNewConnection();
    void onReadyRead(QTcpSocket *socket);
    void answer(QTcpSocket *socket, const QString &target);
    void send(QTcpSocket *socket, int status, const QByteArray &body,
              const QByteArray &extraHeaders = QByteArray());
    void redirect(QTcpSocket *socket, const QByteArray &location);
    void trickle(QTcpSocket *socket, const QByteArray &body, Length length);

    class Server;
    std::unique_ptr<Server> m_server;
    QByteArray m_checkBody;
    int m_checkStatus = 200;
    bool m_checkDrops = false;
    QHash<QString, QByteArray> m_files;
    QStringList m_requests;
    QByteArray m_movedTo;
    int m_slowBytes = 1024;
    int m_slowIntervalMs = 20;
};
