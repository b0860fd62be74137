#include "blelink.h"
#include "bleprofiles.h"
#include "brivonqxbleinterface.h"
#include "logcapture.h"
#include "processutil.h"
#include "testhome.h"

#include <QBluetoothLocalDevice>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDir>
#include <QPluginLoader>
#include <QSignalSpy>
#include <QTest>
#include <QRegularExpression>
#include <QThread>
#include <QTimer>

namespace {

// One profile in the file's format; `extra` is spliced into the object to break it on purpose.
QByteArray profileJson(int type, const QByteArray &extra = QByteArray())
{
    return "{\"name\": \"t\", \"protocolType\": " + QByteArray::number(type)
            + ", \"namePrefixes\": [\"BRV-T" + QByteArray::number(type) + "\"]"
            + ", \"service\": \"FFE0\", \"writeCharacteristic\": \"FFE1\", \"notifyCharacteristic\": \"FFE2\""
            + extra + "}";
}

// A stand-in for bluetoothd: python3-dbusmock's bluez5 template on a private bus that the plug-in
// takes for the system bus. It starts without an adapter.
class BluezStandIn
{
public:
    ~BluezStandIn()
    {
        for (QProcess *process : {&m_mock, &m_bus}) {
            process->kill();
            process->waitForFinished(3000);
        }
    }

    QString start()
    {
        m_bus.start(QStringLiteral("dbus-daemon"), {QStringLiteral("--session"), QStringLiteral("--nofork"),
                                                     QStringLiteral("--print-address=1")});
        if (!waitUntil([this] { return m_bus.canReadLine(); }, 10000))
            return QStringLiteral("dbus-daemon did not start: ") + m_bus.errorString();
        const QByteArray address = m_bus.readLine().trimmed();
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", address);
        // No bluetoothd to ask for its version: use BlueZ's D-Bus GATT interface as on any
        // current system.
        qputenv("BLUETOOTH_FORCE_DBUS_LE_VERSION", "5.66");
        m_mock.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_mock.start(QStringLiteral("/usr/bin/python3"), {QStringLiteral("-m"), QStringLiteral("dbusmock"),
                                                          QStringLiteral("--system"), QStringLiteral("--template"),
                                                          QStringLiteral("bluez5")});
        const bool up = waitUntil([] {
            QDBusConnectionInterface *bus = QDBusConnection::systemBus().interface();
            return bus && bus->isServiceRegistered(QStringLiteral("org.bluez"));
        }, 20000);
        return up ? QString() : QStringLiteral("python3 -m dbusmock (python3-dbusmock) did not come up");
    }

    QDBusMessage call(const QString &path, const QString &iface, const QString &method, const QVariantList &args = {})
    {
        QDBusMessage message = QDBusMessage::createMethodCall(QStringLiteral("org.bluez"), path, iface, method);
        message.setArguments(args);
        return QDBusConnection::systemBus().call(message, QDBus::Block, 10000);
    }
    bool mock(const QString &method, const QVariantList &args)
    {
        return call(QStringLiteral("/"), QStringLiteral("org.bluez.Mock"), method, args).type()
            == QDBusMessage::ReplyMessage;
    }
    QDBusMessage mockObject(const QString &addr, const QString &method, const QVariantList &args = {})
    {
        return call(devicePath(addr), QStringLiteral("org.freedesktop.DBus.Mock"), method, args);
    }

    static QString devicePath(const QString &addr)
    {
        return QStringLiteral("/org/bluez/hci0/dev_") + QString(addr).replace(QLatin1Char(':'), QLatin1Char('_'));
    }

    // A device in range (a signal strength) or, with `rssi` 0, in BlueZ's cache from an earlier discovery.
    bool addDevice(const QString &addr, const QString &name, qint16 rssi = -79)
    {
        return mock(QStringLiteral("AddDevice"), {QStringLiteral("hci0"), addr, name})
            && advertise(addr, {{QStringLiteral("RSSI"), QVariant::fromValue<qint16>(rssi)}});
    }

