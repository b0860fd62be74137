#pragma once

#include <QString>

// What differs between systems for the single-instance link: the id that separates users or
// sessions, the server name of the local socket and the per-user folder that holds the lock file.
namespace LocalPeerPlatform {

// The Windows session id; the user id elsewhere.
qulonglong sessionId();
// The name to listen on and connect to: a pipe name on Windows, a socket path elsewhere.
QString serverName(const QString &socketName);
// A folder of the current user that is writable whatever the working directory is.
QString lockFolder(const QString &socketName);

} // namespace LocalPeerPlatform
