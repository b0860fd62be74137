#include "devicemgr.h"
#include "pluginmsgmanager.h"
#include "processutil.h"
#include "testhome.h"
#include "websocketserver.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
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

QString envelope(int cmd, const QString &subCmd, const QJsonValue &param = QJsonValue::Undefined)
{
    QJsonObject object{{QStringLiteral("cmd"), cmd}, {QStringLiteral("subCmd"), subCmd}};
    if (!param.isUndefined())
        object.insert(QStringLiteral("param"), param);
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

} // namespace

// The protocol as a plug-in client sees it, over a real WebSocket connection.
class TestPluginMsgManager : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();

    void listDeviceReply();
    void noticesFollowTheStore();
    void switchNoticesForLightThenItsGroups();
    void refusalsAreAnsweredToTheSender_data();
    void refusalsAreAnsweredToTheSender();
    void malformedRequestsAreDroppedSilently_data();
    void malformedRequestsAreDroppedSilently();

private:
    QJsonObject nextMessage();
    void clearStore();

    std::unique_ptr<TestHome> m_home;
    std::unique_ptr<PluginMsgManager> m_manager;
    std::unique_ptr<QWebSocket> m_client;
    QStringList m_received;
    DeviceMgr *m_deviceMgr = nullptr;
};

void TestPluginMsgManager::initTestCase()
{
    m_home = std::make_unique<TestHome>();
    qputenv("BRIVON_BLE_PLUGIN", QByteArray(BRIVON_BIN_DIR "/no-such-plugin.so"));
    m_manager = std::make_unique<PluginMsgManager>();
    m_deviceMgr = DeviceMgrSingleton::instance();
    // A known table, whatever data/effect.json beside the suite holds.
    m_deviceMgr->effectData().load(R"({"2": [{"cmd": "4", "name": {"en_US": "Paparazzi"}},
                                             {"cmd": "5", "name": {"en_US": "TV Screen"}}],
                                       "1001": [{"cmd": "A-1", "name": {"en_US": "Police Car"}}]})",
                                   QStringLiteral("en_US"));
}

void TestPluginMsgManager::cleanupTestCase()
{
    m_manager.reset();
}

void TestPluginMsgManager::init()
{
    clearStore();
    m_received.clear();
    m_client = std::make_unique<QWebSocket>();
    connect(m_client.get(), &QWebSocket::textMessageReceived, this, [this](const QString &text) { m_received << text; });
    m_client->open(QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(m_manager->server()->port())));
    QVERIFY(waitUntil([this] { return m_client->state() == QAbstractSocket::ConnectedState
                                      && m_manager->server()->clientCount() >= 1; }, 5000));
}

void TestPluginMsgManager::cleanup()
{
    m_client.reset();
}

void TestPluginMsgManager::clearStore()
{
    const auto groups = m_deviceMgr->getGroups().keys();
    for (const QString &uuid : groups)
        m_deviceMgr->delGroup(uuid);
    const auto devices = m_deviceMgr->getDevices().keys();
    for (const QString &addr : devices)
        m_deviceMgr->delDev(defaultGroupUuid(), addr);
}

QJsonObject TestPluginMsgManager::nextMessage()
{
    if (!waitUntil([this] { return !m_received.isEmpty(); }, 3000))
        return {};
    return parse(m_received.takeFirst());
}

