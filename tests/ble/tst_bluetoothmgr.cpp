// The BLE light manager driven through an in-process plug-in: connections, scanning,
// connection handling, every control operation with its preconditions, and the decoding of every
// notification kind into the store.
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

QString hexText(const QByteArray &frame)
{
    return QString::fromLatin1(frame.toHex(' '));
}

const QString kAddr = QStringLiteral("C0:FF:EE:00:00:01");

} // namespace

class FakeBlePlugin : public BrivonQXBleInterface
{
    Q_OBJECT
    Q_INTERFACES(BrivonQXBleInterface)

public:
    void startScan() override { calls << QStringLiteral("startScan"); }
    void stopScan() override { calls << QStringLiteral("stopScan"); }
    void writeData(const QString &devAddr, const QByteArray &data) override
    {
        writes << QStringLiteral("%1 %2").arg(devAddr, hexText(data));
    }
    void connectToDevice(const QString &devAddr) override { calls << QStringLiteral("connectToDevice ") + devAddr; }
    bool reconnectDevice(const QString &devAddr) override
    {
        calls << QStringLiteral("reconnectDevice ") + devAddr;
        return reconnectResult;
    }
    void removeDevice(const QString &devAddr) override { calls << QStringLiteral("removeDevice ") + devAddr; }

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

// ---- control operations
namespace {
enum Op { PowerOn, PowerOff, Brightness, Temperature, Effect, Color };
} // namespace

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

