#include "devicemgr.h"
#include "pluginmsgmanager.h"
#include "processutil.h"
#include "testhome.h"
#include "websocketserver.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>
#include <QWebSocket>

#include <memory>

namespace {

DevData light(const QString &addr, int protocol, bool on, const QString &name = QStringLiteral("Panel"))
{
    DevData dev;
    dev.addr = addr;
    dev.name = name;
    dev.protocol = protocol;
    dev.switchState = on;
    dev.brightness = 40;
    dev.temperature = 5600;
    dev.colorLightEnable = protocol == 2;
    dev.lightEffectEnable = true;
    return dev;
}

QJsonObject parse(const QString &text)
{
    return QJsonDocument::fromJson(text.toUtf8()).object();
}

QJsonArray lightsIn(const QJsonObject &message)
{
    return message.value(QLatin1String("param")).toObject().value(QLatin1String("light")).toArray();
}

// A client of the server whose messages land in `received`.
std::unique_ptr<QWebSocket> openClient(quint16 port, QStringList *received)
{
    auto client = std::make_unique<QWebSocket>();
    QObject::connect(client.get(), &QWebSocket::textMessageReceived, [received](const QString &text) { *received << text; });
    client->open(QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(port)));
    waitUntil([&] { return client->state() == QAbstractSocket::ConnectedState; }, 5000);
    return client;
}

} // namespace

// The protocol as a plug-in client sees it, over a real WebSocket connection.
class TestPluginMsgManager : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void listDeviceReply();
    void switchNoticesForLightThenItsGroups();
    void refusalsAreAnsweredToTheSender_data();
    void refusalsAreAnsweredToTheSender();

private:
    QJsonObject nextMessage();

    TestHome m_home;
    std::unique_ptr<PluginMsgManager> m_manager;
    std::unique_ptr<QWebSocket> m_client;
    QStringList m_received;
    DeviceMgr *m_deviceMgr = nullptr;
};

void TestPluginMsgManager::initTestCase()
{
    qputenv("BRIVON_BLE_PLUGIN", QByteArray(BRIVON_BIN_DIR "/no-such-plugin.so"));
    m_manager = std::make_unique<PluginMsgManager>();
    m_deviceMgr = DeviceMgrSingleton::instance();
    // A known table, whatever data/effect.json beside the suite holds.
    m_deviceMgr->effectData().load(R"({"2": [{"cmd": "4", "name": {"en_US": "Paparazzi"}},
                                             {"cmd": "5", "name": {"en_US": "TV Screen"}}],
                                       "1001": [{"cmd": "A-1", "name": {"en_US": "Police Car"}}]})",
                                   QStringLiteral("en_US"));
}

// An empty store and a fresh client, the latest one.
void TestPluginMsgManager::init()
{
    const auto groups = m_deviceMgr->getGroups().keys();
    for (const QString &uuid : groups)
        m_deviceMgr->delGroup(uuid);
    const auto devices = m_deviceMgr->getDevices().keys();
    for (const QString &addr : devices)
        m_deviceMgr->delDev(defaultGroupUuid(), addr);
    m_client.reset();
    m_received.clear();
    m_client = openClient(m_manager->server()->port(), &m_received);
    QCOMPARE(m_client->state(), QAbstractSocket::ConnectedState);
}

QJsonObject TestPluginMsgManager::nextMessage()
{
    if (!waitUntil([this] { return !m_received.isEmpty(); }, 3000))
        return {};
    return parse(m_received.takeFirst());
}

