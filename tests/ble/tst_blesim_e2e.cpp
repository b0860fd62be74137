// End to end with the simulated lights plug-in, loaded the way users select it
// (BRIVON_BLE_PLUGIN): discover, auto-connect, state reports, every control, changes made on the
// lights, dropped links, unplugged lights and reconnection. The simulator's control socket is the
// tests' view of the lights.
#include "bluetoothmgr.h"
#include "devdatamgr.h"
#include "logcapture.h"
#include "processutil.h"
#include "simlights.h"
#include "testhome.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>

#include <memory>

namespace {

const QString kV1 = QStringLiteral("C4:7F:0E:10:00:01");   // protocol 1
const QString kV2 = QStringLiteral("C4:7F:0E:20:00:02");   // protocol 2, colour
const QString kV7 = QStringLiteral("C4:7F:0E:70:00:07");   // protocol 7, colour
const QString kV162 = QStringLiteral("C4:7F:0E:A2:01:62"); // protocol 162
const QString kQ = QStringLiteral("C4:7F:0E:E9:10:01");    // protocol 1001

using Check = std::function<bool(const DevData &)>;
const Check kOnline = [](const DevData &d) { return d.linkState != 0; };
const Check kOffline = [](const DevData &d) { return d.linkState == 0; };

Check brightness(int value)
{
    return [value](const DevData &d) { return d.brightness == value; };
}

} // namespace

