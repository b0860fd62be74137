#include "testcerts.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QProcess>

namespace {

bool openssl(const QStringList &arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral("openssl"), arguments);
    const bool ok = process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit
                    && process.exitCode() == 0;
    if (!ok)
        qWarning().noquote() << "openssl" << arguments.join(QLatin1Char(' ')) << "failed:" << process.readAll();
    return ok;
}

// P-256 keys: made in a moment, unlike RSA ones.
const QStringList kNewKey = {QStringLiteral("-newkey"), QStringLiteral("ec"), QStringLiteral("-pkeyopt"),
                             QStringLiteral("ec_paramgen_curve:P-256"), QStringLiteral("-nodes"),
                             QStringLiteral("-days"), QStringLiteral("2")};

} // namespace

namespace TestCerts {

bool makeRoot(const QString &folder, const QString &commonName)
{
    QDir().mkpath(folder);
    return openssl(QStringList{QStringLiteral("req"), QStringLiteral("-x509")} + kNewKey
                   + QStringList{QStringLiteral("-subj"), QStringLiteral("/CN=") + commonName,
                                 QStringLiteral("-addext"), QStringLiteral("basicConstraints=critical,CA:TRUE"),
                                 QStringLiteral("-addext"), QStringLiteral("keyUsage=critical,keyCertSign,cRLSign"),
                                 QStringLiteral("-keyout"), folder + QStringLiteral("/ca.key"),
                                 QStringLiteral("-out"), folder + QStringLiteral("/ca.pem")});
}

bool makeServer(const QString &folder, const QString &name, const QString &rootFolder, const QString &commonName,
                const QStringList &altNames)
{
    QDir().mkpath(folder);
    const QString certificate = folder + QLatin1Char('/') + name + QStringLiteral(".pem");
    if (!openssl(QStringList{QStringLiteral("req"), QStringLiteral("-x509")} + kNewKey
                 + QStringList{QStringLiteral("-CA"), rootFolder + QStringLiteral("/ca.pem"),
                               QStringLiteral("-CAkey"), rootFolder + QStringLiteral("/ca.key"),
                               QStringLiteral("-subj"), QStringLiteral("/CN=") + commonName,
                               QStringLiteral("-addext"), QStringLiteral("basicConstraints=critical,CA:FALSE"),
                               QStringLiteral("-addext"), QStringLiteral("extendedKeyUsage=serverAuth"),
                               QStringLiteral("-addext"), QStringLiteral("subjectAltName=") + altNames.join(QLatin1Char(',')),
                               QStringLiteral("-keyout"), folder + QLatin1Char('/') + name + QStringLiteral(".key"),
                               QStringLiteral("-out"), certificate}))
        return false;
    QFile root(rootFolder + QStringLiteral("/ca.pem"));
    QFile chain(certificate);
    if (!root.open(QIODevice::ReadOnly) || !chain.open(QIODevice::Append))
        return false;
    return chain.write(root.readAll()) > 0;
}

} // namespace TestCerts