void TestPluginMsgManager::listDeviceReply()
{
    // Every change of the store's lights and groups is announced with the whole list.
    m_deviceMgr->addDev(light(QStringLiteral("AA:01"), 2, true, QStringLiteral("Key")));
    const QJsonObject notice = nextMessage();
    QCOMPARE(notice.value(QLatin1String("cmd")).toInt(), 30000);
    QCOMPARE(notice.value(QLatin1String("subCmd")).toString(), QStringLiteral("listdevice"));
    QCOMPARE(lightsIn(notice).size(), 1);
    m_deviceMgr->addDev(light(QStringLiteral("AA:02"), 1001, false, QStringLiteral("Fill")));
    DevData plain = light(QStringLiteral("AA:03"), 2, true);
    plain.lightEffectEnable = false;
    plain.enablePower = false;
    m_deviceMgr->addDev(plain);
    QTest::qWait(100);
    m_received.clear();
    const QString group = m_deviceMgr->addGroup(QStringLiteral("Set"));
    QCOMPARE(nextMessage().value(QLatin1String("subCmd")).toString(), QStringLiteral("listdevice"));
    m_deviceMgr->addDevToGroup(group, *m_deviceMgr->store()->findDev(QStringLiteral("AA:02")));
    // On, but its power is not switched by the group: the group still counts as off.
    m_deviceMgr->addDevToGroup(group, plain);
    QTest::qWait(100);
    m_received.clear();

    // Malformed requests are dropped without a word, and the same client is served on; an answer to
    // any of them would come before the list, or shift every notice below.
    const QStringList malformed{
        QStringLiteral("listdevice please"),
        QStringLiteral(R"({"cmd":"20000","subCmd":"listdevice"})"),
        QStringLiteral(R"({"cmd":20000,"subCmd":"listgroups"})"),
    };
    for (const QString &message : malformed)
        m_client->sendTextMessage(message);
    // Answered even without a "param".
    m_client->sendTextMessage(QStringLiteral(R"({"cmd":20000,"subCmd":"listdevice"})"));
    const QJsonObject reply = nextMessage();
    QCOMPARE(reply.value(QLatin1String("cmd")).toInt(), 20000);
    QCOMPARE(reply.value(QLatin1String("subCmd")).toString(), QStringLiteral("listdevice"));
    const QJsonObject param = reply.value(QLatin1String("param")).toObject();
    QCOMPARE(lightsIn(reply).size(), 3);
    QHash<QString, QJsonObject> byId;
    for (const QJsonValue &value : lightsIn(reply))
        byId.insert(value.toObject().value(QLatin1String("id")).toString(), value.toObject());
    // Each light lists exactly its own protocol's effects; none without the capability.
    const QJsonObject paparazzi{{"name", "Paparazzi"}, {"cmd", "4"}}, tv{{"name", "TV Screen"}, {"cmd", "5"}},
        police{{"name", "Police Car"}, {"cmd", "A-1"}};
    QCOMPARE(byId.value(QStringLiteral("AA:01")),
             (QJsonObject{{"type", 2}, {"name", "Key"}, {"id", "AA:01"}, {"switch", true}, {"brightness", 40},
                          {"temperature", QJsonObject{{"value", 5600}, {"max", 6500}, {"min", 2700}, {"ratio", 100}}},
                          {"isEnableColor", true}, {"isEnableEffect", true}, {"linked", false}, {"effects", QJsonArray{paparazzi, tv}}}));
    QCOMPARE(byId.value(QStringLiteral("AA:02")).value(QLatin1String("effects")).toArray(), QJsonArray{police});
    QCOMPARE(byId.value(QStringLiteral("AA:03")).value(QLatin1String("effects")).toArray(), QJsonArray());
    QCOMPARE(param.value(QLatin1String("effect")).toArray(), (QJsonArray{paparazzi, tv, police}));

    // A group carries its name, id and combined power; the rest is fixed.
    QCOMPARE(param.value(QLatin1String("group")).toArray(),
             QJsonArray{(QJsonObject{{"name", "Set"}, {"id", group}, {"type", 1001}, {"switch", false}, {"brightness", 0},
                                     {"temperature", QJsonObject{{"value", 0}, {"max", 100}, {"min", 0}, {"ratio", 1}}},
                                     {"isEnableColor", false}, {"isEnableEffect", false}})});

    m_deviceMgr->renameGroup(group, QStringLiteral("After"));
    QCOMPARE(nextMessage(), (QJsonObject{{"cmd", 30000}, {"subCmd", "rename"}, {"param", QJsonObject{{"id", group}, {"value", "After"}}}}));
}

void TestPluginMsgManager::switchNoticesForLightThenItsGroups()
{
    m_deviceMgr->addDev(light(QStringLiteral("CC:01"), 2, false));
    const QString withIt = m_deviceMgr->addGroup(QStringLiteral("With"));
    m_deviceMgr->addDevToGroup(withIt, *m_deviceMgr->store()->findDev(QStringLiteral("CC:01")));
    QTest::qWait(100);
    m_received.clear();

    m_deviceMgr->store()->updateDev(light(QStringLiteral("CC:01"), 2, true));
    QCOMPARE(nextMessage(), (QJsonObject{{"cmd", 30000}, {"subCmd", "switch"}, {"param", QJsonObject{{"id", "CC:01"}, {"value", true}}}}));
    QCOMPARE(nextMessage(), (QJsonObject{{"cmd", 30000}, {"subCmd", "switch"}, {"param", QJsonObject{{"id", withIt}, {"value", true}}}}));
    QCOMPARE(nextMessage(), (QJsonObject{{"cmd", 30000}, {"subCmd", "state"},
                                         {"param", m_manager->lightObject(*m_deviceMgr->store()->findDev(QStringLiteral("CC:01")))}}));

    // A burst of changes that leave the power alone: no "switch" notice, and "state" notices at
    // most every 100 ms, the last one with the latest state.
    for (int brightness = 1; brightness <= 10; ++brightness) {
        DevData dev = light(QStringLiteral("CC:01"), 2, true);
        dev.brightness = brightness;
        m_deviceMgr->store()->updateDev(dev);
    }
    QTest::qWait(400);
    QVERIFY(!m_received.isEmpty() && m_received.size() <= 2);
    QCOMPARE(m_received.filter(QLatin1String("\"subCmd\":\"state\"")).size(), m_received.size());
    QCOMPARE(parse(m_received.last()).value(QLatin1String("param")).toObject().value(QLatin1String("brightness")).toInt(), 10);
}

