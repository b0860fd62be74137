#pragma once

#include <QString>
#include <QStringList>

// Certificates for test servers, made at test time with the openssl command line (never committed):
// a test root and server certificates signed by it. Every file is PEM.
namespace TestCerts {

// <folder>/ca.pem and <folder>/ca.key: a root for a certificate authority named `commonName`.
bool makeRoot(const QString &folder, const QString &commonName = QStringLiteral("Brivon Test Root"));

// <folder>/<name>.pem and <folder>/<name>.key: a server certificate for `commonName`, valid for
// `altNames` ("IP:127.0.0.1", "DNS:localhost"), signed by the root in `rootFolder`. The .pem file
// holds the certificate followed by the root, the chain a server presents.
bool makeServer(const QString &folder, const QString &name, const QString &rootFolder,
                const QString &commonName, const QStringList &altNames);

} // namespace TestCerts