    // The device is heard: a fresh signal strength (and whatever else it advertises).
    bool advertise(const QString &addr, QVariantMap props = {})
    {
        if (!props.contains(QStringLiteral("RSSI")))
            props.insert(QStringLiteral("RSSI"), QVariant::fromValue<qint16>(-55));
        return mockObject(addr, QStringLiteral("UpdateProperties"), {QStringLiteral("org.bluez.Device1"), props}).type()
            == QDBusMessage::ReplyMessage;
    }

    // The names of the calls an object received, in order; none when there is no such object.
    QStringList calls(const QString &path)
    {
        const QDBusMessage reply = call(path, QStringLiteral("org.freedesktop.DBus.Mock"), QStringLiteral("GetCalls"));
        QString text;
        QDebug(&text) << reply; // the arguments as "[Argument: a(tsav) {[Argument: (tsav) <time>, "<name>", ...
        QStringList names;
        const QRegularExpression name(QStringLiteral("\\(tsav\\) \\d+, \"(\\w+)\""));
        for (const QRegularExpressionMatch &match : name.globalMatch(text))
            names << match.captured(1);
        return names;
    }

    bool exists(const QString &addr)
    {
        return call(devicePath(addr), QStringLiteral("org.freedesktop.DBus.Mock"), QStringLiteral("GetCalls")).type()
            == QDBusMessage::ReplyMessage;
    }

private:
    QProcess m_bus;
    QProcess m_mock;
};

const QString kHeard = QStringLiteral("C4:7F:0E:00:00:01");
const QString kCached = QStringLiteral("C4:7F:0E:00:00:02");
const QString kUserLight = QStringLiteral("C4:7F:0E:00:00:03");
const QString kStranger = QStringLiteral("C4:7F:0E:00:00:04");
const QString kNeverHeard = QStringLiteral("C4:7F:0E:00:00:05");

} // namespace

