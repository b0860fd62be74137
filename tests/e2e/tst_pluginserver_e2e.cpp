// A control-deck client driving the real program over its WebSocket server, with the simulated
// Bluetooth lights answering on the other side.
#include "processutil.h"
#include "simlights.h"
#include "testhome.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSettings>
#include <QTcpServer>
#include <QTest>
#include <QWebSocket>

#include <memory>

namespace {

const QString kRgb = QStringLiteral("AA:00:00:00:00:02");
const QString kCob = QStringLiteral("AA:00:00:00:10:01");
const QString kGroup = QStringLiteral("{5e0c1a52-1111-4c2e-9a10-0123456789ab}");

QString envelope(int cmd, const QString &subCmd, const QJsonObject &param = {})
{
    return QString::fromUtf8(QJsonDocument(QJsonObject{{"cmd", cmd}, {"subCmd", subCmd}, {"param", param}})
                                 .toJson(QJsonDocument::Compact));
}

// A client that keeps every message it receives, in order.
struct Client
{
    QWebSocket socket;
    QList<QJsonObject> received;

    explicit Client(quint16 port)
    {
        QObject::connect(&socket, &QWebSocket::textMessageReceived, [this](const QString &text) {
            received << QJsonDocument::fromJson(text.toUtf8()).object();
        });
        socket.open(QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(port)));
        waitUntil([this] { return socket.state() == QAbstractSocket::ConnectedState; }, 5000);
    }

    // The first message (oldest first) matching subCmd and, when given, the param's id and value.
    bool waitFor(const QString &subCmd, const QString &id = {}, const QJsonValue &value = QJsonValue::Undefined,
                 int timeoutMs = 5000)
    {
        return waitUntil([&] {
            for (int i = 0; i < received.size(); ++i) {
                const QJsonObject param = received.at(i).value(QLatin1String("param")).toObject();
                if (received.at(i).value(QLatin1String("subCmd")).toString() != subCmd)
                    continue;
                if (!id.isEmpty() && param.value(QLatin1String("id")).toString() != id)
                    continue;
                if (!value.isUndefined() && param.value(QLatin1String("value")) != value)
                    continue;
                received.removeAt(i);
                return true;
            }
            return false;
        }, timeoutMs);
    }
};

// Waits until the simulated light's state shows `value` under `key`.
bool waitForSim(const QString &addr, const QString &key, const QJsonValue &value, int timeoutMs = 5000)
{
    return waitUntil([&] { return SimLights::state(addr).value(key) == value; }, timeoutMs);
}

} // namespace

class TestPluginServerE2E : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void controlCommandsReachTheLights();
    void noticesFollowTheLights();
    void groupCommandFansOut();

private:
    std::unique_ptr<TestHome> m_home;
    std::unique_ptr<QProcess> m_app;
    std::unique_ptr<QTcpServer> m_squatter;
    std::unique_ptr<Client> m_client;
    quint16 m_port = 0;
};

void TestPluginServerE2E::initTestCase()
{
    m_home = std::make_unique<TestHome>();
    SimLights::select(R"({
        "timing": {"discoverFirstMs": 50, "discoverStepMs": 20, "scanMs": 800, "connectMs": 50, "replyMs": 10},
        "lights": [
            {"addr": "AA:00:00:00:00:02", "name": "RGB panel", "protocol": 2, "power": true,
             "brightness": 80, "temperature": 5600, "mode": 2},
            {"addr": "AA:00:00:00:10:01", "name": "COB", "protocol": 1001, "brightness": 60,
             "temperature": 4300, "mode": 1}
        ]})", true); // the program started below inherits the simulator's settings
    QVERIFY(writeFile(m_home->configFile(), QStringLiteral(R"({
        "devs": [{"addr": "%1", "name": "RGB panel", "protocol": 2},
                 {"addr": "%2", "name": "COB", "protocol": 1001}],
        "groups": [{"name": "Set", "uuid": "%3", "devs": ["%1", "%2"]}]})").arg(kRgb, kCob, kGroup).toUtf8()));

    // Take the first free port from 8000 so the program has to move past it.
    m_squatter = std::make_unique<QTcpServer>();
    quint16 taken = 8000;
    while (!m_squatter->listen(QHostAddress(QStringLiteral("127.0.0.1")), taken))
        ++taken;

    m_app = std::make_unique<QProcess>();
    m_app->setProcessEnvironment(m_home->environment());
    m_app->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_app->start(beamcrafterPath(), {});
    QVERIFY(m_app->waitForStarted(10000));

    // The port it found is published in its settings.
    const QString settingsFile = m_home->path() + QStringLiteral("/.config/brivon/com.brivon.beamcrafter.pluginserver.conf");
    QVERIFY(waitUntil([&] { return QFile::exists(settingsFile); }, 15000));
    QSettings settings(settingsFile, QSettings::IniFormat);
    QCOMPARE(settings.value(QStringLiteral("server/address")).toString(), QStringLiteral("127.0.0.1"));
    m_port = quint16(settings.value(QStringLiteral("server/port")).toInt());
    QVERIFY2(m_port > taken, qPrintable(QString::number(m_port)));

    // The stored lights are found and connected on start-up.
    QVERIFY(waitForSim(kRgb, QStringLiteral("connected"), true, 15000));
    QVERIFY(waitForSim(kCob, QStringLiteral("connected"), true, 15000));
    m_client = std::make_unique<Client>(m_port);
    QCOMPARE(m_client->socket.state(), QAbstractSocket::ConnectedState);
    // Both lights have reported their state to the program.
    QTest::qWait(500);
}

