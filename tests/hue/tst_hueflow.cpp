// The Hue client and manager against tools/fakehuebridge running as a real server on loopback:
// discovery, pairing, listing, refresh, light requests and what happens when the bridge misbehaves.
#include "devdatamgr.h"
#include "fakebridgeprocess.h"
#include "huebridge.h"
#include "huedevicemgr.h"
#include "logcapture.h"
#include "processutil.h"
#include "testhome.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QSettings>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <memory>

namespace {

const QString kBridgeId = QStringLiteral("ecb5fafffe1a2b3c");
const QString kAppKey = QStringLiteral("test-application-key-0123456789");
const QString kColorLight = QStringLiteral("3f4ac1e2-6b0d-4f57-9a3e-1c2d3e4f5a01");
const QString kAmbianceLight = QStringLiteral("7b2e9d40-1c5a-4e83-b6f2-2d3e4f5a6b02");
const QString kDimmableLight = QStringLiteral("c91d0f6a-8e2b-47d1-a5c3-3e4f5a6b7c03");
const QString kLightPath = QStringLiteral("/clip/v2/resource/light");

QSettings hueSettings()
{
    return QSettings(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("brivon"),
                     QStringLiteral("com.brivon.beamcrafter.philipshue"));
}

void setDiscoveryStamp(const QDateTime &when)
{
    hueSettings().setValue(QStringLiteral("discover/datatime"), when);
}

DevData storedLight(const QString &addr)
{
    DevData dev;
    dev.addr = addr;
    dev.name = QStringLiteral("stored");
    dev.protocol = 2001;
    dev.brightness = 1;
    return dev;
}

} // namespace

