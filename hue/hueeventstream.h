#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QTimer>

#include <functional>

class QNetworkReply;
class QNetworkRequest;

// Keeps a bridge's CLIP v2 event stream open and reports the light resources its "update" events
// carry. A stream that drops or cannot be opened is opened again after a growing pause.
class HueEventStream : public QObject
{
    Q_OBJECT

public:
    static constexpr int kConnectTimeoutMs = 8000;
    static constexpr int kFirstRetryMs = 1000;
    static constexpr int kMaxRetryMs = 30000;
    static constexpr int kMaxEventBytes = 1024 * 1024;

    // Sends the stream's request the way every request to the bridge is sent (its TLS checks).
    using Send = std::function<QNetworkReply *(QNetworkRequest &)>;

    explicit HueEventStream(Send send, QObject *parent = nullptr);
    ~HueEventStream() override;

    // Opens the stream of "https://<ip>/eventstream/clip/v2" with the application key.
    void start(const QString &ip, const QByteArray &key);
    void stop();
    // Drops the current connection and opens a new one at once (a bridge that came back).
    void restart();
    bool isOpen() const { return m_open; }
    bool isRunningFor(const QString &ip, const QByteArray &key) const { return m_running && ip == m_ip && key == m_key; }

    // Takes the complete events off the front of `buffer` and returns the light resources of
    // their "update" events, in order.
    static QList<QJsonObject> takeLightUpdates(QByteArray &buffer);

signals:
    void lightUpdated(QJsonObject resource);
    void opened();
    // The bridge did not answer the request for the stream.
    void unanswered();
    // The bridge answered the stream with this HTTP status instead of opening it.
    void refused(int status);

private:
    void open();
    void onReadyRead();
    void onFinished();
    void scheduleRetry();

    Send m_send;
    QString m_ip;
    QByteArray m_key;
    QPointer<QNetworkReply> m_reply;
    QByteArray m_buffer;
    QTimer m_retryTimer;
    QTimer m_connectTimer;
    int m_retryMs = kFirstRetryMs;
    bool m_running = false;
    bool m_open = false;
};
