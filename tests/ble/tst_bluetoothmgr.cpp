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
    bool reconnectDevice(const QString &addr) override { return (calls << "reconnectDevice " + addr, true); }
    void removeDevice(const QString &addr) override { calls << QStringLiteral("removeDevice ") + addr; }

    QStringList calls;
    QHash<QString, QStringList> frames; // by address, in order, as spaced hex
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
        m_mgr->refreshDevices();
        m_mgr->connectToDevice(kAddr);
        QCOMPARE(m_mgr->reconnectDevice(kAddr), true); // a refusal comes back too: tst_bleplugin
        m_mgr->removeDevice(kAddr);
        m_mgr->delDev(QStringLiteral("{some-group}"), QStringLiteral("AA:BB"));
        QCOMPARE(m_plugin->calls, (QStringList{"startScan", "connectToDevice " + kAddr,
                                               "reconnectDevice " + kAddr,
                                               "removeDevice " + kAddr, "removeDevice AA:BB"}));
        QCOMPARE(reconnects, (QList<QVariantList>{{kAddr}}));
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

        // Stored lights that are offline are connected as soon as they are seen; online ones are left alone.
        DevData offline = light(protocol, false, false);
        offline.brightnessMax = 255;
        offline.temperatureMin = 2000;
        offline.temperatureMax = 10000;
        m_store->addDev(offline);
        m_store->addDev(light(protocol, true, true, kOther));
        emit m_plugin->sigDeviceDiscovered(protocol, kOther, QStringLiteral("b"));
        emit m_plugin->sigDeviceDiscovered(protocol, kAddr, QStringLiteral("a"));
        QCOMPARE(m_plugin->calls, QStringList{"connectToDevice " + kAddr});

        // Connected, it is asked for its state (a 55 AA light is online only once it reports its mode,
        // and gets its fixed ranges); an address that is not stored gets nothing.
        QSignalSpy ranges(m_store.get(), &DevDataMgr::onUpdateDevParamRange);
        emit m_plugin->sigDeviceConnected(kAddr);
        emit m_plugin->sigDeviceConnected(QStringLiteral("00:00:00:00:00:00"));
        QTEST(int(stored().linkState), "linkState");
        QCOMPARE(m_plugin->frames, (request.isEmpty() ? Frames() : Frames{{kAddr, {request}}}));
        const DevData after = stored();
        QCOMPARE((QList<int>{after.brightnessMax, after.temperatureMin, after.temperatureMax}),
                 (protocol == 1001 ? QList<int>{100, 2900, 6500} : QList<int>{255, 2000, 10000}));
        QCOMPARE(ranges.count(), protocol == 1001 ? 1 : 0);
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

        // Settings beyond an hour are not taken.
        qputenv(BluetoothMgr::kReconnectEnvVar, "3600000,3600001");
        const ReconnectSchedule schedule = ReconnectSchedule::fromEnvironment();
        QCOMPARE((QList<int>{schedule.baseMs, schedule.limitMs}), (QList<int>{3600000, 3600000}));
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

    // 55 AA reports: of the light's mode (06, the answer that brings it online, whichever mode it is),
    // of a change made at the light (32), of its values (01, 30, 07); frames of either family that
    // change nothing. What is stored and what is sent back.
    void reports_data()
    {
        QTest::addColumn<QByteArray>("frame");
        QTest::addColumn<DevData>("before");
        QTest::addColumn<QVariantMap>("changes");
        QTest::addColumn<QStringList>("sent");
        const auto row = [](const char *name, const char *frame, bool online, bool power, int old, int mode,
                            const char *effect, const QVariantMap &changes, const QStringList &sent, int protocol = 1001) {
            DevData before = light(protocol, online, power);
            before.oldBrightness = old;
            before.devCurModel = mode;
            before.lightEffect = QString::fromLatin1(effect);
            QTest::newRow(name) << hex(frame) << before << changes << sent;
        };
        const auto quiet = [&row](const char *name, const char *frame, const QVariantMap &changes = {},
                                  int protocol = 1001) {
            row(name, frame, false, true, 60, 1, "", changes, {}, protocol);
        };
        // V-type state reports, to a light that is offline and off: the same report again changes nothing.
        const auto vrow = [&row](const char *name, int protocol, const char *frame, const QVariantMap &changes) {
            row(name, frame, false, false, 60, 1, "", with({{"link", 1}, {"saturation", 0}}, changes), {}, protocol);
        };
        vrow("V CCT on, colour kept", 1, "FF 10 09 32 15 E0 00 00 00 00 02 01 00 AA",
             {{"power", true}, {"brightness", 50}, {"temperature", 5600}, {"hue", 0}, {"effect", "2"}, {"mode", 1}});
        vrow("V colour mode sets colour", 2, "FF A4 09 64 0A 8C 00 F0 64 00 03 01 00 AA",
             {{"power", true}, {"brightness", 100}, {"temperature", 2700}, {"hue", 240}, {"saturation", 100},
              {"effect", "3"}, {"colour", "#0000ff"}, {"mode", 3}});
        vrow("V effect 9 off", 7, "FF A1 09 0A 19 64 00 00 00 00 09 00 00 AA",
             {{"brightness", 10}, {"temperature", 6500}, {"hue", 0}, {"effect", "9"}, {"mode", 2}});
        vrow("V unknown mode, 162", 162, "FF 01 09 0A 19 64 00 00 00 00 01 01 00 AA",
             {{"power", true}, {"brightness", 10}, {"temperature", 6500}, {"hue", 0}, {"effect", "1"}, {"mode", -1}});
        vrow("V 163, bad checksum no trailer", 163, "FF 01 09 0B 19 64 00 00 00 00 02 01",
             {{"power", true}, {"brightness", 11}, {"temperature", 6500}, {"hue", 0}, {"effect", "2"}, {"mode", 1}});
        const QVariantMap cct70{{"brightness", 70}, {"temperature", 5600}};
        quiet("01 CCT report", "55 AA 03 01 00 05 01 46 15 E0 00 00 00", cct70);
        quiet("30 CCT report, bad CRC", "55 AA 03 30 00 04 01 46 15 E0 12 34", cct70);
        quiet("07 CCT data", "55 AA 03 07 00 03 46 19 64 C2 5D", {{"brightness", 70}, {"temperature", 6500}});
        quiet("01 unchanged values", "55 AA 03 01 00 04 01 28 0F A0 00 00");
        quiet("07 unchanged values", "55 AA 03 07 00 03 28 0F A0 00 00");
        quiet("01 mode byte 3 ignored", "55 AA 03 01 00 05 03 46 01 02 00 00 00");
        quiet("30 too short", "55 AA 03 30 00 03 01 46 15 00 00");
        quiet("id 33", "55 AA 03 33 00 04 01 46 15 E0 00 00");
        quiet("06 three bytes", "55 AA 03 06 00 03 01 46 15 00 00");
        quiet("32 three bytes", "55 AA 03 32 00 03 01 46 15 00 00");
        quiet("07 two bytes", "55 AA 03 07 00 02 46 15 00 00");
        quiet("FF framing", "FF 10 09 4D 13 88 00 00 00 00 02 01 00 AA");
        quiet("V: payload shorter than a report", "FF 10 08 32 15 E0 00 00 00 00 02 00 AA", {}, 2);
        quiet("V: 55 AA framing", "55 AA 03 06 00 04 01 3C 13 88 5B 78", {}, 2);
        const char *cct06 = "55 AA 03 06 00 04 01 46 13 88 00 00", *dark06 = "55 AA 03 06 00 04 01 00 13 88 00 00";
        const QString info = QStringLiteral("55 aa 03 21 00 01 01 aa 6c");
        const QVariantMap online5000{{"link", 1}, {"temperature", 5000}, {"mode", 1}};
        row("06 on: takes brightness", cct06, false, true, 60, 2, "", with(online5000, {{"brightness", 70}}), {info});
        // Dark at the light: the brightness it had is what switching on brings back.
        row("06 on: zero brightness stays on", dark06, false, true, 60, 2, "",
            with(online5000, {{"brightness", 0}, {"old", 40}}), {info});
        row("06 off: non-zero turns on", cct06, false, false, 60, 2, "",
            with(online5000, {{"power", true}, {"brightness", 70}}), {info});
        row("06 off: dark shows old 1", dark06, false, false, 1, 2, "", with(online5000, {{"brightness", 1}}), {info});
        row("06 off: dark, no old", dark06, false, false, -1, 2, "", with(online5000, {{"brightness", 0}}), {info});
        // An effect: the temperature is asked for, as the CCT data answer brings it.
        row("06 unknown mode", "55 AA 03 06 00 04 02 3C 13 88 00 00", false, true, 60, 1, "", {{"link", 1}}, {info});
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
        row("32 off: dark, no old", dark32, true, false, 0, 1, "", {{"power", true}, {"temperature", 0x1068}}, {});
    }

    void reports()
    {
        QFETCH(QByteArray, frame);
        QFETCH(DevData, before);
        QFETCH(QVariantMap, changes);
        m_store->addDev(before);
        QSignalSpy updates(m_store.get(), &DevDataMgr::onUpdateDev);
        message(frame);
        QCOMPARE(state(stored()), with(state(before), changes));
        QTEST(m_plugin->frames.value(kAddr), "sent");
        if (before.protocol != 1001)
            message(frame); // a V-type report again changes nothing
        if (changes.isEmpty() || before.protocol != 1001)
            QCOMPARE(updates.count(), changes.isEmpty() ? 0 : 1);
    }

    // ---- control operations: the frame sent, and the stored state after it
    void controls_data()
    {
        QTest::addColumn<int>("op");
        QTest::addColumn<QString>("arg");
        QTest::addColumn<DevData>("before");
        QTest::addColumn<QString>("frame");
        QTest::addColumn<QVariantMap>("changes");
        const auto row = [](const QString &name, int p, Op op, const char *arg, bool online, bool power, int mode,
                            const char *effect, const QString &frame, const QVariantMap &changes) {
            DevData before = light(p, online, power);
            before.devCurModel = mode;
            before.lightEffect = QString::fromLatin1(effect);
            if (op == PowerOn && *arg)
                before.oldBrightness = QByteArray(arg).toInt();
            QTest::newRow(qPrintable(name)) << int(op) << QString(arg) << before << frame << changes;
        };
        for (int p : {1, 2, 3, 5, 6, 7, 162, 163}) {
            const QString n = QString::number(p);
            row(n + " powerOn", p, PowerOn, "", true, false, 1, "", "ff a1 01 00 00 aa", {{"power", true}});
            row(n + " powerOff", p, PowerOff, "", true, true, 1, "", "ff a1 01 01 01 aa", {{"power", false}});
            row(n + " brightness 75", p, Brightness, "75", true, true, 1, "", "ff a2 01 4b 4b aa", {{"brightness", 75}});
            row(n + " temperature 3200", p, Temperature, "3200", true, true, 3, "", "ff a3 02 0c 80 8c aa",
                {{"temperature", 3200}, {"mode", 1}});
            row(n + " effect 12", p, Effect, "12", true, true, 1, "", "ff a1 01 0c 0c aa", {{"effect", "12"}, {"mode", 2}});
            const bool colour = p == 2 || p == 7; // a light without colour keeps its mode
            row(n + " colour", p, Color, "#ff00ff", true, true, 1, "", colour ? "ff a4 03 01 2c 64 91 aa" : "",
                colour ? QVariantMap{{"colour", "#ff00ff"}, {"mode", 3}} : QVariantMap());
        }
        // 55 AA: every brightness-carrying operation sends the frame of the current mode.
        const QString cct60 = QStringLiteral("55 aa 03 01 00 05 01 3c 0f a0 00 a6 0a");
        const QString cctOff = QStringLiteral("55 aa 03 01 00 05 01 00 0f a0 00 aa 5a");
        const QString cct75 = QStringLiteral("55 aa 03 01 00 05 01 4b 0f a0 00 bd be");
        const QVariantMap on60{{"power", true}, {"brightness", 60}}, off{{"power", false}, {"old", 40}};
        row("1001 powerOn CCT", 1001, PowerOn, "", true, false, 1, "", cct60, on60);
        // Switched on with no brightness to return to, it comes back at 1; for switching on, the
        // argument is the brightness remembered before.
        const QString cct1 = QString::fromLatin1(bluetoothProtocol2().cctModeFrame(1, 4000).toHex(' '));
        row("1001 powerOn after dark", 1001, PowerOn, "0", true, false, 1, "", cct1, {{"power", true}, {"brightness", 1}});
        row("1001 on in effect", 1001, PowerOn, "", true, false, 2, "C-3", "55 aa 03 01 00 05 03 3c 03 03 00 67 39", on60);
        row("1001 powerOff CCT", 1001, PowerOff, "", true, true, 1, "", cctOff, off);
        row("1001 off in effect", 1001, PowerOff, "", true, true, 2, "A-1", "55 aa 03 01 00 05 03 00 01 01 00 cb c9", off);
        row("1001 brightness CCT", 1001, Brightness, "75", true, true, 1, "", cct75, {{"brightness", 75}});
        row("1001 brightness effect", 1001, Brightness, "75", true, true, 2, "B-8",
            "55 aa 03 01 00 05 03 4b 02 08 00 2a 7d", {{"brightness", 75}});
        row("1001 temperature from effect", 1001, Temperature, "3200", true, true, 2, "B-8",
            "55 aa 03 01 00 05 01 28 0c 80 00 4a 3a", {{"temperature", 3200}, {"mode", 1}});
        row("1001 effect C-3", 1001, Effect, "C-3", true, true, 1, "", "55 aa 03 01 00 05 03 28 03 03 00 62 c9",
            {{"effect", "C-3"}, {"mode", 2}});
        row("1001 colour sends nothing", 1001, Color, "#ff00ff", true, true, 1, "", "", {});
        // Effect texts of the other family build no frame and leave the mode alone (which texts build
        // none: tst_bleframes).
        row("2 effect A-1", 2, Effect, "A-1", true, true, 1, "", "", {});
        row("1001 effect 7", 1001, Effect, "7", true, true, 1, "", "", {});
        // An effect mode whose text cannot be sent again falls back to colour temperature.
        row("1001 powerOn unnamed effect", 1001, PowerOn, "", true, false, 2, "", cct60, with(on60, {{"mode", 1}}));
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
        QFETCH(int, op);
        QFETCH(QString, arg);
        QFETCH(DevData, before);
        QFETCH(QString, frame);
        QFETCH(QVariantMap, changes);
        m_store->addDev(before);
        QSignalSpy updates(m_store.get(), &DevDataMgr::onUpdateDev);
        apply(op, arg);
        for (int other = PowerOn; other <= Color; ++other)
            apply(other, arg, QStringLiteral("nobody")); // an unknown address is ignored by every operation
        QCOMPARE(m_plugin->frames, (frame.isEmpty() ? Frames() : Frames{{kAddr, {frame}}}));
        QCOMPARE(state(stored()), with(state(before), changes));
        QCOMPARE(updates.count(), changes.isEmpty() ? 0 : 1);
    }

private:
    static DevData light(int protocol, bool online = true, bool power = true, const QString &addr = kAddr)
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
        return {{"power", d.switchState}, {"brightness", d.brightness}, {"old", d.oldBrightness},
                {"temperature", d.temperature}, {"effect", d.lightEffect}, {"colour", d.colorLight},
                {"mode", d.devCurModel}, {"link", int(d.linkState)}, {"hue", d.auxValue1}, {"saturation", d.auxValue2}};
    }

    void message(const QByteArray &frame, const QString &addr = kAddr) { emit m_plugin->sigMessageReceived(addr, frame); }

    std::unique_ptr<TestHome> m_home;
    std::shared_ptr<DevDataMgr> m_store;
    std::unique_ptr<FakeBlePlugin> m_plugin;
    std::unique_ptr<BluetoothMgr> m_mgr;
};

QTEST_GUILESS_MAIN(TestBluetoothMgr)
#include "tst_bluetoothmgr.moc"