class TestBleSimE2E : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_home = std::make_unique<TestHome>();
        SimLights::select(QByteArray(), true);
        // Lost links: a schedule ten times shorter than the real one (100 ms doubling up to 6 s).
        qputenv(BluetoothMgr::kReconnectEnvVar, "100,6000,5000");
        m_store = std::make_shared<DevDataMgr>();
        m_mgr = std::make_unique<BluetoothMgr>(m_store);
        QVERIFY(m_mgr->isPluginLoaded());
        QVERIFY(SimLights::command(QStringLiteral("help")).startsWith(QLatin1String("ok")));
    }

    // The lights are seen only after a realistic delay; the user adds all of them (as the scan
    // window does through the device manager) and each is connected and reports its own state.
    void discoveredLightsConnectAndReport()
    {
        QElapsedTimer clock;
        qint64 firstSeen = -1;
        QObject watch;
        connect(m_mgr.get(), &BaseDevice::sigDeviceDiscovered, &watch, [&] {
            firstSeen = firstSeen < 0 ? clock.elapsed() : firstSeen;
        });
        clock.start();
        const QList<DevData> found = scan();
        QVERIFY2(firstSeen >= 200, "a light is seen only after a realistic delay");
        QMap<int, QString> byProtocol;
        for (const DevData &dev : found) {
            byProtocol.insert(dev.protocol, dev.addr);
            m_store->addDev(dev);
        }
        QCOMPARE(byProtocol, (QMap<int, QString>{{1, kV1}, {2, kV2}, {7, kV7}, {162, kV162}, {1001, kQ}}));

        for (const QString &addr : byProtocol)
            m_mgr->connectToDevice(addr);
        for (const QString &addr : byProtocol) {
            const QJsonObject sim = SimLights::state(addr);
            QVERIFY2(waitStored(addr, [&](const DevData &d) {
                return d.linkState != 0 && d.brightness == sim.value(QLatin1String("brightness")).toInt()
                    && d.temperature == sim.value(QLatin1String("temperature")).toInt() && d.switchState;
            }, 5000), qPrintable(addr));
            QCOMPARE(stored(addr).devCurModel, 1);
        }
        QCOMPARE(stored(kV1).brightness, 60);
        QCOMPARE(stored(kQ).temperature, 5600);
        // The 55 AA light was asked for its product information too.
        const QString productInfo = QStringLiteral("55 aa 03 21 00 01 01 aa 6c");
        QVERIFY(waitUntil([&] { return SimLights::frames(kQ).contains(productInfo); }, 3000));
    }

    void controlsReachTheLights_data()
    {
        QTest::addColumn<QString>("addr");
        QTest::newRow("protocol 1") << kV1;
        QTest::newRow("protocol 2") << kV2;
        QTest::newRow("protocol 7") << kV7;
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
        QVERIFY(waitStored(addr, [](const DevData &d) { return d.lightEffect == "9" && d.devCurModel == 2; }));

        m_mgr->setColor(addr, QColor::fromHsv(120, 255, 255));
        if (addr == kV2 || addr == kV7) {
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

    void powerCycle()
    {
        // The 55 AA light is switched with brightness: off is 0, on brings back the brightness it
        // had (kept across a restart: tst_devdatamgr).
        m_mgr->setBrightness(kQ, 70);
        QVERIFY(waitSimHas(kQ, {{"brightness", 70}}));
        m_mgr->powerOff(kQ);
        QVERIFY(waitSimHas(kQ, {{"brightness", 0}}));
        QCOMPARE(stored(kQ).switchState, false);
        QCOMPARE(stored(kQ).oldBrightness, 70);
        m_mgr->powerOn(kQ);
        QVERIFY(waitSimHas(kQ, {{"brightness", 70}}));
        QCOMPARE(stored(kQ).switchState, true);
        QCOMPARE(stored(kQ).brightness, 70);
    }

    void knobTurnedOnTheLight()
    {
        QVERIFY(atLight("knob %1 brightness 33", kV162, brightness(33)));
        QVERIFY(atLight("knob %1 color 240 50", kV2, [](const DevData &d) {
            return d.devCurModel == 3 && d.auxValue1 == 240 && d.auxValue2 == 50;
        }));
        QVERIFY(atLight("knob %1 power off", kV1, [](const DevData &d) { return !d.switchState; }));
        QVERIFY(atLight("knob %1 power on", kV1, [](const DevData &d) { return d.switchState; }));

        // While the user drags the 162 light, its reports are held back; the other lights' are
        // not, the 55 AA light's included.
        m_mgr->setAdjusting(kV162, true);
        QVERIFY(atLight("knob %1 brightness 21", kV162, brightness(33)));
        QVERIFY(atLight("knob %1 brightness 22", kV1, brightness(22)));
        QVERIFY(atLight("knob %1 brightness 23", kQ, brightness(23)));
        QTest::qWait(150);
        QCOMPARE(stored(kV162).brightness, 33);
        m_mgr->setAdjusting(kV162, false);
        QVERIFY(atLight("knob %1 brightness 24", kV162, brightness(24)));

        // On the 55 AA light: id 32 reports.
        QVERIFY(atLight("knob %1 temperature 3500", kQ, [](const DevData &d) {
            return d.temperature == 3500 && d.devCurModel == 1;
        }));
        QVERIFY(atLight("knob %1 brightness 18", kQ, brightness(18)));

        // Off in the app, then an effect is started and brightened at the light: it shows as on.
        m_mgr->powerOff(kQ);
        QVERIFY(waitSimHas(kQ, {{"brightness", 0}}));
        QVERIFY(atLight("knob %1 effect B-2", kQ, [](const DevData &d) {
            return d.lightEffect == QLatin1String("B-2") && d.devCurModel == 2;
        }));
        QCOMPARE(stored(kQ).switchState, false);
        QVERIFY(atLight("knob %1 brightness 25", kQ, [](const DevData &d) {
            return d.switchState && d.brightness == 25 && d.devCurModel == 2;
        }));
    }

    void unpluggedLightIsTriedWithGrowingPauses()
    {
        // Two minutes on the real schedule, about 12 s on this one: a connection to a light that is
        // not there fails after 3 s, so four attempts fail before it is plugged in again.
        LogCapture log(true);
        QVERIFY(atLight("unplug %1", kV1, kOffline));
        for (const DevData &dev : scan())
            QVERIFY(dev.addr != kV1);
        const QString scheduled = QStringLiteral("[BluetoothMgr::scheduleReconnect]: addr: ") + kV1;
        QVERIFY(waitUntil([&] { return log.matching(scheduled).size() >= 5; }, 30000));
        QCOMPARE(int(stored(kV1).linkState), 0);
        const QStringList pauses = log.matching(scheduled);
        for (int i = 0; i < 4; ++i) {
            const int ms = pauses.at(i).section(QStringLiteral("inMs: "), 1).toInt(), nominal = 100 << i;
            QVERIFY2(ms <= nominal && ms >= nominal * 85 / 100, qPrintable(pauses.at(i)));
        }
        QVERIFY(atLight("plug %1", kV1, kOnline, 15000));
        QVERIFY(log.contains(QStringLiteral("[BluetoothMgr::handleDeviceConnected]: reconnected, addr: ") + kV1));
        QCOMPARE(simInt(kV1, "overlappingAttempts"), 0);
    }

    void droppedLinkComesBackByItself()
    {
        QSignalSpy reconnecting(m_mgr.get(), &BaseDevice::sigReconnecting);
        QVERIFY(atLight("drop %1", kV7, kOffline));
        // Turned at the light while the link is down: what the light reports when it is back wins.
        QCOMPARE(SimLights::command(QStringLiteral("knob %1 brightness 91").arg(kV7)), QStringLiteral("ok"));
        const int frames = simInt(kV7, "framesReceived");
        QVERIFY(waitStored(kV7, [](const DevData &d) { return d.linkState != 0 && d.brightness == 91; }, 5000));
        QCOMPARE(reconnecting.count(), 2);
        // Only the state request reached the light: nothing stored was pushed back onto it.
        QVERIFY(waitSimHas(kV7, {{"framesReceived", frames + 1}, {"brightness", 91}}));
        QCOMPARE(SimLights::frames(kV7).last(), QStringLiteral("ff a1 01 30 30 aa"));

        // The 55 AA light is back only once it has reported its mode.
        QVERIFY(atLight("drop %1", kQ, kOffline));
        QVERIFY(waitStored(kQ, kOnline, 5000));
    }

    void tenLightsDroppedTogether()
    {
        QJsonArray lights;
        for (int i = 0; i < 10; ++i)
            lights.append(QJsonObject{{"addr", QStringLiteral("AB:00:00:00:00:%1").arg(i, 2, 10, QLatin1Char('0'))},
                                      {"protocol", i < 2 ? 1001 : 1 + i % 2}});
        const QJsonObject timing{{"discoverFirstMs", 20}, {"discoverStepMs", 10}, {"scanMs", 400}, {"connectMs", 150}};
        const QString path = m_home->path() + QStringLiteral("/ten.json");
        QVERIFY(writeFile(path, QJsonDocument(QJsonObject{{"timing", timing}, {"lights", lights}}).toJson()));
        qputenv("BRIVON_SIM_LIGHTS", QFile::encodeName(path));
        QCOMPARE(SimLights::command(QStringLiteral("reset")), QStringLiteral("ok 10 lights"));
        const QList<DevData> found = scan();
        QCOMPARE(found.size(), 10);
        const auto allOnline = [&] {
            return std::all_of(found.begin(), found.end(), [&](const DevData &d) { return kOnline(stored(d.addr)); });
        };
        for (const DevData &dev : found) {
            m_store->addDev(dev);
            m_mgr->connectToDevice(dev.addr);
        }
        QVERIFY(waitUntil(allOnline, 10000));

        // All dropped at once, and seen by a scan while they are being tried again.
        LogCapture log;
        for (const DevData &dev : found)
            QCOMPARE(SimLights::command(QStringLiteral("drop ") + dev.addr), QStringLiteral("ok"));
        m_mgr->startScan();
        QVERIFY(waitUntil(allOnline, 15000));
        QSet<QString> firstPauses;
        for (const DevData &dev : found) {
            QCOMPARE(simInt(dev.addr, "overlappingAttempts"), 0);
            const QString scheduled = QStringLiteral("[BluetoothMgr::scheduleReconnect]: addr: ") + dev.addr;
            firstPauses << log.matching(scheduled).value(0).section(QStringLiteral("inMs: "), 1);
            m_mgr->removeDevice(dev.addr);
            m_store->delDev(defaultGroupUuid(), dev.addr);
        }
        QVERIFY2(firstPauses.size() > 1, "jitter keeps them out of step");
        qunsetenv("BRIVON_SIM_LIGHTS");
        QCOMPARE(SimLights::command(QStringLiteral("reset")), QStringLiteral("ok 5 lights"));
    }

private:
    DevData stored(const QString &addr) const { return m_store->findDev(addr) ? *m_store->findDev(addr) : DevData(); }

    bool waitStored(const QString &addr, const Check &check, int timeoutMs = 3000)
    {
        return waitUntil([&] { return m_store->findDev(addr) && check(*m_store->findDev(addr)); }, timeoutMs);
    }

    // A simulator command ("%1" stands for the light) that the simulator takes, after which the
    // stored light comes to pass `check`.
    bool atLight(const char *command, const QString &addr, const Check &check, int timeoutMs = 3000)
    {
        return SimLights::command(QString::fromLatin1(command).arg(addr)) == QLatin1String("ok")
            && waitStored(addr, check, timeoutMs);
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

    int simInt(const QString &addr, const char *key) { return SimLights::state(addr).value(QLatin1String(key)).toInt(); }

    QList<DevData> scan()
    {
        QSignalSpy discovered(m_mgr.get(), &BaseDevice::sigDeviceDiscovered);
        QSignalSpy finished(m_mgr.get(), &BaseDevice::sigDeviceDiscoveredFinished);
        m_mgr->startScan();
        if (!waitUntil([&] { return finished.count() > 0; }, 10000))
            return {};
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
