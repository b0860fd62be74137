#include "huebridge.h"

#include <QDateTime>
#include <QDebug>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSettings>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QUrl>

#include <cmath>

namespace {

const char kDefaultDiscoveryUrl[] = "https://discovery.meethue.com/";
const char kApplicationKeyHeader[] = "hue-application-key";
const char kLightPath[] = "/clip/v2/resource/light";

QSettings hueSettings()
{
    return QSettings(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("brivon"),
                     QStringLiteral("com.brivon.beamcrafter.philipshue"));
}

// A bridge number that is not a finite value inside int's range would make the cast undefined.
int truncatedInt(double value)
{
    if (!std::isfinite(value))
        return 0;
    return int(qBound(double(std::numeric_limits<int>::min()), value, double(std::numeric_limits<int>::max())));
}

Light lightFromJson(const QJsonObject &object)
{
    Light light;
    if (object.contains(QLatin1String("color_temperature"))) {
        const QJsonObject temperature = object.value(QLatin1String("color_temperature")).toObject();
        if (temperature.contains(QLatin1String("mirek_valid"))
            && temperature.value(QLatin1String("mirek_valid")).toBool()
            && temperature.contains(QLatin1String("mirek"))) {
            light.mirek = temperature.value(QLatin1String("mirek")).toInt(153);
        }
        if (temperature.contains(QLatin1String("mirek_schema"))) {
            const QJsonObject schema = temperature.value(QLatin1String("mirek_schema")).toObject();
            if (schema.contains(QLatin1String("mirek_maximum")))
                light.temperatureMin = HueBridge::mirekToKelvin(schema.value(QLatin1String("mirek_maximum")).toInt(500));
            if (schema.contains(QLatin1String("mirek_minimum")))
                light.temperatureMax = HueBridge::mirekToKelvin(schema.value(QLatin1String("mirek_minimum")).toInt(153));
        }
    }
    if (object.contains(QLatin1String("dimming"))) {
        const QJsonObject dimming = object.value(QLatin1String("dimming")).toObject();
        if (dimming.contains(QLatin1String("brightness")))
            light.brightness = truncatedInt(dimming.value(QLatin1String("brightness")).toDouble());
    }
    if (object.contains(QLatin1String("on"))) {
        const QJsonObject on = object.value(QLatin1String("on")).toObject();
        if (on.contains(QLatin1String("on")))
            light.on = on.value(QLatin1String("on")).toBool();
    }
    if (object.contains(QLatin1String("id")))
        light.id = object.value(QLatin1String("id")).toString();
    const QJsonObject metadata = object.value(QLatin1String("metadata")).toObject();
    if (metadata.contains(QLatin1String("name")))
        light.name = metadata.value(QLatin1String("name")).toString();
    return light;
}

QString lightPath(const QString &light)
{
    return QLatin1String(kLightPath) + QLatin1Char('/') + light;
}

QByteArray jsonBody(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Indented);
}

} // namespace

void registerHueMetaTypes()
{
    qRegisterMetaType<Bridge>("Bridge");
    qRegisterMetaType<Light>("Light");
    qRegisterMetaType<QList<Bridge>>("QList<Bridge>");
    qRegisterMetaType<QList<Light>>("QList<Light>");
}

HueBridge::HueBridge(QObject *parent)
    : QObject(parent)
    , m_network(new QNetworkAccessManager(this))
{
    registerHueMetaTypes();
    loadBridges();
}

HueBridge::~HueBridge() = default;

QString HueBridge::discoveryUrl()
{
    const QString fromEnvironment = qEnvironmentVariable("BRIVON_HUE_DISCOVERY_URL");
    return fromEnvironment.isEmpty() ? QString::fromLatin1(kDefaultDiscoveryUrl) : fromEnvironment;
}

int HueBridge::kelvinToMirek(int kelvin)
{
    // Zero would divide by zero; treat it like the other values that name no temperature.
    if (kelvin <= 0)
        return 153;
    return int(1000000u / unsigned(kelvin));
}

int HueBridge::mirekToKelvin(int mirek)
{
    // A bridge that sends 0 must not take the program down with a division by zero.
    if (mirek == 0)
        return 0;
    const int q = 1000000 / mirek;
    return int(std::trunc(q * 0.01)) * 100;
}

// ---- settings ------------------------------------------------------------------------------------