void TestPluginMsgManager::listDeviceReply()
{
    m_deviceMgr->addDev(light(QStringLiteral("AA:01"), 2, true, QStringLiteral("Key")));
    m_deviceMgr->addDev(light(QStringLiteral("AA:02"), 1001, false, QStringLiteral("Fill")));
    DevData plain = light(QStringLiteral("AA:03"), 2, true);
    plain.lightEffectEnable = false;
    plain.enablePower = false;
    m_deviceMgr->addDev(plain);
    const QString group = m_deviceMgr->addGroup(QStringLiteral("Set"));
    m_deviceMgr->addDevToGroup(group, *m_deviceMgr->store()->findDev(QStringLiteral("AA:02")));
    // On, but its power is not switched by the group: the group still counts as off.
    m_deviceMgr->addDevToGroup(group, plain);
    QTest::qWait(100);
    m_received.clear();

    // Answered even without a "param".
    m_client->sendTextMessage(envelope(20000, QStringLiteral("listdevice")));
    const QJsonObject reply = nextMessage();
    QCOMPARE(reply.value(QLatin1String("cmd")).toInt(), 20000);
    QCOMPARE(reply.value(QLatin1String("subCmd")).toString(), QStringLiteral("listdevice"));
    const QJsonObject param = reply.value(QLatin1String("param")).toObject();

    const QJsonArray lights = param.value(QLatin1String("light")).toArray();
    QCOMPARE(lights.size(), 3);
    QHash<QString, QJsonObject> byId;
    for (const QJsonValue &value : lights)
        byId.insert(value.toObject().value(QLatin1String("id")).toString(), value.toObject());
    const QJsonObject key = byId.value(QStringLiteral("AA:01"));
    QCOMPARE(key.value(QLatin1String("type")).toInt(), 2);
    QCOMPARE(key.value(QLatin1String("name")).toString(), QStringLiteral("Key"));
    QCOMPARE(key.value(QLatin1String("switch")).toBool(), true);
    QCOMPARE(key.value(QLatin1String("brightness")).toInt(), 40);
    QCOMPARE(key.value(QLatin1String("temperature")).toObject(),
             (QJsonObject{{"value", 5600}, {"max", 6500}, {"min", 2700}, {"ratio", 100}}));
    QCOMPARE(key.value(QLatin1String("isEnableColor")).toBool(), true);
    QCOMPARE(key.value(QLatin1String("isEnableEffect")).toBool(), true);
    QCOMPARE(key.value(QLatin1String("linked")).toBool(), false);
    // Each light lists exactly its own protocol's effects; none without the capability.
    const QJsonObject paparazzi{{"name", "Paparazzi"}, {"cmd", "4"}}, tv{{"name", "TV Screen"}, {"cmd", "5"}},
        police{{"name", "Police Car"}, {"cmd", "A-1"}};
    QCOMPARE(key.value(QLatin1String("effects")).toArray(), (QJsonArray{paparazzi, tv}));
    QCOMPARE(byId.value(QStringLiteral("AA:02")).value(QLatin1String("effects")).toArray(), QJsonArray{police});
    QCOMPARE(byId.value(QStringLiteral("AA:03")).value(QLatin1String("effects")).toArray(), QJsonArray());
    QCOMPARE(param.value(QLatin1String("effect")).toArray(), (QJsonArray{paparazzi, tv, police}));

    // A group carries its name, id and combined power; the rest is fixed.
    const QJsonArray groups = param.value(QLatin1String("group")).toArray();
    QCOMPARE(groups.size(), 1);
    QCOMPARE(groups.at(0).toObject(), (QJsonObject{{"name", "Set"}, {"id", group}, {"type", 1001}, {"switch", false},
                                                   {"brightness", 0},
                                                   {"temperature", QJsonObject{{"value", 0}, {"max", 100}, {"min", 0}, {"ratio", 1}}},
                                                   {"isEnableColor", false}, {"isEnableEffect", false}}));
}

