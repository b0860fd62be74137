#include "fakebridge.h"

#include <QJsonDocument>
#include <QDateTime>
#include <QRandomGenerator>
#include <QTimer>
#include <QUuid>

namespace {

const QByteArray kUnauthorized = R"({"errors":[{"description":"unauthorized user"}],"data":[]})";
const QByteArray kNotFound = R"({"errors":[{"description":"Not Found"}]})";
const QByteArray kLightPath = "/clip/v2/resource/light";

HttpResponse json(int status, const QByteArray &body)
{
    HttpResponse response;
    response.status = status;
    response.body = body;
    return response;
}

HttpResponse clipError(int status, const QString &description)
{
    const QJsonObject error{{QStringLiteral("description"), description}};
    return json(status, QJsonDocument(QJsonObject{{QStringLiteral("data"), QJsonArray()},
                                                  {QStringLiteral("errors"), QJsonArray{error}}})
                            .toJson(QJsonDocument::Compact));
}

HttpResponse v1Error(int type, const QString &description)
{
    const QJsonObject error{{QStringLiteral("type"), type},
                            {QStringLiteral("address"), QStringLiteral("/")},
                            {QStringLiteral("description"), description}};
    return json(200, QJsonDocument(QJsonArray{QJsonObject{{QStringLiteral("error"), error}}})
                         .toJson(QJsonDocument::Compact));
}

QString randomText(int length, const char *alphabet)
{
    const int size = int(qstrlen(alphabet));
    QString text;
    for (int i = 0; i < length; ++i)
        text += QLatin1Char(alphabet[QRandomGenerator::global()->bounded(size)]);
    return text;
}

QJsonObject gamutC()
{
    auto point = [](double x, double y) { return QJsonObject{{QStringLiteral("x"), x}, {QStringLiteral("y"), y}}; };
    return QJsonObject{{QStringLiteral("red"), point(0.6915, 0.3083)},
                       {QStringLiteral("green"), point(0.17, 0.7)},
                       {QStringLiteral("blue"), point(0.1532, 0.0475)}};
}

QJsonObject lightObject(const QString &id, int number, const QString &name, const QString &archetype, bool on,
                        double brightness)
{
    return QJsonObject{
        {QStringLiteral("id"), id},
        {QStringLiteral("id_v1"), QStringLiteral("/lights/%1").arg(number)},
        {QStringLiteral("owner"), QJsonObject{{QStringLiteral("rid"), QStringLiteral("5e1c7a3d-0b9a-4c2e-8f61-00000000000%1").arg(number)},
                                               {QStringLiteral("rtype"), QStringLiteral("device")}}},
        {QStringLiteral("metadata"), QJsonObject{{QStringLiteral("name"), name},
                                                  {QStringLiteral("archetype"), archetype}}},
        {QStringLiteral("on"), QJsonObject{{QStringLiteral("on"), on}}},
        {QStringLiteral("dimming"), QJsonObject{{QStringLiteral("brightness"), brightness},
                                                 {QStringLiteral("min_dim_level"), 0.2}}},
        {QStringLiteral("mode"), QStringLiteral("normal")},
        {QStringLiteral("type"), QStringLiteral("light")},
    };
}

QJsonObject temperatureObject(const QJsonValue &mirek, int minimum, int maximum)
{
    return QJsonObject{{QStringLiteral("mirek"), mirek},
                       {QStringLiteral("mirek_valid"), !mirek.isNull()},
                       {QStringLiteral("mirek_schema"), QJsonObject{{QStringLiteral("mirek_minimum"), minimum},
                                                                    {QStringLiteral("mirek_maximum"), maximum}}}};
}

} // namespace

FakeBridge::FakeBridge()
    : m_lights(defaultLights())
{
    m_clock.start();
}

QJsonArray FakeBridge::defaultLights()
{
    // A colour bulb in colour-temperature mode, a white-ambiance bulb and a dimmable-only lamp.
    QJsonObject color = lightObject(QStringLiteral("3f4ac1e2-6b0d-4f57-9a3e-1c2d3e4f5a01"), 1,
                                    QStringLiteral("Hue color lamp 1"), QStringLiteral("sultan_bulb"), true, 79.37);
    color.insert(QStringLiteral("color_temperature"), temperatureObject(366, 153, 500));
    color.insert(QStringLiteral("color"),
                 QJsonObject{{QStringLiteral("xy"), QJsonObject{{QStringLiteral("x"), 0.4573}, {QStringLiteral("y"), 0.41}}},
                             {QStringLiteral("gamut"), gamutC()},
                             {QStringLiteral("gamut_type"), QStringLiteral("C")}});

    QJsonObject ambiance = lightObject(QStringLiteral("7b2e9d40-1c5a-4e83-b6f2-2d3e4f5a6b02"), 2,
                                       QStringLiteral("Hue ambiance lamp"), QStringLiteral("classic_bulb"), false, 50.0);
    ambiance.insert(QStringLiteral("color_temperature"), temperatureObject(233, 153, 454));

    const QJsonObject dimmable = lightObject(QStringLiteral("c91d0f6a-8e2b-47d1-a5c3-3e4f5a6b7c03"), 3,
                                             QStringLiteral("Hue white lamp"), QStringLiteral("table_shade"), true, 100.0);
    return QJsonArray{color, ambiance, dimmable};
}

