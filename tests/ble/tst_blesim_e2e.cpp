// End to end with the simulated lights plug-in, loaded the way users select it
// (BRIVON_BLE_PLUGIN): discover, auto-connect, state reports, every control, changes made on the
// lights, dropped links, unplugged lights and reconnection. The simulator's control socket is the
// tests' view of the lights.
#include "bluetoothmgr.h"
#include "devdatamgr.h"
#include "processutil.h"
#include "simlights.h"
#include "testhome.h"

#include <QJsonDocument>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <memory>

namespace {

const QString kV1 = QStringLiteral("C4:7F:0E:10:00:01");   // protocol 1
const QString kV2 = QStringLiteral("C4:7F:0E:20:00:02");   // protocol 2, colour
const QString kV7 = QStringLiteral("C4:7F:0E:70:00:07");   // protocol 7, colour
const QString kV162 = QStringLiteral("C4:7F:0E:A2:01:62"); // protocol 162
const QString kQ = QStringLiteral("C4:7F:0E:E9:10:01");    // protocol 1001

int simInt(const QString &addr, const char *key)
{
    return SimLights::state(addr).value(QLatin1String(key)).toInt();
}

// Waits until the simulated light's state holds every field of `want`.
bool waitSimHas(const QString &addr, const QJsonObject &want)
{
    return waitUntil([&] {
        const QJsonObject state = SimLights::state(addr);
        for (auto it = want.begin(); it != want.end(); ++it) {
            if (state.value(it.key()) != it.value())
                return false;
        }
        return true;
    }, 3000);
}

bool knob(const QString &addr, const QString &what)
{
    return SimLights::command(QStringLiteral("knob %1 %2").arg(addr, what)) == QLatin1String("ok");
}

} // namespace

