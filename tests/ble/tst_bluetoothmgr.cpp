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
using Frames = QHash<QString, QStringList>;

// The frames sent when only `frame` (if any) went to addr.
Frames onlyTo(const QString &addr, const QString &frame)
{
    return frame.isEmpty() ? Frames() : Frames{{addr, {frame}}};
}

QVariantMap with(QVariantMap map, const QVariantMap &more)
{
    map.insert(more);
    return map;
}

} // namespace

class FakeBlePlugin : public BrivonQXBleInterface
{
    Q_OBJECT
    Q_INTERFACES(BrivonQXBleInterface)

public:
    void startScan() override { calls << QStringLiteral("startScan"); }
    void stopScan() override { calls << QStringLiteral("stopScan"); }
    void writeData(const QString &addr, const QByteArray &data) override { frames[addr] << data.toHex(' '); }
    void connectToDevice(const QString &addr) override { calls << QStringLiteral("connectToDevice ") + addr; }
    bool reconnectDevice(const QString &addr) override { return (calls << "reconnectDevice " + addr, reconnectResult); }
    void removeDevice(const QString &addr) override { calls << QStringLiteral("removeDevice ") + addr; }

    QStringList framesTo(const QString &addr) const { return frames.value(addr); }

    QStringList calls;
    QHash<QString, QStringList> frames; // by address, in order, as spaced hex
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
    void discoveryAndConnection_data()
    {
        QTest::addColumn<int>("protocol");
        QTest::addColumn<bool>("colorEnable");
        QTest::addColumn<bool>("effectEnable");
        QTest::addColumn<int>("temperatureMin");
        QTest::addColumn<QString>("request"); // sent on connecting
        QTest::addColumn<int>("linkState");   // after connecting
        for (int p : {1, 2, 3, 5, 6, 7, 162, 163})
            QTest::addRow("protocol %d", p) << p << (p == 2 || p == 7) << true << 2700 << "ff a1 01 30 30 aa" << 1;
        QTest::newRow("protocol 1001") << 1001 << false << false << 2900 << "55 aa 03 06 00 01 01 a0 d8" << 0;
        QTest::newRow("protocol 4 keeps defaults") << 4 << false << true << 2700 << "" << 1;
    }

    void discoveryAndConnection()
    {
        QFETCH(int, protocol);
        QFETCH(QString, request);
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
        m_store->addDev(light(protocol, false, false));
        m_store->addDev(light(protocol, true, true, kOther));
        emit m_plugin->sigDeviceDiscovered(protocol, kOther, QStringLiteral("b"));
        emit m_plugin->sigDeviceDiscovered(protocol, kAddr, QStringLiteral("a"));
        QCOMPARE(m_plugin->calls, QStringList{"connectToDevice " + kAddr});

        // Connected, it is asked for its state; an address that is not stored gets nothing.
        emit m_plugin->sigDeviceConnected(kAddr);
        emit m_plugin->sigDeviceConnected(QStringLiteral("00:00:00:00:00:00"));
        QTEST(int(stored().linkState), "linkState");
        QCOMPARE(m_plugin->frames, onlyTo(kAddr, request));
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
        m_plugin->frames.clear();
        m_mgr->powerOn(kAddr);
        QVERIFY(m_plugin->frames.isEmpty());
        QCOMPARE(stored().switchState, false);

        message(hex("55 AA 03 06 00 04 01 00 13 88 5B 78"));
        QCOMPARE(int(stored().linkState), 1);
        QCOMPARE(m_plugin->framesTo(kAddr), QStringList{QStringLiteral("55 aa 03 21 00 01 01 aa 6c")});
        m_mgr->powerOn(kAddr);
        QCOMPARE(m_plugin->framesTo(kAddr).size(), 2);

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
        QTest::newRow("21 product info") << 1001 << bluetoothProtocol2().pack(0x21, 24, std::vector<quint8>(24, 0x46))
                                         << 40 << 4000;
        QTest::newRow("FF framing") << 1001 << hex("FF 10 09 4D 13 88 00 00 00 00 02 01 00 AA") << 40 << 4000;
        QTest::newRow("V: payload shorter than a report") << 2 << hex("FF 10 08 32 15 E0 00 00 00 00 02 00 AA") << 40
                                                          << 4000;
        QTest::newRow("V: 55 AA framing") << 2 << hex("55 AA 03 06 00 04 01 3C 13 88 5B 78") << 40 << 4000;
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
        QVERIFY(m_plugin->frames.isEmpty());
        QCOMPARE(int(stored().linkState), 0);
    }