void TestPluginMsgManager::refusalsAreAnsweredToTheSender_data()
{
    QTest::addColumn<QString>("message"); // "@mixed" and "@empty" stand for those groups' ids
    QTest::addColumn<QString>("reason");  // empty: carried out, no reply
    // A control request; `param` is its JSON text, none when empty.
    const auto row = [](const char *name, const char *subCmd, const QString &param, const QString &reason) {
        const QString tail = param.isEmpty() ? QString() : QStringLiteral(",\"param\":") + param;
        QTest::newRow(name) << QStringLiteral(R"({"cmd":10000,"subCmd":"%1"%2})").arg(QLatin1String(subCmd), tail) << reason;
    };
    row("id not a string", "brightness", R"({"id":5,"value":3})", QStringLiteral("param must be an object with an id"));
    row("unknown command", "blink", R"({"id":"EE:01"})", "unknown command");
    row("unknown id", "switch", R"({"id":"nobody"})", "unknown id");
    row("no value", "brightness", R"({"id":"EE:01"})", "value is missing");
    for (const char *value : {R"("x")", R"("NaN")", R"("-Infinity")", "true", "null", "[50]", R"("")"})
        row(value, "brightness", QStringLiteral(R"({"id":"EE:01","value":%1})").arg(QLatin1String(value)), "value must be a number");
    row("not a colour", "color", R"({"id":"EE:01","value":"sky"})", "value must be a colour name such as #ff8800");
    row("colour on a white light", "color", R"({"id":"EE:03","value":"#ff0000"})", "colour not available on this light");
    row("other family's effect", "effect", R"({"id":"EE:01","value":"A-1"})", "effect not available on this light");
    row("light off", "brightness", R"({"id":"EE:03","value":5})", "light is switched off");
    row("not connected", "switch", R"({"id":"EE:04"})", "light is not connected");
    row("power not switchable", "switch", R"({"id":"EE:05"})", "power of this light cannot be switched");
    row("empty group", "brightness", R"({"id":"@empty","value":5})", "group has no lights");
    row("no light of the group takes it", "brightness", R"({"id":"@mixed","value":5})", "no light of this group can take this request");
    row("carried out: text number", "brightness", R"({"id":"EE:01","value":" 50.5 "})", {});
    row("carried out: effect as a number", "effect", R"({"id":"EE:01","value":5})", {});
    row("carried out: group, one light takes it", "switch", R"({"id":"@mixed"})", {});
}

void TestPluginMsgManager::refusalsAreAnsweredToTheSender()
{
    QFETCH(QString, message);
    QFETCH(QString, reason);
    auto add = [this](const QString &addr, int protocol, bool on, bool linked, bool powerSwitched = true) {
        DevData dev = light(addr, protocol, on);
        dev.linkState = linked ? 1 : 0;
        dev.enablePower = powerSwitched;
        m_deviceMgr->addDev(dev);
        m_deviceMgr->store()->updateDev(dev);
        return dev;
    };
    add(QStringLiteral("EE:01"), 2, true, true);
    const DevData off = add(QStringLiteral("EE:03"), 1, false, true);
    const DevData away = add(QStringLiteral("EE:04"), 1, true, false);
    add(QStringLiteral("EE:05"), 1, true, true, false);
    const QString mixed = m_deviceMgr->addGroup(QStringLiteral("Mixed"));
    m_deviceMgr->addDevToGroup(mixed, off);
    m_deviceMgr->addDevToGroup(mixed, away);
    const QString empty = m_deviceMgr->addGroup(QStringLiteral("Empty"));
    message.replace(QLatin1String("@mixed"), mixed).replace(QLatin1String("@empty"), empty);

    // A newer client gets the notices; the refusal goes to the one that asked.
    QStringList newerGot;
    const auto newer = openClient(m_manager->server()->port(), &newerGot);
    QVERIFY(waitUntil([&] { return m_manager->server()->clientCount() == 2; }, 5000));
    m_received.clear();

    m_client->sendTextMessage(message);
    QTest::qWait(200);
    QVERIFY2(!newerGot.join(QString()).contains(QLatin1String("\"error\"")), qPrintable(newerGot.join('\n')));
    const QStringList errors = m_received.filter(QLatin1String("\"subCmd\":\"error\""));
    QCOMPARE(errors.size(), reason.isEmpty() ? 0 : 1);
    if (reason.isEmpty())
        return;
    const QJsonObject sent = parse(message);
    const QJsonValue sentId = sent.value(QLatin1String("param")).toObject().value(QLatin1String("id"));
    QCOMPARE(parse(errors.first()), (QJsonObject{{"cmd", 10000}, {"subCmd", "error"},
                                                 {"param", QJsonObject{{"id", sentId.isString() ? sentId.toString() : QString()},
                                                                       {"subCmd", sent.value(QLatin1String("subCmd"))}, {"reason", reason}}}}));
}

QTEST_GUILESS_MAIN(TestPluginMsgManager)
#include "tst_pluginmsgmanager.moc"
