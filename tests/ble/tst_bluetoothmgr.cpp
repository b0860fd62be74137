// The BLE light manager driven through an in-process plug-in: connections, scanning, lost links,
// every control operation with its preconditions, and the decoding of every notification kind.
#include "bluetoothmgr.h"
#include "bluetoothprotocol2.h"
#include "brivonqxbleinterface.h"
#include "devdatamgr.h"
#include "logcapture.h"
#include "testhome.h"

#include <QSignalSpy>
#include <QTest>

#include <memory>

namespace {

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

const QString kAddr = QStringLiteral("C0:FF:EE:00:00:01");
const QString kOther = QStringLiteral("C0:FF:EE:00:00:02");

enum Op { PowerOn, PowerOff, Brightness, Temperature, Effect, Color };

} // namespace

class FakeBlePlugin : public BrivonQXBleInterface
{
    Q_OBJECT
    Q_INTERFACES(BrivonQXBleInterface)

public:
    void startScan() override { calls << QStringLiteral("startScan"); }
    void stopScan() override { calls << QStringLiteral("stopScan"); }
    void writeData(const QString &addr, const QByteArray &data) override { writes << addr + ' ' + data.toHex(' '); }
    void connectToDevice(const QString &addr) override { calls << QStringLiteral("connectToDevice ") + addr; }
    bool reconnectDevice(const QString &addr) override { return (calls << "reconnectDevice " + addr, reconnectResult); }
    void removeDevice(const QString &addr) override { calls << QStringLiteral("removeDevice ") + addr; }

    // The frames written to addr, in order, as spaced hex.
    QStringList framesTo(const QString &addr) const
    {
        QStringList frames;
        for (const QString &w : writes) {
            if (w.startsWith(addr + QLatin1Char(' ')))
                frames << w.mid(addr.size() + 1);
        }
        return frames;
    }

    QStringList calls;
    QStringList writes;
    bool reconnectResult = true;
};