    // 55 AA reports of the light's mode (06, the answer that brings it online) and of a change made
    // at the light (32): what is stored and what is sent back.
    void aaStateReports_data()
    {
        QTest::addColumn<QByteArray>("frame");
        QTest::addColumn<bool>("online");
        QTest::addColumn<bool>("power");
        QTest::addColumn<int>("old");
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("effect");
        QTest::addColumn<QVariantMap>("changes");
        QTest::addColumn<QStringList>("sent");
        const auto row = [](const char *name, const char *frame, bool online, bool power, int old, int mode,
                            const char *effect, const QVariantMap &changes, const QStringList &sent) {
            QTest::newRow(name) << hex(frame) << online << power << old << mode << QString(effect) << changes << sent;
        };
        const char *cct06 = "55 AA 03 06 00 04 01 46 13 88 00 00", *dark06 = "55 AA 03 06 00 04 01 00 13 88 00 00";
        const QString info = QStringLiteral("55 aa 03 21 00 01 01 aa 6c");
        const QVariantMap online5000{{"link", 1}, {"temperature", 5000}, {"mode", 1}};
        row("06 on: takes brightness", cct06, false, true, 60, 2, "", with(online5000, {{"brightness", 70}}), {info});
        // Dark at the light: the brightness it had is what switching on brings back.
        row("06 on: zero brightness stays on", dark06, false, true, 60, 2, "",
            with(online5000, {{"brightness", 0}, {"old", 40}}), {info});
        row("06 off: non-zero turns on", cct06, false, false, 60, 2, "",
            with(online5000, {{"power", true}, {"brightness", 70}}), {info});
        row("06 off: zero shows old brightness", dark06, false, false, 60, 2, "", with(online5000, {{"brightness", 60}}), {info});
        row("06 off: zero shows old brightness 1", dark06, false, false, 1, 2, "", with(online5000, {{"brightness", 1}}), {info});
        row("06 off: zero, no old brightness", dark06, false, false, -1, 2, "", with(online5000, {{"brightness", 0}}), {info});
        // An effect: the temperature is asked for, as the CCT data answer brings it.
        row("06 effect", "55 AA 03 06 00 04 03 28 02 05 D6 F1", false, true, 60, 1, "",
            {{"link", 1}, {"effect", "B-5"}, {"mode", 2}}, {"55 aa 03 07 00 01 01 a1 24", info});
        const char *knob32 = "55 AA 03 32 00 04 01 46 10 68 00 00", *dark32 = "55 AA 03 32 00 04 01 00 10 68 00 00";
        const QString cct60 = QStringLiteral("55 aa 03 01 00 05 01 3c 10 68 00 c0 0c");
        row("32 on: knob turned", knob32, true, true, 60, 1, "", {{"brightness", 70}, {"temperature", 0x1068}}, {});
        row("32 on: effect replaced by marker", knob32, true, true, 60, 2, "A-3",
            {{"brightness", 70}, {"temperature", 0x1068}, {"effect", "#-100"}, {"mode", 1}}, {});
        // Switched on at the light: the manager re-sends the remembered brightness.
        row("32 off: on at light, old kept", knob32, true, false, 60, 1, "",
            {{"power", true}, {"brightness", 60}, {"temperature", 0x1068}}, {cct60});
        row("32 off: on at light, old taken", knob32, true, false, 0, 1, "",
            {{"power", true}, {"brightness", 70}, {"old", 70}, {"temperature", 0x1068}},
            {"55 aa 03 01 00 05 01 46 10 68 00 d9 14"});
        row("32 off: zero, old re-sent", dark32, true, false, 60, 1, "",
            {{"power", true}, {"brightness", 60}, {"temperature", 0x1068}}, {cct60});
        row("32 off: zero, nothing to re-send", dark32, true, false, 0, 1, "", {{"power", true}, {"temperature", 0x1068}}, {});
    }

