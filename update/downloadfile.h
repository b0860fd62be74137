#pragma once

#include <QCryptographicHash>
#include <QNetworkAccessManager>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <memory>

class QFile;
class QNetworkReply;

// Fetches one file over HTTPS (plain HTTP on loopback only) into a folder, following at most a few
// safe redirects, reports progress and checks the result against the size and MD5 it was promised.
// One download at a time.
class DownloadFile : public QObject
{
    Q_OBJECT

public:
    // Why the last download did not deliver a file.
    enum class Failure { None, Refused, Network, Mismatch, File };

    explicit DownloadFile(QObject *parent = nullptr);
    ~DownloadFile() override;

    // Starts fetching url into dir (the platform's download folder when empty). A positive
    // expectedSize and a non-empty expectedMd5 (hex) are checked once the body is in; a file that
    // does not match is deleted. True when the request went out; the outcome then arrives through
    // downloadFinished.
    bool startDownload(const QString &url, const QString &dir, qint64 expectedSize = 0,
                       const QString &expectedMd5 = QString());
    void cancelDownload();

    Failure lastFailure() const { return failure; }

signals:
    // progress is bytesRead / totalBytes, or -1 while the total is unknown.
    void currentProgress(qlonglong bytesRead, qlonglong totalBytes, double progress);
    void downloadFinished(const QString &path, bool result);

private slots:
    void httpFinished();
    void httpReadyRead();
    void networkReplyProgress(qint64 bytesRead, qint64 totalBytes);

private:
    std::unique_ptr<QFile> openFileForWrite(const QString &fileName);
    void startRequest(const QUrl &requestedUrl);
    void fail(Failure reason);
    QString mismatch() const;

    QUrl url;
    QNetworkAccessManager manager;
    QPointer<QNetworkReply> reply;
    std::unique_ptr<QFile> file;
    bool httpRequestAborted = false;

    int redirects = 0;
    qint64 expectedSize = 0;
    QByteArray expectedMd5;
    qint64 written = 0;
    QCryptographicHash md5{QCryptographicHash::Md5};
    Failure failure = Failure::None;
};