void HueBridge::loadBridges()
{
    QSettings settings = hueSettings();
    const QStringList keys = settings.allKeys();
    for (const QString &key : keys) {
        if (!key.startsWith(QLatin1String("bridge/")))
            continue;
        const QStringList keyParts = key.split(QLatin1Char('/'), Qt::KeepEmptyParts);
        if (keyParts.size() != 3)
            continue;
        const QStringList valueParts = settings.value(key).toString().split(QLatin1Char('/'), Qt::KeepEmptyParts);
        if (valueParts.size() != 2)
            continue;
        Bridge bridge;
        bridge.ip = keyParts.at(1);
        bridge.id = keyParts.at(2);
        bridge.username = valueParts.at(0);
        bridge.clientkey = valueParts.at(1);
        m_paired.insert({bridge.ip, bridge.id}, bridge);
    }
}

void HueBridge::saveBridge(const Bridge &bridge)
{
    QSettings settings = hueSettings();
    settings.setValue(QStringLiteral("bridge/") + bridge.ip + QLatin1Char('/') + bridge.id,
                      bridge.username + QLatin1Char('/') + bridge.clientkey);
}

bool HueBridge::canDiscover()
{
    QSettings settings = hueSettings();
    const QString key = QStringLiteral("discover/datatime");
    const QDateTime now = QDateTime::currentDateTime();
    if (settings.contains(key)) {
        const QDateTime last = settings.value(key).toDateTime();
        if (!(last.addSecs(kDiscoveryIntervalSecs) < now))
            return false;
    }
    settings.setValue(key, now);
    return true;
}

// ---- requests and replies ------------------------------------------------------------------------

void HueBridge::applySslConfig(QNetworkRequest &request)
{
    QSslConfiguration config = request.sslConfiguration();
    config.setProtocol(QSsl::AnyProtocol);
    // Bridges present a self-signed certificate; the optional bundle is offered but not enforced.
    config.setPeerVerifyMode(QSslSocket::VerifyNone);
    config.setCaCertificates(QSslCertificate::fromPath(QStringLiteral("./cert/Philips_hue.PEM"), QSsl::Pem,
                                                       QSslCertificate::PatternSyntax::FixedString));
    request.setSslConfiguration(config);
}

void HueBridge::guardReplySize(QNetworkReply *reply)
{
    connect(reply, &QNetworkReply::downloadProgress, reply, [reply](qint64 received, qint64) {
        if (received > kMaxReplyBytes)
            reply->abort();
    });
}

QByteArray HueBridge::readReply(QNetworkReply *reply)
{
    if (reply->error() != QNetworkReply::NoError) {
        // The reply stays alive until the access manager goes; it is small and this keeps the
        // handlers free of lifetime questions.
        qDebug() << "Network error:" << reply->url().toString() << reply->errorString();
        return QByteArray();
    }
    const QByteArray body = reply->read(kMaxReplyBytes);
    reply->deleteLater();
    return body;
}

QNetworkReply *HueBridge::requestDiscovery()
{
    if (!canDiscover())
        return nullptr;
    QNetworkRequest request{QUrl(discoveryUrl())};
    applySslConfig(request);
    request.setTransferTimeout(kDiscoveryTimeoutMs);
    QNetworkReply *reply = m_network->get(request);
    guardReplySize(reply);
    return reply;
}

QList<Bridge> HueBridge::parseBridgeList(const QByteArray &body)
{
    QList<Bridge> bridges;
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (!document.isArray())
        return bridges;
    const QJsonArray array = document.array();
    for (const QJsonValue &element : array) {
        if (bridges.size() >= kMaxBridges)
            break;
        const QJsonObject object = element.toObject();
        if (object.isEmpty())
            continue;
        Bridge bridge;
        bridge.ip = object.value(QLatin1String("internalipaddress")).toString();
        bridge.id = object.value(QLatin1String("id")).toString();
        // A numeric port reads as empty on purpose: the port is never used for a URL.
        bridge.port = object.value(QLatin1String("port")).toString();
        bridges.append(bridge);
    }
    return bridges;
}

void HueBridge::parseBridges(const QByteArray &body, bool targeted, const QString &ip, const QString &id,
                             const QString &light)
{
    QList<Bridge> found;
    const QList<Bridge> bridges = parseBridgeList(body);
    for (const Bridge &bridge : bridges) {
        const BridgeKey key{bridge.ip, bridge.id};
        if (bridge.ip.isEmpty() || bridge.id.isEmpty() || m_paired.contains(key) || m_discovered.contains(key))
            continue;
        if (!targeted) {
            found.append(bridge);
            continue;
        }
        m_discovered.insert(key, bridge);
        if (bridge.ip == ip && bridge.id == id)
            emit discover2(bridge, light);
    }
    if (!found.isEmpty())
        emit discover(found);
}

