#pragma once

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

    // Writes a self-signed certificate and key into `folder` with openssl (once per folder).
    static bool makeCertificate(const QString &folder);

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
