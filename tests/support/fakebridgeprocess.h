#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QList>
#include <QProcess>
#include <QStringList>
#include <memory>

// tools/fakehuebridge as a child process, with the requests it reports on its standard output.
class FakeBridgeProcess
{
public:
    FakeBridgeProcess();
    ~FakeBridgeProcess();

    // Writes a certificate and key into `folder` with openssl (once per folder): self-signed, or,
    // with `rootFolder`, issued to `commonName` by the test root there (TestCerts, made on first use).
    static bool makeCertificate(const QString &folder, const QString &rootFolder = {},
                                const QString &commonName = QStringLiteral("fakehuebridge"));
    // Stamps the program's last bridge discovery: a minute back (the default) lets the next one ask the service.
    static void setDiscoveryStamp(const QDateTime &when = QDateTime::currentDateTime().addSecs(-61));
    // The pin of the public key of `folder`'s certificate ("sha256/<base64>"), as openssl reckons it.
    static QString publicKeyPin(const QString &folder);

    // Starts the bridge with the certificate of `folder` and waits until all its ports are bound.
    bool start(const QString &folder, const QStringList &arguments);
    void kill();
    bool isRunning() const;
    // Where its mDNS responder listens ("address:port", from --mdns), empty without one.
    QString mdnsAddress() const { return m_mdns; }

    // POST to one of the bridge's /control/ endpoints over plain HTTP; true on a 200 answer.
    bool control(const QString &address, const QString &endpoint, const QJsonObject &body = {});

    // Requests received so far, in order, optionally only those to `path` with `method`.
    QList<QJsonObject> requests(const QString &method = {}, const QString &path = {}) const;
    bool waitForRequests(int count, const QString &method, const QString &path, int timeoutMs = 15000);

private:
    void readOutput();

    std::unique_ptr<QProcess> m_process;
    QByteArray m_pending;
    bool m_listening = false;
    QString m_mdns;
    QList<QJsonObject> m_requests;
};