class TestBluetoothMgr : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_home = std::make_unique<TestHome>();
        QVERIFY(m_home->isValid());
        // Lost links are tried again after 40 ms, doubling up to 160 ms; an attempt fails after 300 ms.
        qputenv(BluetoothMgr::kReconnectEnvVar, "40,160,300");
        m_store = std::make_shared<DevDataMgr>();
        m_plugin = std::make_unique<FakeBlePlugin>();
        m_mgr = std::make_unique<BluetoothMgr>(m_store, m_plugin.get(), nullptr);
        QVERIFY(m_mgr->isPluginLoaded());
    }

    void cleanup() { m_mgr.reset(), m_plugin.reset(), m_store.reset(), m_home.reset(); }

    void scanAndLinkOperationsReachPlugin()
    {
        QSignalSpy reconnects(m_mgr.get(), &BaseDevice::sigReconnectDevice);
        m_mgr->startScan();
        m_mgr->stopScan();
        m_mgr->refreshDevices();
        m_mgr->connectToDevice(kAddr);
        QCOMPARE(m_mgr->reconnectDevice(kAddr), true);
        m_plugin->reconnectResult = false;
        QCOMPARE(m_mgr->reconnectDevice(kAddr), false);
        m_mgr->removeDevice(kAddr);
        m_mgr->delDev(QStringLiteral("{some-group}"), QStringLiteral("AA:BB"));
        QCOMPARE(m_plugin->calls, (QStringList{"startScan", "stopScan", "startScan", "connectToDevice " + kAddr,
                                               "reconnectDevice " + kAddr, "reconnectDevice " + kAddr,
                                               "removeDevice " + kAddr, "removeDevice AA:BB"}));
        QCOMPARE(reconnects.count(), 2);
        QCOMPARE(reconnects.at(0).at(0).toString(), kAddr);
    }

    // ---- discovery and connection
    void discoveryBuildsRecord_data()
    {
        QTest::addColumn<int>("protocol");
        QTest::addColumn<bool>("colorEnable");
        QTest::addColumn<bool>("effectEnable");
        QTest::addColumn<int>("temperatureMin");
        for (int p : {1, 3, 5, 6, 162, 163})
            QTest::addRow("protocol %d", p) << p << false << true << 2700;
        for (int p : {2, 7})
            QTest::addRow("protocol %d", p) << p << true << true << 2700;
        QTest::newRow("protocol 1001") << 1001 << false << false << 2900;
        QTest::newRow("protocol 4 keeps defaults") << 4 << false << true << 2700;
    }

    void discoveryBuildsRecord()
    {
        QFETCH(int, protocol);
        QSignalSpy discovered(m_mgr.get(), &BaseDevice::sigDeviceDiscovered);
        emit m_plugin->sigDeviceDiscovered(protocol, kAddr, QStringLiteral("Panel"));
        QCOMPARE(discovered.count(), 1);
        const DevData dev = discovered.at(0).at(0).value<DevData>();
        QCOMPARE((QVariantList{dev.addr, dev.name, dev.protocol, dev.switchState, dev.devCurModel}),
                 (QVariantList{kAddr, QStringLiteral("Panel"), protocol, false, -1}));
        QTEST(dev.colorLightEnable, "colorEnable");
        QTEST(dev.lightEffectEnable, "effectEnable");
        QTEST(dev.temperatureMin, "temperatureMin");
        QCOMPARE((QList<int>{dev.temperatureMax, dev.brightnessMin, dev.brightnessMax}), (QList<int>{6500, 0, 100}));
        // Not stored: the device manager collects it for the scan list.
        QVERIFY(!m_store->findDev(kAddr));
        QVERIFY(m_plugin->calls.isEmpty());

        // Stored lights that are offline are connected as soon as they are seen; online ones are left alone.
        m_store->addDev(light(protocol, false));
        m_store->addDev(light(protocol, true, true, kOther));
        emit m_plugin->sigDeviceDiscovered(protocol, kOther, QStringLiteral("b"));
        emit m_plugin->sigDeviceDiscovered(protocol, kAddr, QStringLiteral("a"));
        QCOMPARE(m_plugin->calls, QStringList{"connectToDevice " + kAddr});
    }

    void connectRequestsState_data()
    {
        QTest::addColumn<int>("protocol");
        QTest::addColumn<QString>("request");
        QTest::addColumn<int>("linkState");
        for (int p : {1, 2, 3, 5, 6, 7, 162, 163})
            QTest::addRow("protocol %d", p) << p << QStringLiteral("ff a1 01 30 30 aa") << 1;
        QTest::newRow("protocol 1001") << 1001 << QStringLiteral("55 aa 03 06 00 01 01 a0 d8") << 0;
        QTest::newRow("protocol 4: online, no request") << 4 << QString() << 1;
    }

    void connectRequestsState()
    {
        QFETCH(int, protocol);
        QFETCH(QString, request);
        m_store->addDev(light(protocol, false, false));
        emit m_plugin->sigDeviceConnected(kAddr);
        QTEST(int(stored().linkState), "linkState");
        QCOMPARE(m_plugin->framesTo(kAddr), request.isEmpty() ? QStringList() : QStringList{request});
        // An address that is not stored gets nothing.
        emit m_plugin->sigDeviceConnected(QStringLiteral("00:00:00:00:00:00"));
        QCOMPARE(m_plugin->writes.size(), request.isEmpty() ? 0 : 1);
    }

    // A 55 AA light gets its fixed ranges on connecting, and is online (and switchable) only once it
    // reports its mode, whichever mode that is.
    void connect55AAWaitsForItsMode()
    {
        DevData dev = light(1001, false, false);
        dev.brightnessMax = 255;
        dev.temperatureMin = 2000;
        dev.temperatureMax = 10000;
        m_store->addDev(dev);
        QSignalSpy ranges(m_store.get(), &DevDataMgr::onUpdateDevParamRange);
        QSignalSpy updates(m_store.get(), &DevDataMgr::onUpdateDev);
        emit m_plugin->sigDeviceConnected(kAddr);
        QCOMPARE(ranges.count(), 1);
        const DevData announced = ranges.at(0).at(0).value<DevData>();
        QCOMPARE((QList<int>{announced.brightnessMin, announced.brightnessMax, announced.temperatureMin,
                             announced.temperatureMax, announced.linkState}), (QList<int>{0, 100, 2900, 6500, 0}));
        QCOMPARE(updates.count(), 1);
        QCOMPARE(int(stored().linkState), 0);
        QCOMPARE(stored().temperatureMin, 2900);
        m_plugin->writes.clear();
        m_mgr->powerOn(kAddr);
        QVERIFY(m_plugin->writes.isEmpty());
        QCOMPARE(stored().switchState, false);

        message(hex("55 AA 03 06 00 04 01 00 13 88 5B 78"));
        QCOMPARE(int(stored().linkState), 1);
        QCOMPARE(m_plugin->framesTo(kAddr), QStringList{QStringLiteral("55 aa 03 21 00 01 01 aa 6c")});
        m_mgr->powerOn(kAddr);
        QCOMPARE(m_plugin->writes.size(), 2);

        m_store->addDev(light(1001, false, true, kOther));
        message(hex("55 AA 03 06 00 04 02 3C 13 88 00 00"), kOther);
        QCOMPARE(int(stored(kOther).linkState), 1);
        QCOMPARE(stored(kOther).brightness, 40);
    }

    void lostLinkIsTriedAgainWithGrowingPauses()
    {
        m_store->addDev(light(2));
        QSignalSpy reconnecting(m_mgr.get(), &BaseDevice::sigReconnecting);
        LogCapture log;
        emit m_plugin->sigDeviceDisconnected(kAddr);
        QCOMPARE(int(stored().linkState), 0);
        QCOMPARE(stored().switchState, true);
        QVERIFY(m_mgr->isReconnecting(kAddr));
        // Nobody answers: each attempt fails after 300 ms; the pauses double up to 160 ms, less some jitter.
        const QString attempt = QStringLiteral("reconnectDevice ") + kAddr;
        QVERIFY(QTest::qWaitFor([&] { return m_plugin->calls.count(attempt) >= 4; }, 10000));
        const QStringList scheduled = log.matching(QStringLiteral("[BluetoothMgr::scheduleReconnect]"));
        const int nominal[] = {40, 80, 160, 160};
        for (int i = 0; i < 4; ++i) {
            const int pause = scheduled.value(i).section(QStringLiteral("inMs: "), 1).toInt();
            QVERIFY2(pause <= nominal[i] && pause >= nominal[i] * 85 / 100, qPrintable(scheduled.value(i)));
        }
        emit m_plugin->sigDeviceConnected(kAddr);
        QVERIFY(!m_mgr->isReconnecting(kAddr));
        QCOMPARE(reconnecting.count(), 2);
        QCOMPARE(reconnecting.at(1), (QVariantList{kAddr, false}));

        // Lost again: a scan that sees it during a pause tries at once; while that runs, another sighting adds nothing.
        const QString connect = QStringLiteral("connectToDevice ") + kAddr;
        emit m_plugin->sigDeviceDisconnected(kAddr);
        emit m_plugin->sigDeviceDiscovered(2, kAddr, QStringLiteral("a"));
        emit m_plugin->sigDeviceDiscovered(2, kAddr, QStringLiteral("a"));
        QCOMPARE(m_plugin->calls.count(connect), 1);
        emit m_plugin->sigDeviceDisconnected(kAddr); // refused
        emit m_plugin->sigDeviceDiscovered(2, kAddr, QStringLiteral("a"));
        QCOMPARE(m_plugin->calls.count(connect), 2);

        // Removed by the user: no attempt follows.
        m_mgr->removeDevice(kAddr);
        m_store->delDev(defaultGroupUuid(), kAddr);
        const int attempts = m_plugin->calls.count(attempt);
        QTest::qWait(400);
        QCOMPARE(m_plugin->calls.count(attempt), attempts);
        QVERIFY(!m_mgr->isReconnecting(kAddr));
    }

    // ---- V-type reports
    void vTypeReportDecodedIntoStore_data()
    {
        QTest::addColumn<int>("protocol");
        QTest::addColumn<QByteArray>("frame");
        QTest::addColumn<QVariantList>("expected"); // brightness, temperature, hue, saturation, effect, colour, mode, power
        QTest::newRow("CCT on, colour kept") << 1 << hex("FF 10 09 32 15 E0 00 00 00 00 02 01 00 AA")
                                             << QVariantList{50, 5600, 0, 0, "2", "#123456", 1, true};
        QTest::newRow("colour mode sets colour") << 2 << hex("FF A4 09 64 0A 8C 00 F0 64 00 03 01 00 AA")
                                                 << QVariantList{100, 2700, 240, 100, "3", "#0000ff", 3, true};
        QTest::newRow("effect 9 off") << 7 << hex("FF A1 09 0A 19 64 00 00 00 00 09 00 00 AA")
                                      << QVariantList{10, 6500, 0, 0, "9", "#123456", 2, false};
        QTest::newRow("unknown mode, 162") << 162 << hex("FF 01 09 0A 19 64 00 00 00 00 01 01 00 AA")
                                           << QVariantList{10, 6500, 0, 0, "1", "#123456", -1, true};
        QTest::newRow("163, bad checksum no trailer") << 163 << hex("FF 01 09 0B 19 64 00 00 00 00 02 01")
                                                      << QVariantList{11, 6500, 0, 0, "2", "#123456", 1, true};
    }

    void vTypeReportDecodedIntoStore()
    {
        QFETCH(int, protocol);
        QFETCH(QByteArray, frame);
        DevData dev = light(protocol, false, false);
        dev.colorLight = QStringLiteral("#123456");
        m_store->addDev(dev);
        QSignalSpy updates(m_store.get(), &DevDataMgr::onUpdateDev);
        message(frame);
        message(frame); // the same report again changes nothing
        QCOMPARE(updates.count(), 1);
        const DevData after = stored();
        QTEST((QVariantList{after.brightness, after.temperature, after.auxValue1, after.auxValue2, after.lightEffect,
                            after.colorLight, after.devCurModel, after.switchState}), "expected");
        QCOMPARE(int(after.linkState), 1);
        QCOMPARE(after.oldBrightness, 60);
    }

    void adjustingFlagHoldsSomeProtocols_data()
    {
        QTest::addColumn<int>("protocol");
        QTest::addColumn<bool>("appliedWhileAdjusting");
        for (int p : {1, 2, 3, 5, 6, 7})
            QTest::addRow("protocol %d", p) << p << true;
        for (int p : {162, 163, 1001})
            QTest::addRow("protocol %d", p) << p << false;
    }

    void adjustingFlagHoldsSomeProtocols()
    {
        QFETCH(int, protocol);
        QFETCH(bool, appliedWhileAdjusting);
        m_store->addDev(light(protocol, true, true));
        m_store->addDev(light(protocol, true, true, kOther));
        const QByteArray report = protocol == 1001 ? hex("55 AA 03 30 00 04 01 4D 13 88 00 00")
                                                   : hex("FF 10 09 4D 13 88 00 00 00 00 02 01 00 AA");
        // Only the light being dragged holds its reports back; another light's end of drag does
        // not release it.
        m_mgr->setAdjusting(kAddr, true);
        m_mgr->setAdjusting(kOther, true);
        m_mgr->setAdjusting(kOther, false);
        message(report);
        message(report, kOther);
        QCOMPARE(stored().brightness == 0x4D, appliedWhileAdjusting);
        QCOMPARE(stored(kOther).brightness, 0x4D);
        m_mgr->setAdjusting(kAddr, false);
        message(report);
        QCOMPARE(stored().brightness, 0x4D);
        QCOMPARE(stored().temperature, 5000);
    }

    // ---- 55 AA reports, and frames of either family that change nothing
    void reportsWithoutAnswer_data()
    {
        QTest::addColumn<int>("protocol");
        QTest::addColumn<QByteArray>("frame");
        QTest::addColumn<int>("brightness");
        QTest::addColumn<int>("temperature");

        QTest::newRow("01 CCT report") << 1001 << hex("55 AA 03 01 00 05 01 46 15 E0 00 00 00") << 70 << 5600;
        QTest::newRow("30 CCT report, bad CRC") << 1001 << hex("55 AA 03 30 00 04 01 46 15 E0 12 34") << 70 << 5600;
        QTest::newRow("07 CCT data") << 1001 << hex("55 AA 03 07 00 03 46 19 64 C2 5D") << 70 << 6500;
        QTest::newRow("01 unchanged values") << 1001 << hex("55 AA 03 01 00 04 01 28 0F A0 00 00") << 40 << 4000;
        QTest::newRow("07 unchanged values") << 1001 << hex("55 AA 03 07 00 03 28 0F A0 00 00") << 40 << 4000;
        QTest::newRow("01 mode byte 3 ignored") << 1001 << hex("55 AA 03 01 00 05 03 46 01 02 00 00 00") << 40 << 4000;
        QTest::newRow("30 too short") << 1001 << hex("55 AA 03 30 00 03 01 46 15 00 00") << 40 << 4000;
        QTest::newRow("id 33") << 1001 << hex("55 AA 03 33 00 04 01 46 15 E0 00 00") << 40 << 4000;
        QTest::newRow("id 02") << 1001 << hex("55 AA 03 02 00 04 01 46 15 E0 00 00") << 40 << 4000;
        QTest::newRow("06 three bytes") << 1001 << hex("55 AA 03 06 00 03 01 46 15 00 00") << 40 << 4000;
        QTest::newRow("32 three bytes") << 1001 << hex("55 AA 03 32 00 03 01 46 15 00 00") << 40 << 4000;
        QTest::newRow("07 two bytes") << 1001 << hex("55 AA 03 07 00 02 46 15 00 00") << 40 << 4000;
        QTest::newRow("06 length beyond bytes") << 1001 << hex("55 AA 03 06 00 09 01 46 15 E0 00 00") << 40 << 4000;
        QTest::newRow("21 product info") << 1001 << bluetoothProtocol2().pack(0x21, 24, std::vector<quint8>(24, 0x46))
                                         << 40 << 4000;
        QTest::newRow("21 short") << 1001 << hex("55 AA 03 21 00 04 01 46 15 E0 00 00") << 40 << 4000;
        QTest::newRow("FF framing") << 1001 << hex("FF 10 09 4D 13 88 00 00 00 00 02 01 00 AA") << 40 << 4000;
        QTest::newRow("V: wrong start byte") << 2 << hex("FE 10 09 32 15 E0 00 00 00 00 02 01 00 AA") << 40 << 4000;
        QTest::newRow("V: payload shorter than a report") << 2 << hex("FF 10 08 32 15 E0 00 00 00 00 02 00 AA") << 40
                                                          << 4000;
        QTest::newRow("V: 55 AA framing") << 2 << hex("55 AA 03 06 00 04 01 3C 13 88 5B 78") << 40 << 4000;
        QTest::newRow("V: empty") << 2 << QByteArray() << 40 << 4000;
    }

    void reportsWithoutAnswer()
    {
        QFETCH(int, protocol);
        QFETCH(QByteArray, frame);
        QFETCH(int, brightness);
        m_store->addDev(light(protocol, false, true));
        QSignalSpy updates(m_store.get(), &DevDataMgr::onUpdateDev);
        message(frame);
        QCOMPARE(stored().brightness, brightness);
        QTEST(stored().temperature, "temperature");
        QCOMPARE(updates.count(), brightness == 40 ? 0 : 1);
        QVERIFY(m_plugin->writes.isEmpty());
        QCOMPARE(int(stored().linkState), 0);
    }

    void aaCurrentModeCct_data()
    {
        QTest::addColumn<bool>("powerBefore");
        QTest::addColumn<int>("oldBrightness");
        QTest::addColumn<int>("reported");
        QTest::addColumn<bool>("powerAfter");
        QTest::addColumn<int>("brightnessAfter");
        QTest::addColumn<int>("oldAfter");
        QTest::newRow("on: takes brightness") << true << 60 << 70 << true << 70 << 60;
        // Dark at the light: the brightness it had is what switching on brings back.
        QTest::newRow("on: zero brightness stays on") << true << 60 << 0 << true << 0 << 40;
        QTest::newRow("off: non-zero turns on") << false << 60 << 70 << true << 70 << 60;
        QTest::newRow("off: zero shows old brightness") << false << 60 << 0 << false << 60 << 60;
        QTest::newRow("off: zero shows old brightness 1") << false << 1 << 0 << false << 1 << 1;
        QTest::newRow("off: zero, no old brightness") << false << -1 << 0 << false << 0 << -1;
    }

    void aaCurrentModeCct()
    {
        QFETCH(bool, powerBefore);
        QFETCH(int, oldBrightness);
        QFETCH(int, reported);
        DevData dev = light(1001, false, powerBefore);
        dev.oldBrightness = oldBrightness;
        dev.devCurModel = 2;
        m_store->addDev(dev);
        QByteArray frame = hex("55 AA 03 06 00 04 01 00 13 88 00 00");
        frame[7] = char(reported);
        message(frame);
        QTEST(stored().switchState, "powerAfter");
        QTEST(stored().brightness, "brightnessAfter");
        QTEST(stored().oldBrightness, "oldAfter");
        QCOMPARE(stored().temperature, 5000);
        QCOMPARE(stored().devCurModel, 1);
    }

    void aaCurrentModeEffectAsksCctData()
    {
        m_store->addDev(light(1001, false, true));
        message(hex("55 AA 03 06 00 04 03 28 02 05 D6 F1"));
        QCOMPARE(stored().lightEffect, QStringLiteral("B-5"));
        QCOMPARE((QList<int>{stored().brightness, stored().devCurModel, stored().temperature}), (QList<int>{40, 2, 4000}));
        QCOMPARE(m_plugin->framesTo(kAddr),
                 (QStringList{QStringLiteral("55 aa 03 07 00 01 01 a1 24"), QStringLiteral("55 aa 03 21 00 01 01 aa 6c")}));
        // The CCT data answer then brings the temperature.
        message(hex("55 AA 03 07 00 03 28 19 64 00 00"));
        QCOMPARE(stored().temperature, 6500);
        QCOMPARE(stored().lightEffect, QStringLiteral("B-5"));
    }

    void aaModifyUpload_data()
    {
        QTest::addColumn<bool>("powerBefore");
        QTest::addColumn<int>("oldBefore");
        QTest::addColumn<QString>("effectBefore");
        QTest::addColumn<int>("reported");
        QTest::addColumn<int>("brightnessAfter");
        QTest::addColumn<int>("oldAfter");
        QTest::addColumn<QString>("effectAfter");
        QTest::addColumn<QString>("resent");
        QTest::newRow("on: knob turned") << true << 60 << QString() << 70 << 70 << 60 << QString() << QString();
        QTest::newRow("on: effect replaced by marker") << true << 60 << QStringLiteral("A-3") << 70 << 70 << 60
                                                       << QStringLiteral("#-100") << QString();
        // Switched on at the light: the manager re-sends the remembered brightness.
        QTest::newRow("off: on at light, old kept") << false << 60 << QString() << 70 << 60 << 60 << QString()
                                                    << QStringLiteral("55 aa 03 01 00 05 01 3c 10 68 00 c0 0c");
        QTest::newRow("off: on at light, old taken") << false << 0 << QString() << 70 << 70 << 70 << QString()
                                                     << QStringLiteral("55 aa 03 01 00 05 01 46 10 68 00 d9 14");
        QTest::newRow("off: zero, old re-sent") << false << 60 << QString() << 0 << 60 << 60 << QString()
                                                << QStringLiteral("55 aa 03 01 00 05 01 3c 10 68 00 c0 0c");
        QTest::newRow("off: zero, nothing to re-send") << false << 0 << QString() << 0 << 40 << 0 << QString() << QString();
    }

    void aaModifyUpload()
    {
        QFETCH(bool, powerBefore);
        QFETCH(int, oldBefore);
        QFETCH(QString, effectBefore);
        QFETCH(int, reported);
        QFETCH(QString, resent);
        DevData dev = light(1001, true, powerBefore);
        dev.oldBrightness = oldBefore;
        dev.lightEffect = effectBefore;
        m_store->addDev(dev);
        QByteArray frame = hex("55 AA 03 32 00 04 01 00 10 68 00 00");
        frame[7] = char(reported);
        message(frame);
        QCOMPARE((QList<int>{stored().switchState, stored().temperature, stored().devCurModel}), (QList<int>{1, 0x1068, 1}));
        QTEST(stored().brightness, "brightnessAfter");
        QTEST(stored().oldBrightness, "oldAfter");
        QTEST(stored().lightEffect, "effectAfter");
        QCOMPARE(m_plugin->framesTo(kAddr), resent.isEmpty() ? QStringList() : QStringList{resent});
    }

    // ---- control operations
    void controlFrames_data()
    {
        QTest::addColumn<int>("protocol");
        QTest::addColumn<int>("op");
        QTest::addColumn<QString>("arg");
        QTest::addColumn<bool>("powerBefore");
        QTest::addColumn<int>("curModel");
        QTest::addColumn<QString>("effectBefore");
        QTest::addColumn<QString>("frame");

        for (int p : {1, 2, 3, 5, 6, 7, 162, 163}) {
            QTest::addRow("%d powerOn", p) << p << int(PowerOn) << QString() << false << 1 << QString() << "ff a1 01 00 00 aa";
            QTest::addRow("%d powerOff", p) << p << int(PowerOff) << QString() << true << 1 << QString() << "ff a1 01 01 01 aa";
            QTest::addRow("%d brightness 75", p) << p << int(Brightness) << "75" << true << 1 << QString() << "ff a2 01 4b 4b aa";
            QTest::addRow("%d temperature 3200", p) << p << int(Temperature) << "3200" << true << 1 << QString()
                                                    << "ff a3 02 0c 80 8c aa";
            QTest::addRow("%d effect 12", p) << p << int(Effect) << "12" << true << 1 << QString() << "ff a1 01 0c 0c aa";
            QTest::addRow("%d colour", p) << p << int(Color) << "#ff00ff" << true << 1 << QString()
                                          << ((p == 2 || p == 7) ? "ff a4 03 01 2c 64 91 aa" : "");
        }
        // 55 AA: every brightness-carrying operation sends the frame of the current mode.
        const QString cct60 = QStringLiteral("55 aa 03 01 00 05 01 3c 0f a0 00 a6 0a");
        const QString cctOff = QStringLiteral("55 aa 03 01 00 05 01 00 0f a0 00 aa 5a");
        const QString cct75 = QStringLiteral("55 aa 03 01 00 05 01 4b 0f a0 00 bd be");
        QTest::newRow("1001 powerOn CCT") << 1001 << int(PowerOn) << QString() << false << 1 << QString() << cct60;
        QTest::newRow("1001 powerOn effect") << 1001 << int(PowerOn) << QString() << false << 2 << "C-3"
                                             << "55 aa 03 01 00 05 03 3c 03 03 00 67 39";
        QTest::newRow("1001 powerOff CCT") << 1001 << int(PowerOff) << QString() << true << 1 << QString() << cctOff;
        QTest::newRow("1001 powerOff unknown mode is CCT") << 1001 << int(PowerOff) << QString() << true << -1 << QString()
                                                           << cctOff;
        QTest::newRow("1001 powerOff effect") << 1001 << int(PowerOff) << QString() << true << 2 << "A-1"
                                              << "55 aa 03 01 00 05 03 00 01 01 00 cb c9";
        QTest::newRow("1001 brightness CCT") << 1001 << int(Brightness) << "75" << true << 1 << QString() << cct75;
        QTest::newRow("1001 brightness effect") << 1001 << int(Brightness) << "75" << true << 2 << "B-8"
                                                << "55 aa 03 01 00 05 03 4b 02 08 00 2a 7d";
        QTest::newRow("1001 temperature from effect") << 1001 << int(Temperature) << "3200" << true << 2 << "B-8"
                                                      << "55 aa 03 01 00 05 01 28 0c 80 00 4a 3a";
        QTest::newRow("1001 effect C-3") << 1001 << int(Effect) << "C-3" << true << 1 << QString()
                                         << "55 aa 03 01 00 05 03 28 03 03 00 62 c9";
        QTest::newRow("1001 colour sends nothing") << 1001 << int(Color) << "#ff00ff" << true << 1 << QString() << "";
        // Effect texts of the other family, or the codes of on, off and the state request, build
        // no frame and leave the mode alone.
        QTest::newRow("2 effect A-1") << 2 << int(Effect) << "A-1" << true << 1 << QString() << "";
        QTest::newRow("2 effect 1 (off)") << 2 << int(Effect) << "1" << true << 1 << QString() << "";
        QTest::newRow("2 effect 48 (state)") << 2 << int(Effect) << "48" << true << 3 << "9" << "";
        QTest::newRow("1001 effect 7") << 1001 << int(Effect) << "7" << true << 1 << QString() << "";
        QTest::newRow("1001 effect empty") << 1001 << int(Effect) << QString() << true << 1 << QString() << "";
        // An effect mode whose text cannot be sent again falls back to colour temperature.
        QTest::newRow("1001 powerOn unnamed effect") << 1001 << int(PowerOn) << QString() << false << 2 << QString() << cct60;
        QTest::newRow("1001 powerOff unnamed effect") << 1001 << int(PowerOff) << QString() << true << 2 << QString()
                                                      << cctOff;
        QTest::newRow("1001 brightness unknown effect") << 1001 << int(Brightness) << "75" << true << 2 << "@-0" << cct75;
        // Values outside the table, or a broken record, send nothing at all.
        for (int p : {-5, 0, 4, 8, 161, 164, 1000, 1002, 2001}) {
            QTest::addRow("%d powerOn", p) << p << int(PowerOn) << QString() << false << 1 << QString() << "";
            QTest::addRow("%d brightness", p) << p << int(Brightness) << "75" << true << 1 << QString() << "";
        }
    }

    void controlFrames()
    {
        QFETCH(int, protocol);
        QFETCH(int, op);
        QFETCH(QString, arg);
        QFETCH(int, curModel);
        QFETCH(QString, effectBefore);
        QFETCH(QString, frame);
        QFETCH(bool, powerBefore);
        DevData dev = light(protocol, true, powerBefore);
        dev.devCurModel = curModel;
        dev.lightEffect = effectBefore;
        m_store->addDev(dev);
        apply(op, arg);
        QCOMPARE(m_plugin->framesTo(kAddr), frame.isEmpty() ? QStringList() : QStringList{frame});

        const DevData after = stored();
        if (curModel == 2 && frame.startsWith(QLatin1String("55 aa 03 01 00 05 01")))
            QCOMPARE(after.devCurModel, 1); // the effect fell back to colour temperature
        switch (Op(op)) {
        case PowerOn:
            QCOMPARE(after.switchState, !frame.isEmpty()); // a light sent nothing did not come on
            if (protocol == 1001)
                QCOMPARE(after.brightness, 60);
            break;
        case PowerOff:
            QCOMPARE(after.switchState, false);
            break;
        case Brightness:
            QCOMPARE(after.brightness, 75);
            break;
        case Temperature:
            QCOMPARE(after.temperature, 3200);
            QCOMPARE(after.devCurModel, 1);
            break;
        case Effect:
            QCOMPARE(after.lightEffect, frame.isEmpty() ? effectBefore : arg);
            QCOMPARE(after.devCurModel, frame.isEmpty() ? curModel : 2);
            break;
        case Color:
            // A light without colour keeps its mode: nothing was sent for a colour one.
            QCOMPARE(after.colorLight, frame.isEmpty() ? dev.colorLight : arg);
            QCOMPARE(after.devCurModel, frame.isEmpty() ? curModel : 3);
            break;
        }
    }

    void controlPreconditions_data()
    {
        QTest::addColumn<int>("protocol");
        QTest::addColumn<int>("op");
        QTest::addColumn<bool>("online");
        QTest::addColumn<bool>("power");
        for (int p : {2, 1001}) {
            QTest::addRow("%d powerOn offline", p) << p << int(PowerOn) << false << false;
            QTest::addRow("%d powerOn already on", p) << p << int(PowerOn) << true << true;
            QTest::addRow("%d powerOff already off", p) << p << int(PowerOff) << true << false;
            QTest::addRow("%d temperature off", p) << p << int(Temperature) << true << false;
            QTest::addRow("%d effect off", p) << p << int(Effect) << true << false;
            QTest::addRow("%d colour off", p) << p << int(Color) << true << false;
            QTest::addRow("%d brightness off", p) << p << int(Brightness) << true << false;
        }
    }

    void controlPreconditions()
    {
        QFETCH(int, protocol);
        QFETCH(int, op);
        QFETCH(bool, online);
        QFETCH(bool, power);
        m_store->addDev(light(protocol, online, power));
        QSignalSpy updates(m_store.get(), &DevDataMgr::onUpdateDev);
        const QStringList args{QString(), QString(), "5", "5000", "A-1", "#ff0000"};
        apply(op, args.at(op));
        QVERIFY(m_plugin->writes.isEmpty());
        QCOMPARE(updates.count(), 0);
        const DevData after = stored();
        QCOMPARE((QVariantList{after.switchState, after.brightness, after.temperature, after.lightEffect,
                               after.colorLight, after.devCurModel}),
                 (QVariantList{power, 40, 4000, QString(), QStringLiteral("#FFFFFF"), 1}));
        // An unknown address is ignored by every operation.
        for (int other = PowerOn; other <= Color; ++other)
            apply(other, args.at(other), QStringLiteral("nobody"));
        QVERIFY(m_plugin->writes.isEmpty());
    }

    // Switched on after being dark with no brightness to return to (0, or never known), a 55 AA
    // light comes back at 1.
    void powerOn55AAUsesOldBrightness()
    {
        for (const QString &addr : {kAddr, kOther}) {
            DevData dev = light(1001, true, false, addr);
            dev.oldBrightness = addr == kAddr ? 0 : -1;
            m_store->addDev(dev);
            m_mgr->powerOn(addr);
            QCOMPARE(m_plugin->framesTo(addr), QStringList{bluetoothProtocol2().cctModeFrame(1, 4000).toHex(' ')});
            QCOMPARE(stored(addr).brightness, 1);
            QCOMPARE(stored(addr).switchState, true);
        }
    }

