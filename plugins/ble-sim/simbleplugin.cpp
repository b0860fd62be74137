#include "simbleplugin.h"

#include <QDebug>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocalSocket>
#include <QTimer>

namespace {

constexpr qint64 kMaxLightsFileBytes = 1024 * 1024;
constexpr int kMaxLights = 256;
constexpr qint64 kMaxControlLine = 4096;

int timingValue(const QJsonObject &timing, const char *key, int fallback)
{
    return qBound(0, timing.value(QLatin1String(key)).toInt(fallback), 60000);
}

} // namespace

SimBlePlugin::SimBlePlugin(QObject *parent)
    : BrivonQXBleInterface(parent)
{
    loadLights();
    startControlServer();
}

SimBlePlugin::~SimBlePlugin() = default;

void SimBlePlugin::loadLights()
{
    m_lights.clear();
    m_timing = SimTiming();
    m_lightsError.clear();
    const QString path = qEnvironmentVariable(kLightsEnvVar);
    if (path.isEmpty()) {
        m_lights = SimLight::defaultLights();
        return;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > kMaxLightsFileBytes) {
        m_lightsError = QStringLiteral("cannot read %1").arg(path);
        qWarning().noquote() << "[SimBlePlugin]" << m_lightsError << "- no simulated lights";
        return;
    }
    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        m_lightsError = QStringLiteral("%1: %2").arg(path, parseError.errorString());
        qWarning().noquote() << "[SimBlePlugin]" << m_lightsError << "- no simulated lights";
        return;
    }
    // Either an array of lights, or {"lights": [...], "timing": {...}}.
    QJsonArray lights = doc.array();
    if (doc.isObject()) {
        lights = doc.object().value(QLatin1String("lights")).toArray();
        const QJsonObject timing = doc.object().value(QLatin1String("timing")).toObject();
        m_timing.discoverFirstMs = timingValue(timing, "discoverFirstMs", m_timing.discoverFirstMs);
        m_timing.discoverStepMs = timingValue(timing, "discoverStepMs", m_timing.discoverStepMs);
        m_timing.scanMs = timingValue(timing, "scanMs", m_timing.scanMs);
        m_timing.connectMs = timingValue(timing, "connectMs", m_timing.connectMs);
        m_timing.connectFailMs = timingValue(timing, "connectFailMs", m_timing.connectFailMs);
        m_timing.replyMs = timingValue(timing, "replyMs", m_timing.replyMs);
    }
    for (const QJsonValue &value : qAsConst(lights)) {
        if (m_lights.size() >= kMaxLights)
            break;
        SimLight light;
        QString error;
        if (!SimLight::fromJson(value.toObject(), light, &error)) {
            qWarning().noquote() << "[SimBlePlugin] skipped" << error;
            continue;
        }
        if (find(light.addr)) {
            qWarning().noquote() << "[SimBlePlugin] skipped a second light" << light.addr;
            continue;
        }
        m_lights << light;
    }
}

void SimBlePlugin::startControlServer()
{
    const QString name = qEnvironmentVariableIsSet(kControlEnvVar) ? qEnvironmentVariable(kControlEnvVar)
                                                                    : QString::fromLatin1(kDefaultControlName);
    if (name.isEmpty())
        return; // set but empty: no control socket
    connect(&m_server, &QLocalServer::newConnection, this, &SimBlePlugin::onControlConnection);
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server.listen(name)) {
        // A socket left behind by a crashed run: take it over only if nobody answers on it.
        QLocalSocket probe;
        probe.connectToServer(name);
        if (!probe.waitForConnected(200)) {
            QLocalServer::removeServer(name);
            m_server.listen(name);
        }
    }
    if (m_server.isListening())
        qDebug().noquote() << "[SimBlePlugin] control socket:" << m_server.fullServerName();
    else
        qWarning().noquote() << "[SimBlePlugin] no control socket:" << m_server.errorString();
}

void SimBlePlugin::onControlConnection()
{
    while (QLocalSocket *socket = m_server.nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
            while (socket->canReadLine()) {
                const QByteArray line = socket->readLine(kMaxControlLine).trimmed();
                socket->write(command(QString::fromUtf8(line)).toUtf8() + '\n');
            }
            if (socket->bytesAvailable() > kMaxControlLine) {
                socket->write("error line too long\n");
                socket->disconnectFromServer();
            }
        });
    }
}

SimLight *SimBlePlugin::find(const QString &addr)
{
    for (SimLight &light : m_lights) {
        if (light.addr == addr)
            return &light;
    }
    return nullptr;
}

void SimBlePlugin::deliver(const QString &addr, const QList<QByteArray> &frames, int delayMs)
{
    int delay = delayMs;
    for (const QByteArray &frame : frames) {
        QTimer::singleShot(delay, this, [this, addr, frame] {
            SimLight *light = find(addr);
            if (light && light->connected)
                emit sigMessageReceived(addr, frame);
        });
        delay += 5;
    }
}

void SimBlePlugin::dropLink(SimLight &light)
{
    ++light.attempt;
    light.connecting = false;
    if (!light.connected)
        return;
    light.connected = false;
    const QString addr = light.addr;
    QTimer::singleShot(0, this, [this, addr] { emit sigDeviceDisconnected(addr); });
}

// ---- the interface ------------------------------------------------------------------------------

