#include "downloadfile.h"

#include "updatepolicy.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QStandardPaths>

namespace {

// A transfer that delivers nothing for this long has stalled.
constexpr int kStallTimeoutMs = 60000;

bool isRedirect(const QNetworkReply *reply)
{
    return !reply->attribute(QNetworkRequest::RedirectionTargetAttribute).isNull();
}

} // namespace

DownloadFile::DownloadFile(QObject *parent)
    : QObject(parent)
{
}

DownloadFile::~DownloadFile()
{
    // A download still running when the owner goes away must not leave a partial file behind.
    if (reply) {
        disconnect(reply, nullptr, this, nullptr);
        reply->abort();
        delete reply;
    }
    if (file) {
        file->close();
        file->remove();
    }
}

bool DownloadFile::startDownload(const QString &urlText, const QString &dir, qint64 size, const QString &md5Hex)
{
    if (reply && reply->isRunning()) {
        qDebug() << "[DownloadFile::startDownload]: busy, url:" << urlText;
        return false;
    }
    failure = Failure::Refused;

    const QUrl newUrl = QUrl::fromUserInput(urlText);
    if (!newUrl.isValid()) {
        qDebug().noquote() << QStringLiteral("Download failed: %1 is invalid").arg(urlText);
        return false;
    }
    if (!UpdatePolicy::isAllowedUrl(newUrl)) {
        qDebug() << "[DownloadFile::startDownload]: refused, only https (http on loopback), url:" << urlText;
        return false;
    }

    QString folder = dir;
    if (folder.isEmpty())
        folder = QStandardPaths::writableLocation(QStandardPaths::DownloadLocation);

    // The name comes from the network: it never chooses the folder.
    const QString fileName = UpdatePolicy::safeFileName(newUrl);
    if (fileName != newUrl.fileName(QUrl::FullyDecoded))
        qDebug() << "[DownloadFile::startDownload]: unsafe file name:" << newUrl.fileName(QUrl::FullyDecoded)
                 << "saved as:" << fileName;

    if (!QFileInfo(folder).isDir())
        QDir().mkpath(folder);

    const QString path = folder + QLatin1Char('/') + fileName;
    if (QFile::exists(path))
        QFile::remove(path);

    file = openFileForWrite(path);
    if (!file) {
        failure = Failure::File;
        return false;
    }

    failure = Failure::None;
    redirects = 0;
    expectedSize = qMax(qint64(0), size);
    expectedMd5 = md5Hex.trimmed().toLower().toLatin1();
    startRequest(newUrl);
    return true;
}

void DownloadFile::cancelDownload()
{
    if (reply && reply->isRunning()) {
        httpRequestAborted = true;
        reply->abort();
    }
}

std::unique_ptr<QFile> DownloadFile::openFileForWrite(const QString &fileName)
{
    auto newFile = std::make_unique<QFile>(fileName);
    if (!newFile->open(QIODevice::WriteOnly)) {
        qDebug().noquote() << QStringLiteral("Unable to save the file %1: %2.")
                                  .arg(QDir::toNativeSeparators(fileName), newFile->errorString());
        return nullptr;
    }
    return newFile;
}

void DownloadFile::startRequest(const QUrl &requestedUrl)
{
    try {
        url = requestedUrl;
        httpRequestAborted = false;
        written = 0;
        md5.reset();

        QNetworkRequest request(url);
        request.setSslConfiguration(UpdatePolicy::sslConfiguration());
        // Redirects are followed here: each hop is checked and starts the file afresh.
        request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
        request.setTransferTimeout(kStallTimeoutMs);

        reply = manager.get(request);
        connect(reply, &QNetworkReply::finished, this, &DownloadFile::httpFinished);
        connect(reply, &QIODevice::readyRead, this, &DownloadFile::httpReadyRead);
        connect(reply, &QNetworkReply::downloadProgress, this, &DownloadFile::networkReplyProgress);
    } catch (...) {
        emit downloadFinished(QString(), false);
    }
}