    void cleanup()
    {
        m_mgr.reset();
        m_plugin.reset();
        m_store.reset();
        m_home.reset();
    }

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
        QCOMPARE(m_plugin->calls, (QStringList{
            QStringLiteral("startScan"), QStringLiteral("stopScan"), QStringLiteral("startScan"),
            QStringLiteral("connectToDevice ") + kAddr, QStringLiteral("reconnectDevice ") + kAddr,
            QStringLiteral("reconnectDevice ") + kAddr, QStringLiteral("removeDevice ") + kAddr,
            QStringLiteral("removeDevice AA:BB")}));
        QCOMPARE(reconnects.count(), 2);
        QCOMPARE(reconnects.at(0).at(0).toString(), kAddr);
    }

    // ---- discovery
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
        QCOMPARE(dev.addr, kAddr);
        QCOMPARE(dev.name, QStringLiteral("Panel"));
        QCOMPARE(dev.protocol, protocol);
        QCOMPARE(dev.switchState, false);
        QCOMPARE(dev.devCurModel, -1);
        QTEST(dev.colorLightEnable, "colorEnable");
        QTEST(dev.lightEffectEnable, "effectEnable");
        QTEST(dev.temperatureMin, "temperatureMin");
        QCOMPARE(dev.temperatureMax, 6500);
        QCOMPARE(dev.brightnessMin, 0);
        QCOMPARE(dev.brightnessMax, 100);
        // Not stored: the device manager collects it for the scan list.
        QVERIFY(!m_store->findDev(kAddr));
        QVERIFY(m_plugin->calls.isEmpty());
    }

    void discoveryReconnectsStoredOfflineLights()
    {
        LogCapture log;
        DevData offline = light(2, false);
        m_store->addDev(offline);
        const DevData online = light(1, true, true, QStringLiteral("C0:FF:EE:00:00:02"));
        m_store->addDev(online);

        emit m_plugin->sigDeviceDiscovered(2, offline.addr, QStringLiteral("a"));
        emit m_plugin->sigDeviceDiscovered(1, online.addr, QStringLiteral("b"));
        emit m_plugin->sigDeviceDiscovered(7, QStringLiteral("C0:FF:EE:00:00:03"), QStringLiteral("new"));
        QCOMPARE(m_plugin->calls, QStringList{QStringLiteral("connectToDevice ") + offline.addr});
        QVERIFY(log.contains(QStringLiteral("[BluetoothMgr::handleDeviceDiscovered]:  addr: ") + online.addr));
        QVERIFY(log.contains(QStringLiteral("[BluetoothMgr::connectToDevice]: addr: ") + offline.addr));
    }

    // ---- connection
    void connectRequestsState_data()
    {
        QTest::addColumn<int>("protocol");
        QTest::addColumn<QString>("request");
        QTest::addColumn<int>("linkState");

        const QString ffRequest = QStringLiteral("ff a1 01 30 30 aa");
        for (int p : {1, 2, 3, 5, 6, 7, 162, 163})
            QTest::addRow("protocol %d", p) << p << ffRequest << 1;
        QTest::newRow("protocol 1001") << 1001 << QStringLiteral("55 aa 03 06 00 01 01 a0 d8") << 0;
        QTest::newRow("protocol 4: online, no request") << 4 << QString() << 1;
    }

    void connectRequestsState()
    {
        QFETCH(int, protocol);
        QFETCH(QString, request);
        m_store->addDev(light(protocol, false, false));
        LogCapture log;
        emit m_plugin->sigDeviceConnected(kAddr);
        QTEST(int(stored().linkState), "linkState");
        QCOMPARE(m_plugin->framesTo(kAddr), request.isEmpty() ? QStringList() : QStringList{request});
        QVERIFY(log.contains(QStringLiteral("[BluetoothMgr::handleDeviceConnected]:  addr: ") + kAddr));

        // An address that is not stored gets nothing.
        emit m_plugin->sigDeviceConnected(QStringLiteral("00:00:00:00:00:00"));
        QCOMPARE(m_plugin->writes.size(), request.isEmpty() ? 0 : 1);
    }

    void connect55AASetsRangesAndStaysOffline()
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
        QCOMPARE(announced.brightnessMin, 0);
        QCOMPARE(announced.brightnessMax, 100);
        QCOMPARE(announced.temperatureMin, 2900);
        QCOMPARE(announced.temperatureMax, 6500);
        QCOMPARE(int(announced.linkState), 0);
        QCOMPARE(updates.count(), 1);
        QCOMPARE(int(stored().linkState), 0);
        QCOMPARE(stored().temperatureMin, 2900);
    }

    void disconnectMarksOffline()
    {
        m_store->addDev(light(2, true, true));
        LogCapture log;
        emit m_plugin->sigDeviceDisconnected(kAddr);
        QCOMPARE(int(stored().linkState), 0);
        QCOMPARE(stored().switchState, true);
        QVERIFY(log.contains(QStringLiteral("[BluetoothMgr::handleDeviceDisconnected]:  addr: ") + kAddr));
        emit m_plugin->sigDeviceDisconnected(QStringLiteral("unknown")); // ignored without a trace
    }

    void lostLinkIsTriedAgainWithGrowingPauses()
    {
        m_store->addDev(light(2));
        QSignalSpy reconnecting(m_mgr.get(), &BaseDevice::sigReconnecting);
        LogCapture log;
        emit m_plugin->sigDeviceDisconnected(kAddr);
        QVERIFY(m_mgr->isReconnecting(kAddr));
        // Nobody answers: each attempt fails after 300 ms, and only then is the next one scheduled.
        const QString attempt = QStringLiteral("reconnectDevice ") + kAddr;
        QVERIFY(QTest::qWaitFor([&] { return m_plugin->calls.count(attempt) >= 4; }, 10000));
        QStringList steps;
        QList<int> pauses;
        for (const QString &line : log.lines()) {
            if (line.startsWith(QLatin1String("[BluetoothMgr::scheduleReconnect]")))
                pauses << line.section(QStringLiteral("inMs: "), 1).toInt();
            else if (line.startsWith(QLatin1String("[BluetoothMgr::reconnect]")))
                steps << QStringLiteral("try");
            else if (line.contains(QLatin1String("no answer")))
                steps << QStringLiteral("fail");
        }
        QCOMPARE(steps.mid(0, 6), (QStringList{"try", "fail", "try", "fail", "try", "fail"}));
        const int nominal[] = {40, 80, 160, 160};
        for (int i = 0; i < 4; ++i)
            QVERIFY2(pauses.value(i) <= nominal[i] && pauses.value(i) >= nominal[i] * 85 / 100, qPrintable(QString::number(pauses.value(i))));
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
        QTest::addColumn<int>("brightness");
        QTest::addColumn<int>("temperature");
        QTest::addColumn<int>("hue");
        QTest::addColumn<int>("saturation");
        QTest::addColumn<QString>("effect");
        QTest::addColumn<QString>("color");
        QTest::addColumn<int>("devCurModel");
        QTest::addColumn<bool>("power");

        QTest::newRow("CCT on, colour kept") << 1 << hex("FF 10 09 32 15 E0 00 00 00 00 02 01 00 AA") << 50 << 5600 << 0
                                             << 0 << QStringLiteral("2") << QStringLiteral("#123456") << 1 << true;
        QTest::newRow("colour mode sets colour") << 2 << hex("FF A4 09 64 0A 8C 00 F0 64 00 03 01 00 AA") << 100 << 2700
                                                 << 240 << 100 << QStringLiteral("3") << QStringLiteral("#0000ff") << 3
                                                 << true;
        QTest::newRow("effect 9 off") << 7 << hex("FF A1 09 0A 19 64 00 00 00 00 09 00 00 AA") << 10 << 6500 << 0 << 0
                                      << QStringLiteral("9") << QStringLiteral("#123456") << 2 << false;
        QTest::newRow("unknown mode, 162") << 162 << hex("FF 01 09 0A 19 64 00 00 00 00 01 01 00 AA") << 10 << 6500 << 0
                                           << 0 << QStringLiteral("1") << QStringLiteral("#123456") << -1 << true;
        QTest::newRow("163, bad checksum no trailer") << 163 << hex("FF 01 09 0B 19 64 00 00 00 00 02 01") << 11 << 6500
                                                      << 0 << 0 << QStringLiteral("2") << QStringLiteral("#123456") << 1
                                                      << true;
    }

    void vTypeReportDecodedIntoStore()
    {
        QFETCH(int, protocol);
        QFETCH(QByteArray, frame);
        DevData dev = light(protocol, false, false);
        dev.colorLight = QStringLiteral("#123456");
        m_store->addDev(dev);
        LogCapture log;
        QSignalSpy updates(m_store.get(), &DevDataMgr::onUpdateDev);
        message(frame);
        QCOMPARE(updates.count(), 1);
        const DevData after = stored();
        QTEST(after.brightness, "brightness");
        QTEST(after.temperature, "temperature");
        QTEST(after.auxValue1, "hue");
        QTEST(after.auxValue2, "saturation");
        QTEST(after.lightEffect, "effect");
        QTEST(after.colorLight, "color");
        QTEST(after.devCurModel, "devCurModel");
        QTEST(after.switchState, "power");
        QCOMPARE(int(after.linkState), 1);
        QCOMPARE(after.oldBrightness, 60);
        QCOMPARE(log.matching(QStringLiteral("[BluetoothMgr::doVTypeDevRecvData]:  addr: ") + kAddr).size(), 1);
        QVERIFY(log.contains(QStringLiteral("[BluetoothMgr::handleMessageReceived]:  addr: ") + kAddr + QLatin1Char(' ')
                             + QString::fromLatin1(frame.toHex())));
    }

    void vTypeReportStoresOnlyChanges()
    {
        m_store->addDev(light(2, false, false));
        QSignalSpy updates(m_store.get(), &DevDataMgr::onUpdateDev);
        const QByteArray report = hex("FF 10 09 32 15 E0 00 00 00 00 02 01 00 AA");
        message(report);
        message(report);
        QCOMPARE(updates.count(), 1);
        message(hex("FF 10 09 33 15 E0 00 00 00 00 02 01 00 AA"));
        QCOMPARE(updates.count(), 2);
        QCOMPARE(stored().brightness, 0x33);
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
        const QString other = QStringLiteral("C0:FF:EE:00:00:02");
        m_store->addDev(light(protocol, true, true, other));
        const QByteArray report = protocol == 1001 ? hex("55 AA 03 30 00 04 01 4D 13 88 00 00")
                                                   : hex("FF 10 09 4D 13 88 00 00 00 00 02 01 00 AA");
        // Only the light being dragged holds its reports back; another light's end of drag does
        // not release it.
        m_mgr->setAdjusting(kAddr, true);
        m_mgr->setAdjusting(other, true);
        m_mgr->setAdjusting(other, false);
        message(report);
        message(report, other);
        QCOMPARE(stored().brightness == 0x4D, appliedWhileAdjusting);
        QCOMPARE(stored(other).brightness, 0x4D);
        m_mgr->setAdjusting(kAddr, false);
        message(report);
        QCOMPARE(stored().brightness, 0x4D);
        QCOMPARE(stored().temperature, 5000);
    }

    // ---- 55 AA reports
    void aaModeReports_data()
    {
        QTest::addColumn<QByteArray>("frame");
        QTest::addColumn<int>("brightness");
        QTest::addColumn<int>("temperature");
        QTest::addColumn<int>("updates");

        QTest::newRow("01 CCT report") << hex("55 AA 03 01 00 05 01 46 15 E0 00 00 00") << 70 << 5600 << 1;
        QTest::newRow("30 CCT report, bad CRC") << hex("55 AA 03 30 00 04 01 46 15 E0 12 34") << 70 << 5600 << 1;
        QTest::newRow("01 unchanged values") << hex("55 AA 03 01 00 04 01 28 0F A0 00 00") << 40 << 4000 << 0;
        QTest::newRow("01 mode byte 3 ignored") << hex("55 AA 03 01 00 05 03 46 01 02 00 00 00") << 40 << 4000 << 0;
        QTest::newRow("30 too short") << hex("55 AA 03 30 00 03 01 46 15 00 00") << 40 << 4000 << 0;
    }

    void aaModeReports()
    {
        QFETCH(QByteArray, frame);
        m_store->addDev(light(1001, true, true));
        QSignalSpy updates(m_store.get(), &DevDataMgr::onUpdateDev);
        message(frame);
        QTEST(stored().brightness, "brightness");
        QTEST(stored().temperature, "temperature");
        QTEST(int(updates.count()), "updates");
        QVERIFY(m_plugin->writes.isEmpty());
    }

    void aaCurrentModeMakesOnlineAndAsksProductInfo()
    {
        m_store->addDev(light(1001, false, true));
        message(hex("55 AA 03 06 00 04 01 3C 13 88 5B 78"));
        QCOMPARE(int(stored().linkState), 1);
        QCOMPARE(m_plugin->framesTo(kAddr), QStringList{QStringLiteral("55 aa 03 21 00 01 01 aa 6c")});

        // A mode the manager does not know still counts as the answer.
        m_store->addDev(light(1001, false, true, QStringLiteral("X")));
        message(hex("55 AA 03 06 00 04 02 3C 13 88 00 00"), QStringLiteral("X"));
        QCOMPARE(int(stored(QStringLiteral("X")).linkState), 1);
        QCOMPARE(stored(QStringLiteral("X")).brightness, 40);
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
        LogCapture log;
        QByteArray frame = hex("55 AA 03 06 00 04 01 00 13 88 00 00");
        frame[7] = char(reported);
        message(frame);
        QTEST(stored().switchState, "powerAfter");
        QTEST(stored().brightness, "brightnessAfter");
        QCOMPARE(stored().temperature, 5000);
        QCOMPARE(stored().devCurModel, 1);
        QTEST(stored().oldBrightness, "oldAfter");
        const QStringList lines = log.matching(QStringLiteral("[BluetoothMgr::doDevCurModelData], addr: ") + kAddr);
        QCOMPARE(lines.size(), 1);
        QVERIFY(lines.first().contains(QLatin1String(", temperature: 5000")));
        QVERIFY(lines.first().contains(QLatin1String(", toUpdate: true")));
    }

    void aaCurrentModeEffectAsksCctData()
    {
        m_store->addDev(light(1001, false, true));
        LogCapture log;
        message(hex("55 AA 03 06 00 04 03 28 02 05 D6 F1"));
        QCOMPARE(stored().lightEffect, QStringLiteral("B-5"));
        QCOMPARE(stored().brightness, 40);
        QCOMPARE(stored().devCurModel, 2);
        QCOMPARE(stored().temperature, 4000);
        QCOMPARE(m_plugin->framesTo(kAddr), (QStringList{QStringLiteral("55 aa 03 07 00 01 01 a1 24"),
                                                         QStringLiteral("55 aa 03 21 00 01 01 aa 6c")}));
        QVERIFY(log.contains(QStringLiteral(", effectCmd: B-5")));

        // The CCT data answer then brings the temperature.
        message(hex("55 AA 03 07 00 03 28 19 64 00 00"));
        QCOMPARE(stored().temperature, 6500);
        QCOMPARE(stored().lightEffect, QStringLiteral("B-5"));
    }

    void aaCctData()
    {
        m_store->addDev(light(1001, true, true));
        LogCapture log;
        QSignalSpy updates(m_store.get(), &DevDataMgr::onUpdateDev);
        message(hex("55 AA 03 07 00 03 46 19 64 C2 5D"));
        QCOMPARE(stored().brightness, 70);
        QCOMPARE(stored().temperature, 6500);
        message(hex("55 AA 03 07 00 03 46 19 64 C2 5D"));
        QCOMPARE(updates.count(), 1);
        const QStringList lines = log.matching(QStringLiteral("[BluetoothMgr::doDevCCTModelData], brightness: 70"));
        QCOMPARE(lines.size(), 2);
        QVERIFY(lines.at(0).contains(QLatin1String(", temperature: 6500 , toUpdate: true")));
        QVERIFY(lines.at(1).contains(QLatin1String(", toUpdate: false")));
    }

    void aaProductInfoIsLogged()
    {
        m_store->addDev(light(1001, true, true));
        LogCapture log;
        QSignalSpy updates(m_store.get(), &DevDataMgr::onUpdateDev);
        QByteArray payload;
        for (int i = 0; i < 24; ++i)
            payload.append(char(i));
        bluetoothProtocol2 codec;
        message(codec.pack(0x21, 24, std::vector<quint8>(payload.begin(), payload.end())));
        // The raw frame's hex dump holds these digits too: only the decoder's own line counts.
        const QStringList lines = log.matching(QStringLiteral("[BluetoothMgr::doDevProductBaseInfo], addr: ") + kAddr);
        QCOMPARE(lines.size(), 1);
        QVERIFY2(lines.first().endsWith(QLatin1String(", productId: 010203040506 , softwareVersion: 1415"
                                                      " , hardwareVersion: 1617")), qPrintable(lines.first()));
        QCOMPARE(updates.count(), 0);
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
        LogCapture log;
        QByteArray frame = hex("55 AA 03 32 00 04 01 00 10 68 00 00");
        frame[7] = char(reported);
        message(frame);
        QCOMPARE(stored().switchState, true);
        QCOMPARE(stored().temperature, 0x1068);
        QCOMPARE(stored().devCurModel, 1);
        QTEST(stored().brightness, "brightnessAfter");
        QTEST(stored().oldBrightness, "oldAfter");
        QTEST(stored().lightEffect, "effectAfter");
        QCOMPARE(m_plugin->framesTo(kAddr), resent.isEmpty() ? QStringList() : QStringList{resent});
        QVERIFY(log.contains(QStringLiteral("[BluetoothMgr::doDevModifyDataUpload], addr: ") + kAddr));
    }

    void ignoredFrames_data()
    {
        QTest::addColumn<int>("protocol");
        QTest::addColumn<QByteArray>("frame");
        QTest::newRow("id 33") << 1001 << hex("55 AA 03 33 00 04 01 46 15 E0 00 00");
        QTest::newRow("id 02") << 1001 << hex("55 AA 03 02 00 04 01 46 15 E0 00 00");
        QTest::newRow("06 three bytes") << 1001 << hex("55 AA 03 06 00 03 01 46 15 00 00");
        QTest::newRow("32 three bytes") << 1001 << hex("55 AA 03 32 00 03 01 46 15 00 00");
        QTest::newRow("07 two bytes") << 1001 << hex("55 AA 03 07 00 02 46 15 00 00");
        QTest::newRow("06 length beyond bytes") << 1001 << hex("55 AA 03 06 00 09 01 46 15 E0 00 00");
        QTest::newRow("06 length 256") << 1001 << (hex("55 AA 03 06 01 00 01 46 15 E0") + QByteArray(260, '\0'));
        QTest::newRow("21 short") << 1001 << hex("55 AA 03 21 00 04 01 46 15 E0 00 00");
        QTest::newRow("FF framing") << 1001 << hex("FF 10 09 4D 13 88 00 00 00 00 02 01 00 AA");
        QTest::newRow("V: wrong start byte") << 2 << hex("FE 10 09 32 15 E0 00 00 00 00 02 01 00 AA");
        QTest::newRow("V: payload shorter than a report") << 2 << hex("FF 10 08 32 15 E0 00 00 00 00 02 00 AA");
        QTest::newRow("V: declared longer than present") << 2 << hex("FF 10 09 32 15 E0 00");
        QTest::newRow("V: 55 AA framing") << 2 << hex("55 AA 03 06 00 04 01 3C 13 88 5B 78");
        QTest::newRow("V: empty") << 2 << QByteArray();
    }

    void ignoredFrames()
    {
        QFETCH(int, protocol);
        QFETCH(QByteArray, frame);
        m_store->addDev(light(protocol, false, false));
        QSignalSpy updates(m_store.get(), &DevDataMgr::onUpdateDev);
        message(frame);
        QCOMPARE(updates.count(), 0);
        QVERIFY(m_plugin->writes.isEmpty());
        QCOMPARE(int(stored().linkState), 0);
    }

    void unknownAddressAndBadProtocolLogged()
    {
        LogCapture log;
        message(hex("FF 10 09 4D 13 88 00 00 00 00 02 01 00 AA"), QStringLiteral("AA:AA"));
        QStringList lines = log.lines();
        int notFound = -1;
        for (int i = 0; i < lines.size(); ++i) {
            if (lines.at(i) == QLatin1String("[BluetoothMgr::getProtocolType] not found mac addr: AA:AA"))
                notFound = i;
        }
        QVERIFY(notFound >= 0);
        QVERIFY(notFound + 1 < lines.size());
        QCOMPARE(lines.at(notFound + 1), QStringLiteral("protocol type error: -1"));

        DevData broken = light(-5);
        m_store->addDev(broken);
        log.clear();
        m_mgr->setBrightness(kAddr, 10);
        QVERIFY(log.contains(QStringLiteral("protocol type error: -5")));
        QVERIFY(m_plugin->writes.isEmpty());
        QCOMPARE(m_mgr->getProtocolType(kAddr), -5);
    }

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
            QTest::addRow("%d powerOn", p) << p << int(PowerOn) << QString() << false << 1 << QString()
                                           << QStringLiteral("ff a1 01 00 00 aa");
            QTest::addRow("%d powerOff", p) << p << int(PowerOff) << QString() << true << 1 << QString()
                                            << QStringLiteral("ff a1 01 01 01 aa");
            QTest::addRow("%d brightness 75", p) << p << int(Brightness) << QStringLiteral("75") << true << 1 << QString()
                                                 << QStringLiteral("ff a2 01 4b 4b aa");
            QTest::addRow("%d temperature 3200", p) << p << int(Temperature) << QStringLiteral("3200") << true << 1
                                                    << QString() << QStringLiteral("ff a3 02 0c 80 8c aa");
            QTest::addRow("%d effect 12", p) << p << int(Effect) << QStringLiteral("12") << true << 1 << QString()
                                             << QStringLiteral("ff a1 01 0c 0c aa");
            QTest::addRow("%d colour", p) << p << int(Color) << QStringLiteral("#ff00ff") << true << 1 << QString()
                                          << ((p == 2 || p == 7) ? QStringLiteral("ff a4 03 01 2c 64 91 aa") : QString());
        }
        // 55 AA: every brightness-carrying operation sends the frame of the current mode.
        QTest::newRow("1001 powerOn CCT") << 1001 << int(PowerOn) << QString() << false << 1 << QString()
                                          << QStringLiteral("55 aa 03 01 00 05 01 3c 0f a0 00 a6 0a");
        QTest::newRow("1001 powerOn effect") << 1001 << int(PowerOn) << QString() << false << 2 << QStringLiteral("C-3")
                                             << QStringLiteral("55 aa 03 01 00 05 03 3c 03 03 00 67 39");
        QTest::newRow("1001 powerOff CCT") << 1001 << int(PowerOff) << QString() << true << 1 << QString()
                                           << QStringLiteral("55 aa 03 01 00 05 01 00 0f a0 00 aa 5a");
        QTest::newRow("1001 powerOff unknown mode is CCT") << 1001 << int(PowerOff) << QString() << true << -1 << QString()
                                                           << QStringLiteral("55 aa 03 01 00 05 01 00 0f a0 00 aa 5a");
        QTest::newRow("1001 powerOff effect") << 1001 << int(PowerOff) << QString() << true << 2 << QStringLiteral("A-1")
                                              << QStringLiteral("55 aa 03 01 00 05 03 00 01 01 00 cb c9");
        QTest::newRow("1001 brightness CCT") << 1001 << int(Brightness) << QStringLiteral("75") << true << 1 << QString()
                                             << QStringLiteral("55 aa 03 01 00 05 01 4b 0f a0 00 bd be");
        QTest::newRow("1001 brightness effect") << 1001 << int(Brightness) << QStringLiteral("75") << true << 2
                                                << QStringLiteral("B-8")
                                                << QStringLiteral("55 aa 03 01 00 05 03 4b 02 08 00 2a 7d");
        QTest::newRow("1001 temperature from effect") << 1001 << int(Temperature) << QStringLiteral("3200") << true << 2
                                                      << QStringLiteral("B-8")
                                                      << QStringLiteral("55 aa 03 01 00 05 01 28 0c 80 00 4a 3a");
        QTest::newRow("1001 effect C-3") << 1001 << int(Effect) << QStringLiteral("C-3") << true << 1 << QString()
                                         << QStringLiteral("55 aa 03 01 00 05 03 28 03 03 00 62 c9");
        QTest::newRow("1001 colour sends nothing") << 1001 << int(Color) << QStringLiteral("#ff00ff") << true << 1
                                                   << QString() << QString();
        // Effect texts of the other family, or the codes of on, off and the state request, build
        // no frame and leave the mode alone.
        QTest::newRow("2 effect A-1") << 2 << int(Effect) << QStringLiteral("A-1") << true << 1 << QString() << QString();
        QTest::newRow("2 effect 1 (off)") << 2 << int(Effect) << QStringLiteral("1") << true << 1 << QString() << QString();
        QTest::newRow("2 effect 48 (state)") << 2 << int(Effect) << QStringLiteral("48") << true << 3 << QStringLiteral("9")
                                             << QString();
        QTest::newRow("1001 effect 7") << 1001 << int(Effect) << QStringLiteral("7") << true << 1 << QString() << QString();
        QTest::newRow("1001 effect empty") << 1001 << int(Effect) << QString() << true << 1 << QString() << QString();
        // An effect mode whose text cannot be sent again falls back to colour temperature.
        QTest::newRow("1001 powerOn unnamed effect") << 1001 << int(PowerOn) << QString() << false << 2 << QString()
                                                     << QStringLiteral("55 aa 03 01 00 05 01 3c 0f a0 00 a6 0a");
        QTest::newRow("1001 brightness unknown effect") << 1001 << int(Brightness) << QStringLiteral("75") << true << 2
                                                        << QStringLiteral("@-0")
                                                        << QStringLiteral("55 aa 03 01 00 05 01 4b 0f a0 00 bd be");
        // Values outside the table send nothing at all.
        for (int p : {0, 4, 8, 161, 164, 1000, 1002, 2001}) {
            QTest::addRow("%d powerOn", p) << p << int(PowerOn) << QString() << false << 1 << QString() << QString();
            QTest::addRow("%d brightness", p) << p << int(Brightness) << QStringLiteral("75") << true << 1 << QString()
                                              << QString();
        }
    }

    void controlFrames()
    {
        QFETCH(int, protocol);
        QFETCH(int, op);
        QFETCH(QString, arg);
        QFETCH(bool, powerBefore);
        QFETCH(int, curModel);
        QFETCH(QString, effectBefore);
        QFETCH(QString, frame);

        DevData dev = light(protocol, true, powerBefore);
        dev.devCurModel = curModel;
        dev.lightEffect = effectBefore;
        m_store->addDev(dev);
        apply(op, arg);
        QCOMPARE(m_plugin->framesTo(kAddr), frame.isEmpty() ? QStringList() : QStringList{frame});

        const DevData after = stored();
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
        const QStringList args{QString(), QString(), QStringLiteral("5"), QStringLiteral("5000"), QStringLiteral("A-1"),
                               QStringLiteral("#ff0000")};
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

    void powerOn55AAUsesOldBrightness_data()
    {
        QTest::addColumn<int>("oldBrightness");
        QTest::addColumn<int>("sent");
        QTest::newRow("old 0 raised to 1") << 0 << 1;
        QTest::newRow("never known raised to 1") << -1 << 1;
    }

    void powerOn55AAUsesOldBrightness()
    {
        QFETCH(int, oldBrightness);
        QFETCH(int, sent);
        DevData dev = light(1001, true, false);
        dev.oldBrightness = oldBrightness;
        m_store->addDev(dev);
        m_mgr->powerOn(kAddr);
        bluetoothProtocol2 codec;
        QCOMPARE(m_plugin->framesTo(kAddr), QStringList{hexText(codec.cctModeFrame(sent, 4000))});
        QCOMPARE(stored().brightness, sent);
        QCOMPARE(stored().switchState, true);
    }

    void aaEffectModeWithoutEffectFallsBackToColourTemperature()
    {
        DevData dev = light(1001, true, true);
        dev.devCurModel = 2;
        m_store->addDev(dev);
        m_mgr->setBrightness(kAddr, 30);
        m_mgr->powerOff(kAddr);
        bluetoothProtocol2 codec;
        QCOMPARE(m_plugin->framesTo(kAddr),
                 (QStringList{hexText(codec.cctModeFrame(30, 4000)), hexText(codec.cctModeFrame(0, 4000))}));
        QCOMPARE(stored().devCurModel, 1);
        QCOMPARE(stored().switchState, false);
    }

    void aaLightNeverAnsweringStaysOffline()
    {
        m_store->addDev(light(1001, false, false));
        emit m_plugin->sigDeviceConnected(kAddr);
        m_plugin->writes.clear();
        m_mgr->powerOn(kAddr);
        QVERIFY(m_plugin->writes.isEmpty());
        QCOMPARE(stored().switchState, false);

        // Once it reports its mode it is online and can be switched.
        message(hex("55 AA 03 06 00 04 01 00 13 88 00 00"));
        QCOMPARE(int(stored().linkState), 1);
        m_plugin->writes.clear();
        m_mgr->powerOn(kAddr);
        QCOMPARE(m_plugin->writes.size(), 1);
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

    void message(const QByteArray &frame, const QString &addr = kAddr)
    {
        emit m_plugin->sigMessageReceived(addr, frame);
    }

    std::unique_ptr<TestHome> m_home;
    std::shared_ptr<DevDataMgr> m_store;
    std::unique_ptr<FakeBlePlugin> m_plugin;
    std::unique_ptr<BluetoothMgr> m_mgr;
};

QTEST_GUILESS_MAIN(TestBluetoothMgr)
#include "tst_bluetoothmgr.moc"
