#pragma once

#include "httpserver.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QQueue>
#include <functional>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QSet>
#include <QString>

// What a Hue bridge answers: pairing on POST /api, CLIP v2 light resources, plus a discovery
// endpoint and a few control endpoints under /control/ that stand in for the physical bridge.
class FakeBridge
{
public:
    static constexpr int kLinkButtonSecs = 30;
    static constexpr int kMaxLights = 1000;

    FakeBridge();

    void setBridgeId(const QString &id) { m_bridgeId = id; }
    void setAdvertisedAddress(const QString &address) { m_advertised = address; }
    void setClientKeyEnabled(bool on) { m_clientKey = on; }
    void addUser(const QString &username) { m_users.insert(username); }
    void pressLinkButton() { m_linkButton = QDeadlineTimer(kLinkButtonSecs * 1000); }
    // Presses the link button on its own `secs` after a pairing request finds it up (negative: never).
    void setAutoLinkButton(int secs) { m_autoLinkSecs = secs; }
    // Replaces the lights; the file holds an array of light objects or a {"data": [...]} object.
    bool loadLights(const QByteArray &json, QString *error);

    HttpResponse handle(const HttpRequest &request);

    static QJsonArray defaultLights();

    // Light commands (PUTs) a second before the bridge answers 429; 0 turns the limit off.
    void setRateLimit(int perSecond) { m_rateLimit = perSecond; }
    // Sends one chunk to every open event stream.
    void setPublisher(std::function<void(const QByteArray &)> publish) { m_publish = std::move(publish); }
    // Moves the bridge to another address; answers whether it could listen there.
    void setMover(std::function<bool(const QString &)> move) { m_move = std::move(move); }
    bool inOutage() const { return m_outage; }

private:
    struct CannedReply
    {
        QByteArray method; // empty: any
        QByteArray path;
        HttpResponse response;
        int times = 1;     // negative: until reset
    };

    HttpResponse handleControl(const HttpRequest &request);
    HttpResponse handlePairing(const HttpRequest &request);
    HttpResponse handleDiscovery();
    HttpResponse handleLights(const HttpRequest &request);
    HttpResponse putLight(QJsonObject &light, const QByteArray &body);
    int findLight(const QString &id) const;
    HttpResponse changeFromControl(const HttpRequest &request);
    void publishUpdate(const QJsonObject &light, const QJsonObject &change);
    bool rateLimited();

    QString m_bridgeId = QStringLiteral("ecb5fafffe1a2b3c");
    QString m_advertised = QStringLiteral("127.0.0.1");
    bool m_clientKey = true;
    QSet<QString> m_users;
    QDeadlineTimer m_linkButton{0};
    int m_autoLinkSecs = -1;
    bool m_autoLinkPending = false;
    QJsonArray m_lights;
    QList<CannedReply> m_canned;
    int m_rateLimit = 10;
    QQueue<qint64> m_recentCommands;
    QElapsedTimer m_clock;
    bool m_outage = false;
    int m_eventCount = 0;
    std::function<void(const QByteArray &)> m_publish;
    std::function<bool(const QString &)> m_move;
};