void TestPluginMsgManager::noticesFollowTheStore()
{
    m_deviceMgr->addDev(light(QStringLiteral("BB:01"), 7, false));
    QJsonObject notice = nextMessage();
    QCOMPARE(notice.value(QLatin1String("cmd")).toInt(), 30000);
    QCOMPARE(notice.value(QLatin1String("subCmd")).toString(), QStringLiteral("listdevice"));
    QCOMPARE(notice.value(QLatin1String("param")).toObject().value(QLatin1String("light")).toArray().size(), 1);

    const QString group = m_deviceMgr->addGroup(QStringLiteral("Before"));
    QCOMPARE(nextMessage().value(QLatin1String("subCmd")).toString(), QStringLiteral("listdevice"));
    m_deviceMgr->renameGroup(group, QStringLiteral("After"));
    notice = nextMessage();
    QCOMPARE(notice.value(QLatin1String("subCmd")).toString(), QStringLiteral("rename"));
    QCOMPARE(notice.value(QLatin1String("param")).toObject(), (QJsonObject{{"id", group}, {"value", "After"}}));

    m_deviceMgr->delGroup(group);
    QCOMPARE(nextMessage().value(QLatin1String("subCmd")).toString(), QStringLiteral("listdevice"));
    m_deviceMgr->delDev(defaultGroupUuid(), QStringLiteral("BB:01"));
    notice = nextMessage();
    QCOMPARE(notice.value(QLatin1String("param")).toObject().value(QLatin1String("light")).toArray().size(), 0);
}

void TestPluginMsgManager::switchNoticesForLightThenItsGroups()
{
    m_deviceMgr->addDev(light(QStringLiteral("CC:01"), 2, false));
    m_deviceMgr->addDev(light(QStringLiteral("CC:02"), 2, false));
    const QString withIt = m_deviceMgr->addGroup(QStringLiteral("With"));
    const QString without = m_deviceMgr->addGroup(QStringLiteral("Without"));
    m_deviceMgr->addDevToGroup(withIt, *m_deviceMgr->store()->findDev(QStringLiteral("CC:01")));
    m_deviceMgr->addDevToGroup(without, *m_deviceMgr->store()->findDev(QStringLiteral("CC:02")));
    QTest::qWait(100);
    m_received.clear();

    m_deviceMgr->store()->updateDev(light(QStringLiteral("CC:01"), 2, true));
    QJsonObject notice = nextMessage();
    QCOMPARE(notice.value(QLatin1String("subCmd")).toString(), QStringLiteral("switch"));
    QCOMPARE(notice.value(QLatin1String("param")).toObject(), (QJsonObject{{"id", "CC:01"}, {"value", true}}));
    notice = nextMessage();
    QCOMPARE(notice.value(QLatin1String("param")).toObject(), (QJsonObject{{"id", withIt}, {"value", true}}));
    notice = nextMessage();
    QCOMPARE(notice.value(QLatin1String("subCmd")).toString(), QStringLiteral("state"));
    QCOMPARE(notice.value(QLatin1String("param")).toObject(),
             m_manager->lightObject(*m_deviceMgr->store()->findDev(QStringLiteral("CC:01"))));

    // A burst of changes that leave the power alone: no "switch" notice, and "state" notices at
    // most every 100 ms, the last one with the latest state.
    for (int brightness = 1; brightness <= 10; ++brightness) {
        DevData dev = light(QStringLiteral("CC:01"), 2, true);
        dev.brightness = brightness;
        m_deviceMgr->store()->updateDev(dev);
    }
    QTest::qWait(400);
    QVERIFY(!m_received.isEmpty() && m_received.size() <= 2);
    for (const QString &text : qAsConst(m_received))
        QCOMPARE(parse(text).value(QLatin1String("subCmd")).toString(), QStringLiteral("state"));
    QCOMPARE(parse(m_received.last()).value(QLatin1String("param")).toObject().value(QLatin1String("brightness")).toInt(), 10);
}

