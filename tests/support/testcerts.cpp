#include "testcerts.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

namespace {

// openssl req -x509 with a new key, valid for two days.
bool request(const QString &keyFile, const QString &certFile, const QString &commonName, const QStringList &more)
{
    QDir().mkpath(QFileInfo(certFile).absolutePath());
    const QStringList arguments = QStringList{"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
                                              "-nodes", "-days", "2", "-subj", "/CN=" + commonName, "-keyout", keyFile,
                                              "-out", certFile}
                                  + more;
    QProcess openssl;
    openssl.setProcessChannelMode(QProcess::MergedChannels);
    openssl.start(QStringLiteral("openssl"), arguments);
    const bool ok = openssl.waitForFinished(60000) && openssl.exitStatus() == QProcess::NormalExit
                    && openssl.exitCode() == 0;
    if (!ok)
        qWarning().noquote() << "openssl" << arguments.join(u' ') << "failed:" << openssl.readAll();
    return ok;
}

} // namespace

bool TestCerts::makeRoot(const QString &folder, const QString &commonName)
{
    return request(folder + "/ca.key", folder + "/ca.pem", commonName,
                   {"-addext", "basicConstraints=critical,CA:TRUE", "-addext", "keyUsage=critical,keyCertSign,cRLSign"});
}

bool TestCerts::makeServer(const QString &folder, const QString &name, const QString &rootFolder,
                           const QString &commonName, const QStringList &altNames)
{
    const QString root = rootFolder + "/ca.pem";
    const QString certificate = folder + '/' + name + ".pem";
    if (!request(folder + '/' + name + ".key", certificate, commonName,
                 {"-CA", root, "-CAkey", rootFolder + "/ca.key", "-addext", "basicConstraints=critical,CA:FALSE",
                  "-addext", "extendedKeyUsage=serverAuth", "-addext", "subjectAltName=" + altNames.join(u',')}))
        return false;
    QFile rootFile(root);
    QFile chain(certificate);
    return rootFile.open(QIODevice::ReadOnly) && chain.open(QIODevice::Append) && chain.write(rootFile.readAll()) > 0;
}
