#include "hueeventstream.h"

#include <QDebug>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrl>

HueEventStream::HueEventStream(Send send, QObject *parent)
    : QObject(parent)
    , m_send(std::move(send))
{
    m_retryTimer.setSingleShot(true);
    connect(&m_retryTimer, &QTimer::timeout, this, &HueEventStream::open);
    m_connectTimer.setSingleShot(true);
    m_connectTimer.setInterval(kConnectTimeoutMs);
    connect(&m_connectTimer, &QTimer::timeout, this, [this]() {
        if (m_reply)
            m_reply->abort();
    });
}

HueEventStream::~HueEventStream()
{
    stop();
}

void HueEventStream::start(const QString &ip, const QByteArray &key)
{
    stop();
    m_ip = ip;
    m_key = key;
    m_running = true;
    m_retryMs = kFirstRetryMs;
    open();
}

void HueEventStream::stop()
{
    m_running = false;
    m_open = false;
    m_retryTimer.stop();
    m_connectTimer.stop();
    if (QNetworkReply *reply = m_reply.data()) {
        m_reply = nullptr;
        reply->disconnect(this);
        reply->abort();
        reply->deleteLater();
    }
}

void HueEventStream::restart()
{
    if (!m_running)
        return;
    start(m_ip, m_key);
}

void HueEventStream::open()
{
    if (!m_running || m_reply)
        return;
    QNetworkRequest request{QUrl(QStringLiteral("https://") + m_ip + QStringLiteral("/eventstream/clip/v2"))};
    request.setRawHeader("hue-application-key", m_key);
    request.setRawHeader("Accept", "text/event-stream");
    m_buffer.clear();
    m_open = false;
    m_reply = m_send(request);
    connect(m_reply, &QNetworkReply::metaDataChanged, this, [this]() {
        const int status = m_reply ? m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() : 0;
        if (status != 200)
            return;
        m_connectTimer.stop();
        m_open = true;
        m_retryMs = kFirstRetryMs;
        emit opened();
    });
    connect(m_reply, &QNetworkReply::readyRead, this, &HueEventStream::onReadyRead);
    connect(m_reply, &QNetworkReply::finished, this, &HueEventStream::onFinished);
    m_connectTimer.start();
}

void HueEventStream::onReadyRead()
{
    if (!m_reply || !m_open)
        return;
    m_buffer += m_reply->readAll();
    const QList<QJsonObject> updates = takeLightUpdates(m_buffer);
    if (m_buffer.size() > kMaxEventBytes) {
        // No event is this large: the stream is not what it claims to be.
        m_reply->abort();
        return;
    }
    for (const QJsonObject &resource : updates)
        emit lightUpdated(resource);
}

void HueEventStream::onFinished()
{
    QNetworkReply *reply = m_reply.data();
    if (!reply)
        return;
    m_reply = nullptr;
    m_connectTimer.stop();
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    qDebug() << "[HueEventStream::onFinished]: ip:" << m_ip << "status:" << status << reply->errorString();
    reply->deleteLater();
    const bool wasOpen = m_open;
    m_open = false;
    if (status != 0 && status != 200)
        emit refused(status);
    else if (status == 0 && !wasOpen)
        emit unanswered();
    scheduleRetry();
}

void HueEventStream::scheduleRetry()
{
    if (!m_running)
        return;
    m_retryTimer.start(m_retryMs);
    m_retryMs = qMin(m_retryMs * 2, kMaxRetryMs);
}

QList<QJsonObject> HueEventStream::takeLightUpdates(QByteArray &buffer)
{
    QList<QJsonObject> updates;
    buffer.replace("\r\n", "\n");
    int end;
    while ((end = buffer.indexOf("\n\n")) >= 0) {
        const QList<QByteArray> lines = buffer.left(end).split('\n');
        buffer.remove(0, end + 2);
        QByteArray data;
        for (const QByteArray &line : lines) {
            if (line.startsWith("data:"))
                data += line.mid(line.startsWith("data: ") ? 6 : 5) + '\n';
        }
        const QJsonArray events = QJsonDocument::fromJson(data).array();
        for (const QJsonValue &event : events) {
            if (event.toObject().value(QLatin1String("type")).toString() != QLatin1String("update"))
                continue;
            const QJsonArray resources = event.toObject().value(QLatin1String("data")).toArray();
            for (const QJsonValue &resource : resources) {
                const QJsonObject object = resource.toObject();
                if (object.value(QLatin1String("type")).toString() == QLatin1String("light")
                    && object.value(QLatin1String("id")).isString())
                    updates << object;
            }
        }
    }
    return updates;
}