void HueBridge::discoverBridges()
{
    if (!m_discovered.isEmpty())
        emit discover(m_discovered.values());
    QNetworkReply *reply = requestDiscovery();
    if (!reply)
        return;
    connect(reply, &QNetworkReply::finished, this, [this, reply]() {
        parseBridges(readReply(reply), false, QString(), QString(), QString());
    });
}

void HueBridge::queryLight(const QString &ip, const QString &id, const QString &light)
{
    const BridgeKey key{ip, id};
    if (m_paired.contains(key)) {
        getLight(ip, id, light);
        return;
    }
    if (m_discovered.contains(key)) {
        emit discover2(m_discovered.value(key), light);
        return;
    }
    QNetworkReply *reply = requestDiscovery();
    if (!reply)
        return;
    connect(reply, &QNetworkReply::finished, this, [this, reply, ip, id, light]() {
        parseBridges(readReply(reply), true, ip, id, light);
    });
}

// ---- pairing -------------------------------------------------------------------------------------

void HueBridge::pairBridge(const Bridge &bridge)
{
    sendPairing(bridge, QString(), false);
}

void HueBridge::pairBridge(const QString &ip, const QString &id, const QString &light)
{
    Bridge bridge;
    bridge.ip = ip;
    bridge.id = id;
    sendPairing(bridge, light, true);
}

void HueBridge::sendPairing(const Bridge &bridge, const QString &light, bool single)
{
    QNetworkRequest request{QUrl(QStringLiteral("http://") + bridge.ip + QStringLiteral("/api"))};
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    QJsonObject body;
    body.insert(QStringLiteral("devicetype"), QStringLiteral("appName#instanceName"));
    body.insert(QStringLiteral("generateclientkey"), true);
    QNetworkReply *reply = m_network->post(request, jsonBody(body));
    guardReplySize(reply);
    connect(reply, &QNetworkReply::finished, this, [this, reply, bridge, light, single]() {
        parseRegisterResult(readReply(reply), bridge, light, single);
    });
}

void HueBridge::parseRegisterResult(const QByteArray &body, const Bridge &bridge, const QString &light, bool single)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (!document.isArray())
        return;
    const QJsonArray array = document.array();
    for (const QJsonValue &element : array) {
        const QJsonObject object = element.toObject();
        if (object.isEmpty() || !object.contains(QLatin1String("success")))
            continue;
        Bridge paired = bridge;
        const QJsonObject success = object.value(QLatin1String("success")).toObject();
        if (success.contains(QLatin1String("username")))
            paired.username = success.value(QLatin1String("username")).toString();
        if (success.contains(QLatin1String("clientkey")))
            paired.clientkey = success.value(QLatin1String("clientkey")).toString();
        saveBridge(paired);
        const BridgeKey key{paired.ip, paired.id};
        m_paired.insert(key, paired);
        m_discovered.remove(key);
        emit registerResult(true);
        if (single)
            getLight(paired.ip, paired.id, light);
        else
            getLights(paired);
    }
}

// ---- lights --------------------------------------------------------------------------------------

QNetworkReply *HueBridge::sendLightRequest(const Bridge &bridge, const QString &path, const QByteArray &putBody)
{
    QNetworkRequest request{QUrl(QStringLiteral("https://") + bridge.ip + path)};
    applySslConfig(request);
    request.setRawHeader(kApplicationKeyHeader, bridge.username.toUtf8());
    QNetworkReply *reply = nullptr;
    if (putBody.isNull()) {
        reply = m_network->get(request);
    } else {
        request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
        reply = m_network->put(request, putBody);
    }
    guardReplySize(reply);
    return reply;
}

void HueBridge::getAllLights()
{
    const QList<Bridge> bridges = m_paired.values();
    for (const Bridge &bridge : bridges)
        getLights(bridge);
}

void HueBridge::getLights(const Bridge &bridge)
{
    if (!m_paired.contains({bridge.ip, bridge.id}))
        return;
    QNetworkReply *reply = sendLightRequest(m_paired.value({bridge.ip, bridge.id}), QLatin1String(kLightPath), QByteArray());
    connect(reply, &QNetworkReply::finished, this, [this, reply, bridge]() {
        parseLights(bridge, readReply(reply), false);
    });
}

