#pragma once

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QSslCertificate>
#include <QSslKey>
#include <QTcpServer>
#include <functional>

class QSslSocket;

struct HttpRequest
{
    QByteArray method;
    QByteArray path;    // without the query
    QByteArray target;  // as sent
    QHash<QByteArray, QByteArray> headers; // names in lower case
    QByteArray body;
    bool tls = false;
};

struct HttpResponse
{
    int status = 200;
    QByteArray contentType = "application/json";
    QByteArray body;
    bool drop = false; // close the connection without answering
    bool hold = false; // never answer, keep the connection open (a bridge that hangs)
    bool stream = false; // answer with an open-ended event stream; the body is its first chunk
    QList<QPair<QByteArray, QByteArray>> headers;
};

using HttpHandler = std::function<HttpResponse(const HttpRequest &)>;
// Receives the socket of each event stream once its head is written.
using StreamSink = std::function<void(QSslSocket *)>;

// A small HTTP/1.1 server. Each listener serves plain HTTP, HTTPS, or both on one port, telling
// them apart by the first byte of a connection (a TLS handshake record starts with 0x16).
class HttpListener : public QTcpServer
{
    Q_OBJECT

public:
    enum class Mode { Plain, Tls, Sniff };

    static constexpr int kMaxHeaderBytes = 64 * 1024;
    static constexpr int kMaxBodyBytes = 1024 * 1024;

    HttpListener(Mode mode, HttpHandler handler, QObject *parent = nullptr);
    void setTlsIdentity(const QList<QSslCertificate> &chain, const QSslKey &key);
    void setStreamSink(StreamSink sink) { m_sink = std::move(sink); }
    Mode mode() const { return m_mode; }

protected:
    void incomingConnection(qintptr socketDescriptor) override;

private:
    Mode m_mode;
    HttpHandler m_handler;
    QList<QSslCertificate> m_chain; // the certificate first, then its issuers
    QSslKey m_key;
    StreamSink m_sink;
};

// One client connection: reads requests one after the other and answers each in turn.
class HttpConnection : public QObject
{
    Q_OBJECT

public:
    HttpConnection(QSslSocket *socket, HttpListener::Mode mode, HttpHandler handler, StreamSink sink, QObject *parent);

private:
    void onReadyRead();
    void processBuffer();
    void reply(const HttpResponse &response, bool keepAlive);
    void fail(int status);

    QSslSocket *m_socket;
    HttpListener::Mode m_mode;
    HttpHandler m_handler;
    StreamSink m_sink;
    QByteArray m_buffer;
    bool m_decided = false;
    bool m_closing = false;
};