bool FakeBridge::loadLights(const QByteArray &bytes, QString *error)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &parseError);
    QJsonArray source;
    if (document.isArray())
        source = document.array();
    else if (document.isObject() && document.object().value(QLatin1String("data")).isArray())
        source = document.object().value(QLatin1String("data")).toArray();
    else {
        *error = parseError.error != QJsonParseError::NoError ? parseError.errorString()
                                                              : QStringLiteral("expected an array of lights");
        return false;
    }
    QJsonArray lights;
    for (const QJsonValue &value : source) {
        if (lights.size() >= kMaxLights)
            break;
        if (value.isObject() && value.toObject().value(QLatin1String("id")).isString())
            lights.append(value);
    }
    m_lights = lights;
    return true;
}

int FakeBridge::findLight(const QString &id) const
{
    for (int i = 0; i < m_lights.size(); ++i) {
        if (m_lights.at(i).toObject().value(QLatin1String("id")).toString() == id)
            return i;
    }
    return -1;
}

HttpResponse FakeBridge::handle(const HttpRequest &request)
{
    if (request.path.startsWith("/control/"))
        return handleControl(request);
    if (m_outage) {
        HttpResponse silence;
        silence.hold = true;
        return silence;
    }
    for (int i = 0; i < m_canned.size(); ++i) {
        CannedReply &canned = m_canned[i];
        if ((!canned.method.isEmpty() && canned.method != request.method) || canned.path != request.path)
            continue;
        const HttpResponse response = canned.response;
        if (canned.times > 0 && --canned.times == 0)
            m_canned.removeAt(i);
        return response;
    }
    if (request.path == "/api" && request.method == "POST")
        return handlePairing(request);
    if (request.path == "/discovery" && request.method == "GET")
        return handleDiscovery();
    if (request.path == kLightPath || request.path.startsWith(kLightPath + '/'))
        return handleLights(request);
    if (request.path == "/eventstream/clip/v2" && request.method == "GET") {
        if (!m_users.contains(QString::fromUtf8(request.headers.value("hue-application-key"))))
            return json(403, kUnauthorized);
        HttpResponse stream;
        stream.stream = true;
        stream.body = ": hi\n\n";
        return stream;
    }
    return json(404, kNotFound);
}

HttpResponse FakeBridge::handleControl(const HttpRequest &request)
{
    if (request.method != "POST")
        return json(405, R"({"error":"use POST"})");
    if (request.path == "/control/linkbutton") {
        pressLinkButton();
        return json(200, R"({"linkbutton":true})");
    }
    if (request.path == "/control/outage") {
        m_outage = QJsonDocument::fromJson(request.body).object().value(QLatin1String("on")).toBool(true);
        return json(200, m_outage ? R"({"outage":true})" : R"({"outage":false})");
    }
    if (request.path == "/control/light")
        return changeFromControl(request);
    if (request.path == "/control/move") {
        const QString address = QJsonDocument::fromJson(request.body).object().value(QLatin1String("address")).toString();
        if (!m_move || !m_move(address))
            return json(400, R"({"error":"cannot listen on that address"})");
        return json(200, R"({"moved":true})");
    }
    if (request.path == "/control/reset") {
        m_canned.clear();
        return json(200, R"({"reset":true})");
    }
    if (request.path == "/control/reply") {
        const QJsonObject object = QJsonDocument::fromJson(request.body).object();
        CannedReply canned;
        canned.method = object.value(QLatin1String("method")).toString().toUtf8();
        canned.path = object.value(QLatin1String("path")).toString().toUtf8();
        canned.times = object.value(QLatin1String("times")).toInt(1);
        canned.response.status = object.value(QLatin1String("status")).toInt(200);
        canned.response.contentType =
            object.value(QLatin1String("contentType")).toString(QStringLiteral("application/json")).toUtf8();
        canned.response.body = object.value(QLatin1String("body")).toString().toUtf8();
        canned.response.drop = object.value(QLatin1String("drop")).toBool();
        if (canned.path.isEmpty() || canned.times == 0 || canned.response.status < 100 || canned.response.status > 599)
            return json(400, R"({"error":"need path, times other than 0, status 100..599"})");
        m_canned.append(canned);
        return json(200, R"({"reply":true})");
    }
    return json(404, kNotFound);
}

