#include "qtlocalpeer_platform.h"

#include <QDir>
#include <QStandardPaths>

#include <windows.h>

namespace LocalPeerPlatform {

qulonglong sessionId()
{
    DWORD session = 0;
    ProcessIdToSessionId(GetCurrentProcessId(), &session);
    return session;
}

QString serverName(const QString &socketName)
{
    // Qt turns a bare name into the pipe \\.\pipe\<name>; pipes live outside the file system.
    return socketName;
}

QString lockFolder(const QString &)
{
    // The user's own temporary folder (under the local application data), never the working
    // directory: started from Program Files, that one is read-only.
    QString folder = QStandardPaths::writableLocation(QStandardPaths::TempLocation);
    if (folder.isEmpty())
        folder = QDir::tempPath();
    return folder;
}

} // namespace LocalPeerPlatform