void TestPluginMsgManager::refusalsAreAnsweredToTheSender_data()
{
    QTest::addColumn<QString>("message"); // "@mixed" and "@empty" stand for those groups' ids
    QTest::addColumn<QString>("reason");  // empty: carried out, no reply
    const QString idReason = QStringLiteral("param must be an object with an id");
    QTest::newRow("no param") << R"({"cmd":10000,"subCmd":"switch"})" << idReason;
    QTest::newRow("param not an object") << R"({"cmd":10000,"subCmd":"switch","param":"EE:01"})" << idReason;
    QTest::newRow("id not a string") << R"({"cmd":10000,"subCmd":"brightness","param":{"id":5,"value":3}})" << idReason;
    QTest::newRow("unknown command") << R"({"cmd":10000,"subCmd":"blink","param":{"id":"EE:01"}})" << "unknown command";
    QTest::newRow("unknown id") << R"({"cmd":10000,"subCmd":"switch","param":{"id":"nobody"}})" << "unknown id";
    QTest::newRow("no value") << R"({"cmd":10000,"subCmd":"brightness","param":{"id":"EE:01"}})" << "value is missing";
    for (const char *value : {R"("x")", R"("NaN")", R"("-Infinity")", "true", "null", "[50]", R"("")"})
        QTest::addRow("brightness %s", value) << QStringLiteral(R"({"cmd":10000,"subCmd":"brightness","param":{"id":"EE:01","value":%1}})").arg(value)
                                              << "value must be a number";
    QTest::newRow("temperature inf") << R"({"cmd":10000,"subCmd":"temperature","param":{"id":"EE:01","value":"inf"}})"
                                     << "value must be a number";
    QTest::newRow("not a colour") << R"({"cmd":10000,"subCmd":"color","param":{"id":"EE:01","value":"sky"}})"
                                  << "value must be a colour name such as #ff8800";
    QTest::newRow("colour on a white light") << R"({"cmd":10000,"subCmd":"color","param":{"id":"EE:03","value":"#ff0000"}})"
                                             << "colour not available on this light";
    QTest::newRow("other family's effect") << R"({"cmd":10000,"subCmd":"effect","param":{"id":"EE:01","value":"A-1"}})"
                                           << "effect not available on this light";
    QTest::newRow("effect without capability") << R"({"cmd":10000,"subCmd":"effect","param":{"id":"EE:02","value":"A-1"}})"
                                               << "effect not available on this light";
    QTest::newRow("light off") << R"({"cmd":10000,"subCmd":"brightness","param":{"id":"EE:03","value":5}})"
                               << "light is switched off";
    QTest::newRow("not connected") << R"({"cmd":10000,"subCmd":"switch","param":{"id":"EE:04"}})" << "light is not connected";
    QTest::newRow("power not switchable") << R"({"cmd":10000,"subCmd":"switch","param":{"id":"EE:05"}})"
                                          << "power of this light cannot be switched";
    QTest::newRow("empty group") << R"({"cmd":10000,"subCmd":"brightness","param":{"id":"@empty","value":5}})"
                                 << "group has no lights";
    QTest::newRow("no light of the group takes it") << R"({"cmd":10000,"subCmd":"brightness","param":{"id":"@mixed","value":5}})"
                                                    << "no light of this group can take this request";
    QTest::newRow("carried out: text number") << R"({"cmd":10000,"subCmd":"brightness","param":{"id":"EE:01","value":" 50.5 "}})" << "";
    QTest::newRow("carried out: effect as a number") << R"({"cmd":10000,"subCmd":"effect","param":{"id":"EE:01","value":5}})" << "";
    QTest::newRow("carried out: group, one light takes it") << R"({"cmd":10000,"subCmd":"switch","param":{"id":"@mixed"}})" << "";
}