class TestHueFlow : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_home = std::make_unique<TestHome>();
        QVERIFY(FakeBridgeProcess::makeCertificate(m_home->path()));
        m_log = std::make_unique<LogCapture>(true);
    }

    void init()
    {
        hueSettings().clear();
        m_log->clear();
        // A fresh loopback address per case, so no case meets a socket left over from another.
        m_address = QStringLiteral("127.0.0.%1").arg(m_nextHost++);
        qputenv("BRIVON_HUE_DISCOVERY_URL", QStringLiteral("https://%1/discovery").arg(m_address).toUtf8());
    }

    void cleanup() { m_fake.kill(); }

    void discoveryIsLimitedAndSkipsPairedBridges();

    void wholeFlowFromDiscoveryToRefresh();

    void refreshWritesTheStore()
    {
        QVERIFY(startFake());
        seedPairedBridge();
        auto store = std::make_shared<DevDataMgr>();
        for (const QString &light : {kColorLight, kDimmableLight})
            store->addDev(storedLight(address(light)));
        DevData ble = storedLight(QStringLiteral("AA:BB:CC:DD:EE:FF"));
        ble.protocol = 1;
        store->addDev(ble);
        HueDeviceMgr mgr(store);
        QSignalSpy updates(store.get(), &DevDataMgr::onUpdateDev);

        mgr.refreshDevices();
        QVERIFY(waitUntil([&]() { return updates.size() == 2; }, 15000));
        const DevData *color = store->findDev(address(kColorLight));
        QCOMPARE((QList<int>{color->temperature, color->brightness, color->switchState, color->linkState,
                             color->temperatureMin, color->temperatureMax}),
                 (QList<int>{2700, 79, true, 1, 2000, 6500}));
        QCOMPARE(color->name, QStringLiteral("stored"));
        const DevData *dimmable = store->findDev(address(kDimmableLight));
        QCOMPARE((QList<int>{dimmable->temperature, dimmable->brightness, dimmable->temperatureMin, dimmable->temperatureMax}),
                 (QList<int>{0, 100, 0, 0}));
        QCOMPARE(store->findDev(QStringLiteral("AA:BB:CC:DD:EE:FF"))->brightness, 1);
    }

    void pairingWithoutClientKeyOnASinglePort()
    {
        // Plain HTTP for pairing and HTTPS for the lights, both through "address:port", as the demo
        // runs it: the link button goes down on its own a second after the first refused request.
        QVERIFY(m_fake.start(m_home->path(), {QStringLiteral("--address"), m_address, QStringLiteral("--bridge-id"), kBridgeId,
                                              QStringLiteral("--port"), QStringLiteral("8443"),
                                              QStringLiteral("--link-button-after"), QStringLiteral("1")}));
        const QString ip = m_address + QStringLiteral(":8443");
        HueBridge bridge;
        QSignalSpy found(&bridge, &HueBridge::discover);
        QSignalSpy lights(&bridge, &HueBridge::discoverLight);
        qputenv("BRIVON_HUE_DISCOVERY_URL", QStringLiteral("https://%1/discovery").arg(ip).toUtf8());
        bridge.discoverBridges();
        QVERIFY(waitUntil([&]() { return found.size() == 1; }, 15000));
        const Bridge target = found.first().first().value<QList<Bridge>>().first();
        QCOMPARE(target.ip, ip);
        QSignalSpy paired(&bridge, &HueBridge::registerResult);
        bridge.pairBridge(target);
        QVERIFY(m_fake.waitForRequests(1, QStringLiteral("POST"), QStringLiteral("/api")));
        QTest::qWait(500);
        QCOMPARE(paired.size(), 0);
        // Retried as the dialog does, until the button is down.
        QTimer retry;
        retry.setInterval(400);
        connect(&retry, &QTimer::timeout, &bridge, [&]() { bridge.pairBridge(target); });
        connect(&bridge, &HueBridge::registerResult, &retry, &QTimer::stop);
        retry.start();
        QVERIFY(waitUntil([&]() { return lights.size() == 1; }, 15000));
        QCOMPARE(paired.size(), 1);
        QCOMPARE(lights.first().at(0).value<Bridge>().ip, ip);
        QCOMPARE(m_fake.requests(QStringLiteral("POST"), QStringLiteral("/api")).first().value("tls").toBool(), false);
        QCOMPARE(m_fake.requests(QStringLiteral("GET")).first().value("tls").toBool(), true);
    }

    void bridgeGoesAwayAndComesBack()
    {
        QVERIFY(startFake());
        seedPairedBridge();
        auto store = std::make_shared<DevDataMgr>();
        store->addDev(storedLight(address(kColorLight)));
        HueDeviceMgr mgr(store);
        mgr.refreshDevices();
        QVERIFY(waitUntil([&]() { return store->findDev(address(kColorLight))->linkState == 1; }, 15000));

        // Switched off without closing anything: the request times out and the card shows it.
        QVERIFY(m_fake.control(m_address, QStringLiteral("outage"), {{"on", true}}));
        mgr.setBrightness(address(kColorLight), 20);
        QVERIFY(waitUntil([&]() { return store->findDev(address(kColorLight))->linkState == 0; }, 30000));
        QVERIFY(networkErrorLogged());
        QVERIFY(!mgr.hueBridge()->isOnline(m_address, kBridgeId));

        QVERIFY(m_fake.control(m_address, QStringLiteral("outage"), {{"on", false}}));
        mgr.setBrightness(address(kColorLight), 30);
        QVERIFY(waitUntil([&]() { return store->findDev(address(kColorLight))->linkState == 1; }, 40000));
        const QString path = kLightPath + QLatin1Char('/') + kColorLight;
        QVERIFY(waitUntil([&]() {
            const QList<QJsonObject> puts = m_fake.requests(QStringLiteral("PUT"), path);
            return !puts.isEmpty() && puts.last().value("status").toInt() == 200
                && puts.last().value("body").toString().contains(QLatin1String("30"));
        }, 40000));
    }

    void realBridgeLampsAndAGroupDrag()
    {
        QVERIFY(startFake({QStringLiteral("--lights"), QStringLiteral(BRIVON_SOURCE_DIR "/tests/hue/data/hue-bridge-lights.json")}));
        seedPairedBridge();
        setDiscoveryStamp(QDateTime::currentDateTime());
        auto store = std::make_shared<DevDataMgr>();
        HueDeviceMgr mgr(store);
        QSignalSpy discovered(&mgr, &BaseDevice::sigDeviceDiscovered);
        mgr.startScan();
        QVERIFY(waitUntil([&]() { return discovered.size() == 8; }, 15000));
        int colourLamps = 0;
        for (const QList<QVariant> &arguments : qAsConst(discovered)) {
            DevData dev = arguments.first().value<DevData>();
            QVERIFY2(dev.temperatureMin > 0 && dev.temperature >= dev.temperatureMin && dev.temperature <= dev.temperatureMax,
                     qPrintable(dev.name));
            QVERIFY(!dev.lightEffectEnable);
            colourLamps += dev.colorLightEnable ? 1 : 0;
            dev.switchState = true;
            if (store->devices().size() < 5)
                store->addDev(dev);
        }
        QCOMPARE(colourLamps, 5); // lamps 1, 3, 4, 5, 8 have "color"
        QCOMPARE(store->findDev(address(QStringLiteral("f427202e-d8cd-cb0e-479f-72955a2d7cbe")))->temperature, 2700);

        // A slider on a group of five held for five seconds: every lamp every 100 ms.
        const int before = int(m_fake.requests().size());
        const QStringList lamps = store->devices().keys();
        int value = 0;
        for (int tick = 0; tick < 50; ++tick) {
            value = 10 + tick;
            for (const QString &lamp : lamps)
                mgr.setBrightness(lamp, value);
            QTest::qWait(100);
        }
        const int duringDrag = int(m_fake.requests().size()) - before;
        QVERIFY(waitUntil([&]() { return mgr.hueBridge()->queuedCommands(m_address, kBridgeId) == 0; }, 15000));
        QTest::qWait(1000);
        for (const QJsonObject &put : m_fake.requests(QStringLiteral("PUT")))
            QCOMPARE(put.value("status").toInt(), 200);
        QVERIFY(duringDrag <= 5 * 10 + 1);
        for (const QString &lamp : lamps) {
            const QString path = kLightPath + QLatin1Char('/') + lamp.section(QLatin1Char('/'), 2);
            const QList<QJsonObject> lampPuts = m_fake.requests(QStringLiteral("PUT"), path);
            QVERIFY(!lampPuts.isEmpty());
            QCOMPARE(QJsonDocument::fromJson(lampPuts.last().value("body").toString().toUtf8())
                         .object().value("dimming").toObject().value("brightness").toInt(), value);
            QCOMPARE(store->findDev(lamp)->brightness, value);
        }
    }

    void discoveryAsksMdnsFirst()
    {
        QVERIFY(startFake({QStringLiteral("--mdns"), QStringLiteral("127.0.0.1:0")}));
        qputenv("BRIVON_HUE_MDNS", m_fake.mdnsAddress().toUtf8());
        HueBridge bridge;
        QSignalSpy found(&bridge, &HueBridge::discover);
        bridge.discoverBridges();
        QVERIFY(waitUntil([&]() { return found.size() == 1; }, 15000));
        qputenv("BRIVON_HUE_MDNS", "127.0.0.1:9");
        const QList<Bridge> bridges = found.first().first().value<QList<Bridge>>();
        QCOMPARE(bridges.size(), 1);
        QCOMPARE(bridges.first().id, kBridgeId);
        QCOMPARE(bridges.first().ip, m_address);
        QCOMPARE(m_fake.requests(QStringLiteral("GET"), QStringLiteral("/discovery")).size(), 0);
    }

    void movedBridgeKeepsLampsAndGroups()
    {
        QVERIFY(startFake({QStringLiteral("--mdns"), QStringLiteral("127.0.0.1:0")}));
        qputenv("BRIVON_HUE_MDNS", m_fake.mdnsAddress().toUtf8());
        seedPairedBridge();
        auto store = std::make_shared<DevDataMgr>();
        for (const QString &light : {kColorLight, kAmbianceLight})
            store->addDev(storedLight(address(light)));
        const QString group = store->addGroup(QStringLiteral("Desk"));
        store->addDevToGroup(group, *store->findDev(address(kAmbianceLight)));
        store->addDevToGroup(group, *store->findDev(address(kColorLight)));
        HueDeviceMgr mgr(store);
        mgr.refreshDevices();
        QVERIFY(waitUntil([&]() { return store->findDev(address(kColorLight))->linkState == 1; }, 15000));

        const QString oldAddress = m_address;
        m_address = QStringLiteral("127.0.0.%1").arg(m_nextHost++);
        QVERIFY(m_fake.control(oldAddress, QStringLiteral("move"), {{"address", m_address}}));
        mgr.powerOn(oldAddress + QLatin1Char('/') + kBridgeId + QLatin1Char('/') + kColorLight);
        QVERIFY(waitUntil([&]() {
            const DevData *dev = store->findDev(address(kColorLight));
            return dev && dev->linkState == 1 && store->findDev(address(kAmbianceLight));
        }, 40000));
        qputenv("BRIVON_HUE_MDNS", "127.0.0.1:9");
        QCOMPARE(store->devices().size(), 2);
        QCOMPARE(store->groups().value(group).devs, QStringList({address(kAmbianceLight), address(kColorLight)}));
        QCOMPARE(store->findDev(address(kColorLight))->name, QStringLiteral("stored"));
        QVERIFY(hueSettings().contains(QStringLiteral("bridge/") + m_address + QLatin1Char('/') + kBridgeId));
        QVERIFY(!hueSettings().contains(QStringLiteral("bridge/") + oldAddress + QLatin1Char('/') + kBridgeId));
        // And so does the next run.
        DevDataMgr nextRun;
        nextRun.readConfig();
        QVERIFY(nextRun.findDev(address(kColorLight)));
    }

    void badLightReplies_data();

    void badLightReplies()
    {
        QFETCH(int, status);
        QFETCH(QString, body);
        QFETCH(bool, drop);
        QVERIFY(startFake());
        seedPairedBridge();
        QVERIFY(m_fake.control(m_address, QStringLiteral("reply"),
                               {{"method", "GET"}, {"path", kLightPath}, {"status", status}, {"contentType", "application/json"},
                                {"body", body}, {"drop", drop}, {"times", drop ? -1 : 1}}));
        HueBridge bridge;
        QSignalSpy lights(&bridge, &HueBridge::discoverLight);
        bridge.getAllLights();
        QVERIFY(m_fake.waitForRequests(1, QStringLiteral("GET"), kLightPath));
        if (status != 200 || drop)
            QVERIFY(waitUntil([this] { return networkErrorLogged(); }, 30000));

        // The real list comes next; only it is reported. (A dropped connection is retried by the
        // network stack, so that reply stays until the reset.)
        QVERIFY(m_fake.control(m_address, QStringLiteral("reset")));
        bridge.getAllLights();
        QVERIFY(waitUntil([&]() { return lights.size() >= 1; }, 15000));
        QCOMPARE(lights.size(), 1);
        QCOMPARE(lights.first().at(1).value<QList<Light>>().size(), 3);
    }