class TestBleSimE2E : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_home = std::make_unique<TestHome>();
        SimLights::select(QByteArray(), true); // the simulator's own five lights
        m_store = std::make_shared<DevDataMgr>();
        m_mgr = std::make_unique<BluetoothMgr>(m_store);
        QVERIFY(m_mgr->isPluginLoaded());
    }

    void cleanupTestCase()
    {
        m_mgr.reset();
        m_store.reset();
        m_home.reset();
    }

    void discoverAndConnectEveryLight()
    {
        QMap<int, DevData> byProtocol;
        for (const DevData &dev : scan())
            byProtocol.insert(dev.protocol, dev);
        QCOMPARE(byProtocol.keys(), (QList<int>{1, 2, 7, 162, 1001}));
        QCOMPARE(byProtocol.value(2).colorLightEnable, true);
        QCOMPARE(byProtocol.value(1001).temperatureMin, 2900);
        for (const DevData &dev : qAsConst(byProtocol)) {
            m_store->addDev(dev);
            m_mgr->connectToDevice(dev.addr);
        }
        // The state reports bring each light's own state into the store.
        for (const QString &addr : {kV1, kV2, kV7, kV162, kQ}) {
            const QJsonObject sim = SimLights::state(addr);
            QVERIFY2(waitStored(addr, [&](const DevData &d) {
                return d.linkState && d.switchState && d.brightness == sim.value(QLatin1String("brightness")).toInt()
                    && d.temperature == sim.value(QLatin1String("temperature")).toInt() && d.devCurModel == 1;
            }, 5000), qPrintable(addr));
        }
        QCOMPARE(stored(kV1).brightness, 60);
        QCOMPARE(stored(kQ).temperature, 5600);
        // The 55 AA light was asked for its product information too.
        QVERIFY(waitUntil([] { return SimLights::frames(kQ).contains(QStringLiteral("55 aa 03 21 00 01 01 aa 6c")); }, 3000));
    }

    void controlsReachTheLights_data()
    {
        QTest::addColumn<QString>("addr");
        QTest::newRow("protocol 1") << kV1;
        QTest::newRow("protocol 2") << kV2;
        QTest::newRow("protocol 162") << kV162;
    }

    void controlsReachTheLights()
    {
        QFETCH(QString, addr);
        m_mgr->setBrightness(addr, 77);
        QVERIFY(waitSimHas(addr, {{"brightness", 77}}));
        m_mgr->setTemperature(addr, 3300);
        QVERIFY(waitSimHas(addr, {{"temperature", 3300}, {"mode", 2}}));
        QVERIFY(waitStored(addr, [](const DevData &d) { return d.temperature == 3300 && d.devCurModel == 1; }));
        m_mgr->setLightEffect(addr, QStringLiteral("9"));
        QVERIFY(waitSimHas(addr, {{"mode", 9}}));
        // The light's report confirms the effect.
        QVERIFY(waitStored(addr, [](const DevData &d) { return d.lightEffect == QLatin1String("9") && d.devCurModel == 2; }));
        m_mgr->setColor(addr, QColor::fromHsv(120, 255, 255));
        if (addr == kV2) {
            QVERIFY(waitSimHas(addr, {{"mode", 3}, {"hue", 120}, {"saturation", 100}}));
            QVERIFY(waitStored(addr, [](const DevData &d) {
                return d.devCurModel == 3 && d.colorLight == QLatin1String("#00ff00") && d.auxValue1 == 120;
            }));
        } else {
            QTest::qWait(200);
            QCOMPARE(simInt(addr, "mode"), 9);
        }
        QCOMPARE(simInt(addr, "unknownFrames"), 0);
    }

    void aaLightControls()
    {
        m_mgr->setTemperature(kQ, 3100);
        QVERIFY(waitSimHas(kQ, {{"temperature", 3100}, {"mode", 1}}));
        m_mgr->setLightEffect(kQ, QStringLiteral("C-3"));
        QVERIFY(waitSimHas(kQ, {{"mode", 3}, {"effect", "C-3"}}));
        // In effect mode, brightness goes with the effect frame.
        m_mgr->setBrightness(kQ, 55);
        QVERIFY(waitSimHas(kQ, {{"brightness", 55}, {"mode", 3}}));
        const int before = simInt(kQ, "framesReceived");
        m_mgr->setColor(kQ, Qt::red); // a 55 AA light has no colour
        QTest::qWait(200);
        QCOMPARE(simInt(kQ, "framesReceived"), before);
        QCOMPARE(simInt(kQ, "unknownFrames"), 0);
        m_mgr->setTemperature(kQ, 4000);
        QVERIFY(waitSimHas(kQ, {{"mode", 1}}));
    }

    void powerCycle()
    {
        m_mgr->powerOff(kV7);
        QVERIFY(waitSimHas(kV7, {{"power", false}}));
        QVERIFY(waitStored(kV7, [](const DevData &d) { return !d.switchState; }));
        // Switched off, the light takes no brightness.
        const int frames = simInt(kV7, "framesReceived");
        m_mgr->setBrightness(kV7, 12);
        QTest::qWait(150);
        QCOMPARE(simInt(kV7, "framesReceived"), frames);
        m_mgr->powerOn(kV7);
        QVERIFY(waitSimHas(kV7, {{"power", true}}));

        // The 55 AA light is switched with brightness: off is 0, on is the remembered brightness.
        DevData q = stored(kQ);
        q.oldBrightness = 64;
        m_store->updateDev(q);
        m_mgr->powerOff(kQ);
        QVERIFY(waitSimHas(kQ, {{"brightness", 0}}));
        QCOMPARE(stored(kQ).switchState, false);
        m_mgr->powerOn(kQ);
        QVERIFY(waitSimHas(kQ, {{"brightness", 64}}));
        QCOMPARE(stored(kQ).brightness, 64);
    }

    void knobTurnedOnTheLight()
    {
        QVERIFY(knob(kV162, QStringLiteral("brightness 33")));
        QVERIFY(waitStored(kV162, [](const DevData &d) { return d.brightness == 33; }));
        QVERIFY(knob(kV2, QStringLiteral("color 240 50")));
        QVERIFY(waitStored(kV2, [](const DevData &d) { return d.devCurModel == 3 && d.auxValue1 == 240 && d.auxValue2 == 50; }));
        QVERIFY(knob(kV1, QStringLiteral("power off")));
        QVERIFY(waitStored(kV1, [](const DevData &d) { return !d.switchState; }));
        QVERIFY(knob(kV1, QStringLiteral("power on")));
        QVERIFY(waitStored(kV1, [](const DevData &d) { return d.switchState; }));

        // While the user holds a slider, a 162 light's reports are held back; a protocol-1 light's are not.
        m_mgr->setAdjusting(true);
        QVERIFY(knob(kV162, QStringLiteral("brightness 21")));
        QVERIFY(knob(kV1, QStringLiteral("brightness 22")));
        QVERIFY(waitStored(kV1, [](const DevData &d) { return d.brightness == 22; }));
        QTest::qWait(150);
        QCOMPARE(stored(kV162).brightness, 33);
        m_mgr->setAdjusting(false);

        // On the 55 AA light: id 32 reports.
        QVERIFY(knob(kQ, QStringLiteral("temperature 3500")));
        QVERIFY(waitStored(kQ, [](const DevData &d) { return d.temperature == 3500 && d.devCurModel == 1; }));
        QVERIFY(knob(kQ, QStringLiteral("effect B-2")));
        QVERIFY(waitStored(kQ, [](const DevData &d) { return d.lightEffect == QLatin1String("B-2") && d.devCurModel == 2; }));

        // Switched off in the app, then on at the light: the app re-sends the remembered brightness.
        m_mgr->setTemperature(kQ, 4000);
        DevData q = stored(kQ);
        q.oldBrightness = 47;
        m_store->updateDev(q);
        m_mgr->powerOff(kQ);
        QVERIFY(waitSimHas(kQ, {{"brightness", 0}}));
        QVERIFY(knob(kQ, QStringLiteral("power on")));
        QVERIFY(waitStored(kQ, [](const DevData &d) { return d.switchState && d.brightness == 47; }));
        QVERIFY(waitSimHas(kQ, {{"brightness", 47}}));
    }

    void droppedLinkAndReconnect()
    {
        QCOMPARE(SimLights::command(QStringLiteral("drop ") + kV7), QStringLiteral("ok"));
        QVERIFY(waitStored(kV7, [](const DevData &d) { return d.linkState == 0; }));
        QSignalSpy reconnects(m_mgr.get(), &BaseDevice::sigReconnectDevice);
        QVERIFY(m_mgr->reconnectDevice(kV7));
        QCOMPARE(reconnects.count(), 1);
        QVERIFY(waitStored(kV7, [](const DevData &d) { return d.linkState != 0; }, 5000));
        // The state request after the connection is the last frame the light received.
        QVERIFY(waitUntil([] {
            const QStringList frames = SimLights::frames(kV7);
            return !frames.isEmpty() && frames.last() == QLatin1String("ff a1 01 30 30 aa");
        }, 3000));

        // The 55 AA light goes offline and comes back only after it reports its mode.
        QCOMPARE(SimLights::command(QStringLiteral("drop ") + kQ), QStringLiteral("ok"));
        QVERIFY(waitStored(kQ, [](const DevData &d) { return d.linkState == 0; }));
        m_mgr->connectToDevice(kQ);
        QVERIFY(waitStored(kQ, [](const DevData &d) { return d.linkState != 0; }, 5000));
    }

    void unpluggedLightIsFoundAgainAndReconnects()
    {
        QCOMPARE(SimLights::command(QStringLiteral("unplug ") + kV1), QStringLiteral("ok"));
        QVERIFY(waitStored(kV1, [](const DevData &d) { return d.linkState == 0; }));
        // Not there: a scan does not see it and a connection attempt fails.
        for (const DevData &dev : scan())
            QVERIFY(dev.addr != kV1);
        m_mgr->connectToDevice(kV1);
        QTest::qWait(1000);
        QCOMPARE(int(stored(kV1).linkState), 0);

        // Plugged in again, the next scan finds it and the manager connects on its own.
        QCOMPARE(SimLights::command(QStringLiteral("plug ") + kV1), QStringLiteral("ok"));
        bool seen = false;
        for (const DevData &dev : scan())
            seen = seen || dev.addr == kV1;
        QVERIFY(seen);
        QVERIFY(waitStored(kV1, [](const DevData &d) { return d.linkState != 0; }, 5000));
    }

    void controlToolTalksToTheSimulator()
    {
        QProcess tool;
        tool.start(QStringLiteral(BRIVON_BIN_DIR "/brivon-blesim-ctl"),
                   {QStringLiteral("--socket"), qEnvironmentVariable("BRIVON_SIM_CONTROL"), QStringLiteral("state"), kV2});
        // The simulator answers from this process's event loop.
        QVERIFY(waitUntil([&] { return tool.state() == QProcess::NotRunning; }, 10000));
        QCOMPARE(tool.exitCode(), 0);
        QCOMPARE(QJsonDocument::fromJson(tool.readAllStandardOutput().mid(3)).object().value(QLatin1String("protocol")).toInt(), 2);
    }

private:
    DevData stored(const QString &addr) const { return m_store->findDev(addr) ? *m_store->findDev(addr) : DevData(); }

    bool waitStored(const QString &addr, const std::function<bool(const DevData &)> &pred, int timeoutMs = 3000)
    {
        return waitUntil([&] { return m_store->findDev(addr) && pred(*m_store->findDev(addr)); }, timeoutMs);
    }

    QList<DevData> scan()
    {
        QSignalSpy discovered(m_mgr.get(), &BaseDevice::sigDeviceDiscovered);
        QSignalSpy finished(m_mgr.get(), &BaseDevice::sigDeviceDiscoveredFinished);
        m_mgr->startScan();
        waitUntil([&] { return finished.count() > 0; }, 10000);
        QList<DevData> found;
        for (const QList<QVariant> &args : qAsConst(discovered))
            found << args.at(0).value<DevData>();
        return found;
    }

    std::unique_ptr<TestHome> m_home;
    std::shared_ptr<DevDataMgr> m_store;
    std::unique_ptr<BluetoothMgr> m_mgr;
};

QTEST_GUILESS_MAIN(TestBleSimE2E)
#include "tst_blesim_e2e.moc"