HttpResponse FakeBridge::handlePairing(const HttpRequest &request)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(request.body, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject())
        return v1Error(2, QStringLiteral("body contains invalid JSON"));
    const QJsonObject body = document.object();
    if (!body.value(QLatin1String("devicetype")).isString())
        return v1Error(5, QStringLiteral("invalid/missing parameters in body"));
    if (m_linkButton.hasExpired()) {
        if (m_autoLinkSecs >= 0 && !m_autoLinkPending) {
            m_autoLinkPending = true;
            QTimer::singleShot(m_autoLinkSecs * 1000, [this]() {
                m_autoLinkPending = false;
                pressLinkButton();
            });
        }
        return v1Error(101, QStringLiteral("link button not pressed"));
    }

    const QString username = randomText(40, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-");
    m_users.insert(username);
    QJsonObject success{{QStringLiteral("username"), username}};
    if (m_clientKey && body.value(QLatin1String("generateclientkey")).toBool())
        success.insert(QStringLiteral("clientkey"), randomText(32, "0123456789ABCDEF"));
    return json(200, QJsonDocument(QJsonArray{QJsonObject{{QStringLiteral("success"), success}}})
                         .toJson(QJsonDocument::Compact));
}

HttpResponse FakeBridge::handleDiscovery()
{
    const QJsonObject entry{{QStringLiteral("id"), m_bridgeId},
                            {QStringLiteral("internalipaddress"), m_advertised},
                            {QStringLiteral("port"), 443}};
    return json(200, QJsonDocument(QJsonArray{entry}).toJson(QJsonDocument::Compact));
}

HttpResponse FakeBridge::handleLights(const HttpRequest &request)
{
    if (!m_users.contains(QString::fromUtf8(request.headers.value("hue-application-key"))))
        return json(403, kUnauthorized);
    if (request.path == kLightPath) {
        if (request.method != "GET")
            return clipError(405, QStringLiteral("method not allowed"));
        return json(200, "{\"errors\":[],\"data\":" + QJsonDocument(m_lights).toJson(QJsonDocument::Compact) + '}');
    }
    const int index = findLight(QString::fromUtf8(request.path.mid(kLightPath.size() + 1)));
    if (index < 0)
        return json(404, kNotFound);
    if (request.method == "GET") {
        return json(200, "{\"errors\":[],\"data\":["
                             + QJsonDocument(m_lights.at(index).toObject()).toJson(QJsonDocument::Compact) + "]}");
    }
    if (request.method != "PUT")
        return clipError(405, QStringLiteral("method not allowed"));
    if (rateLimited()) {
        HttpResponse limited = json(429, "<html><head><title>429 Too Many Requests</title></head>"
                                         "<body><h1>Too Many Requests</h1></body></html>");
        limited.contentType = "text/html";
        limited.headers.append(qMakePair(QByteArray("Retry-After"), QByteArray("1")));
        return limited;
    }
    QJsonObject light = m_lights.at(index).toObject();
    const HttpResponse response = putLight(light, request.body);
    if (response.status == 200)
        m_lights.replace(index, light);
    return response;
}

