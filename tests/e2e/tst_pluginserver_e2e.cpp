// A control-deck client driving the installed program over its WebSocket server, with the
// simulated Bluetooth lights from its plug-in folder. The program runs from the prefix the
// "installed" fixture fills, so the effect list proves that it found its installed tables.
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
// A stored Hue lamp whose bridge is not around: kept like the others.
const QString kHue = QStringLiteral("127.0.0.231/ecb5fafffe0e2e01/3f4ac1e2-6b0d-4f57-9a3e-1c2d3e4f5a01");

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

} // namespace

class TestPluginServerE2E : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void controlCommandsReachTheLights();
    void noticesFollowTheLights();
    void exampleClientListsAndDims();
    void sigtermKeepsTheLastChange();
    void defaultPluginFoundByBareName();

private:
    bool waitForSim(const QString &addr, const QString &key, const QJsonValue &value, int timeoutMs = 5000);

    std::unique_ptr<TestHome> m_home;
    std::unique_ptr<QProcess> m_app;
    std::unique_ptr<QTcpServer> m_squatter;
    std::unique_ptr<Client> m_client;
    QString m_control;
    quint16 m_port = 0;
};

void TestPluginServerE2E::initTestCase()
{
    m_home = std::make_unique<TestHome>();
    QVERIFY(writeFile(m_home->path() + QStringLiteral("/lights.json"), R"({
        "timing": {"discoverFirstMs": 50, "discoverStepMs": 20, "scanMs": 800, "connectMs": 50, "replyMs": 10},
        "lights": [
            {"addr": "AA:00:00:00:00:02", "name": "RGB panel", "protocol": 2, "power": true,
             "brightness": 80, "temperature": 5600, "mode": 2},
            {"addr": "AA:00:00:00:10:01", "name": "COB", "protocol": 1001, "brightness": 60,
             "temperature": 4300, "mode": 1}
        ]})"));
    QVERIFY(writeFile(m_home->configFile(), QStringLiteral(R"({
        "devs": [{"addr": "%1", "name": "RGB panel", "protocol": 2, "lightEffect": {"enable": true},
                  "colorLight": {"value": "#ffffff", "enable": true}},
                 {"addr": "%2", "name": "COB", "protocol": 1001, "lightEffect": {"enable": true}},
                 {"addr": "%4", "name": "Hue lamp", "protocol": 2001}],
        "groups": [{"name": "Set", "uuid": "%3", "devs": ["%1", "%2"]}]})").arg(kRgb, kCob, kGroup, kHue).toUtf8()));

    // Take the first free port from 8000 so the program has to move past it.
    m_squatter = std::make_unique<QTcpServer>();
    quint16 taken = 8000;
    while (!m_squatter->listen(QHostAddress(QStringLiteral("127.0.0.1")), taken))
        ++taken;

    SimLights::select(QByteArray(), true);
    m_control = SimLights::controlPath();
    QProcessEnvironment env = m_home->environment();
    env.insert(QStringLiteral("BRIVON_BLE_PLUGIN"), QStringLiteral(BRIVON_INSTALLED_PLUGINS "/libBrivonBleSim.so"));
    env.insert(QStringLiteral("BRIVON_SIM_LIGHTS"), m_home->path() + QStringLiteral("/lights.json"));
    env.insert(QStringLiteral("BRIVON_SIM_CONTROL"), m_control);
    m_app = std::make_unique<QProcess>();
    m_app->setProcessEnvironment(env);
    m_app->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_app->start(QStringLiteral(BRIVON_INSTALLED_BIN), {});
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
    // Both lights have reported their state to the program.
    QTest::qWait(500);
}

bool TestPluginServerE2E::waitForSim(const QString &addr, const QString &key, const QJsonValue &value, int timeoutMs)
{
    QJsonValue last;
    const bool ok = waitUntil([&] {
        last = SimLights::state(addr).value(key);
        return last == value;
    }, timeoutMs);
    if (!ok)
        qWarning() << addr << key << "is" << last << "expected" << value;
    return ok;
}

void TestPluginServerE2E::controlCommandsReachTheLights()
{
    auto control = [this](const QString &subCmd, const QString &id, const QJsonValue &value) {
        m_client->socket.sendTextMessage(envelope(10000, subCmd, QJsonObject{{"id", id}, {"value", value}}));
    };

    // The light takes the value under the request's name.
    const auto reaches = [&](const QString &id, const QString &subCmd, const QJsonValue &value, const QJsonValue &taken) {
        control(subCmd, id, value);
        return waitForSim(id, subCmd, taken);
    };

    // Values as decks send them: rounded, clamped to the light's range, numbers in text. The
    // effects are those of each light's family in the installed table.
    QVERIFY(reaches(kRgb, QStringLiteral("brightness"), 50.5, 51));
    QVERIFY(reaches(kRgb, QStringLiteral("temperature"), 70000, 6500));
    QVERIFY(reaches(kRgb, QStringLiteral("temperature"), QStringLiteral("-3"), 2700));
    control(QStringLiteral("color"), kRgb, QStringLiteral("#00ff00"));
    QVERIFY(waitForSim(kRgb, QStringLiteral("hue"), 120));
    QVERIFY(waitForSim(kRgb, QStringLiteral("saturation"), 100));
    QVERIFY(reaches(kRgb, QStringLiteral("effect"), QStringLiteral("7"), QStringLiteral("7")));
    QVERIFY(reaches(kCob, QStringLiteral("brightness"), 40, 40));
    QVERIFY(reaches(kCob, QStringLiteral("effect"), QStringLiteral("B-4"), QStringLiteral("B-4")));

    // Refused requests reach nobody: no value, the other family's effect.
    QTest::qWait(150);
    const int framesBefore = SimLights::state(kRgb).value(QLatin1String("framesReceived")).toInt();
    m_client->socket.sendTextMessage(envelope(10000, QStringLiteral("brightness"), QJsonObject{{"id", kRgb}}));
    control(QStringLiteral("effect"), kRgb, QStringLiteral("A-1"));
    QVERIFY(m_client->waitFor(QStringLiteral("error")));
    QTest::qWait(300);
    QCOMPARE(SimLights::state(kRgb).value(QLatin1String("framesReceived")).toInt(), framesBefore);

    // A flood reaches the light as a few frames, ending with the latest value.
    for (int i = 1; i <= 300; ++i)
        control(QStringLiteral("brightness"), kRgb, i == 300 ? 77 : i % 100);
    QVERIFY(waitForSim(kRgb, QStringLiteral("brightness"), 77));
    QTest::qWait(300);
    const int flooded = SimLights::state(kRgb).value(QLatin1String("framesReceived")).toInt() - framesBefore;
    QVERIFY2(flooded < 100, qPrintable(QString::number(flooded)));
}

void TestPluginServerE2E::noticesFollowTheLights()
{
    m_client->received.clear();
    // Switched off at the light: the program hears the report and tells the client.
    QCOMPARE(SimLights::command(QStringLiteral("knob %1 power off").arg(kRgb)), QStringLiteral("ok"));
    QVERIFY(m_client->waitFor(QStringLiteral("switch"), kRgb, false));
    QVERIFY(m_client->waitFor(QStringLiteral("state"), kRgb));

    // "switch" toggles: the light is off, so it goes on, and the notice says so.
    m_client->socket.sendTextMessage(envelope(10000, QStringLiteral("switch"), QJsonObject{{"id", kRgb}}));
    QVERIFY(waitForSim(kRgb, QStringLiteral("power"), true));
    QVERIFY(m_client->waitFor(QStringLiteral("switch"), kRgb, true));

    // A group's commands fan out to its lights. Both are on: its "switch" turns every one off.
    m_client->socket.sendTextMessage(
        envelope(10000, QStringLiteral("brightness"), QJsonObject{{"id", kGroup}, {"value", 30}}));
    QVERIFY(waitForSim(kRgb, QStringLiteral("brightness"), 30));
    QVERIFY(waitForSim(kCob, QStringLiteral("brightness"), 30));
    m_client->socket.sendTextMessage(envelope(10000, QStringLiteral("switch"), QJsonObject{{"id", kGroup}}));
    QVERIFY(waitForSim(kRgb, QStringLiteral("power"), false));
    QVERIFY(waitForSim(kCob, QStringLiteral("power"), false));
    QVERIFY(m_client->waitFor(QStringLiteral("switch"), kGroup, false));
}

void TestPluginServerE2E::exampleClientListsAndDims()
{
    // The README's example client, run as a user would run it.
    m_client->socket.sendTextMessage(envelope(10000, QStringLiteral("switch"), QJsonObject{{"id", kRgb}}));
    QVERIFY(waitForSim(kRgb, QStringLiteral("power"), true));
    QProcess example;
    example.setProcessChannelMode(QProcess::MergedChannels);
    example.start(QStringLiteral("python3"), {QStringLiteral(BRIVON_SOURCE_DIR "/examples/deck_client.py"), QStringLiteral("--port"),
                                              QString::number(m_port), QStringLiteral("--dim"), kRgb, QStringLiteral("35")});
    QVERIFY(example.waitForFinished(20000));
    const QString output = QString::fromUtf8(example.readAll());
    QVERIFY2(example.exitCode() == 0 && output.contains(QStringLiteral("light %1  \"RGB panel\"").arg(kRgb)), qPrintable(output));
    QVERIFY2(output.contains(QStringLiteral("state %1: on, brightness 35").arg(kRgb)), qPrintable(output));
    QVERIFY(waitForSim(kRgb, QStringLiteral("brightness"), 35));
}

void TestPluginServerE2E::sigtermKeepsTheLastChange()
{
    const auto brightness = [this](int value) {
        m_client->socket.sendTextMessage(envelope(10000, QStringLiteral("brightness"), QJsonObject{{"id", kRgb}, {"value", value}}));
        return waitForSim(kRgb, QStringLiteral("brightness"), value);
    };
    QVERIFY(waitForSim(kRgb, QStringLiteral("power"), true)); // on from the start, or again since the example
    // The first change is written at once, the second one waits for the next half-second write.
    QVERIFY(brightness(62));
    QVERIFY(brightness(63));
    m_app->terminate(); // SIGTERM
    QVERIFY(m_app->waitForFinished(10000));
    QCOMPARE(m_app->exitStatus(), QProcess::NormalExit);
    QCOMPARE(m_app->exitCode(), 0);
    const QJsonArray devs = QJsonDocument::fromJson(readFile(m_home->configFile())).object().value(QLatin1String("devs")).toArray();
    for (const QJsonValue &dev : devs) {
        if (dev.toObject().value(QLatin1String("addr")).toString() == kRgb)
            QCOMPARE(dev.toObject().value(QLatin1String("brightness")).toObject().value(QLatin1String("value")).toInt(), 63);
    }
    QCOMPARE(devs.size(), 3);
}

void TestPluginServerE2E::defaultPluginFoundByBareName()
{
    // Once the first instance has ended, another one without the plug-in override: the BlueZ
    // plug-in comes from the installed plug-in folder and finds its light profiles.
    m_app->terminate();
    m_app->waitForFinished(10000);
    QProcessEnvironment env = m_home->environment();
    env.insert(QStringLiteral("QT_DEBUG_PLUGINS"), QStringLiteral("1"));
    env.remove(QStringLiteral("BRIVON_BLE_PLUGIN"));
    QProcess app;
    app.setProcessEnvironment(env);
    app.setProcessChannelMode(QProcess::MergedChannels);
    QByteArray output;
    app.start(QStringLiteral(BRIVON_INSTALLED_BIN), {});
    QVERIFY(app.waitForStarted(10000));
    const QByteArray loaded = "\"" BRIVON_INSTALLED_PLUGINS "/libBrivonQXBleDLL.so\" loaded library";
    const bool found = waitUntil([&] {
        output += app.readAll();
        return output.contains(loaded);
    }, 15000);
    app.kill();
    app.waitForFinished(5000);
    QVERIFY2(found, output.right(3000).constData());
    QVERIFY2(!output.contains("[BleBluezPlugin::loadProfiles]"), output.right(3000).constData());
}

QTEST_GUILESS_MAIN(TestPluginServerE2E)
#include "tst_pluginserver_e2e.moc"