private:
    DevData light(int protocol, bool online = true, bool power = true, const QString &addr = kAddr) const
    {
        DevData dev;
        dev.addr = addr;
        dev.name = QStringLiteral("Key light");
        dev.protocol = protocol;
        dev.linkState = online ? 1 : 0;
        dev.switchState = power;
        dev.brightness = 40;
        dev.oldBrightness = 60;
        dev.temperature = 4000;
        dev.devCurModel = 1;
        return dev;
    }

    void apply(int op, const QString &arg, const QString &addr = kAddr)
    {
        switch (Op(op)) {
        case PowerOn: m_mgr->powerOn(addr); break;
        case PowerOff: m_mgr->powerOff(addr); break;
        case Brightness: m_mgr->setBrightness(addr, arg.toInt()); break;
        case Temperature: m_mgr->setTemperature(addr, arg.toInt()); break;
        case Effect: m_mgr->setLightEffect(addr, arg); break;
        case Color: m_mgr->setColor(addr, QColor(arg)); break;
        }
    }

    DevData stored(const QString &addr = kAddr) const
    {
        const DevData *dev = m_store->findDev(addr);
        return dev ? *dev : DevData();
    }

    void message(const QByteArray &frame, const QString &addr = kAddr) { emit m_plugin->sigMessageReceived(addr, frame); }

    std::unique_ptr<TestHome> m_home;
    std::shared_ptr<DevDataMgr> m_store;
    std::unique_ptr<FakeBlePlugin> m_plugin;
    std::unique_ptr<BluetoothMgr> m_mgr;
};

QTEST_GUILESS_MAIN(TestBluetoothMgr)
#include "tst_bluetoothmgr.moc"
