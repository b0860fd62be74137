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
#include <QRegularExpression>
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

QByteArray indented(const QByteArray &json)
{
    return QJsonDocument::fromJson(json).toJson(QJsonDocument::Indented);
}

DevData storedLight(const QString &addr)
{
    DevData dev;
    dev.addr = addr;
    dev.name = QStringLiteral("stored");
    dev.protocol = 2001;
    dev.brightness = 1;
    dev.temperature = 2700;
    dev.switchState = false;
    dev.linkState = 0;
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
        QVERIFY(m_home->isValid());
        QVERIFY(FakeBridgeProcess::makeCertificate(m_home->path()));
        m_pin = FakeBridgeProcess::publicKeyPin(m_home->path());
        QVERIFY(m_pin.size() > 50);
        // A test root in place of the Hue root, for the bridges whose certificate chains to it.
        QVERIFY(FakeBridgeProcess::makeCertificate(m_home->path() + QStringLiteral("/chain"), m_home->path(), kBridgeId));
        QVERIFY(FakeBridgeProcess::makeCertificate(m_home->path() + QStringLiteral("/chain-other"), m_home->path(),
                                                   QStringLiteral("ecb5fafffe999999")));
        QVERIFY(FakeBridgeProcess::makeCertificate(m_home->path() + QStringLiteral("/other")));
        qputenv("BRIVON_HUE_ROOT_CERT", (m_home->path() + QStringLiteral("/ca.pem")).toUtf8());
        m_log = std::make_unique<LogCapture>(true);
    }

    void cleanupTestCase()
    {
        m_log.reset();
    }

    void init()
    {
        programSettings("philipshue").clear();
        m_log->clear();
        // A fresh loopback address per case, so no case meets a socket left over from another.
        m_address = ownLoopbackAddress(m_nextHost++);
        qputenv("BRIVON_HUE_DISCOVERY_URL", QStringLiteral("http://%1/discovery").arg(m_address).toUtf8());
    }

    void cleanup()
    {
        m_fake.kill();
    }

    // A bad reply to the discovery service or to the light list costs only itself: the next good one is reported.
    void discoveryReplies_data();
    void discoveryReplies()
    {
        QFETCH(QString, path);
        QFETCH(int, status);
        QFETCH(QString, body);
        QFETCH(QStringList, expected);
        QFETCH(bool, networkError);
        const bool discovery = path == QLatin1String("/discovery");
        const bool drop = body.isEmpty();

        QVERIFY(startFake());
        if (discovery)
            programSettings("philipshue").setValue(QStringLiteral("bridge/10.0.0.9/paired1"), QStringLiteral("user/key"));
        else
            seedPairedBridge(m_address);
        const QString contentType = status == 429 ? QStringLiteral("text/html") : QStringLiteral("application/json");
        QVERIFY(m_fake.control(m_address, QStringLiteral("reply"),
                               {{"method", "GET"}, {"path", path}, {"status", status}, {"contentType", contentType},
                                {"body", body}, {"drop", drop}, {"times", drop ? -1 : 1}}));
        HueBridge bridge;
        QSignalSpy found(&bridge, &HueBridge::discover);
        QSignalSpy lights(&bridge, &HueBridge::discoverLight);
        discovery ? bridge.discoverBridges() : bridge.getAllLights();
        QVERIFY(m_fake.waitForRequests(1, QStringLiteral("GET"), path));

        if (!expected.isEmpty()) {
            QVERIFY(waitUntil([&]() { return found.size() == 1; }, 15000));
            QStringList got;
            for (const Bridge &b : found.first().first().value<QList<Bridge>>())
                got << b.ip + QLatin1Char('|') + b.id + QLatin1Char('|') + b.port;
            QCOMPARE(got, expected);
            return;
        }
        if (networkError)
            QVERIFY(waitUntil([this] { return networkErrorLogged(); }, 30000));
        // The real reply comes next. (A dropped connection is retried by the network stack, so that reply stays
        // until the reset.) Discovery is asked until a new search starts: a press while the first search still
        // runs is answered by it.
        QVERIFY(m_fake.control(m_address, QStringLiteral("reset")));
        if (!discovery)
            bridge.getAllLights();
        QVERIFY(waitUntil([&]() {
            if (discovery && found.isEmpty()) {
                FakeBridgeProcess::setDiscoveryStamp();
                bridge.discoverBridges();
            }
            return found.size() + lights.size() > 0;
        }, 15000));
        QCOMPARE(found.size() + lights.size(), 1);
        if (discovery)
            QCOMPARE(found.first().first().value<QList<Bridge>>().first().id, kBridgeId);
        else
            QCOMPARE(lights.first().at(1).value<QList<Light>>().size(), 3);
    }

    void wholeFlowFromDiscoveryToRefresh()
    {
        // Plain HTTP for discovery and HTTPS for pairing and the lights, all through "address:port", as the demo
        // runs it: the link button goes down on its own a second after the first refused request.
        QVERIFY(startFake({QStringLiteral("--port"), QStringLiteral("8443"), QStringLiteral("--link-button-after"),
                           QStringLiteral("1")}));
        m_address += QStringLiteral(":8443");
        qputenv("BRIVON_HUE_DISCOVERY_URL", QStringLiteral("http://%1/discovery").arg(m_address).toUtf8());
        auto store = std::make_shared<DevDataMgr>();
        HueDeviceMgr mgr(store);
        HueBridge &bridge = *mgr.hueBridge();
        QSignalSpy found(&bridge, &HueBridge::discover);
        QSignalSpy registered(&bridge, &HueBridge::registerResult);
        QSignalSpy discovered(&mgr, &BaseDevice::sigDeviceDiscovered);

        // Discover: nothing is paired yet, so the scan only asks the discovery service.
        mgr.startScan();
        QVERIFY(waitUntil([&]() { return found.size() == 1; }, 15000));
        const QList<Bridge> bridges = found.first().first().value<QList<Bridge>>();
        QCOMPARE(bridges.size(), 1);
        const Bridge target = bridges.first();
        QCOMPARE(target.ip + QLatin1Char('|') + target.id, m_address + QLatin1Char('|') + kBridgeId);
        // The service sends the port as a number; only text is taken.
        QVERIFY(target.port.isEmpty());
        QVERIFY(bridge.discoveredBridges().isEmpty());

        // Another run within the minute does not ask the service again; a minute later it does.
        {
            HueBridge nextRun;
            QSignalSpy again(&nextRun, &HueBridge::discover);
            nextRun.discoverBridges();
            QCOMPARE(again.size(), 0);
            const QDateTime rewound = QDateTime::currentDateTime().addSecs(-61);
            FakeBridgeProcess::setDiscoveryStamp(rewound);
            nextRun.discoverBridges();
            QVERIFY(waitUntil([&]() { return again.size() == 1; }, 15000));
            QCOMPARE(m_fake.requests(QStringLiteral("GET"), QStringLiteral("/discovery")).size(), 2);
            const QDateTime stamp = programSettings("philipshue").value(QStringLiteral("discover/datatime")).toDateTime();
            QVERIFY(stamp > rewound.addSecs(30));
        }

        // Pair: refused until the link button is down, so retried as the dialog does.
        bridge.pairBridge(target);
        QVERIFY(m_fake.waitForRequests(1, QStringLiteral("POST"), QStringLiteral("/api")));
        QTest::qWait(500);
        QCOMPARE(registered.size(), 0);
        const QJsonObject request = m_fake.requests(QStringLiteral("POST"), QStringLiteral("/api")).first();
        QCOMPARE(request.value("body").toString(),
                 QStringLiteral("{\n    \"devicetype\": \"appName#instanceName\",\n    \"generateclientkey\": true\n}\n"));
        QCOMPARE(request.value("headers").toObject().value("content-type").toString(), QStringLiteral("application/json"));
        QCOMPARE(request.value("tls").toBool(), true);
        QTimer retry;
        retry.setInterval(400);
        connect(&retry, &QTimer::timeout, &bridge, [&]() { bridge.pairBridge(target); });
        connect(&bridge, &HueBridge::registerResult, &retry, &QTimer::stop);
        retry.start();

        // List: the pairing is followed by the bridge's lights, offered as new records.
        QVERIFY(waitUntil([&]() { return discovered.size() == 3; }, 15000));
        QCOMPARE(registered.size(), 1);
        QCOMPARE(registered.first().first().toBool(), true);
        const QStringList stored = programSettings("philipshue").value(bridgeKey()).toString().split(QLatin1Char('/'));
        QCOMPARE(QList<qsizetype>({stored.size(), stored.at(0).size(), stored.value(1).size()}),
                 QList<qsizetype>({2, 40, 32}));
        const QJsonObject listRequest = m_fake.requests(QStringLiteral("GET"), kLightPath).first();
        QCOMPARE(listRequest.value("headers").toObject().value("hue-application-key").toString(), stored.at(0));
        QVERIFY(listRequest.value("tls").toBool());
        {
            HueBridge nextRun;
            QCOMPARE(nextRun.pairedBridges().value({m_address, kBridgeId}).clientkey, stored.at(1));
            // The certificate of that first contact is the bridge's from now on.
            QCOMPARE(nextRun.certificatePin(kBridgeId), m_pin);
        }
        QStringList records;
        for (const QList<QVariant> &arguments : qAsConst(discovered)) {
            DevData dev = arguments.first().value<DevData>();
            const char *kind = dev.addr == address(kColorLight)      ? "colour"
                               : dev.addr == address(kAmbianceLight) ? "ambiance" : "white";
            records << QStringLiteral("%1 %2 on=%3 %4% %5 K %6-%7 colour=%8 mode=%9 proto=%10 link=%11 old=%12")
                           .arg(kind, dev.name).arg(dev.switchState).arg(dev.brightness).arg(dev.temperature)
                           .arg(dev.temperatureMin).arg(dev.temperatureMax).arg(dev.colorLightEnable).arg(dev.devCurModel)
                           .arg(dev.protocol).arg(int(dev.linkState)).arg(dev.oldBrightness);
            dev.name = QStringLiteral("stored");
            dev.brightness = 1;
            store->addDev(dev);
        }
        records.sort();
        // A light without colour temperature reports no mirek and no range; its mode stays unknown. Not dimmed
        // before: no brightness to go back to.
        QCOMPARE(records, QStringList({
            QStringLiteral("ambiance Hue ambiance lamp on=0 50% 4200 K 2200-6500 colour=0 mode=1 proto=2001 link=1 old=-1"),
            QStringLiteral("colour Hue color lamp 1 on=1 79% 2700 K 2000-6500 colour=1 mode=1 proto=2001 link=1 old=-1"),
            QStringLiteral("white Hue white lamp on=1 100% 0 K 0-0 colour=0 mode=-1 proto=2001 link=1 old=-1")}));

        // Set every property: each request carries its body and the key; the bridge's answers reach the store.
        mgr.powerOn(address(kAmbianceLight));
        mgr.setBrightness(address(kColorLight), 42);
        mgr.setTemperature(address(kAmbianceLight), 4000);
        mgr.setColor(address(kColorLight), QColor(Qt::red));
        mgr.powerOff(address(kDimmableLight));
        QVERIFY(m_fake.waitForRequests(5, QStringLiteral("PUT"), QString()));
        QCOMPARE(putBodies(kAmbianceLight), QList<QByteArray>({indented(R"({"on":{"on":true}})"),
                                                               indented(R"({"color_temperature":{"mirek":250}})")}));
        QCOMPARE(putBodies(kDimmableLight), QList<QByteArray>({indented(R"({"on":{"on":false}})")}));
        const QList<QByteArray> colour = putBodies(kColorLight);
        QCOMPARE(colour.size(), 2);
        QCOMPARE(colour.first(), indented(R"({"dimming":{"brightness":42}})"));
        const QJsonObject xy = QJsonDocument::fromJson(colour.last()).object().value("color").toObject()
                                   .value("xy").toObject();
        // Red through the wide-gamut matrix.
        QVERIFY2(qAbs(xy.value("x").toDouble(-1) - 0.7006) < 1e-4 && qAbs(xy.value("y").toDouble(-1) - 0.2993) < 1e-4,
                 colour.last().constData());
        for (const QJsonObject &put : m_fake.requests(QStringLiteral("PUT"))) {
            const QJsonObject headers = put.value("headers").toObject();
            QCOMPARE(headers.value("hue-application-key").toString(), stored.at(0));
            QCOMPARE(headers.value("content-type").toString(), QStringLiteral("application/json"));
            QVERIFY(put.value("tls").toBool());
        }
        QVERIFY(waitUntil([&]() {
            return store->findDev(address(kAmbianceLight))->switchState
                && !store->findDev(address(kDimmableLight))->switchState;
        }, 15000));

        // Refresh: one read per stored lamp; the store holds what the bridge holds, keeps the names and leaves
        // other lights alone.
        DevData ble = storedLight(QStringLiteral("AA:BB:CC:DD:EE:FF"));
        ble.protocol = 1;
        store->addDev(ble);
        store->addDev(storedLight(QStringLiteral("not/a-hue-address")));
        const int readsBefore = lightReads();
        mgr.refreshDevices();
        QVERIFY(waitUntil([&]() {
            return store->findDev(address(kColorLight))->brightness == 42
                && store->findDev(address(kAmbianceLight))->brightness == 50
                && store->findDev(address(kAmbianceLight))->temperature == 4000
                && store->findDev(address(kColorLight))->devCurModel == 3;
        }, 15000));
        QVERIFY(waitUntil([&]() { return lightReads() - readsBefore == 3; }, 15000));
        const DevData *color = store->findDev(address(kColorLight));
        // Colour mode: no mirek from the bridge; the temperature nearest to red, kept in range.
        QVERIFY(color->temperature >= color->temperatureMin && color->temperature <= color->temperatureMax);
        QVERIFY2(color->colorLight.startsWith(QLatin1String("#ff")), qPrintable(color->colorLight));
        QCOMPARE(color->name + QLatin1Char(' ') + QString::number(color->switchState), QStringLiteral("stored 1"));
        QCOMPARE(store->findDev(QStringLiteral("AA:BB:CC:DD:EE:FF"))->brightness, 1);
    }

    void realBridgeLampsAndAGroupDrag()
    {
        QVERIFY(startFake({QStringLiteral("--lights"),
                           QStringLiteral(BRIVON_SOURCE_DIR "/tests/hue/data/hue-bridge-lights.json")}));
        seedPairedBridge(m_address);
        FakeBridgeProcess::setDiscoveryStamp(QDateTime::currentDateTime());
        auto store = std::make_shared<DevDataMgr>();
        HueDeviceMgr mgr(store);
        QSignalSpy discovered(&mgr, &BaseDevice::sigDeviceDiscovered);
        mgr.startScan();
        QVERIFY(waitUntil([&]() { return discovered.size() == 8; }, 15000));
        int colourLamps = 0;
        for (const QList<QVariant> &arguments : qAsConst(discovered)) {
            DevData dev = arguments.first().value<DevData>();
            QVERIFY2(dev.temperatureMin > 0 && dev.temperature >= dev.temperatureMin
                         && dev.temperature <= dev.temperatureMax,
                     qPrintable(QStringLiteral("%1: %2 K in %3..%4").arg(dev.name).arg(dev.temperature)
                                    .arg(dev.temperatureMin).arg(dev.temperatureMax)));
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
        for (; value < 50; ++value) {
            for (const QString &lamp : lamps)
                mgr.setBrightness(lamp, 10 + value);
            QTest::qWait(100);
        }
        const int last = 10 + value - 1;
        const int duringDrag = int(m_fake.requests().size()) - before;
        QVERIFY2(duringDrag <= 5 * 10 + 1, qPrintable(QString::number(duringDrag)));
        QVERIFY(waitUntil([&]() { return mgr.hueBridge()->queuedCommands(m_address, kBridgeId) == 0; }, 15000));
        QTest::qWait(1000);
        for (const QJsonObject &put : m_fake.requests(QStringLiteral("PUT")))
            QCOMPARE(put.value("status").toInt(), 200);
        // The last value reaches every lamp.
        for (const QString &lamp : lamps) {
            const QList<QByteArray> bodies = putBodies(lamp.section(QLatin1Char('/'), 2));
            QVERIFY(!bodies.isEmpty());
            QCOMPARE(bodies.last(), indented(QStringLiteral("{\"dimming\":{\"brightness\":%1}}").arg(last).toUtf8()));
            QCOMPARE(store->findDev(lamp)->brightness, last);
        }
    }

    void bridgeGoesAwayComesBackAndMoves()
    {
        QVERIFY(startFake({QStringLiteral("--mdns"), QStringLiteral("127.0.0.1:0")}));
        qputenv("BRIVON_HUE_MDNS", m_fake.mdnsAddress().toUtf8());
        seedPairedBridge(m_address);
        auto store = std::make_shared<DevDataMgr>();
        for (const QString &light : {kColorLight, kAmbianceLight})
            store->addDev(storedLight(address(light)));
        const QString group = store->addGroup(QStringLiteral("Desk"));
        store->addDevToGroup(group, *store->findDev(address(kAmbianceLight)));
        store->addDevToGroup(group, *store->findDev(address(kColorLight)));
        HueDeviceMgr mgr(store);
        mgr.refreshDevices();
        QVERIFY(waitUntil([&]() { return store->findDev(address(kColorLight))->linkState == 1; }, 15000));
        QVERIFY(waitUntil([&]() { return lightReads() == 2; }, 15000)); // both answered before the outage

        // Switched off without closing anything: the request times out and the card shows it.
        QVERIFY(m_fake.control(m_address, QStringLiteral("outage"), {{"on", true}}));
        mgr.setBrightness(address(kColorLight), 20);
        QVERIFY(waitUntil([&]() { return store->findDev(address(kColorLight))->linkState == 0; }, 30000));
        // The event stream may notice first; the request's own time-out follows.
        QVERIFY(waitUntil([this] { return networkErrorLogged(); }, 30000));
        QVERIFY(!mgr.hueBridge()->isOnline(m_address, kBridgeId));
        // Then one request at a time asks whether it is back: the lamp's read-back holds the only place.
        mgr.setBrightness(address(kAmbianceLight), 25);
        QTest::qWait(1000);
        QVERIFY(putBodies(kAmbianceLight).isEmpty());
        // Back: the next request goes through and the card with it.
        QVERIFY(m_fake.control(m_address, QStringLiteral("outage"), {{"on", false}}));
        mgr.setBrightness(address(kColorLight), 30);
        QVERIFY(waitUntil([&]() { return store->findDev(address(kColorLight))->linkState == 1; }, 40000));
        const QString colourPath = kLightPath + QLatin1Char('/') + kColorLight;
        QVERIFY(waitUntil([&]() {
            const QList<QJsonObject> puts = m_fake.requests(QStringLiteral("PUT"), colourPath);
            return !puts.isEmpty() && puts.last().value("status").toInt() == 200
                && puts.last().value("body").toString().contains(QLatin1String("30"));
        }, 40000));

        // Moved to another address: found there, lamps, groups and names kept.
        const QString oldAddress = m_address;
        m_address = ownLoopbackAddress(m_nextHost++);
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
        QVERIFY(programSettings("philipshue").contains(bridgeKey()));
        const QString oldKey = QStringLiteral("bridge/") + oldAddress + QLatin1Char('/') + kBridgeId;
        QVERIFY(!programSettings("philipshue").contains(oldKey));
        // Found at its new address through mDNS, without asking the discovery service.
        QCOMPARE(m_fake.requests(QStringLiteral("GET"), QStringLiteral("/discovery")).size(), 0);
        // And so does the next run.
        DevDataMgr nextRun;
        nextRun.readConfig();
        QVERIFY(nextRun.findDev(address(kColorLight)));
    }

    void bridgeCertificates_data();
    void bridgeCertificates()
    {
        QFETCH(QString, certificate);
        QFETCH(bool, pinned);
        QFETCH(bool, trusted);

        seedPairedBridge(m_address, pinned);
        auto store = std::make_shared<DevDataMgr>();
        DevData lamp = storedLight(address(kColorLight));
        lamp.linkState = 1;
        store->addDev(lamp);
        HueDeviceMgr mgr(store);
        if (certificate == QLatin1String("other")) {
            // Paired and answering, then back with a new certificate.
            QVERIFY(startFake());
            mgr.refreshDevices();
            QVERIFY(waitUntil([&]() { return lightReads() == 1 && store->findDev(lamp.addr)->linkState == 1; }, 15000));
            m_fake.kill();
        }
        QVERIFY(startFake({}, m_home->path() + QLatin1Char('/') + certificate));
        mgr.refreshDevices();
        if (trusted) {
            QVERIFY(waitUntil([&]() { return store->findDev(lamp.addr)->brightness == 79; }, 15000));
            QVERIFY(m_fake.waitForRequests(1, QStringLiteral("GET"), QStringLiteral("/eventstream/clip/v2")));
            QCOMPARE(store->findDev(lamp.addr)->linkState, quint8(1));
            // A change made at the bridge (the Hue app, a wall switch) comes through the event stream.
            const QJsonObject dimmed{{"id", kColorLight}, {"dimming", QJsonObject{{"brightness", 33}}}};
            QVERIFY(m_fake.control(m_address, QStringLiteral("light"), dimmed));
            QVERIFY(waitUntil([&]() { return store->findDev(lamp.addr)->brightness == 33; }, 15000));
            return;
        }
        const QString logged =
            QStringLiteral("Hue bridge %1 at %2 is not the bridge that was paired").arg(kBridgeId, m_address);
        QVERIFY(waitUntil([&]() { return m_log->contains(logged); }, 15000));
        mgr.setBrightness(lamp.addr, 20);
        mgr.powerOn(lamp.addr);
        QTest::qWait(1500);
        for (const QJsonObject &request : m_fake.requests())
            QVERIFY2(!request.value("headers").toObject().contains("hue-application-key"),
                     qPrintable(request.value("path").toString()));
        QCOMPARE(store->findDev(lamp.addr)->linkState, quint8(0));
        QVERIFY(!mgr.hueBridge()->isOnline(m_address, kBridgeId));
        if (!pinned || certificate != QLatin1String("other"))
            return;

        // The user vouches for the new certificate by pairing the bridge again; the scan offers it.
        QSignalSpy found(mgr.hueBridge().get(), &HueBridge::discover);
        mgr.hueBridge()->discoverBridges();
        QVERIFY(waitUntil([&]() { return found.size() == 1; }, 15000));
        QVERIFY(m_fake.control(m_address, QStringLiteral("linkbutton")));
        mgr.hueBridge()->pairBridge(found.first().first().value<QList<Bridge>>().first());
        QVERIFY(waitUntil([&]() { return lightReads() >= 1 && store->findDev(lamp.addr)->linkState == 1; }, 15000));
        QCOMPARE(mgr.hueBridge()->certificatePin(kBridgeId),
                 FakeBridgeProcess::publicKeyPin(m_home->path() + QStringLiteral("/other")));
    }

private:
    int lightReads() const
    {
        int reads = 0;
        for (const QJsonObject &request : m_fake.requests(QStringLiteral("GET")))
            reads += request.value("path").toString().startsWith(kLightPath) ? 1 : 0;
        return reads;
    }

    bool networkErrorLogged() const
    {
        const QRegularExpression atStart(QStringLiteral("^Network error:"));
        return !m_log->matching(QStringLiteral("Network error:")).filter(atStart).isEmpty();
    }

    bool startFake(const QStringList &extra = {}, const QString &certificateFolder = {})
    {
        const QStringList arguments{QStringLiteral("--address"), m_address, QStringLiteral("--bridge-id"), kBridgeId,
                                    QStringLiteral("--user"), kAppKey};
        return m_fake.start(certificateFolder.isEmpty() ? m_home->path() : certificateFolder, arguments + extra);
    }

    // Marks the fake bridge as paired in the settings, with a key the fake accepts.
    void seedPairedBridge(const QString &address, bool pinned = true)
    {
        QSettings settings = programSettings("philipshue");
        settings.setValue(QStringLiteral("bridge/") + address + QLatin1Char('/') + kBridgeId,
                          kAppKey + QStringLiteral("/clientkey"));
        if (pinned)
            settings.setValue(QStringLiteral("certificate/") + kBridgeId, m_pin);
    }

    QString bridgeKey() const { return QStringLiteral("bridge/") + m_address + QLatin1Char('/') + kBridgeId; }

    QList<QByteArray> putBodies(const QString &light) const
    {
        QList<QByteArray> bodies;
        for (const QJsonObject &put : m_fake.requests(QStringLiteral("PUT"), kLightPath + QLatin1Char('/') + light))
            bodies << put.value("body").toString().toUtf8();
        return bodies;
    }

    QString address(const QString &light) const { return QStringList{m_address, kBridgeId, light}.join(QLatin1Char('/')); }

    std::unique_ptr<TestHome> m_home;
    std::unique_ptr<LogCapture> m_log;
    FakeBridgeProcess m_fake;
    QString m_address;
    QString m_pin; // of the certificate in m_home
    int m_nextHost = 10;
};

