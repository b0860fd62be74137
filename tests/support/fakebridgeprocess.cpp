#include "fakebridgeprocess.h"

#include "processutil.h"

#include <QEventLoop>
#include <QFile>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

FakeBridgeProcess::FakeBridgeProcess() = default;

FakeBridgeProcess::~FakeBridgeProcess()
{
    kill();
}

bool FakeBridgeProcess::makeCertificate(const QString &folder)
{
    if (QFile::exists(folder + QStringLiteral("/cert.pem")) && QFile::exists(folder + QStringLiteral("/key.pem")))
        return true;
    QProcess openssl;
    openssl.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    openssl.start(QStringLiteral("openssl"),
                  {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"), QStringLiteral("rsa:2048"),
                   QStringLiteral("-nodes"), QStringLiteral("-days"), QStringLiteral("2"), QStringLiteral("-subj"),
                   QStringLiteral("/CN=fakehuebridge"), QStringLiteral("-keyout"), folder + QStringLiteral("/key.pem"),
                   QStringLiteral("-out"), folder + QStringLiteral("/cert.pem")});
    return openssl.waitForFinished(60000) && openssl.exitStatus() == QProcess::NormalExit && openssl.exitCode() == 0;
}

bool FakeBridgeProcess::start(const QString &folder, const QStringList &arguments)
{
    kill();
    m_process = std::make_unique<QProcess>();
    m_process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QObject::connect(m_process.get(), &QProcess::readyReadStandardOutput, m_process.get(), [this]() { readOutput(); });
    m_listening = false;
    m_requests.clear();
    m_pending.clear();
    m_process->start(QStringLiteral(BRIVON_BIN_DIR "/fakehuebridge"),
                     QStringList{QStringLiteral("--cert"), folder + QStringLiteral("/cert.pem"), QStringLiteral("--key"),
                                 folder + QStringLiteral("/key.pem")}
                         + arguments);
    if (!m_process->waitForStarted(15000))
        return false;
    return waitUntil([this]() { return m_listening || m_process->state() == QProcess::NotRunning; }, 15000)
        && m_listening;
}

void FakeBridgeProcess::kill()
{
    if (!m_process)
        return;
    m_process->kill();
    m_process->waitForFinished(15000);
    m_process.reset();
}

bool FakeBridgeProcess::isRunning() const
{
    return m_process && m_process->state() == QProcess::Running;
}

void FakeBridgeProcess::readOutput()
{
    m_pending += m_process->readAllStandardOutput();
    int end;
    while ((end = m_pending.indexOf('\n')) >= 0) {
        const QByteArray line = m_pending.left(end);
        m_pending.remove(0, end + 1);
        if (line.startsWith("listening")) {
            m_listening = true;
            const int mdns = line.indexOf(" mdns=");
            if (mdns >= 0)
                m_mdns = QString::fromLatin1(line.mid(mdns + 6).split(' ').first());
        }
        else if (line.startsWith("request "))
            m_requests.append(QJsonDocument::fromJson(line.mid(8)).object());
    }
}

bool FakeBridgeProcess::control(const QString &address, const QString &endpoint, const QJsonObject &body)
{
    QNetworkAccessManager network;
    QNetworkRequest request(QUrl(QStringLiteral("http://") + address + QStringLiteral("/control/") + endpoint));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    QNetworkReply *reply = network.post(request, QJsonDocument(body).toJson(QJsonDocument::Compact));
    if (!waitUntil([reply]() { return reply->isFinished(); }, 15000))
        return false;
    const bool ok = reply->error() == QNetworkReply::NoError;
    delete reply;
    return ok;
}

QList<QJsonObject> FakeBridgeProcess::requests(const QString &method, const QString &path) const
{
    QList<QJsonObject> matching;
    for (const QJsonObject &request : m_requests) {
        if ((method.isEmpty() || request.value(QLatin1String("method")).toString() == method)
            && (path.isEmpty() || request.value(QLatin1String("path")).toString() == path))
            matching.append(request);
    }
    return matching;
}

bool FakeBridgeProcess::waitForRequests(int count, const QString &method, const QString &path, int timeoutMs)
{
    return waitUntil([&]() { return requests(method, path).size() >= count; }, timeoutMs);
}
