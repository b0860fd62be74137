#pragma once

#include <QSslConfiguration>
#include <QString>
#include <QUrl>

// What the update check and the download may talk to and what they may write. Everything here
// comes from the network, so none of it is trusted.
namespace UpdatePolicy {

// 127.0.0.0/8, ::1 and "localhost".
bool isLoopbackHost(const QString &host);

// https anywhere; plain http only to a loopback host (tests, demos).
bool isAllowedUrl(const QUrl &url);

// A redirect from `from` to `to` may be followed: `to` is allowed and not a step down from https.
bool isAllowedRedirect(const QUrl &from, const QUrl &to);

// At most this many redirects for one request.
inline constexpr int kMaxRedirects = 5;

// The platform's normal verification; BRIVON_UPDATE_CA_FILE (tests only) replaces the trusted
// authorities by the certificates of that PEM file.
QSslConfiguration sslConfiguration();

// The name the download is saved under: the URL's last path segment, decoded, when it is a plain
// file name on every platform; otherwise the fixed fall-back name.
QString safeFileName(const QUrl &url);
QString fallbackFileName();

} // namespace UpdatePolicy