private:
    bool networkErrorLogged() const
    {
        for (const QString &line : m_log->matching(QStringLiteral("Network error:"))) {
            if (line.startsWith(QLatin1String("Network error:")))
                return true;
        }
        return false;
    }

    bool startFake(const QStringList &extra = {})
    {
        return m_fake.start(m_home->path(), QStringList{QStringLiteral("--address"), m_address, QStringLiteral("--bridge-id"),
                                                        kBridgeId, QStringLiteral("--user"), kAppKey} + extra);
    }

    // Marks the fake bridge as paired in the settings, with a key the fake accepts.
    void seedPairedBridge()
    {
        hueSettings().setValue(QStringLiteral("bridge/") + m_address + QLatin1Char('/') + kBridgeId,
                               kAppKey + QStringLiteral("/clientkey"));
    }

    QString address(const QString &light) const { return m_address + QLatin1Char('/') + kBridgeId + QLatin1Char('/') + light; }

    std::unique_ptr<TestHome> m_home;
    std::unique_ptr<LogCapture> m_log;
    FakeBridgeProcess m_fake;
    QString m_address;
    int m_nextHost = 160;
};

// Defined outside the class: moc cannot skip bodies that hold raw string literals.
void TestHueFlow::discoveryIsLimitedAndSkipsPairedBridges()
{
    QVERIFY(startFake());
    {
        HueBridge firstRun;
        QSignalSpy found(&firstRun, &HueBridge::discover);
        firstRun.discoverBridges();
        QVERIFY(waitUntil([&]() { return found.size() == 1; }, 15000));
        const Bridge bridge = found.first().first().value<QList<Bridge>>().value(0);
        QCOMPARE(bridge.ip + QLatin1Char('|') + bridge.id, m_address + QLatin1Char('|') + kBridgeId);
        // The service sends the port as a number; only text is taken.
        QVERIFY(bridge.port.isEmpty());
    }
    {
        // Within a minute, even in the next run, the service is not asked again.
        HueBridge secondRun;
        QSignalSpy found(&secondRun, &HueBridge::discover);
        secondRun.discoverBridges();
        QTest::qWait(200);
        QCOMPARE(found.size(), 0);
        QCOMPARE(m_fake.requests(QStringLiteral("GET"), QStringLiteral("/discovery")).size(), 1);
    }

    // A minute later it is; a bridge already paired is left out of the answer.
    hueSettings().setValue(QStringLiteral("bridge/10.0.0.9/paired1"), QStringLiteral("user/key"));
    QVERIFY(m_fake.control(m_address, QStringLiteral("reply"),
                           {{"method", "GET"}, {"path", "/discovery"}, {"status", 200}, {"contentType", "application/json"},
                            {"body", R"([{"id":"paired1","internalipaddress":"10.0.0.9"},{"id":"x"},5,{"id":"b3","internalipaddress":"10.0.0.3","port":"443"}])"}}));
    HueBridge thirdRun;
    QSignalSpy foundAgain(&thirdRun, &HueBridge::discover);
    const QDateTime rewound = QDateTime::currentDateTime().addSecs(-61);
    setDiscoveryStamp(rewound);
    thirdRun.discoverBridges();
    QVERIFY(waitUntil([&]() { return foundAgain.size() == 1; }, 15000));
    const QList<Bridge> bridges = foundAgain.first().first().value<QList<Bridge>>();
    QCOMPARE(bridges.size(), 1);
    QCOMPARE(bridges.first().id + bridges.first().port, QStringLiteral("b3443"));
    QVERIFY(hueSettings().value(QStringLiteral("discover/datatime")).toDateTime() > rewound.addSecs(30));
}

