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
    const QString group = m_deviceMgr->addGroup(QStringLiteral("Set"));
    m_deviceMgr->addDevToGroup(group, *m_deviceMgr->store()->findDev(QStringLiteral("AA:02")));
    QTest::qWait(100);
    m_received.clear();

    // Answered even without a "param".
    m_client->sendTextMessage(envelope(20000, QStringLiteral("listdevice")));
    const QJsonObject reply = nextMessage();
    QCOMPARE(reply.value(QLatin1String("cmd")).toInt(), 20000);
    QCOMPARE(reply.value(QLatin1String("subCmd")).toString(), QStringLiteral("listdevice"));
    const QJsonObject param = reply.value(QLatin1String("param")).toObject();

    const QJsonArray lights = param.value(QLatin1String("light")).toArray();
    QCOMPARE(lights.size(), 2);
    QJsonObject key;
    for (const QJsonValue &value : lights) {
        if (value.toObject().value(QLatin1String("id")).toString() == QLatin1String("AA:01"))
            key = value.toObject();
    }
    QCOMPARE(key, (QJsonObject{{"id", "AA:01"}, {"type", 2}, {"name", "Key"}, {"switch", true}, {"brightness", 40},
                               {"temperature", QJsonObject{{"value", 5600}, {"max", 6500}, {"min", 2700}, {"ratio", 100}}},
                               {"isEnableColor", true}, {"isEnableEffect", true}}));

    // A group carries its name, id and combined power; the rest is fixed.
    const QJsonArray groups = param.value(QLatin1String("group")).toArray();
    QCOMPARE(groups.size(), 1);
    QCOMPARE(groups.at(0).toObject(), (QJsonObject{{"name", "Set"}, {"id", group}, {"type", 1001}, {"switch", false},
                                                   {"brightness", 0},
                                                   {"temperature", QJsonObject{{"value", 0}, {"max", 100}, {"min", 0}, {"ratio", 1}}},
                                                   {"isEnableColor", false}, {"isEnableEffect", false}}));
    QVERIFY(!param.value(QLatin1String("effect")).toArray().isEmpty() || !QFile::exists(EffectData::filePath()));
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

void TestPluginMsgManager::malformedRequestsAreDroppedSilently_data()
{
    QTest::addColumn<QString>("message");
    QTest::newRow("not json") << "listdevice please";
    QTest::newRow("array") << R"([{"cmd":20000,"subCmd":"listdevice"}])";
    QTest::newRow("cmd as string") << R"({"cmd":"20000","subCmd":"listdevice"})";
    QTest::newRow("unknown query") << R"({"cmd":20000,"subCmd":"listgroups"})";
    QTest::newRow("unknown class") << R"({"cmd":40000,"subCmd":"listdevice"})";
    QTest::newRow("control without param") << R"({"cmd":10000,"subCmd":"switch"})";
    QTest::newRow("control param not an object") << R"({"cmd":10000,"subCmd":"switch","param":"DD:01"})";
    QTest::newRow("control id not a string") << R"({"cmd":10000,"subCmd":"brightness","param":{"id":5,"value":3}})";
    QTest::newRow("value of the wrong type") << R"({"cmd":10000,"subCmd":"brightness","param":{"id":"DD:01","value":"x"}})";
    QTest::newRow("unknown id") << R"({"cmd":10000,"subCmd":"switch","param":{"id":"nobody"}})";
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
