#pragma once

#include <QString>
#include <QStringList>

// Certificates for test servers, made at test time with the openssl command line (P-256 keys, PEM).
namespace TestCerts {

// <folder>/ca.pem and ca.key: a test root.
bool makeRoot(const QString &folder, const QString &commonName = QStringLiteral("Brivon Test Root"));

// <folder>/<name>.pem (the certificate, then the root: the chain a server presents) and <name>.key,
// for `commonName` and `altNames` ("IP:127.0.0.1", "DNS:localhost"), signed by the root of rootFolder.
bool makeServer(const QString &folder, const QString &name, const QString &rootFolder,
                const QString &commonName, const QStringList &altNames);

} // namespace TestCerts
