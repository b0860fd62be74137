#pragma once

#include "huecommandqueue.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QMetaType>
#include <QObject>
#include <QPair>
#include <QString>
#include <QTimer>

#include <functional>

class HueEventStream;
class HueMdns;
class QNetworkAccessManager;
class QNetworkReply;
class QNetworkRequest;
class QSslCertificate;
class QSslError;

// A Hue bridge as discovery and pairing know it.
struct Bridge
{
    QString id;
    QString ip;        // may carry a port ("127.0.0.2:8443"); URLs are built from it as it stands
    QString port;      // from discovery only, and only when the service sent it as text
    QString username;  // the application key, sent as "hue-application-key"
    QString clientkey; // kept, never sent
};

// One light resource of a bridge, as far as the program follows it.
struct Light
{
    bool on = false;
    qint32 brightness = 0;
    qint32 mirek = 0;
    qint32 temperatureMax = 0;
    qint32 temperatureMin = 0;
    QString id;
    QString name;
    bool mirekValid = false;
    bool hasColor = false; // the resource has "color": the lamp takes colours
    double colorX = 0;
    double colorY = 0;
};

Q_DECLARE_METATYPE(Bridge)
Q_DECLARE_METATYPE(Light)

void registerHueMetaTypes();

// The one network client of the Hue bridges: cloud discovery, pairing, and the CLIP v2 light calls.
class HueBridge : public QObject
{
    Q_OBJECT

public:
    using BridgeKey = QPair<QString, QString>; // (ip, id)
    using BridgeTable = QHash<BridgeKey, Bridge>;

    // Bounds on what a bridge or the discovery service may hand us.
    static constexpr qint64 kMaxReplyBytes = 4 * 1024 * 1024;
    static constexpr int kMaxBridges = 256;
    static constexpr int kMaxLights = 1024;
    static constexpr int kDiscoveryIntervalSecs = 60;
    static constexpr int kDiscoveryTimeoutMs = 10000;
    // A bridge that is switched off must not leave requests hanging.
    static constexpr int kRequestTimeoutMs = 8000;
    // A bridge takes about ten light commands a second; leave a little room under that.
    static constexpr int kCommandIntervalMs = 110;
    static constexpr int kMaxInFlight = 4;
    static constexpr int kMaxAttempts = 3;
    static constexpr int kMaxRateLimitRetries = 5;
    static constexpr int kMoveSearchIntervalMs = 10000;

    explicit HueBridge(QObject *parent = nullptr);
    ~HueBridge() override;

    void discoverBridges();
    void pairBridge(const Bridge &bridge);
    void pairBridge(const QString &ip, const QString &id, const QString &light);
    void queryLight(const QString &ip, const QString &id, const QString &light);

    void getAllLights();
    void getLights(const Bridge &bridge);
    void getLight(const QString &ip, const QString &id, const QString &light);
    void setPower(const QString &ip, const QString &id, const QString &light, bool on);
    void setBrightness(const QString &ip, const QString &id, const QString &light, int brightness);
    void setTemperature(const QString &ip, const QString &id, const QString &light, int kelvin);
    void setColor(const QString &ip, const QString &id, const QString &light, float xy[2]);

    bool recieveSetStateResponse(const QByteArray &body, QString &rid);

    // Keeps the event stream of every paired bridge open.
    void startEventStreams();
    // Whether the bridge answered its last request.
    bool isOnline(const QString &ip, const QString &id) const;
    int queuedCommands(const QString &ip, const QString &id) const;

    const BridgeTable &pairedBridges() const { return m_paired; }
    const BridgeTable &discoveredBridges() const { return m_discovered; }