class TestBleBluez : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        // Before anything opens the system bus.
        const QString standIn = m_bluez.start();
        QVERIFY2(standIn.isEmpty(), qPrintable(standIn));
        // The user's profile file wins over the shipped table; this one also leaves the UUIDs out.
        QVERIFY(writeFile(QDir::homePath() + QStringLiteral("/.config/brivon/ble-profiles.json"),
                          "{\"profiles\": [{\"name\": \"user's pocket light\", \"protocolType\": 2,"
                          " \"namePrefixes\": [\"BRV-CL60 U\"]}]}"));
        m_loader.setFileName(QDir(QStringLiteral(BRIVON_BIN_DIR)).filePath(QStringLiteral("BrivonQXBleDLL")));
        m_ble = qobject_cast<BrivonQXBleInterface *>(m_loader.instance());
        QVERIFY2(m_ble, qPrintable(m_loader.errorString()));
    }

    void cleanupTestCase()
    {
        // Destroying the plug-in after it met a missing stack must not crash either.
        QVERIFY(m_loader.unload());
    }

    void nameMatching_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("expected");

        QTest::newRow("prefix ignores case") << "brv-cl60" << 1;
        QTest::newRow("earlier profile wins over a shorter prefix") << "BRV-RGBW2" << 7;
        QTest::newRow("pattern") << "BP120-0A1F" << 1001;
        QTest::newRow("pattern must match whole name") << "BP120-0A1F-X" << -1;
        QTest::newRow("pattern is case-sensitive") << "bp120-0a1f" << -1;
        QTest::newRow("prefix not at start") << "X BRV-CL" << -1;
        QTest::newRow("padding is dropped") << QString(QStringLiteral("  BRV-PRO 7") + QString(3, QChar(u'\0'))) << 1001;
        QTest::newRow("huge name with prefix") << "BRV-RGB" + QString(100000, QLatin1Char('x')) << 2;
    }

    // Against the shipped table, which must also load without a problem and cover every light protocol.
    void nameMatching()
    {
        QFETCH(QString, name);
        BleProfiles profiles;
        QVERIFY(profiles.loadFile(QStringLiteral(BRIVON_SOURCE_DIR "/data/ble-profiles.json")));
        QVERIFY2(profiles.problems().isEmpty(), qPrintable(profiles.problems().join(QLatin1Char('\n'))));
        QSet<int> types;
        for (const BleProfile &profile : profiles.profiles())
            types.insert(profile.protocolType);
        QCOMPARE(types, (QSet<int>{1, 2, 3, 5, 6, 7, 162, 163, 1001}));
        const BleProfile *profile = profiles.match(name);
        QTEST(profile ? profile->protocolType : -1, "expected");
    }

    void uuidText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected"); // empty: rejected

        const QString base = QStringLiteral("{0000ffe0-0000-1000-8000-00805f9b34fb}");
        QTest::newRow("16-bit lower case with 0x") << "0xffe0" << base;
        QTest::newRow("32-bit") << "0000FFE0" << base;
        QTest::newRow("128-bit in braces") << "{0000FFE0-0000-1000-8000-00805F9B34FB}" << base;
        QTest::newRow("not hex") << "FFG0" << "";
        QTest::newRow("signed") << "+FE0" << "";
        QTest::newRow("zero") << "0000" << "";
        QTest::newRow("128-bit bad digit") << "0000FFE0-0000-1000-8000-00805F9B34FZ" << "";
        QTest::newRow("128-bit without dashes") << "0000FFE000001000800000805F9B34FB" << "";
    }

    void uuidText()
    {
        QFETCH(QString, text);
        const QBluetoothUuid uuid = BleProfiles::parseUuid(text);
        QTEST(uuid.isNull() ? QString() : uuid.toString(), "expected");
    }

    void badEntriesAreSkipped_data()
    {
        QTest::addColumn<QByteArray>("entry");

        const QByteArray one = profileJson(1);
        QTest::newRow("not an object") << QByteArray("[1]");
        QTest::newRow("protocol type 4") << profileJson(4);
        QTest::newRow("protocol type as text") << QByteArray(one).replace("\"protocolType\": 1", "\"protocolType\": \"1\"");
        QTest::newRow("protocol type fraction") << QByteArray(one).replace("\"protocolType\": 1", "\"protocolType\": 1.5");
        QTest::newRow("no name rule") << QByteArray(one).replace("\"namePrefixes\": [\"BRV-T1\"],", "");
        QTest::newRow("prefixes not an array") << QByteArray(one).replace("[\"BRV-T1\"]", "\"BRV-T1\"");
        QTest::newRow("empty prefix claims everything") << QByteArray(one).replace("[\"BRV-T1\"]", "[\"BRV-T1\", \" \"]");
        QTest::newRow("pattern not a text") << profileJson(1, ", \"namePattern\": 5");
        QTest::newRow("pattern invalid") << profileJson(1, ", \"namePattern\": \"BRV-(\"");
        QTest::newRow("write bad uuid") << QByteArray(one).replace("\"FFE1\"", "\"FFE1-\"");
        QByteArray many = "[\"P0\"";
        for (int i = 1; i <= BleProfiles::MaxPrefixes; ++i)
            many += ", \"P" + QByteArray::number(i) + "\"";
        QTest::newRow("too many prefixes") << QByteArray(one).replace("[\"BRV-T1\"]", many + "]");
    }

    void badEntriesAreSkipped()
    {
        QFETCH(QByteArray, entry);
        // A bad entry between two good ones costs only itself.
        BleProfiles profiles;
        QVERIFY(profiles.parse("{\"profiles\": [" + profileJson(2) + ", " + entry + ", " + profileJson(1001) + "]}"));
        QCOMPARE(profiles.profiles().size(), 2);
        QCOMPARE((QList<int>{profiles.profiles().at(0).protocolType, profiles.profiles().at(1).protocolType}),
                 (QList<int>{2, 1001}));
        QCOMPARE(profiles.problems().size(), 1);
        QVERIFY(profiles.problems().first().startsWith(QLatin1String("profile 1 skipped")));
        QVERIFY(!profiles.match(QStringLiteral("BRV-T1")));
        QVERIFY(!profiles.match(QStringLiteral("BRV-T4")));
    }

    void unusableFilesRecogniseNothing_data()
    {
        QTest::addColumn<QByteArray>("content"); // written to a file unless null
        QTest::addColumn<bool>("loaded");

        QTest::newRow("missing file") << QByteArray() << false;
        QTest::newRow("truncated JSON") << "{\"profiles\": [" + profileJson(1) << false;
        QTest::newRow("top level array") << "[" + profileJson(1) + "]" << false;
        QTest::newRow("profiles not an array") << "{\"profiles\": " + profileJson(1) + "}" << false;
        QTest::newRow("too large") << "{\"profiles\": [], \"pad\": \"" + QByteArray(BleProfiles::MaxFileBytes, 'x') + "\"}"
                                   << false;
        QTest::newRow("empty list") << QByteArray("{\"profiles\": []}") << true;
    }

    void unusableFilesRecogniseNothing()
    {
        QFETCH(QByteArray, content);
        QFETCH(bool, loaded);
        const QString path = m_home.path() + QStringLiteral("/profiles/ble-profiles.json");
        QFile::remove(path);
        if (!content.isNull())
            QVERIFY(writeFile(path, content));

        BleProfiles profiles;
        // A previous good table must not survive a bad reload.
        QVERIFY(profiles.parse("{\"profiles\": [" + profileJson(1) + "]}"));
        QCOMPARE(profiles.profiles().size(), 1);
        QCOMPARE(profiles.loadFile(path), loaded);
        QVERIFY(profiles.profiles().isEmpty());
        QCOMPARE(profiles.problems().isEmpty(), loaded);
    }

    void withoutAdapterScansFailAndUnknownAddressesAreHarmless()
    {
        QVERIFY(QBluetoothLocalDevice::allDevices().isEmpty());
        QSignalSpy errors(m_ble, &BrivonQXBleInterface::sigDeviceDiscoveredErrorOccurred);
        QSignalSpy found(m_ble, &BrivonQXBleInterface::sigDeviceDiscovered);
        QSignalSpy finished(m_ble, &BrivonQXBleInterface::sigDeviceDiscoveredFinished);
        QSignalSpy connected(m_ble, &BrivonQXBleInterface::sigDeviceConnected);
        QSignalSpy disconnected(m_ble, &BrivonQXBleInterface::sigDeviceDisconnected);
        QSignalSpy messages(m_ble, &BrivonQXBleInterface::sigMessageReceived);
        QList<QThread *> threads;
        connect(m_ble, &BrivonQXBleInterface::sigDeviceDiscoveredErrorOccurred, this,
                [&threads] { threads << QThread::currentThread(); }, Qt::DirectConnection);

        // Twice: a second scan after a failed one must fail the same way, not hang or crash.
        for (int round = 1; round <= 2; ++round) {
            m_ble->startScan();
            QTRY_COMPARE_WITH_TIMEOUT(errors.size(), round, 30000);
            QCOMPARE(errors.last().at(0).value<QBluetoothDeviceDiscoveryAgent::Error>(),
                     QBluetoothDeviceDiscoveryAgent::InvalidBluetoothAdapterError);
            m_ble->stopScan();
        }
        for (const QString &addr : {QStringLiteral("11:22:33:44:55:66"), QString(), QString(100000, QLatin1Char('A'))}) {
            m_ble->connectToDevice(addr);
            m_ble->writeData(addr, QByteArray::fromHex("ffa2013232aa"));
            m_ble->writeData(addr, QByteArray());
            QVERIFY(!m_ble->reconnectDevice(addr));
            m_ble->removeDevice(addr);
        }
        QTest::qWait(300);
        QCOMPARE(errors.size(), 2);
        QCOMPARE(found.size() + finished.size() + connected.size() + disconnected.size() + messages.size(), 0);
        QCOMPARE(threads, (QList<QThread *>{thread(), thread()}));
    }

    void linkWithoutAdapterFailsOnce()
    {
        BleProfiles profiles;
        QVERIFY(profiles.parse("{\"profiles\": [" + profileJson(2) + "]}"));
        const QString addr = QStringLiteral("11:22:33:44:55:66");
        QBluetoothDeviceInfo info(QBluetoothAddress(addr), QStringLiteral("BRV-T2"), 0);
        info.setCoreConfigurations(QBluetoothDeviceInfo::LowEnergyCoreConfiguration);
        // The second one is closed by its owner before the loss would be reported.
        BleLink link(addr, info, profiles.profiles().first());
        BleLink closed(addr, info, profiles.profiles().first());
        QSignalSpy lost(&link, &BleLink::lost);
        QSignalSpy closedLost(&closed, &BleLink::lost);
        QSignalSpy ready(&link, &BleLink::ready);
        for (BleLink *each : {&link, &closed}) {
            QVERIFY(!each->start());
            each->write(QByteArray::fromHex("ffa2013232aa"));
        }
        // The owner may delete the link on loss, so the report never comes from inside start().
        QCOMPARE(lost.size() + closedLost.size(), 0);
        closed.close();
        for (BleLink *each : {&link, &closed})
            QVERIFY(!each->start()); // a failed link stays dead; a new attempt is a new link
        QTest::qWait(200);
        QCOMPARE(lost.size(), 1);
        QCOMPARE(lost.first().first().toString(), addr);
        QCOMPARE(closedLost.size(), 0);
        QCOMPARE(ready.size(), 0);
        QVERIFY(!link.isReady());
    }

    // ---- against the BlueZ stand-in, now with an adapter
    void scanReportsOnlyLightsHeardNow()
    {
        QVERIFY(m_bluez.mock(QStringLiteral("AddAdapter"), {QStringLiteral("hci0"), QStringLiteral("desk")}));
        // Heard before the scan starts (a signal strength), in the cache only, and not a light.
        QVERIFY(m_bluez.addDevice(kHeard, QStringLiteral("BRV-RGB 1")));
        QVERIFY(m_bluez.addDevice(kCached, QStringLiteral("BRV-PL 2"), 0));
        QVERIFY(m_bluez.addDevice(kUserLight, QStringLiteral("BRV-CL60 U"), 0));
        QVERIFY(m_bluez.addDevice(kStranger, QStringLiteral("Phone of Alex"), 0));
        QVERIFY(m_bluez.addDevice(kNeverHeard, QStringLiteral("BRV-TB 3"), 0));

        LogCapture log(true);
        QSignalSpy found(m_ble, &BrivonQXBleInterface::sigDeviceDiscovered);
        QSignalSpy finished(m_ble, &BrivonQXBleInterface::sigDeviceDiscoveredFinished);
        m_ble->startScan();
        QTRY_COMPARE_WITH_TIMEOUT(found.size(), 1, 10000);
        QCOMPARE(found.at(0).at(1).toString(), kHeard);
        QCOMPARE(found.at(0).at(0).toInt(), 2);

        // Cached devices come in only when they are heard.
        QVERIFY(m_bluez.advertise(kCached));
        QVERIFY(m_bluez.advertise(kUserLight));
        const QString uuid = QStringLiteral("0000fe95-0000-1000-8000-00805f9b34fb");
        const QVariantMap uuids{{QStringLiteral("UUIDs"), QStringList{uuid}}};
        m_bluez.advertise(kStranger, uuids);
        m_bluez.advertise(kStranger, uuids);
        QTRY_COMPARE_WITH_TIMEOUT(found.size(), 3, 10000);
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 20000); // the scan lasts 10 s
        QMap<QString, int> types;
        for (const QList<QVariant> &args : std::as_const(found))
            types.insert(args.at(1).toString(), args.at(0).toInt());
        // The user's profile (protocol 2) wins over the shipped one for "BRV-CL" (protocol 1).
        QCOMPARE(types, (QMap<QString, int>{{kHeard, 2}, {kCached, 3}, {kUserLight, 2}}));

        // A device without a profile is logged once per scan, with what a profile needs.
        const QStringList unmatched = log.matching(QStringLiteral("[BleBluezPlugin::onDeviceSeen]: no profile for name:"));
        const QString expected = QStringLiteral("[BleBluezPlugin::onDeviceSeen]: no profile for name: \"Phone of Alex\"")
            + QStringLiteral(" addr: ") + kStranger + QStringLiteral(" serviceUuids: ") + uuid;
        QCOMPARE(unmatched, QStringList(expected));
    }

    void forgettingRemovesUnpairedLightsFromBlueZ()
    {
        QSignalSpy disconnected(m_ble, &BrivonQXBleInterface::sigDeviceDisconnected);
        m_ble->removeDevice(kCached);
        QTRY_VERIFY_WITH_TIMEOUT(!m_bluez.exists(kCached), 10000);

        // Paired with the system: the user manages it there.
        m_bluez.mock(QStringLiteral("PairDevice"), {QStringLiteral("hci0"), kHeard, 0x240404});
        LogCapture log;
        m_ble->removeDevice(kHeard);
        QTRY_VERIFY_WITH_TIMEOUT(log.contains(QStringLiteral("paired with the system, kept")), 10000);
        QVERIFY(m_bluez.exists(kHeard));
        QCOMPARE(disconnected.size(), 0);
    }

    void connectingAnExpiredLightLooksForItAgain()
    {
        // BlueZ dropped the light from its cache since the scan.
        const QString adapter = QStringLiteral("/org/bluez/hci0");
        m_bluez.call(adapter, QStringLiteral("org.bluez.Adapter1"), QStringLiteral("RemoveDevice"),
                     {QVariant::fromValue(QDBusObjectPath(BluezStandIn::devicePath(kUserLight)))});
        QSignalSpy disconnected(m_ble, &BrivonQXBleInterface::sigDeviceDisconnected);
        m_ble->connectToDevice(kUserLight);
        QTRY_VERIFY_WITH_TIMEOUT(m_bluez.calls(adapter).contains(QStringLiteral("StartDiscovery")), 10000);
        // In range again: it is connected as soon as it is heard.
        QVERIFY(m_bluez.addDevice(kUserLight, QStringLiteral("BRV-CL60 U")));
        QTRY_VERIFY_WITH_TIMEOUT(m_bluez.calls(BluezStandIn::devicePath(kUserLight)).contains(QStringLiteral("Connect")),
                                 10000);
        QCOMPARE(disconnected.size(), 0);
    }

    void reconnectingWaitsForTheOldLink()
    {
        m_bluez.mockObject(kUserLight, QStringLiteral("ClearCalls"));
        QVERIFY(m_ble->reconnectDevice(kUserLight));
        QTRY_COMPARE_WITH_TIMEOUT(m_bluez.calls(BluezStandIn::devicePath(kUserLight))
                                      .filter(QRegularExpression(QStringLiteral("^(Dis)?[Cc]onnect$"))),
                                  (QStringList{QStringLiteral("Disconnect"), QStringLiteral("Connect")}), 10000);
    }

    // Last: it ends the event loop the way quitting the program does.
    void quittingDisconnectsEveryLight()
    {
        m_bluez.mockObject(kUserLight, QStringLiteral("ClearCalls"));
        LogCapture log(true);
        QTimer::singleShot(0, qApp, &QCoreApplication::quit);
        QCoreApplication::exec();
        // The disconnection was carried out before the loop ended, not by a late unload.
        QCOMPARE(m_bluez.calls(BluezStandIn::devicePath(kUserLight)), QStringList{QStringLiteral("Disconnect")});
        QVERIFY(log.contains(QStringLiteral("[BleBluezPlugin::onAboutToQuit]: still disconnecting: 0")));
    }

private:
    BluezStandIn m_bluez;
    TestHome m_home;
    QPluginLoader m_loader;
    BrivonQXBleInterface *m_ble = nullptr;
};

QTEST_GUILESS_MAIN(TestBleBluez)
#include "tst_blebluez.moc"