void DownloadFile::httpReadyRead()
{
    if (!file || !file->isOpen() || !reply)
        return;
    const QByteArray chunk = reply->readAll();
    // The page that comes with a redirect is not part of the file.
    if (isRedirect(reply))
        return;
    if (expectedSize > 0 && written + chunk.size() > expectedSize) {
        qDebug() << "[DownloadFile::httpReadyRead]: more than the offered size:" << expectedSize
                 << "url:" << url.toString();
        fail(Failure::Mismatch);
        return;
    }
    if (file->write(chunk) != chunk.size()) {
        qDebug() << "[DownloadFile::httpReadyRead]: cannot write:" << file->fileName() << file->errorString();
        fail(Failure::File);
        return;
    }
    md5.addData(chunk);
    written += chunk.size();
}

void DownloadFile::networkReplyProgress(qint64 bytesRead, qint64 totalBytes)
{
    if (reply && isRedirect(reply))
        return;
    emit currentProgress(bytesRead, totalBytes, totalBytes > 0 ? double(bytesRead) / double(totalBytes) : -1.0);
}

void DownloadFile::fail(Failure reason)
{
    failure = reason;
    if (reply && reply->isRunning())
        reply->abort();
}

QString DownloadFile::mismatch() const
{
    QStringList problems;
    if (expectedSize > 0 && written != expectedSize)
        problems << QStringLiteral("size: %1 expected: %2").arg(written).arg(expectedSize);
    const QByteArray actualMd5 = md5.result().toHex();
    if (!expectedMd5.isEmpty() && actualMd5 != expectedMd5)
        problems << QStringLiteral("md5: %1 expected: %2").arg(QLatin1String(actualMd5), QLatin1String(expectedMd5));
    return problems.join(QLatin1Char(' '));
}

void DownloadFile::httpFinished()
{
    QNetworkReply *finished = reply;
    if (!finished)
        return;
    reply = nullptr;
    finished->deleteLater();

    QFileInfo fileInfo;
    if (file) {
        fileInfo.setFile(file->fileName());
        file->close();
        file.reset();
    }
    const QString path = fileInfo.filePath().isEmpty() ? QString() : fileInfo.absoluteFilePath();
    const auto failed = [this, &path](Failure reason) {
        failure = reason;
        if (!path.isEmpty())
            QFile::remove(path);
        emit downloadFinished(QString(), false);
    };

    if (httpRequestAborted) {
        // Cancelled by the user: the partial file goes, silently.
        if (!path.isEmpty())
            QFile::remove(path);
        return;
    }
    if (failure != Failure::None) {
        failed(failure);
        return;
    }
    if (finished->error() != QNetworkReply::NoError) {
        qDebug().noquote() << QStringLiteral("Download failed: %1.[%2]").arg(finished->errorString(), path);
        failed(Failure::Network);
        return;
    }

    const QVariant redirectionTarget = finished->attribute(QNetworkRequest::RedirectionTargetAttribute);
    if (!redirectionTarget.isNull() && !path.isEmpty()) {
        const QUrl redirectedUrl = url.resolved(redirectionTarget.toUrl());
        if (++redirects > UpdatePolicy::kMaxRedirects || !UpdatePolicy::isAllowedRedirect(url, redirectedUrl)) {
            qDebug() << "[DownloadFile::httpFinished]: redirect refused, from:" << url.toString()
                     << "to:" << redirectedUrl.toString() << "redirects:" << redirects;
            failed(Failure::Refused);
            return;
        }
        file = openFileForWrite(path);
        if (!file) {
            failed(Failure::File);
            return;
        }
        startRequest(redirectedUrl);
        return;
    }

    const QString problem = mismatch();
    if (!problem.isEmpty()) {
        qDebug().noquote() << "[DownloadFile::httpFinished]: not the offered file, deleted:" << path << problem;
        failed(Failure::Mismatch);
        return;
    }
    qDebug().noquote() << "[DownloadFile::httpFinished]: checked, size:" << written
                       << "md5:" << QString::fromLatin1(md5.result().toHex()) << "path:" << path;
    emit downloadFinished(path, true);
}