    void aaStateReports()
    {
        QFETCH(QByteArray, frame);
        QFETCH(bool, online);
        QFETCH(bool, power);
        QFETCH(int, old);
        QFETCH(int, mode);
        QFETCH(QString, effect);
        QFETCH(QVariantMap, changes);
        DevData dev = light(1001, online, power);
        dev.oldBrightness = old;
        dev.devCurModel = mode;
        dev.lightEffect = effect;
        m_store->addDev(dev);
        message(frame);
        QVariantMap expected = state(dev);
        expected.insert(changes);
        QCOMPARE(state(stored()), expected);
        QTEST(m_plugin->framesTo(kAddr), "sent");
    }

    // ---- control operations: the frame sent, and the stored state after it
    void controls_data()
    {
        QTest::addColumn<int>("protocol");
        QTest::addColumn<int>("op");
        QTest::addColumn<QString>("arg");
        QTest::addColumn<bool>("online");
        QTest::addColumn<bool>("power");
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("effect");
        QTest::addColumn<QString>("frame");
        QTest::addColumn<QVariantMap>("changes");
        const auto row = [](const QString &name, int p, Op op, const char *arg, bool online, bool power, int mode,
                            const char *effect, const QString &frame, const QVariantMap &changes) {
            QTest::newRow(qPrintable(name)) << p << int(op) << QString(arg) << online << power << mode << QString(effect)
                                            << frame << changes;
        };
        for (int p : {1, 2, 3, 5, 6, 7, 162, 163}) {
            const QString n = QString::number(p);
            row(n + " powerOn", p, PowerOn, "", true, false, 1, "", "ff a1 01 00 00 aa", {{"power", true}});
            row(n + " powerOff", p, PowerOff, "", true, true, 1, "", "ff a1 01 01 01 aa", {{"power", false}});
            row(n + " brightness 75", p, Brightness, "75", true, true, 1, "", "ff a2 01 4b 4b aa", {{"brightness", 75}});
            row(n + " temperature 3200", p, Temperature, "3200", true, true, 3, "", "ff a3 02 0c 80 8c aa",
                {{"temperature", 3200}, {"mode", 1}});
            row(n + " effect 12", p, Effect, "12", true, true, 1, "", "ff a1 01 0c 0c aa", {{"effect", "12"}, {"mode", 2}});
            if (p == 2 || p == 7)
                row(n + " colour", p, Color, "#ff00ff", true, true, 1, "", "ff a4 03 01 2c 64 91 aa",
                    {{"colour", "#ff00ff"}, {"mode", 3}});
            else // a light without colour keeps its mode
                row(n + " colour", p, Color, "#ff00ff", true, true, 1, "", "", {});
        }
        // 55 AA: every brightness-carrying operation sends the frame of the current mode.
        const QString cct60 = QStringLiteral("55 aa 03 01 00 05 01 3c 0f a0 00 a6 0a");
        const QString cctOff = QStringLiteral("55 aa 03 01 00 05 01 00 0f a0 00 aa 5a");
        const QString cct75 = QStringLiteral("55 aa 03 01 00 05 01 4b 0f a0 00 bd be");
        const QVariantMap on60{{"power", true}, {"brightness", 60}}, off{{"power", false}, {"old", 40}};
        row("1001 powerOn CCT", 1001, PowerOn, "", true, false, 1, "", cct60, on60);
        row("1001 powerOn effect", 1001, PowerOn, "", true, false, 2, "C-3", "55 aa 03 01 00 05 03 3c 03 03 00 67 39", on60);
        row("1001 powerOff CCT", 1001, PowerOff, "", true, true, 1, "", cctOff, off);
        row("1001 powerOff unknown mode is CCT", 1001, PowerOff, "", true, true, -1, "", cctOff, off);
        row("1001 powerOff effect", 1001, PowerOff, "", true, true, 2, "A-1", "55 aa 03 01 00 05 03 00 01 01 00 cb c9", off);
        row("1001 brightness CCT", 1001, Brightness, "75", true, true, 1, "", cct75, {{"brightness", 75}});
        row("1001 brightness effect", 1001, Brightness, "75", true, true, 2, "B-8", "55 aa 03 01 00 05 03 4b 02 08 00 2a 7d",
            {{"brightness", 75}});
        row("1001 temperature from effect", 1001, Temperature, "3200", true, true, 2, "B-8",
            "55 aa 03 01 00 05 01 28 0c 80 00 4a 3a", {{"temperature", 3200}, {"mode", 1}});
        row("1001 effect C-3", 1001, Effect, "C-3", true, true, 1, "", "55 aa 03 01 00 05 03 28 03 03 00 62 c9",
            {{"effect", "C-3"}, {"mode", 2}});
        row("1001 colour sends nothing", 1001, Color, "#ff00ff", true, true, 1, "", "", {});
        // Effect texts of the other family, or the codes of on, off and the state request, build
        // no frame and leave the mode alone.
        row("2 effect A-1", 2, Effect, "A-1", true, true, 1, "", "", {});
        row("2 effect 1 (off)", 2, Effect, "1", true, true, 1, "", "", {});
        row("2 effect 48 (state)", 2, Effect, "48", true, true, 3, "9", "", {});
        row("1001 effect 7", 1001, Effect, "7", true, true, 1, "", "", {});
        row("1001 effect empty", 1001, Effect, "", true, true, 1, "", "", {});
        // An effect mode whose text cannot be sent again falls back to colour temperature.
        row("1001 powerOn unnamed effect", 1001, PowerOn, "", true, false, 2, "", cct60, with(on60, {{"mode", 1}}));
        row("1001 powerOff unnamed effect", 1001, PowerOff, "", true, true, 2, "", cctOff, with(off, {{"mode", 1}}));
        row("1001 brightness unknown effect", 1001, Brightness, "75", true, true, 2, "@-0", cct75,
            {{"brightness", 75}, {"mode", 1}});
        // Values outside the table, or a broken record, send nothing at all.
        for (int p : {-5, 0, 4, 8, 161, 164, 1000, 1002, 2001}) {
            row(QString::number(p) + " powerOn", p, PowerOn, "", true, false, 1, "", "", {});
            row(QString::number(p) + " brightness", p, Brightness, "75", true, true, 1, "", "", {{"brightness", 75}});
        }
        // Offline, or switched off: nothing is sent and nothing changes.
        for (int p : {2, 1001}) {
            const QString n = QString::number(p);
            row(n + " powerOn offline", p, PowerOn, "", false, false, 1, "", "", {});
            row(n + " powerOn already on", p, PowerOn, "", true, true, 1, "", "", {});
            row(n + " powerOff already off", p, PowerOff, "", true, false, 1, "", "", {});
            row(n + " temperature off", p, Temperature, "5000", true, false, 1, "", "", {});
            row(n + " effect off", p, Effect, p == 2 ? "12" : "A-1", true, false, 1, "", "", {});
            row(n + " colour off", p, Color, "#ff0000", true, false, 1, "", "", {});
            row(n + " brightness off", p, Brightness, "5", true, false, 1, "", "", {});
        }
    }

