#include "updatepolicy.h"

#include "updateplatform.h"

#include <QDebug>
#include <QHostAddress>
#include <QRegularExpression>
#include <QSslCertificate>

namespace UpdatePolicy {

bool isLoopbackHost(const QString &host)
{
    if (host.compare(QLatin1String("localhost"), Qt::CaseInsensitive) == 0)
        return true;
    QHostAddress address;
    return address.setAddress(host) && address.isLoopback();
}

bool isAllowedUrl(const QUrl &url)
{
    if (!url.isValid() || url.host().isEmpty())
        return false;
    const QString scheme = url.scheme().toLower();
    return scheme == QLatin1String("https") || (scheme == QLatin1String("http") && isLoopbackHost(url.host()));
}

bool isAllowedRedirect(const QUrl &from, const QUrl &to)
{
    const bool fromHttps = from.scheme().compare(QLatin1String("https"), Qt::CaseInsensitive) == 0;
    const bool toHttps = to.scheme().compare(QLatin1String("https"), Qt::CaseInsensitive) == 0;
    return isAllowedUrl(to) && (toHttps || !fromHttps);
}

QSslConfiguration sslConfiguration()
{
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    const QString caFile = qEnvironmentVariable("BRIVON_UPDATE_CA_FILE");
    if (!caFile.isEmpty()) {
        const QList<QSslCertificate> authorities = QSslCertificate::fromPath(caFile, QSsl::Pem);
        if (authorities.isEmpty())
            qDebug() << "[UpdatePolicy::sslConfiguration]: no certificate in BRIVON_UPDATE_CA_FILE:" << caFile;
        configuration.setCaCertificates(authorities);
    }
    return configuration;
}

QString fallbackFileName()
{
    return installerFallbackName();
}

QString safeFileName(const QUrl &url)
{
    const QString name = url.fileName(QUrl::FullyDecoded);
    // Separators of any platform, characters Windows refuses or reads as a stream name (":"),
    // control and format characters (a right-to-left mark can disguise the extension), a leading dot (hidden file, "." or ".."), a trailing dot or space
    // (dropped by Windows) and the Windows device names would all leave the plain-file world.
    static const QRegularExpression refused(QStringLiteral("[/\\\\:*?\"<>|\\p{Cc}\\p{Cf}]|^\\.|[. ]$"));
    static const QRegularExpression device(QStringLiteral("^(con|prn|aux|nul|com\\d|lpt\\d)(\\..*)?$"),
                                           QRegularExpression::CaseInsensitiveOption);
    if (name.isEmpty() || name.size() > 200 || name.contains(refused) || name.contains(device)
        || name.trimmed() != name)
        return fallbackFileName();
    return name;
}

} // namespace UpdatePolicy
