#include "qtlocalpeer_platform.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>

#include <unistd.h>

namespace LocalPeerPlatform {

qulonglong sessionId()
{
    return ::getuid();
}

QString lockFolder(const QString &socketName)
{
    // A local socket path must fit in sockaddr_un (108 bytes); a deep runtime folder falls back
    // to shorter ones.
    constexpr int kMaxSocketPath = 100;
    const qsizetype nameLength = QFile::encodeName(socketName).size() + 1;
    const QStringList candidates{QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation),
                                 QDir::tempPath(), QStringLiteral("/tmp")};
    for (const QString &folder : candidates) {
        if (!folder.isEmpty() && QFile::encodeName(folder).size() + nameLength <= kMaxSocketPath)
            return folder;
    }
    return QStringLiteral("/tmp");
}

QString serverName(const QString &socketName)
{
    // The socket lives beside its lock file.
    return lockFolder(socketName) + QLatin1Char('/') + socketName;
}

} // namespace LocalPeerPlatform