HttpResponse FakeBridge::putLight(QJsonObject &light, const QByteArray &body)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (!document.isObject())
        return clipError(400, QStringLiteral("body contains invalid json"));
    const QJsonObject change = document.object();

    if (change.contains(QLatin1String("on"))) {
        const QJsonValue on = change.value(QLatin1String("on")).toObject().value(QLatin1String("on"));
        if (!on.isBool())
            return clipError(400, QStringLiteral("invalid value for on"));
        light.insert(QStringLiteral("on"), QJsonObject{{QStringLiteral("on"), on.toBool()}});
    }
    if (change.contains(QLatin1String("dimming"))) {
        const QJsonValue brightness = change.value(QLatin1String("dimming")).toObject().value(QLatin1String("brightness"));
        if (!brightness.isDouble() || brightness.toDouble() < 0 || brightness.toDouble() > 100)
            return clipError(400, QStringLiteral("brightness must be between 0 and 100"));
        QJsonObject dimming = light.value(QLatin1String("dimming")).toObject();
        dimming.insert(QStringLiteral("brightness"), brightness.toDouble());
        light.insert(QStringLiteral("dimming"), dimming);
    }
    if (change.contains(QLatin1String("color_temperature"))) {
        if (!light.contains(QLatin1String("color_temperature")))
            return clipError(400, QStringLiteral("device does not support color_temperature"));
        QJsonObject temperature = light.value(QLatin1String("color_temperature")).toObject();
        const QJsonObject schema = temperature.value(QLatin1String("mirek_schema")).toObject();
        const QJsonValue mirek = change.value(QLatin1String("color_temperature")).toObject().value(QLatin1String("mirek"));
        const int value = mirek.toInt(-1);
        if (value < schema.value(QLatin1String("mirek_minimum")).toInt(153)
            || value > schema.value(QLatin1String("mirek_maximum")).toInt(500))
            return clipError(400, QStringLiteral("mirek out of range"));
        temperature.insert(QStringLiteral("mirek"), value);
        temperature.insert(QStringLiteral("mirek_valid"), true);
        light.insert(QStringLiteral("color_temperature"), temperature);
    }
    if (change.contains(QLatin1String("color"))) {
        if (!light.contains(QLatin1String("color")))
            return clipError(400, QStringLiteral("device does not support color"));
        const QJsonObject xy = change.value(QLatin1String("color")).toObject().value(QLatin1String("xy")).toObject();
        const QJsonValue x = xy.value(QLatin1String("x"));
        const QJsonValue y = xy.value(QLatin1String("y"));
        if (!x.isDouble() || !y.isDouble() || x.toDouble() < 0 || x.toDouble() > 1 || y.toDouble() < 0
            || y.toDouble() > 1)
            return clipError(400, QStringLiteral("xy must be between 0 and 1"));
        QJsonObject color = light.value(QLatin1String("color")).toObject();
        color.insert(QStringLiteral("xy"), xy);
        light.insert(QStringLiteral("color"), color);
        // In colour mode the bridge reports no colour temperature.
        if (light.contains(QLatin1String("color_temperature"))) {
            QJsonObject temperature = light.value(QLatin1String("color_temperature")).toObject();
            temperature.insert(QStringLiteral("mirek"), QJsonValue::Null);
            temperature.insert(QStringLiteral("mirek_valid"), false);
            light.insert(QStringLiteral("color_temperature"), temperature);
        }
    }
    const QJsonObject reference{{QStringLiteral("rid"), light.value(QLatin1String("id"))},
                                {QStringLiteral("rtype"), QStringLiteral("light")}};
    return json(200, QJsonDocument(QJsonObject{{QStringLiteral("data"), QJsonArray{reference}},
                                               {QStringLiteral("errors"), QJsonArray()}})
                         .toJson(QJsonDocument::Compact));
}

bool FakeBridge::rateLimited()
{
    if (m_rateLimit <= 0)
        return false;
    const qint64 now = m_clock.elapsed();
    while (!m_recentCommands.isEmpty() && m_recentCommands.head() <= now - 1000)
        m_recentCommands.dequeue();
    if (m_recentCommands.size() >= m_rateLimit)
        return true;
    m_recentCommands.enqueue(now);
    return false;
}

HttpResponse FakeBridge::changeFromControl(const HttpRequest &request)
{
    // What the Hue app or a wall switch would do: {"id": light, "on": {...}, "dimming": {...}, ...}.
    const QJsonObject change = QJsonDocument::fromJson(request.body).object();
    const int index = findLight(change.value(QLatin1String("id")).toString());
    if (index < 0)
        return json(404, kNotFound);
    QJsonObject body = change;
    body.remove(QStringLiteral("id"));
    QJsonObject light = m_lights.at(index).toObject();
    const HttpResponse response = putLight(light, QJsonDocument(body).toJson(QJsonDocument::Compact));
    if (response.status != 200)
        return response;
    m_lights.replace(index, light);
    publishUpdate(light, body);
    return response;
}

void FakeBridge::publishUpdate(const QJsonObject &light, const QJsonObject &change)
{
    if (!m_publish || m_outage)
        return;
    QJsonObject resource = change;
    for (const char *key : {"color_temperature", "color"}) {
        // The bridge reports the whole state of what changed, as it stands after the change.
        if (resource.contains(QLatin1String(key)))
            resource.insert(QLatin1String(key), light.value(QLatin1String(key)));
    }
    resource.insert(QStringLiteral("id"), light.value(QLatin1String("id")));
    resource.insert(QStringLiteral("id_v1"), light.value(QLatin1String("id_v1")));
    resource.insert(QStringLiteral("owner"), light.value(QLatin1String("owner")));
    resource.insert(QStringLiteral("type"), QStringLiteral("light"));
    const QJsonObject event{{QStringLiteral("creationtime"), QDateTime::currentDateTimeUtc().toString(Qt::ISODate)},
                            {QStringLiteral("data"), QJsonArray{resource}},
                            {QStringLiteral("id"), QUuid::createUuid().toString(QUuid::WithoutBraces)},
                            {QStringLiteral("type"), QStringLiteral("update")}};
    const QByteArray id = QByteArray::number(QDateTime::currentSecsSinceEpoch()) + ':' + QByteArray::number(m_eventCount++);
    m_publish("id: " + id + "\ndata: " + QJsonDocument(QJsonArray{event}).toJson(QJsonDocument::Compact) + "\n\n");
}