void TestHueFlow::wholeFlowFromDiscoveryToRefresh()
{
    QVERIFY(startFake());
    auto store = std::make_shared<DevDataMgr>();
    HueDeviceMgr mgr(store);
    HueBridge &bridge = *mgr.hueBridge();
    QSignalSpy found(&bridge, &HueBridge::discover);
    QSignalSpy registered(&bridge, &HueBridge::registerResult);
    QSignalSpy discovered(&mgr, &BaseDevice::sigDeviceDiscovered);

    // Discover: nothing is paired yet, so the scan only asks the discovery service.
    mgr.startScan();
    QVERIFY(waitUntil([&]() { return found.size() == 1; }, 15000));
    const Bridge target = found.first().first().value<QList<Bridge>>().first();

    // Pair: refused until the link button is pressed.
    bridge.pairBridge(target);
    QVERIFY(m_fake.waitForRequests(1, QStringLiteral("POST"), QStringLiteral("/api")));
    const QJsonObject request = m_fake.requests(QStringLiteral("POST"), QStringLiteral("/api")).first();
    QCOMPARE(QJsonDocument::fromJson(request.value("body").toString().toUtf8()).object(),
             (QJsonObject{{"devicetype", "appName#instanceName"}, {"generateclientkey", true}}));
    QCOMPARE(request.value("tls").toBool(), false);
    QVERIFY(m_fake.control(m_address, QStringLiteral("linkbutton")));
    bridge.pairBridge(target);

    // List: the pairing is followed by the bridge's lights, offered as new records.
    QVERIFY(waitUntil([&]() { return discovered.size() == 3; }, 15000));
    QCOMPARE(registered.first().first().toBool(), true);
    const QStringList stored = hueSettings().value(QStringLiteral("bridge/") + m_address + QLatin1Char('/') + kBridgeId)
                                   .toString().split(QLatin1Char('/'));
    QCOMPARE(stored.size(), 2);
    QCOMPARE(stored.at(0).size(), 40);
    QCOMPARE(stored.at(1).size(), 32);
    HueBridge nextRun;
    QCOMPARE(nextRun.pairedBridges().value({m_address, kBridgeId}).clientkey, stored.at(1));
    for (const QList<QVariant> &arguments : qAsConst(discovered)) {
        const DevData dev = arguments.first().value<DevData>();
        if (dev.addr == address(kAmbianceLight)) {
            QCOMPARE(dev.name, QStringLiteral("Hue ambiance lamp"));
            QCOMPARE((QList<int>{dev.protocol, dev.switchState, dev.brightness, dev.temperature, dev.temperatureMin,
                                 dev.temperatureMax, dev.linkState, dev.colorLightEnable, dev.lightEffectEnable}),
                     (QList<int>{2001, false, 50, 4200, 2200, 6500, 1, false, false}));
        }
        store->addDev(dev);
    }
    QCOMPARE(store->devices().size(), 3);
    DevData offline = *store->findDev(address(kAmbianceLight));
    offline.linkState = 0;
    store->updateDev(offline);

    // Every property: the bodies, the key and TLS as the bridge receives them.
    mgr.powerOn(address(kAmbianceLight));
    mgr.setBrightness(address(kColorLight), 42);
    mgr.setTemperature(address(kAmbianceLight), 4000);
    mgr.setColor(address(kColorLight), QColor(Qt::red));
    mgr.powerOff(address(kDimmableLight));
    QVERIFY(m_fake.waitForRequests(5, QStringLiteral("PUT"), QString()));
    QStringList bodies;
    for (const QJsonObject &put : m_fake.requests(QStringLiteral("PUT"))) {
        QCOMPARE(put.value("headers").toObject().value("hue-application-key").toString(), stored.at(0));
        QCOMPARE(put.value("headers").toObject().value("content-type").toString(), QStringLiteral("application/json"));
        QVERIFY(put.value("tls").toBool());
        bodies << put.value("path").toString().section(QLatin1Char('/'), -1).left(2) + QLatin1Char(' ')
                + QString::fromUtf8(QJsonDocument::fromJson(put.value("body").toString().toUtf8()).toJson(QJsonDocument::Compact));
    }
    bodies.sort();
    QVERIFY2(bodies.takeFirst().startsWith(R"(3f {"color":{"xy":{"x":0.700)"), qPrintable(bodies.join('\n')));
    QCOMPARE(bodies, (QStringList{R"(3f {"dimming":{"brightness":42}})", R"(7b {"color_temperature":{"mirek":250}})",
                                  R"(7b {"on":{"on":true}})", R"(c9 {"on":{"on":false}})"}));
    // The power answer names the light; the store follows it.
    QVERIFY(waitUntil([&]() {
        const DevData *ambiance = store->findDev(address(kAmbianceLight));
        return ambiance->switchState && ambiance->linkState == 1;
    }, 15000));
    // Only power answers switch: the colour light's brightness and colour answers leave it on.
    QTest::qWait(300);
    QVERIFY(store->findDev(address(kColorLight))->switchState);

    // Refresh: the store now holds what the bridge holds.
    mgr.refreshDevices();
    QVERIFY(waitUntil([&]() {
        return store->findDev(address(kColorLight))->brightness == 42
            && store->findDev(address(kAmbianceLight))->temperature == 4000
            && store->findDev(address(kColorLight))->devCurModel == 3
            && !store->findDev(address(kDimmableLight))->switchState;
    }, 15000));
    // Colour mode: no mirek from the bridge; the temperature nearest to red, kept in range.
    const DevData *color = store->findDev(address(kColorLight));
    QVERIFY(color->temperature >= color->temperatureMin && color->temperature <= color->temperatureMax);
    QVERIFY2(color->colorLight.startsWith(QLatin1String("#ff")), qPrintable(color->colorLight));
    QVERIFY(store->findDev(address(kAmbianceLight))->switchState);
}

void TestHueFlow::badLightReplies_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("body");
    QTest::addColumn<bool>("drop");
    QTest::newRow("truncated") << 200 << R"({"errors":[],"data":[{"id":"3f4ac1e2","on":{"on":tr)" << false;
    QTest::newRow("unauthorized") << 403 << R"({"errors":[{"description":"unauthorized user"}],"data":[]})" << false;
    QTest::newRow("connection dropped") << 200 << "" << true;
}

QTEST_MAIN(TestHueFlow)
#include "tst_hueflow.moc"