    // The discovery service's URL: BRIVON_HUE_DISCOVERY_URL when set, else the public service.
    static QString discoveryUrl();
    // The Hue root certificate a bridge's certificate may chain to: BRIVON_HUE_ROOT_CERT when set,
    // else "./cert/Philips_hue.PEM".
    static QString rootCertificatePath();
    // What is remembered of a bridge's certificate: "sha256/" + base64 of its public key's SHA-256.
    static QString publicKeyPin(const QSslCertificate &certificate);
    // The pin remembered for a bridge id, empty when none is.
    QString certificatePin(const QString &id) const { return m_pins.value(id); }
    // Pure conversions, shared with the reply parsers.
    static int kelvinToMirek(int kelvin);
    static int mirekToKelvin(int mirek);
    // The colour temperature to show for a lamp, in kelvin inside its range: its own when the bridge
    // reports one, else the one nearest to its colour.
    static int lightKelvin(const Light &light);
    static Light lightFromJson(const QJsonObject &object);
    static QList<Light> parseLightList(const QByteArray &body);
    static QList<Bridge> parseBridgeList(const QByteArray &body);

signals:
    void discover(QList<Bridge> bridges);
    void discoverLight(Bridge bridge, QList<Light> lights);
    void registerResult(bool succ);
    void updateLightState(Bridge bridge, Light light);
    void updatePower(Bridge bridge, QString light, bool on);
    void updateBrightness(Bridge bridge, QString light, int brightness);
    void updateTemperature(Bridge bridge, QString light, int temperature);
    void updateColor(Bridge bridge, QString light, float *xy);
    void discover2(Bridge bridge, QString light);
    // The bridge stopped answering, or answered again.
    void bridgeOnline(Bridge bridge, bool online);
    // A change made elsewhere (the Hue app, a switch), as the bridge's event stream reported it.
    void lightEvent(Bridge bridge, QString light, QJsonObject resource);
    // A paired bridge answers from a new address; the table and the settings already follow it.
    void bridgeMoved(QString oldIp, Bridge bridge);
    // The bridge no longer accepts the application key (once per bridge and run).
    void keyRevoked(Bridge bridge, QString light);

private:
    void loadBridges();
    void saveBridge(const Bridge &bridge);
    bool canDiscover();
    // TLS set-up of every request to a bridge, and the check of the certificate it presents:
    // the remembered key, or a chain to the Hue root whose common name is the bridge id. Nothing
    // reaches an unverified peer. Pairing (`firstContact`) sends no key and takes the bridge at its
    // word: the certificate of the peer that hands out the key is remembered once it succeeds.
    void prepareBridgeRequest(QNetworkRequest &request, const QString &id);
    void guardPeer(QNetworkReply *reply, const QString &id, bool firstContact);
    bool peerTrusted(const QString &id, const QSslCertificate &certificate, bool firstContact) const;
    void onUntrustedPeer(const QString &id, const QString &address, const QString &reason);
    QNetworkReply *getFromBridge(QNetworkRequest &request, const QString &id);
    QByteArray readReply(QNetworkReply *reply);
    void handleFound(const QList<Bridge> &bridges, bool targeted, const QString &ip, const QString &id,
                     const QString &light);
    // mDNS first; the cloud service (rate limited) when it finds nothing and `cloud` is set.
    void findBridges(bool cloud, std::function<void(const QList<Bridge> &)> done);
    void onMdnsFinished(const QList<Bridge> &bridges);
    void followMovedBridges(const QList<Bridge> &bridges);
    void searchMovedBridges();
    void parseRegisterResult(const QByteArray &body, const Bridge &bridge, const QString &light, bool single,
                             const QString &pin);
    void parseLights(const Bridge &bridge, const QByteArray &body, bool single);

    QNetworkReply *requestDiscovery();
    void sendPairing(const Bridge &bridge, const QString &light, bool single);
    QNetworkReply *sendLightRequest(const Bridge &bridge, const QString &path, const QByteArray &putBody);
    void putState(const QString &ip, const QString &id, const QString &light, const QString &property,
                  const QByteArray &body, bool on);
    void guardReplySize(QNetworkReply *reply);

    // Per bridge: the paced command queue, reachability and the event stream.
    struct Link
    {
        HueCommandQueue queue;
        QSet<QString> busy;
        qint64 lastSendMs = -1000000;
        qint64 pausedUntilMs = 0;
        bool online = true;
        bool revoked = false;
        bool untrusted = false; // logged once until the bridge is trusted again
        HueEventStream *stream = nullptr;
    };
    void enqueue(const BridgeKey &key, const HueCommand &command);
    void pump();
    void sendCommand(const BridgeKey &key, const HueCommand &command);
    void onCommandFinished(const BridgeKey &key, HueCommand command, QNetworkReply *reply);
    void setOnline(const BridgeKey &key, bool online);
    void onKeyRefused(const BridgeKey &key, const QString &light);
    void startEventStream(const BridgeKey &key);
    void onStreamEvent(const BridgeKey &key, const QJsonObject &resource);

    QNetworkAccessManager *m_network;
    // Pairing only: its connections, taken on first contact, never carry an application key.
    QNetworkAccessManager *m_pairingNetwork;
    BridgeTable m_paired;
    QHash<QString, QString> m_pins; // bridge id -> publicKeyPin of its certificate
    BridgeTable m_discovered;
    QHash<BridgeKey, Link> m_links;
    QElapsedTimer m_clock;
    QTimer m_pumpTimer;
    HueMdns *m_mdns;
    QList<std::function<void(const QList<Bridge> &)>> m_mdnsWaiters;
    bool m_mdnsCloud = false;
    bool m_discoverPending = false;
    qint64 m_lastMoveSearchMs = -1000000;
    QSet<QString> m_revokedNotified;
};