// Defined outside the class: moc cannot skip bodies that hold raw string literals.
void TestHueFlow::discoveryReplies_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("body"); // empty: the connection is dropped
    QTest::addColumn<QStringList>("expected"); // what discovery reports at once, as "ip|id|port"
    QTest::addColumn<bool>("networkError");

    const QString discovery = QStringLiteral("/discovery");
    const QString html = QStringLiteral("<html><head><title>429 Too Many Requests</title></head></html>");
    QTest::newRow("discovery: only bridge already paired")
        << discovery << 200 << R"([{"id":"paired1","internalipaddress":"10.0.0.9","port":443}])" << QStringList() << false;
    QTest::newRow("discovery: paired bridge left out")
        << discovery << 200
        << R"([{"id":"paired1","internalipaddress":"10.0.0.9","port":443},{"id":"b3","internalipaddress":"10.0.0.3",)"
           R"("port":"443"}])"
        << QStringList{"10.0.0.3|b3|443"} << false;
    QTest::newRow("discovery: incomplete elements")
        << discovery << 200
        << R"([{"id":"x"},{"internalipaddress":"1.2.3.4"},{},5,{"id":"ok","internalipaddress":"1.1.1.1"}])"
        << QStringList{"1.1.1.1|ok|"} << false;
    QTest::newRow("discovery: truncated") << discovery << 200 << R"([{"id":"b","internalipaddress":"1.1)" << QStringList()
                                          << false;
    QTest::newRow("discovery: html 429") << discovery << 429 << html << QStringList() << true;
    QTest::newRow("lights: truncated") << kLightPath << 200 << R"({"errors":[],"data":[{"id":"3f4ac1e2","on":{"on":tr)"
                                       << QStringList() << false;
    QTest::newRow("lights: html 429") << kLightPath << 429 << html << QStringList() << true;
    QTest::newRow("lights: unauthorized")
        << kLightPath << 403 << R"({"errors":[{"description":"unauthorized user"}],"data":[]})"
                                          << QStringList() << true;
    QTest::newRow("lights: connection dropped") << kLightPath << 200 << "" << QStringList() << true;
}

void TestHueFlow::bridgeCertificates_data()
{
    QTest::addColumn<QString>("certificate"); // under the test home; empty: the one paired
    QTest::addColumn<bool>("pinned");
    QTest::addColumn<bool>("trusted");
    QTest::newRow("the paired key") << QString() << true << true;
    QTest::newRow("a new key") << "other" << true << false;
    QTest::newRow("chain to the root, named the bridge id") << "chain" << false << true;
    QTest::newRow("chain to the root, another name") << "chain-other" << false << false;
}

QTEST_MAIN(TestHueFlow)
#include "tst_hueflow.moc"