void SimBlePlugin::startScan()
{
    const quint32 generation = ++m_scanGeneration;
    m_scanning = true;
    int delay = m_timing.discoverFirstMs;
    for (const SimLight &light : qAsConst(m_lights)) {
        // A connected light no longer advertises; one that is unplugged is not there.
        if (!light.present || light.connected)
            continue;
        const QString addr = light.addr;
        QTimer::singleShot(qMin(delay, m_timing.scanMs), this, [this, generation, addr] {
            SimLight *seen = find(addr);
            if (generation == m_scanGeneration && m_scanning && seen && seen->present && !seen->connected)
                emit sigDeviceDiscovered(seen->protocol, seen->addr, seen->name);
        });
        delay += m_timing.discoverStepMs;
    }
    QTimer::singleShot(m_timing.scanMs, this, [this, generation] {
        if (generation != m_scanGeneration || !m_scanning)
            return;
        m_scanning = false;
        emit sigDeviceDiscoveredFinished();
    });
}

void SimBlePlugin::stopScan()
{
    ++m_scanGeneration;
    if (!m_scanning)
        return;
    m_scanning = false;
    QTimer::singleShot(0, this, [this] { emit sigDeviceDiscoveredFinished(); });
}

void SimBlePlugin::writeData(const QString &devAddr, const QByteArray &data)
{
    SimLight *light = find(devAddr);
    if (!light || !light->connected)
        return; // written into the void, as with a real link that is gone
    emit frameWritten(devAddr, data);
    deliver(devAddr, light->receive(data), m_timing.replyMs);
}

void SimBlePlugin::connectToDevice(const QString &devAddr)
{
    SimLight *light = find(devAddr);
    if (!light) {
        QTimer::singleShot(m_timing.connectFailMs, this, [this, devAddr] { emit sigDeviceDisconnected(devAddr); });
        return;
    }
    const quint32 attempt = ++light->attempt;
    ++light->connectAttempts;
    if (light->connecting)
        ++light->overlappingAttempts;
    light->connecting = true;
    const bool present = light->present;
    QTimer::singleShot(present ? m_timing.connectMs : m_timing.connectFailMs, this, [this, devAddr, attempt] {
        SimLight *target = find(devAddr);
        if (!target || target->attempt != attempt)
            return;
        target->connecting = false;
        if (!target->present) {
            emit sigDeviceDisconnected(devAddr);
            return;
        }
        target->connected = true;
        emit sigDeviceConnected(devAddr);
    });
}

bool SimBlePlugin::reconnectDevice(const QString &devAddr)
{
    SimLight *light = find(devAddr);
    if (!light)
        return false;
    light->connected = false; // a fresh attempt replaces the old link without a disconnect
    connectToDevice(devAddr);
    return true;
}

void SimBlePlugin::removeDevice(const QString &devAddr)
{
    if (SimLight *light = find(devAddr))
        dropLink(*light);
}

// ---- control commands ---------------------------------------------------------------------------

QString SimBlePlugin::command(const QString &line)
{
    const QStringList words = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    if (words.isEmpty())
        return QStringLiteral("error empty command");
    const QString verb = words.at(0);
    const auto json = [](const QJsonValue &value) {
        return QString::fromUtf8(value.isArray() ? QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact)
                                                 : QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact));
    };

    if (verb == QLatin1String("help")) {
        return QStringLiteral("ok list | state ADDR | frames ADDR | knob ADDR brightness N | knob ADDR temperature K"
                              " | knob ADDR power on|off | knob ADDR effect N|L-N | knob ADDR color HUE SAT"
                              " | unplug ADDR | plug ADDR | drop ADDR | reset");
    }
    if (verb == QLatin1String("list")) {
        QJsonArray all;
        for (const SimLight &light : qAsConst(m_lights))
            all.append(light.toJson());
        return QStringLiteral("ok ") + json(all);
    }
    if (verb == QLatin1String("reset")) {
        for (SimLight &light : m_lights)
            ++light.attempt;
        ++m_scanGeneration;
        m_scanning = false;
        loadLights();
        return m_lightsError.isEmpty() ? QStringLiteral("ok %1 lights").arg(m_lights.size())
                                       : QStringLiteral("error ") + m_lightsError;
    }
    if (words.size() < 2)
        return QStringLiteral("error %1 needs an address").arg(verb);
    SimLight *light = find(words.at(1));
    if (!light)
        return QStringLiteral("error no light %1").arg(words.at(1));

    if (verb == QLatin1String("state"))
        return QStringLiteral("ok ") + json(light->toJson());
    if (verb == QLatin1String("frames"))
        return QStringLiteral("ok ") + json(QJsonArray::fromStringList(light->frames));
    if (verb == QLatin1String("unplug")) {
        light->present = false;
        // A connection under way is left to fail as it would with a light that went away.
        if (light->connected)
            dropLink(*light);
        return QStringLiteral("ok");
    }
    if (verb == QLatin1String("plug")) {
        light->present = true;
        return QStringLiteral("ok");
    }
    if (verb == QLatin1String("drop")) {
        if (!light->connected)
            return QStringLiteral("error %1 is not connected").arg(light->addr);
        dropLink(*light);
        return QStringLiteral("ok");
    }
    if (verb == QLatin1String("knob")) {
        if (!light->present)
            return QStringLiteral("error %1 is unplugged").arg(light->addr);
        QString error;
        const QList<QByteArray> reports = light->knob(words.mid(2), &error);
        if (!error.isEmpty())
            return QStringLiteral("error ") + error;
        deliver(light->addr, reports, m_timing.replyMs);
        return QStringLiteral("ok");
    }
    return QStringLiteral("error unknown command %1").arg(verb);
}