void TestPluginServerE2E::cleanupTestCase()
{
    m_client.reset();
    if (m_app) {
        m_app->kill();
        m_app->waitForFinished(5000);
    }
    m_home.reset();
}

void TestPluginServerE2E::controlCommandsReachTheLights()
{
    auto control = [this](const QString &subCmd, const QString &id, const QJsonValue &value) {
        m_client->socket.sendTextMessage(envelope(10000, subCmd, QJsonObject{{"id", id}, {"value", value}}));
    };

    control(QStringLiteral("brightness"), kRgb, 50);
    QVERIFY(waitForSim(kRgb, QStringLiteral("brightness"), 50));
    control(QStringLiteral("temperature"), kRgb, 3200);
    QVERIFY(waitForSim(kRgb, QStringLiteral("temperature"), 3200));
    control(QStringLiteral("color"), kRgb, QStringLiteral("#00ff00"));
    QVERIFY(waitForSim(kRgb, QStringLiteral("hue"), 120));
    QVERIFY(waitForSim(kRgb, QStringLiteral("saturation"), 100));
    control(QStringLiteral("effect"), kRgb, QStringLiteral("7"));
    QVERIFY(waitForSim(kRgb, QStringLiteral("effect"), QStringLiteral("7")));

    control(QStringLiteral("brightness"), kCob, 40);
    QVERIFY(waitForSim(kCob, QStringLiteral("brightness"), 40));
    control(QStringLiteral("effect"), kCob, QStringLiteral("B-4"));
    QVERIFY(waitForSim(kCob, QStringLiteral("effect"), QStringLiteral("B-4")));

    // A brightness without a value, and an unknown id, reach nobody.
    const int framesBefore = SimLights::state(kRgb).value(QLatin1String("framesReceived")).toInt();
    m_client->socket.sendTextMessage(envelope(10000, QStringLiteral("brightness"), QJsonObject{{"id", kRgb}}));
    control(QStringLiteral("brightness"), QStringLiteral("nobody"), 10);
    QTest::qWait(300);
    QCOMPARE(SimLights::state(kRgb).value(QLatin1String("framesReceived")).toInt(), framesBefore);
}

void TestPluginServerE2E::noticesFollowTheLights()
{
    m_client->received.clear();
    // Switched off at the light: the program hears the report and tells the client.
    QCOMPARE(SimLights::command(QStringLiteral("knob %1 power off").arg(kRgb)), QStringLiteral("ok"));
    QVERIFY(m_client->waitFor(QStringLiteral("switch"), kRgb, false));

    // "switch" toggles: the light is off, so it goes on, and the notice says so.
    m_client->socket.sendTextMessage(envelope(10000, QStringLiteral("switch"), QJsonObject{{"id", kRgb}}));
    QVERIFY(waitForSim(kRgb, QStringLiteral("power"), true));
    QVERIFY(m_client->waitFor(QStringLiteral("switch"), kRgb, true));
    QVERIFY(m_client->waitFor(QStringLiteral("switch"), kGroup, true));
}

void TestPluginServerE2E::groupCommandFansOut()
{
    m_client->socket.sendTextMessage(
        envelope(10000, QStringLiteral("brightness"), QJsonObject{{"id", kGroup}, {"value", 30}}));
    QVERIFY(waitForSim(kRgb, QStringLiteral("brightness"), 30));
    QVERIFY(waitForSim(kCob, QStringLiteral("brightness"), 30));

    // Both lights are on: a group "switch" turns every one of them off.
    m_client->socket.sendTextMessage(envelope(10000, QStringLiteral("switch"), QJsonObject{{"id", kGroup}}));
    QVERIFY(waitForSim(kRgb, QStringLiteral("power"), false));
    QVERIFY(waitForSim(kCob, QStringLiteral("power"), false));
}

QTEST_GUILESS_MAIN(TestPluginServerE2E)
#include "tst_pluginserver_e2e.moc"