    void controls()
    {
        QFETCH(int, protocol);
        QFETCH(int, op);
        QFETCH(QString, arg);
        QFETCH(bool, online);
        QFETCH(bool, power);
        QFETCH(int, mode);
        QFETCH(QString, effect);
        QFETCH(QString, frame);
        QFETCH(QVariantMap, changes);
        DevData dev = light(protocol, online, power);
        dev.devCurModel = mode;
        dev.lightEffect = effect;
        m_store->addDev(dev);
        QSignalSpy updates(m_store.get(), &DevDataMgr::onUpdateDev);
        apply(op, arg);
        for (int other = PowerOn; other <= Color; ++other)
            apply(other, arg, QStringLiteral("nobody")); // an unknown address is ignored by every operation
        QCOMPARE(m_plugin->frames, onlyTo(kAddr, frame));
        QVariantMap expected = state(dev);
        expected.insert(changes);
        QCOMPARE(state(stored()), expected);
        QCOMPARE(updates.count(), changes.isEmpty() ? 0 : 1);
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

    // The stored values a user sees or that are sent to the light again.
    static QVariantMap state(const DevData &d)
    {
        return {{"power", d.switchState}, {"brightness", d.brightness}, {"old", d.oldBrightness}, {"temperature", d.temperature},
                {"effect", d.lightEffect}, {"colour", d.colorLight}, {"mode", d.devCurModel}, {"link", int(d.linkState)}};
    }

    void message(const QByteArray &frame, const QString &addr = kAddr) { emit m_plugin->sigMessageReceived(addr, frame); }

    std::unique_ptr<TestHome> m_home;
    std::shared_ptr<DevDataMgr> m_store;
    std::unique_ptr<FakeBlePlugin> m_plugin;
    std::unique_ptr<BluetoothMgr> m_mgr;
};

QTEST_GUILESS_MAIN(TestBluetoothMgr)
#include "tst_bluetoothmgr.moc"
