#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMetaType>
#include <QObject>
#include <QPair>
#include <QString>

class QNetworkAccessManager;
class QNetworkReply;
class QNetworkRequest;

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

    const BridgeTable &pairedBridges() const { return m_paired; }
    const BridgeTable &discoveredBridges() const { return m_discovered; }

    // The discovery service's URL: BRIVON_HUE_DISCOVERY_URL when set, else the public service.
    static QString discoveryUrl();
    // Pure conversions, shared with the reply parsers.
    static int kelvinToMirek(int kelvin);
    static int mirekToKelvin(int mirek);
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

private:
    void loadBridges();
    void saveBridge(const Bridge &bridge);
    bool canDiscover();
    void applySslConfig(QNetworkRequest &request);
    QByteArray readReply(QNetworkReply *reply);
    void parseBridges(const QByteArray &body, bool targeted, const QString &ip, const QString &id,
                      const QString &light);
    void parseRegisterResult(const QByteArray &body, const Bridge &bridge, const QString &light, bool single);
    void parseLights(const Bridge &bridge, const QByteArray &body, bool single);

    QNetworkReply *requestDiscovery();
    void sendPairing(const Bridge &bridge, const QString &light, bool single);
    QNetworkReply *sendLightRequest(const Bridge &bridge, const QString &path, const QByteArray &putBody);
    void putState(const QString &ip, const QString &id, const QString &light, const QByteArray &body,
                  bool isPower, bool on);
    void guardReplySize(QNetworkReply *reply);

    QNetworkAccessManager *m_network;
    BridgeTable m_paired;
    BridgeTable m_discovered;
};
