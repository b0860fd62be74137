#include "fakebridgeprocess.h"

#include "processutil.h"
#include "testcerts.h"
#include "testhome.h"

#include <QDebug>
#include <QDir>
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

namespace {

bool run(const QString &program, const QStringList &arguments, QByteArray *output = nullptr)
{
    QProcess process;
    process.start(program, arguments);
    const bool ok = process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    if (output)
        *output = process.readAllStandardOutput().trimmed();
    if (!ok)
        qWarning().noquote() << program << arguments.join(QLatin1Char(' ')) << "failed:" << process.readAllStandardError();
    return ok;
}

} // namespace

void FakeBridgeProcess::setDiscoveryStamp(const QDateTime &when)
{
    programSettings("philipshue").setValue(QStringLiteral("discover/datatime"), when);
}

bool FakeBridgeProcess::makeCertificate(const QString &folder, const QString &rootFolder, const QString &commonName)
{
    const QString cert = folder + QStringLiteral("/cert.pem");
    const QString key = folder + QStringLiteral("/key.pem");
    if (QFile::exists(cert) && QFile::exists(key))
        return true;
    QDir().mkpath(folder);
    const QStringList newKey{QStringLiteral("-newkey"), QStringLiteral("rsa:2048"), QStringLiteral("-nodes"),
                             QStringLiteral("-days"), QStringLiteral("2")};
    if (rootFolder.isEmpty())
        return run(QStringLiteral("openssl"), QStringList{QStringLiteral("req"), QStringLiteral("-x509")} + newKey
                       + QStringList{QStringLiteral("-subj"), QStringLiteral("/CN=") + commonName,
                                     QStringLiteral("-keyout"), key, QStringLiteral("-out"), cert});
    // The certificate, then the root: the chain the bridge presents.
    if (!QFile::exists(rootFolder + QStringLiteral("/ca.pem")) && !TestCerts::makeRoot(rootFolder))
        return false;
    return TestCerts::makeServer(folder, QStringLiteral("cert"), rootFolder, commonName, {QStringLiteral("DNS:") + commonName})
        && QFile::rename(folder + QStringLiteral("/cert.key"), key);
}

QString FakeBridgeProcess::publicKeyPin(const QString &folder)
{
    QByteArray digest;
    const QString pipeline = QStringLiteral("openssl x509 -in \"$1\" -pubkey -noout | openssl pkey -pubin -outform der"
                                            " | openssl dgst -sha256 -binary | base64");
    if (!run(QStringLiteral("sh"), {QStringLiteral("-c"), pipeline, QStringLiteral("sh"), folder + QStringLiteral("/cert.pem")}, &digest))
        return QString();
    return QStringLiteral("sha256/") + QString::fromLatin1(digest);
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