void TestPluginMsgManager::refusalsAreAnsweredToTheSender()
{
    QFETCH(QString, message);
    QFETCH(QString, reason);
    auto add = [this](const QString &addr, int protocol, bool on, bool linked) {
        DevData dev = light(addr, protocol, on);
        dev.linkState = linked ? 1 : 0;
        m_deviceMgr->addDev(dev);
        m_deviceMgr->store()->updateDev(dev);
        return dev;
    };
    add(QStringLiteral("EE:01"), 2, true, true);
    DevData noEffects = light(QStringLiteral("EE:02"), 1001, true);
    noEffects.lightEffectEnable = false;
    noEffects.linkState = 1;
    m_deviceMgr->addDev(noEffects);
    m_deviceMgr->store()->updateDev(noEffects);
    const DevData off = add(QStringLiteral("EE:03"), 1, false, true);
    const DevData away = add(QStringLiteral("EE:04"), 1, true, false);
    DevData fixed = light(QStringLiteral("EE:05"), 1, true);
    fixed.enablePower = false;
    fixed.linkState = 1;
    m_deviceMgr->addDev(fixed);
    m_deviceMgr->store()->updateDev(fixed);
    const QString mixed = m_deviceMgr->addGroup(QStringLiteral("Mixed"));
    m_deviceMgr->addDevToGroup(mixed, off);
    m_deviceMgr->addDevToGroup(mixed, away);
    const QString empty = m_deviceMgr->addGroup(QStringLiteral("Empty"));
    message.replace(QLatin1String("@mixed"), mixed).replace(QLatin1String("@empty"), empty);

    // A newer client gets the notices; the refusal goes to the one that asked.
    QWebSocket newer;
    newer.open(QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(m_manager->server()->port())));
    QVERIFY(waitUntil([&] { return m_manager->server()->clientCount() == 2; }, 5000));
    QStringList newerGot;
    connect(&newer, &QWebSocket::textMessageReceived, this, [&](const QString &text) { newerGot << text; });
    m_received.clear();

    m_client->sendTextMessage(message);
    QTest::qWait(200);
    QVERIFY2(!newerGot.join(QString()).contains(QLatin1String("\"error\"")), qPrintable(newerGot.join('\n')));
    QList<QJsonObject> errors;
    for (const QString &text : qAsConst(m_received)) {
        if (parse(text).value(QLatin1String("subCmd")).toString() == QLatin1String("error"))
            errors << parse(text);
    }
    QCOMPARE(errors.size(), reason.isEmpty() ? 0 : 1);
    if (reason.isEmpty())
        return;
    const QJsonObject reply = errors.first();
    QCOMPARE(reply.value(QLatin1String("cmd")).toInt(), 10000);
    const QJsonObject sent = parse(message);
    const QJsonValue sentId = sent.value(QLatin1String("param")).toObject().value(QLatin1String("id"));
    QCOMPARE(reply.value(QLatin1String("param")).toObject(),
             (QJsonObject{{"id", sentId.isString() ? sentId.toString() : QString()},
                          {"subCmd", sent.value(QLatin1String("subCmd")).toString()},
                          {"reason", reason}}));
}

void TestPluginMsgManager::malformedRequestsAreDroppedSilently_data()
{
    QTest::addColumn<QString>("message");
    QTest::newRow("not json") << "listdevice please";
    QTest::newRow("array") << R"([{"cmd":20000,"subCmd":"listdevice"}])";
    QTest::newRow("cmd as string") << R"({"cmd":"20000","subCmd":"listdevice"})";
    QTest::newRow("unknown query") << R"({"cmd":20000,"subCmd":"listgroups"})";
    QTest::newRow("unknown class") << R"({"cmd":40000,"subCmd":"listdevice"})";
    QTest::newRow("null members") << R"({"cmd":null,"subCmd":null,"param":null})";
    QTest::newRow("deep nesting") << QStringLiteral("{\"cmd\":10000,\"subCmd\":\"switch\",\"param\":") + QString(3000, '[')
                                         + QString(3000, ']') + QStringLiteral("}");
    QTest::newRow("big message") << QStringLiteral("{\"cmd\":20000,\"subCmd\":\"") + QString(600 * 1024, 'x') + QStringLiteral("\"}");
}

void TestPluginMsgManager::malformedRequestsAreDroppedSilently()
{
    QFETCH(QString, message);
    m_deviceMgr->addDev(light(QStringLiteral("DD:01"), 2, true));
    QVERIFY(!nextMessage().isEmpty());

    m_client->sendTextMessage(message);
    QTest::qWait(150);
    QVERIFY(m_received.isEmpty());

    // The server keeps serving the same client.
    m_client->sendTextMessage(envelope(20000, QStringLiteral("listdevice"), QJsonObject{}));
    QCOMPARE(nextMessage().value(QLatin1String("cmd")).toInt(), 20000);
}

QTEST_GUILESS_MAIN(TestPluginMsgManager)
#include "tst_pluginmsgmanager.moc"
