#include "downloadfile.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QStandardPaths>

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

bool DownloadFile::startDownload(const QString &urlText, const QString &dir)
{
    if (reply && reply->isRunning()) {
        qDebug() << "[DownloadFile::startDownload]: busy, url:" << urlText;
        return false;
    }

    const QUrl newUrl = QUrl::fromUserInput(urlText);
    if (!newUrl.isValid()) {
        qDebug().noquote() << QStringLiteral("Download failed: %1 is invalid").arg(urlText);
        return false;
    }

    QString folder = dir;
    if (folder.isEmpty())
        folder = QStandardPaths::writableLocation(QStandardPaths::DownloadLocation);

    QString fileName = newUrl.fileName(QUrl::FullyDecoded);
    // The URL comes from the network: "." and ".." would name a folder, not a file.
    if (fileName.isEmpty() || fileName == QLatin1String(".") || fileName == QLatin1String(".."))
        return false;

    if (!QFileInfo(folder).isDir())
        QDir().mkpath(folder);

    fileName = folder + QLatin1Char('/') + fileName;
    if (QFile::exists(fileName))
        QFile::remove(fileName);

    file = openFileForWrite(fileName);
    if (!file)
        return false;

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

        QNetworkRequest request(url);
        request.setSslConfiguration(request.sslConfiguration());
        // Redirects are followed here, so that each hop starts the file afresh.
        request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);

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
    if (file && file->isOpen() && reply)
        file->write(reply->readAll());
}

void DownloadFile::networkReplyProgress(qint64 bytesRead, qint64 totalBytes)
{
    emit currentProgress(bytesRead, totalBytes, double(bytesRead) / double(totalBytes));
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

    if (finished->error() != QNetworkReply::NoError) {
        if (!fileInfo.filePath().isEmpty())
            QFile::remove(fileInfo.absoluteFilePath());
        if (finished->error() != QNetworkReply::OperationCanceledError) {
            emit downloadFinished(QString(), false);
            qDebug().noquote() << QStringLiteral("Download failed: %1.[%2]")
                                      .arg(finished->errorString(), fileInfo.absoluteFilePath());
        }
        return;
    }

    const QVariant redirectionTarget = finished->attribute(QNetworkRequest::RedirectionTargetAttribute);
    if (!redirectionTarget.isNull() && !fileInfo.filePath().isEmpty()) {
        const QUrl redirectedUrl = url.resolved(redirectionTarget.toUrl());
        file = openFileForWrite(fileInfo.absoluteFilePath());
        if (!file) {
            QFile::remove(fileInfo.absoluteFilePath());
            emit downloadFinished(QString(), false);
            return;
        }
        startRequest(redirectedUrl);
        return;
    }

    emit downloadFinished(fileInfo.absoluteFilePath(), true);
}
