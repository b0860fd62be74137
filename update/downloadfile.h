#pragma once

#include <QNetworkAccessManager>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <memory>

class QFile;
class QNetworkReply;

// Fetches one file over HTTP into a folder, following redirects, and reports progress. One download
// at a time.
class DownloadFile : public QObject
{
    Q_OBJECT

public:
    explicit DownloadFile(QObject *parent = nullptr);
    ~DownloadFile() override;

    // Starts fetching url into dir (the platform's download folder when empty). True when the
    // request went out; the outcome then arrives through downloadFinished.
    bool startDownload(const QString &url, const QString &dir);
    void cancelDownload();

signals:
    void currentProgress(qlonglong bytesRead, qlonglong totalBytes, double progress);
    void downloadFinished(const QString &path, bool result);

private slots:
    void httpFinished();
    void httpReadyRead();
    void networkReplyProgress(qint64 bytesRead, qint64 totalBytes);

private:
    std::unique_ptr<QFile> openFileForWrite(const QString &fileName);
    void startRequest(const QUrl &requestedUrl);

    QUrl url;
    QNetworkAccessManager manager;
    QPointer<QNetworkReply> reply;
    std::unique_ptr<QFile> file;
    bool httpRequestAborted = false;
};
