#include "huebridge.h"

#include "hueeventstream.h"
#include "huemdns.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDebug>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSettings>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslError>
#include <QSslKey>
#include <QSslSocket>
#include <QUrl>

#include <cmath>
#include <utility>

namespace {

const char kDefaultDiscoveryUrl[] = "https://discovery.meethue.com/";
const char kDefaultRootCertificate[] = "./cert/Philips_hue.PEM";
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
    , m_pairingNetwork(new QNetworkAccessManager(this))
    , m_mdns(new HueMdns(this))
{
    registerHueMetaTypes();
    m_clock.start();
    m_pumpTimer.setSingleShot(true);
    connect(&m_pumpTimer, &QTimer::timeout, this, &HueBridge::pump);
    connect(m_mdns, &HueMdns::finished, this, &HueBridge::onMdnsFinished);
    loadBridges();
}

HueBridge::~HueBridge() = default;

QString HueBridge::discoveryUrl()
{
    const QString fromEnvironment = qEnvironmentVariable("BRIVON_HUE_DISCOVERY_URL");
    return fromEnvironment.isEmpty() ? QString::fromLatin1(kDefaultDiscoveryUrl) : fromEnvironment;
}

QString HueBridge::rootCertificatePath()
{
    const QString fromEnvironment = qEnvironmentVariable("BRIVON_HUE_ROOT_CERT");
    return fromEnvironment.isEmpty() ? QString::fromLatin1(kDefaultRootCertificate) : fromEnvironment;
}

QString HueBridge::publicKeyPin(const QSslCertificate &certificate)
{
    const QByteArray key = certificate.publicKey().toDer();
    if (certificate.isNull() || key.isEmpty())
        return QString();
    return QStringLiteral("sha256/")
        + QString::fromLatin1(QCryptographicHash::hash(key, QCryptographicHash::Sha256).toBase64());
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

Light HueBridge::lightFromJson(const QJsonObject &object)
{
    Light light;
    if (object.contains(QLatin1String("color_temperature"))) {
        const QJsonObject temperature = object.value(QLatin1String("color_temperature")).toObject();
        if (temperature.contains(QLatin1String("mirek_valid"))
            && temperature.value(QLatin1String("mirek_valid")).toBool()
            && temperature.contains(QLatin1String("mirek"))) {
            light.mirek = temperature.value(QLatin1String("mirek")).toInt(153);
            light.mirekValid = light.mirek > 0;
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
    if (object.value(QLatin1String("color")).isObject()) {
        light.hasColor = true;
        const QJsonObject xy = object.value(QLatin1String("color")).toObject().value(QLatin1String("xy")).toObject();
        light.colorX = qBound(0.0, xy.value(QLatin1String("x")).toDouble(), 1.0);
        light.colorY = qBound(0.0, xy.value(QLatin1String("y")).toDouble(), 1.0);
    }
    if (object.contains(QLatin1String("id")))
        light.id = object.value(QLatin1String("id")).toString();
    const QJsonObject metadata = object.value(QLatin1String("metadata")).toObject();
    if (metadata.contains(QLatin1String("name")))
        light.name = metadata.value(QLatin1String("name")).toString();
    return light;
}

int HueBridge::lightKelvin(const Light &light)
{
    if (light.temperatureMin <= 0 || light.temperatureMax < light.temperatureMin)
        return 0; // no colour temperature at all
    int kelvin = light.temperatureMin;
    if (light.mirekValid) {
        kelvin = mirekToKelvin(light.mirek);
    } else if (light.hasColor && qAbs(0.1858 - light.colorY) > 1e-6) {
        // In colour mode the bridge reports no temperature: take the one nearest to the colour
        // (McCamy's approximation), rounded down to hundreds like the range.
        const double n = (light.colorX - 0.3320) / (0.1858 - light.colorY);
        const double cct = ((449.0 * n + 3525.0) * n + 6823.3) * n + 5520.33;
        if (std::isfinite(cct))
            kelvin = int(qBound(0.0, cct, 1.0e6) / 100) * 100;
    }
    return qBound(light.temperatureMin, kelvin, light.temperatureMax);
}

// ---- settings ------------------------------------------------------------------------------------

void HueBridge::loadBridges()
{
    QSettings settings = hueSettings();
    const QStringList keys = settings.allKeys();
    for (const QString &key : keys) {
        if (key.startsWith(QLatin1String("certificate/")) && key.count(QLatin1Char('/')) == 1) {
            const QString pin = settings.value(key).toString();
            if (pin.startsWith(QLatin1String("sha256/")))
                m_pins.insert(key.section(QLatin1Char('/'), 1), pin);
            continue;
        }
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

void HueBridge::prepareBridgeRequest(QNetworkRequest &request, const QString &id)
{
    QSslConfiguration config = request.sslConfiguration();
    config.setProtocol(QSsl::SecureProtocols);
    config.setPeerVerifyMode(QSslSocket::VerifyPeer);
    // The Hue root alone: a bridge's certificate chains to it, or it is the one remembered.
    config.setCaCertificates(QSslCertificate::fromPath(rootCertificatePath(), QSsl::Pem,
                                                       QSslCertificate::PatternSyntax::FixedString));
    request.setSslConfiguration(config);
    // A bridge's certificate names the bridge, not its address.
    request.setPeerVerifyName(id);
}

bool HueBridge::peerTrusted(const QString &id, const QSslCertificate &certificate, bool firstContact) const
{
    // Pairing sends no key, and the key it brings back belongs to the peer that answered.
    if (firstContact)
        return true;
    const QString pin = m_pins.value(id);
    return !pin.isEmpty() && !certificate.isNull() && publicKeyPin(certificate) == pin;
}

void HueBridge::guardPeer(QNetworkReply *reply, const QString &id, bool firstContact)
{
    const QString address = reply->url().authority();
    // Runs before anything is sent: errors left unignored end the handshake.
    connect(reply, &QNetworkReply::sslErrors, this, [this, reply, id, address, firstContact](const QList<QSslError> &errors) {
        QSslCertificate peer = reply->sslConfiguration().peerCertificate();
        for (const QSslError &error : errors) {
            if (peer.isNull())
                peer = error.certificate();
        }
        if (peerTrusted(id, peer, firstContact)) {
            // These errors of this certificate only: a blanket ignore stays with the network
            // connection and would let another certificate through when it reconnects.
            reply->ignoreSslErrors(errors);
            return;
        }
        QStringList reasons;
        for (const QSslError &error : errors)
            reasons << error.errorString();
        QMetaObject::invokeMethod(this, [this, id, address, reasons]() {
            onUntrustedPeer(id, address, reasons.join(QStringLiteral("; ")));
        }, Qt::QueuedConnection);
    });
    // A chain to the Hue root is not enough when the name it matched is not the common name.
    connect(reply, &QNetworkReply::encrypted, this, [this, reply, id, address, firstContact]() {
        const QSslCertificate peer = reply->sslConfiguration().peerCertificate();
        if (peerTrusted(id, peer, firstContact)
            || peer.subjectInfo(QSslCertificate::CommonName).contains(id, Qt::CaseInsensitive)) {
            for (auto it = m_links.begin(); it != m_links.end(); ++it) {
                if (it.key().second == id)
                    it->untrusted = false;
            }
            return;
        }
        reply->abort();
        QMetaObject::invokeMethod(this, [this, id, address]() {
            onUntrustedPeer(id, address, QStringLiteral("the common name is not the bridge id"));
        }, Qt::QueuedConnection);
    });
}

void HueBridge::onUntrustedPeer(const QString &id, const QString &address, const QString &reason)
{
    BridgeKey key;
    for (auto it = m_paired.cbegin(); it != m_paired.cend(); ++it) {
        if (it.key().second == id)
            key = it.key();
    }
    Link *link = m_paired.contains(key) ? &m_links[key] : nullptr;
    if (!link || !link->untrusted) {
        qWarning().noquote() << QStringLiteral("Hue bridge %1 at %2 is not the bridge that was paired (%3): nothing was sent to it")
                                    .arg(id, address, reason);
    }
    if (!link)
        return;
    link->untrusted = true;
    setOnline(key, false);
}

QNetworkReply *HueBridge::getFromBridge(QNetworkRequest &request, const QString &id)
{
    prepareBridgeRequest(request, id);
    QNetworkReply *reply = m_network->get(request);
    guardPeer(reply, id, false);
    return reply;
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
    reply->deleteLater();
    if (reply->error() != QNetworkReply::NoError) {
        qDebug() << "Network error:" << reply->url().toString() << reply->errorString();
        return QByteArray();
    }
    return reply->read(kMaxReplyBytes);
}

QNetworkReply *HueBridge::requestDiscovery()
{
    if (!canDiscover())
        return nullptr;
    const QUrl url(discoveryUrl());
    // A public service, verified like any HTTPS site; plain HTTP only on this machine (tests, demo).
    const bool loopback = QHostAddress(url.host()).isLoopback() || url.host() == QLatin1String("localhost");
    if (url.scheme() != QLatin1String("https") && !(url.scheme() == QLatin1String("http") && loopback)) {
        qWarning().noquote() << "Hue discovery needs an https address, not" << url.toString();
        return nullptr;
    }
    QNetworkRequest request{url};
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

void HueBridge::handleFound(const QList<Bridge> &bridges, bool targeted, const QString &ip, const QString &id,
                            const QString &light)
{
    QList<Bridge> found;
    for (const Bridge &bridge : bridges) {
        const BridgeKey key{bridge.ip, bridge.id};
        // A paired bridge whose certificate was refused is offered again: pairing anew is how the
        // user vouches for its new certificate.
        const bool trustedPair = m_paired.contains(key) && !m_links.value(key).untrusted;
        if (bridge.ip.isEmpty() || bridge.id.isEmpty() || trustedPair || m_discovered.contains(key))
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

void HueBridge::findBridges(bool cloud, std::function<void(const QList<Bridge> &)> done)
{
    m_mdnsWaiters.append(std::move(done));
    m_mdnsCloud = m_mdnsCloud || cloud;
    m_mdns->query();
}

void HueBridge::onMdnsFinished(const QList<Bridge> &bridges)
{
    const auto waiters = std::exchange(m_mdnsWaiters, {});
    const bool cloud = std::exchange(m_mdnsCloud, false);
    followMovedBridges(bridges);
    QNetworkReply *reply = bridges.isEmpty() && cloud ? requestDiscovery() : nullptr;
    if (!reply) {
        for (const auto &waiter : waiters)
            waiter(bridges);
        return;
    }
    connect(reply, &QNetworkReply::finished, this, [this, reply, waiters]() {
        const QList<Bridge> found = parseBridgeList(readReply(reply));
        followMovedBridges(found);
        for (const auto &waiter : waiters)
            waiter(found);
    });
}

void HueBridge::followMovedBridges(const QList<Bridge> &bridges)
{
    for (const Bridge &found : bridges) {
        if (found.ip.isEmpty() || found.id.isEmpty() || m_paired.contains({found.ip, found.id}))
            continue;
        BridgeKey oldKey;
        for (auto it = m_paired.cbegin(); it != m_paired.cend(); ++it) {
            if (it.key().second == found.id)
                oldKey = it.key();
        }
        if (oldKey.second.isEmpty())
            continue;
        Bridge moved = m_paired.take(oldKey);
        const QString oldIp = moved.ip;
        moved.ip = found.ip;
        const BridgeKey newKey{moved.ip, moved.id};
        m_paired.insert(newKey, moved);
        {
            QSettings settings = hueSettings();
            settings.remove(QStringLiteral("bridge/") + oldIp + QLatin1Char('/') + moved.id);
        }
        saveBridge(moved);
        m_links.insert(newKey, m_links.take(oldKey));
        qDebug() << "[HueBridge::followMovedBridges]: id:" << moved.id << "from:" << oldIp << "to:" << moved.ip;
        Link &link = m_links[newKey];
        if (link.stream)
            link.stream->start(moved.ip, moved.username.toUtf8());
        emit bridgeMoved(oldIp, moved);
        pump();
    }
}

void HueBridge::searchMovedBridges()
{
    const qint64 now = m_clock.elapsed();
    if (now - m_lastMoveSearchMs < kMoveSearchIntervalMs)
        return;
    m_lastMoveSearchMs = now;
    findBridges(false, [](const QList<Bridge> &) {});
}

void HueBridge::discoverBridges()
{
    if (!m_discovered.isEmpty())
        emit discover(m_discovered.values());
    // One answer is enough for any number of presses while the search runs.
    if (m_discoverPending)
        return;
    m_discoverPending = true;
    findBridges(true, [this](const QList<Bridge> &bridges) {
        m_discoverPending = false;
        handleFound(bridges, false, QString(), QString(), QString());
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
    findBridges(true, [this, ip, id, light](const QList<Bridge> &bridges) {
        handleFound(bridges, true, ip, id, light);
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
    QNetworkRequest request{QUrl(QStringLiteral("https://") + bridge.ip + QStringLiteral("/api"))};
    prepareBridgeRequest(request, bridge.id);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    QJsonObject body;
    body.insert(QStringLiteral("devicetype"), QStringLiteral("appName#instanceName"));
    body.insert(QStringLiteral("generateclientkey"), true);
    request.setTransferTimeout(kRequestTimeoutMs);
    QNetworkReply *reply = m_pairingNetwork->post(request, jsonBody(body));
    guardPeer(reply, bridge.id, true);
    guardReplySize(reply);
    connect(reply, &QNetworkReply::finished, this, [this, reply, bridge, light, single]() {
        const QString pin = publicKeyPin(reply->sslConfiguration().peerCertificate());
        parseRegisterResult(readReply(reply), bridge, light, single, pin);
    });
}

void HueBridge::parseRegisterResult(const QByteArray &body, const Bridge &bridge, const QString &light, bool single,
                                    const QString &pin)
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
        if (!pin.isEmpty() && m_pins.value(paired.id) != pin) {
            // Trust on first use: this certificate is the bridge from now on.
            m_pins.insert(paired.id, pin);
            QSettings settings = hueSettings();
            settings.setValue(QStringLiteral("certificate/") + paired.id, pin);
            m_network->clearConnectionCache();
        }
        const BridgeKey key{paired.ip, paired.id};
        m_paired.insert(key, paired);
        m_discovered.remove(key);
        m_links[key].revoked = false;
        m_links[key].untrusted = false;
        emit registerResult(true);
        setOnline(key, true);
        startEventStream(key);
        if (single && !light.isEmpty())
            getLight(paired.ip, paired.id, light);
        else if (!single)
            getLights(paired);
    }
}

// ---- lights --------------------------------------------------------------------------------------

QNetworkReply *HueBridge::sendLightRequest(const Bridge &bridge, const QString &path, const QByteArray &putBody)
{
    QNetworkRequest request{QUrl(QStringLiteral("https://") + bridge.ip + path)};
    request.setTransferTimeout(kRequestTimeoutMs);
    request.setRawHeader(kApplicationKeyHeader, bridge.username.toUtf8());
    QNetworkReply *reply = nullptr;
    if (putBody.isNull()) {
        reply = getFromBridge(request, bridge.id);
    } else {
        prepareBridgeRequest(request, bridge.id);
        request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
        reply = m_network->put(request, putBody);
        guardPeer(reply, bridge.id, false);
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
    const BridgeKey key{bridge.ip, bridge.id};
    if (!m_paired.contains(key))
        return;
    QNetworkReply *reply = sendLightRequest(m_paired.value(key), QLatin1String(kLightPath), QByteArray());
    connect(reply, &QNetworkReply::finished, this, [this, reply, bridge, key]() {
        const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        const QByteArray body = readReply(reply);
        if (!m_paired.contains(key))
            return;
        if (status == 403) {
            onKeyRefused(key, QString());
            return;
        }
        setOnline(key, status != 0);
        if (status == 0)
            searchMovedBridges();
        parseLights(bridge, body, false);
    });
}

void HueBridge::getLight(const QString &ip, const QString &id, const QString &light)
{
    const BridgeKey key{ip, id};
    if (!m_paired.contains(key))
        return;
    HueCommand command;
    command.light = light;
    command.property = QStringLiteral("get");
    enqueue(key, command);
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

void HueBridge::putState(const QString &ip, const QString &id, const QString &light, const QString &property,
                         const QByteArray &body, bool on)
{
    const BridgeKey key{ip, id};
    if (!m_paired.contains(key))
        return;
    HueCommand command;
    command.light = light;
    command.property = property;
    command.body = body;
    command.on = on;
    enqueue(key, command);
}

void HueBridge::setPower(const QString &ip, const QString &id, const QString &light, bool on)
{
    putState(ip, id, light, QStringLiteral("on"),
             jsonBody({{QStringLiteral("on"), QJsonObject{{QStringLiteral("on"), on}}}}), on);
}

void HueBridge::setBrightness(const QString &ip, const QString &id, const QString &light, int brightness)
{
    putState(ip, id, light, QStringLiteral("dimming"),
             jsonBody({{QStringLiteral("dimming"), QJsonObject{{QStringLiteral("brightness"), brightness}}}}), false);
}

void HueBridge::setTemperature(const QString &ip, const QString &id, const QString &light, int kelvin)
{
    putState(ip, id, light, QStringLiteral("color_temperature"),
             jsonBody({{QStringLiteral("color_temperature"),
                        QJsonObject{{QStringLiteral("mirek"), kelvinToMirek(kelvin)}}}}),
             false);
}

void HueBridge::setColor(const QString &ip, const QString &id, const QString &light, float xy[2])
{
    const QJsonObject point{{QStringLiteral("x"), double(xy[0])}, {QStringLiteral("y"), double(xy[1])}};
    putState(ip, id, light, QStringLiteral("color"),
             jsonBody({{QStringLiteral("color"), QJsonObject{{QStringLiteral("xy"), point}}}}), false);
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

// ---- pacing, reachability and the event stream ---------------------------------------------------

void HueBridge::enqueue(const BridgeKey &key, const HueCommand &command)
{
    m_links[key].queue.enqueue(command);
    pump();
}

void HueBridge::pump()
{
    const qint64 now = m_clock.elapsed();
    qint64 next = -1;
    auto wakeAt = [&next](qint64 due) { next = next < 0 ? due : qMin(next, due); };
    QList<QPair<BridgeKey, HueCommand>> toSend;
    for (auto it = m_links.begin(); it != m_links.end(); ++it) {
        Link &link = it.value();
        // While a bridge does not answer, one request at a time finds out whether it is back.
        const int limit = link.online ? kMaxInFlight : 1;
        if (link.queue.isEmpty() || link.busy.size() >= limit || !link.queue.hasReady(link.busy))
            continue; // the next reply pumps again
        const qint64 due = qMax(link.lastSendMs + kCommandIntervalMs, link.pausedUntilMs);
        if (due > now) {
            wakeAt(due);
            continue;
        }
        HueCommand command;
        link.queue.takeNext(link.busy, command);
        link.lastSendMs = now;
        link.busy.insert(command.light);
        toSend.append({it.key(), command});
        if (!link.queue.isEmpty())
            wakeAt(now + kCommandIntervalMs);
    }
    for (const auto &item : qAsConst(toSend))
        sendCommand(item.first, item.second);
    if (next >= 0)
        m_pumpTimer.start(int(qMax<qint64>(0, next - now)));
}

void HueBridge::sendCommand(const BridgeKey &key, const HueCommand &command)
{
    const Bridge bridge = m_paired.value(key);
    QNetworkReply *reply = sendLightRequest(bridge, lightPath(command.light), command.body);
    const QString id = key.second;
    connect(reply, &QNetworkReply::finished, this, [this, id, command, reply]() {
        // The bridge may have moved while the request was on the way.
        BridgeKey current;
        for (auto it = m_paired.cbegin(); it != m_paired.cend(); ++it) {
            if (it.key().second == id)
                current = it.key();
        }
        onCommandFinished(current, command, reply);
    });
}

void HueBridge::onCommandFinished(const BridgeKey &key, HueCommand command, QNetworkReply *reply)
{
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    bool retryOk = false;
    const int retryAfter = reply->rawHeader("Retry-After").trimmed().toInt(&retryOk);
    const QByteArray body = readReply(reply);
    if (!m_paired.contains(key) || !m_links.contains(key)) {
        pump();
        return;
    }
    m_links[key].busy.remove(command.light);
    const Bridge bridge = m_paired.value(key);
    const bool isRead = command.property == QLatin1String("get");
    bool failed = false;
    if (status == 0) {
        // No answer at all: switched off, unplugged, or gone to another address.
        setOnline(key, false);
        searchMovedBridges();
        failed = true;
    } else if (status == 403) {
        onKeyRefused(key, command.light);
    } else if (status == 429) {
        setOnline(key, true);
        Link &link = m_links[key];
        if (++command.attempts <= kMaxRateLimitRetries) {
            link.pausedUntilMs = m_clock.elapsed() + 1000 * qBound(1, retryOk ? retryAfter : 1, 60);
            link.queue.retry(command);
        } else {
            failed = true;
        }
    } else if (status >= 200 && status < 300) {
        m_links[key].revoked = false;
        setOnline(key, true);
        if (isRead) {
            parseLights(bridge, body, true);
        } else {
            QString rid;
            const bool accepted = recieveSetStateResponse(body, rid);
            if (command.property == QLatin1String("on") && accepted)
                emit updatePower(bridge, rid, command.on);
        }
    } else {
        setOnline(key, true);
        failed = true;
    }
    // The store already shows the value; read the lamp so that it shows what the lamp really does.
    if (failed && !isRead && m_links.contains(key)) {
        qDebug() << "[HueBridge::onCommandFinished]: failed:" << command.light << command.property << "status:" << status;
        HueCommand read;
        read.light = command.light;
        read.property = QStringLiteral("get");
        m_links[key].queue.enqueue(read);
    }
    pump();
}

void HueBridge::setOnline(const BridgeKey &key, bool online)
{
    if (!m_paired.contains(key))
        return;
    Link &link = m_links[key];
    if (link.online == online)
        return;
    link.online = online;
    qDebug() << "[HueBridge::setOnline]: ip:" << key.first << "id:" << key.second << "online:" << online;
    // A stream left from before an outage may be dead without knowing it.
    if (link.stream && (!online || !link.stream->isOpen()))
        link.stream->restart();
    emit bridgeOnline(m_paired.value(key), online);
}

void HueBridge::onKeyRefused(const BridgeKey &key, const QString &light)
{
    if (!m_paired.contains(key))
        return;
    Link &link = m_links[key];
    const bool wasRevoked = link.revoked;
    link.revoked = true;
    link.queue.clear();
    if (link.stream)
        link.stream->stop();
    if (wasRevoked)
        return;
    qDebug() << "[HueBridge::onKeyRefused]: ip:" << key.first << "id:" << key.second;
    link.online = false;
    const Bridge bridge = m_paired.value(key);
    emit bridgeOnline(bridge, false);
    if (!m_revokedNotified.contains(key.second)) {
        m_revokedNotified.insert(key.second);
        emit keyRevoked(bridge, light);
    }
}

bool HueBridge::isOnline(const QString &ip, const QString &id) const
{
    return m_links.value({ip, id}).online;
}

int HueBridge::queuedCommands(const QString &ip, const QString &id) const
{
    return m_links.value({ip, id}).queue.size();
}

void HueBridge::startEventStreams()
{
    const QList<BridgeKey> keys = m_paired.keys();
    for (const BridgeKey &key : keys)
        startEventStream(key);
}

void HueBridge::startEventStream(const BridgeKey &key)
{
    const Bridge bridge = m_paired.value(key);
    Link &link = m_links[key];
    if (bridge.username.isEmpty())
        return;
    if (!link.stream) {
        const QString id = bridge.id;
        link.stream = new HueEventStream([this, id](QNetworkRequest &request) { return getFromBridge(request, id); }, this);
        auto currentKey = [this, id]() {
            for (auto it = m_paired.cbegin(); it != m_paired.cend(); ++it) {
                if (it.key().second == id)
                    return it.key();
            }
            return BridgeKey();
        };
        connect(link.stream, &HueEventStream::opened, this, [this, currentKey]() { setOnline(currentKey(), true); });
        connect(link.stream, &HueEventStream::unanswered, this, [this, currentKey]() {
            setOnline(currentKey(), false);
            searchMovedBridges();
        });
        connect(link.stream, &HueEventStream::refused, this, [this, currentKey](int status) {
            if (status == 403)
                onKeyRefused(currentKey(), QString());
        });
        connect(link.stream, &HueEventStream::lightUpdated, this, [this, currentKey](const QJsonObject &resource) {
            onStreamEvent(currentKey(), resource);
        });
    } else if (link.stream->isRunningFor(bridge.ip, bridge.username.toUtf8())) {
        return;
    }
    link.stream->start(bridge.ip, bridge.username.toUtf8());
}

void HueBridge::onStreamEvent(const BridgeKey &key, const QJsonObject &resource)
{
    if (!m_paired.contains(key))
        return;
    emit lightEvent(m_paired.value(key), resource.value(QLatin1String("id")).toString(), resource);
}