void HueBridge::getLight(const QString &ip, const QString &id, const QString &light)
{
    const BridgeKey key{ip, id};
    if (!m_paired.contains(key))
        return;
    QNetworkReply *reply = sendLightRequest(m_paired.value(key), lightPath(light), QByteArray());
    connect(reply, &QNetworkReply::finished, this, [this, reply, key]() {
        parseLights(m_paired.value(key), readReply(reply), true);
    });
}

QList<Light> HueBridge::parseLightList(const QByteArray &body)
{
    QList<Light> lights;
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (!document.isObject())
        return lights;
    const QJsonValue data = document.object().value(QLatin1String("data"));
    if (!data.isArray())
        return lights;
    const QJsonArray array = data.toArray();
    for (const QJsonValue &element : array) {
        if (lights.size() >= kMaxLights)
            break;
        const QJsonObject object = element.toObject();
        if (!object.isEmpty())
            lights.append(lightFromJson(object));
    }
    return lights;
}

void HueBridge::parseLights(const Bridge &bridge, const QByteArray &body, bool single)
{
    const QList<Light> lights = parseLightList(body);
    if (lights.isEmpty())
        return;
    if (single)
        emit updateLightState(bridge, lights.first());
    else
        emit discoverLight(bridge, lights);
}

void HueBridge::putState(const QString &ip, const QString &id, const QString &light, const QByteArray &body,
                         bool isPower, bool on)
{
    const BridgeKey key{ip, id};
    if (!m_paired.contains(key))
        return;
    const Bridge bridge = m_paired.value(key);
    QNetworkReply *reply = sendLightRequest(bridge, lightPath(light), body);
    connect(reply, &QNetworkReply::finished, this, [this, reply, bridge, isPower, on]() {
        QString rid;
        const bool accepted = recieveSetStateResponse(readReply(reply), rid);
        if (isPower && accepted)
            emit updatePower(bridge, rid, on);
    });
}

void HueBridge::setPower(const QString &ip, const QString &id, const QString &light, bool on)
{
    putState(ip, id, light, jsonBody({{QStringLiteral("on"), QJsonObject{{QStringLiteral("on"), on}}}}), true, on);
}

void HueBridge::setBrightness(const QString &ip, const QString &id, const QString &light, int brightness)
{
    putState(ip, id, light,
             jsonBody({{QStringLiteral("dimming"), QJsonObject{{QStringLiteral("brightness"), brightness}}}}), false,
             false);
}

void HueBridge::setTemperature(const QString &ip, const QString &id, const QString &light, int kelvin)
{
    putState(ip, id, light,
             jsonBody({{QStringLiteral("color_temperature"),
                        QJsonObject{{QStringLiteral("mirek"), kelvinToMirek(kelvin)}}}}),
             false, false);
}

void HueBridge::setColor(const QString &ip, const QString &id, const QString &light, float xy[2])
{
    const QJsonObject point{{QStringLiteral("x"), double(xy[0])}, {QStringLiteral("y"), double(xy[1])}};
    putState(ip, id, light, jsonBody({{QStringLiteral("color"), QJsonObject{{QStringLiteral("xy"), point}}}}), false,
             false);
}

bool HueBridge::recieveSetStateResponse(const QByteArray &body, QString &rid)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (!document.isObject())
        return false;
    const QJsonObject object = document.object();
    qDebug() << "HueBridge::recieveSetStateResponse" << "recieveSetStateResponse start";
    if (object.contains(QLatin1String("errors"))) {
        qDebug() << "errors" << object;
        const QJsonValue errors = object.value(QLatin1String("errors"));
        if (!errors.isNull() && !errors.toArray().isEmpty()) {
            const QJsonArray array = errors.toArray();
            for (const QJsonValue &element : array) {
                const QJsonObject error = element.toObject();
                if (!error.isEmpty() && error.contains(QLatin1String("description")))
                    qDebug() << "errors description" << error.value(QLatin1String("description")).toString();
            }
        }
    }
    if (!object.contains(QLatin1String("data"))) {
        qDebug() << "HueBridge::recieveSetStateResponse" << "recieveSetStateResponse end";
        return false;
    }
    const QJsonValue data = object.value(QLatin1String("data"));
    if (!data.isNull()) {
        const QJsonArray array = data.toArray();
        for (const QJsonValue &element : array) {
            const QJsonObject item = element.toObject();
            if (item.isEmpty())
                continue;
            if (item.contains(QLatin1String("rid"))) {
                rid = item.value(QLatin1String("rid")).toString();
                qDebug() << "data rid" << rid;
            }
            if (item.contains(QLatin1String("rtype")))
                qDebug() << "data rtype" << item.value(QLatin1String("rtype")).toString();
        }
    }
    return true;
}
