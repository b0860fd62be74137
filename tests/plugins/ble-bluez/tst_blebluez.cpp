#include "blelink.h"
#include "bleprofiles.h"
#include "brivonqxbleinterface.h"
#include "testhome.h"

#include <QBluetoothLocalDevice>
#include <QDir>
#include <QPluginLoader>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

namespace {

// One profile in the file's format; `extra` is spliced into the object to break it on purpose.
QByteArray profileJson(int type, const QByteArray &extra = QByteArray())
{
    return "{\"name\": \"t\", \"protocolType\": " + QByteArray::number(type)
            + ", \"namePrefixes\": [\"BRV-T" + QByteArray::number(type) + "\"]"
            + ", \"service\": \"FFE0\", \"writeCharacteristic\": \"FFE1\", \"notifyCharacteristic\": \"FFE2\""
            + extra + "}";
}

} // namespace

class TestBleBluez : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        m_loader.setFileName(QDir(QStringLiteral(BRIVON_BIN_DIR)).filePath(QStringLiteral("BrivonQXBleDLL")));
        QObject *instance = m_loader.instance();
        QVERIFY2(instance, qPrintable(m_loader.errorString()));
        m_ble = qobject_cast<BrivonQXBleInterface *>(instance);
        QVERIFY(m_ble);
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

        QTest::newRow("prefix") << "BRV-CL60 1234" << 1;
        QTest::newRow("earlier profile wins over a shorter prefix") << "BRV-RGBW2" << 7;
        QTest::newRow("pattern") << "BP120-0A1F" << 1001;
        QTest::newRow("pattern must match whole name") << "BP120-0A1F-X" << -1;
        QTest::newRow("prefix not at start") << "X BRV-CL" << -1;
        QTest::newRow("padding is dropped") << QString(QStringLiteral("  BRV-PRO 7") + QString(3, QChar(u'\0'))) << 1001;
        QTest::newRow("huge name with prefix") << "BRV-RGB" + QString(100000, QLatin1Char('x')) << 2;
    }

    void nameMatching();
    void uuidText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected"); // empty: rejected

        const QString base = QStringLiteral("{0000ffe0-0000-1000-8000-00805f9b34fb}");
        QTest::newRow("16-bit") << "FFE0" << base;
        QTest::newRow("16-bit lower case with 0x") << "0xffe0" << base;
        QTest::newRow("128-bit") << "0000FFE0-0000-1000-8000-00805F9B34FB" << base;
        QTest::newRow("custom 128-bit") << "7b3a0001-4c1d-4f6e-9a52-b1e0c0d5a1f0"
                                        << "{7b3a0001-4c1d-4f6e-9a52-b1e0c0d5a1f0}";
        QTest::newRow("empty") << "" << "";
        QTest::newRow("not hex") << "FFG0" << "";
        QTest::newRow("zero") << "0000" << "";
        QTest::newRow("128-bit bad digit") << "0000FFE0-0000-1000-8000-00805F9B34FZ" << "";
    }

    void uuidText()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        const QBluetoothUuid uuid = BleProfiles::parseUuid(text);
        QCOMPARE(uuid.isNull() ? QString() : uuid.toString(), expected);
    }

    void badEntriesAreSkipped_data()
    {
        QTest::addColumn<QByteArray>("entry");

        QTest::newRow("not an object") << QByteArray("[1]");
        QTest::newRow("protocol type 4") << profileJson(4);
        QTest::newRow("protocol type as text") << profileJson(1).replace("\"protocolType\": 1", "\"protocolType\": \"1\"");
        QTest::newRow("no name rule") << profileJson(1).replace("\"namePrefixes\": [\"BRV-T1\"],", "");
        QTest::newRow("prefixes not an array") << profileJson(1).replace("[\"BRV-T1\"]", "\"BRV-T1\"");
        QTest::newRow("empty prefix claims everything") << profileJson(1).replace("[\"BRV-T1\"]", "[\"BRV-T1\", \" \"]");
        QTest::newRow("pattern invalid") << profileJson(1, ", \"namePattern\": \"BRV-(\"");
        QTest::newRow("service missing") << profileJson(1).replace("\"service\": \"FFE0\",", "");
        QTest::newRow("write bad uuid") << profileJson(1).replace("\"FFE1\"", "\"FFE1-\"");
        QByteArray many = "[\"P0\"";
        for (int i = 1; i <= BleProfiles::MaxPrefixes; ++i)
            many += ", \"P" + QByteArray::number(i) + "\"";
        QTest::newRow("too many prefixes") << profileJson(1).replace("[\"BRV-T1\"]", many + "]");
    }

    void badEntriesAreSkipped()
    {
        QFETCH(QByteArray, entry);
        // A bad entry between two good ones costs only itself.
        BleProfiles profiles;
        QVERIFY(profiles.parse("{\"profiles\": [" + profileJson(2) + ", " + entry + ", " + profileJson(1001) + "]}"));
        QCOMPARE(profiles.profiles().size(), 2);
        QCOMPARE(profiles.profiles().at(0).protocolType, 2);
        QCOMPARE(profiles.profiles().at(1).protocolType, 1001);
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
        QTest::newRow("profiles not an array") << "{\"profiles\": " + profileJson(1) + "}" << false;
        QTest::newRow("too large") << "{\"profiles\": [" + profileJson(1) + "], \"pad\": \""
                                              + QByteArray(BleProfiles::MaxFileBytes, 'x') + "\"}" << false;
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
        QVERIFY(!profiles.match(QStringLiteral("BRV-T1")));
        QCOMPARE(profiles.problems().isEmpty(), loaded);
    }

    void shippedTableIsComplete()
    {
        BleProfiles profiles;
        QVERIFY(profiles.loadFile(QStringLiteral(BRIVON_SOURCE_DIR "/data/ble-profiles.json")));
        QVERIFY2(profiles.problems().isEmpty(), qPrintable(profiles.problems().join(QLatin1Char('\n'))));
        QSet<int> types;
        for (const BleProfile &profile : profiles.profiles())
            types.insert(profile.protocolType);
        QCOMPARE(types, (QSet<int>{1, 2, 3, 5, 6, 7, 162, 163, 1001}));
    }

    void scanWithoutAdapterReportsTheAdapterError()
    {
        if (!QBluetoothLocalDevice::allDevices().isEmpty())
            QSKIP("this machine has a Bluetooth adapter");

        QSignalSpy errors(m_ble, &BrivonQXBleInterface::sigDeviceDiscoveredErrorOccurred);
        QSignalSpy found(m_ble, &BrivonQXBleInterface::sigDeviceDiscovered);
        QSignalSpy finished(m_ble, &BrivonQXBleInterface::sigDeviceDiscoveredFinished);

        // Twice: a second scan after a failed one must fail the same way, not hang or crash.
        for (int round = 1; round <= 2; ++round) {
            m_ble->startScan();
            QTRY_COMPARE_WITH_TIMEOUT(errors.size(), round, 30000);
            QCOMPARE(errors.last().at(0).value<QBluetoothDeviceDiscoveryAgent::Error>(),
                     QBluetoothDeviceDiscoveryAgent::InvalidBluetoothAdapterError);
            m_ble->stopScan();
        }
        QTest::qWait(300);
        QCOMPARE(errors.size(), 2);
        QCOMPARE(found.size(), 0);
        QCOMPARE(finished.size(), 0);
    }

    void linkWithoutAdapterFailsOnce()
    {
        if (!QBluetoothLocalDevice::allDevices().isEmpty())
            QSKIP("this machine has a Bluetooth adapter");
        BleProfiles profiles;
        QVERIFY(profiles.parse("{\"profiles\": [" + profileJson(2) + "]}"));
        const QString addr = QStringLiteral("11:22:33:44:55:66");
        QBluetoothDeviceInfo info(QBluetoothAddress(addr), QStringLiteral("BRV-T2"), 0);
        info.setCoreConfigurations(QBluetoothDeviceInfo::LowEnergyCoreConfiguration);
        BleLink link(addr, info, profiles.profiles().first());
        QSignalSpy lost(&link, &BleLink::lost);
        QSignalSpy ready(&link, &BleLink::ready);

        QVERIFY(!link.start());
        // The owner may delete the link on loss, so the report never comes from inside start().
        QCOMPARE(lost.size(), 0);
        link.write(QByteArray::fromHex("ffa2013232aa"));
        QVERIFY(!link.start()); // a failed link stays dead; a new attempt is a new link
        QTest::qWait(200);
        QCOMPARE(lost.size(), 1);
        QCOMPARE(lost.first().first().toString(), addr);
        QCOMPARE(ready.size(), 0);
        QVERIFY(!link.isReady());
    }

    void unknownAddressesAreHarmless()
    {
        const QString addr = QStringLiteral("11:22:33:44:55:66");
        QSignalSpy connected(m_ble, &BrivonQXBleInterface::sigDeviceConnected);
        QSignalSpy disconnected(m_ble, &BrivonQXBleInterface::sigDeviceDisconnected);
        QSignalSpy messages(m_ble, &BrivonQXBleInterface::sigMessageReceived);

        m_ble->connectToDevice(addr);
        m_ble->writeData(addr, QByteArray::fromHex("ffa2013232aa"));
        m_ble->writeData(addr, QByteArray());
        QVERIFY(!m_ble->reconnectDevice(addr));
        m_ble->removeDevice(addr);
        m_ble->stopScan();
        QTest::qWait(100);
        QCOMPARE(connected.size(), 0);
        QCOMPARE(disconnected.size(), 0);
        QCOMPARE(messages.size(), 0);
    }

private:
    TestHome m_home;
    QPluginLoader m_loader;
    BrivonQXBleInterface *m_ble = nullptr;
};

// Defined outside the class: moc cannot skip bodies that hold raw string literals.
void TestBleBluez::nameMatching()
{
    QFETCH(QString, name);
    QFETCH(int, expected);
    BleProfiles profiles;
    QVERIFY(profiles.parse(R"({"profiles": [
        {"protocolType": 1, "namePrefixes": ["BRV-CL"], "service": "FFE0", "writeCharacteristic": "FFE1", "notifyCharacteristic": "FFE2"},
        {"protocolType": 7, "namePrefixes": ["BRV-RGBW"], "service": "FFE0", "writeCharacteristic": "FFE1", "notifyCharacteristic": "FFE2"},
        {"protocolType": 2, "namePrefixes": ["BRV-RGB"], "service": "FFE0", "writeCharacteristic": "FFE1", "notifyCharacteristic": "FFE2"},
        {"protocolType": 1001, "namePrefixes": ["BRV-PRO"], "namePattern": "BP[0-9]{3}-[0-9A-F]{4}",
         "service": "7b3a0001-4c1d-4f6e-9a52-b1e0c0d5a1f0", "writeCharacteristic": "FFE1", "notifyCharacteristic": "FFE2"}
    ]})"));
    QCOMPARE(profiles.profiles().size(), 4);
    const BleProfile *profile = profiles.match(name);
    QCOMPARE(profile ? profile->protocolType : -1, expected);
}

QTEST_GUILESS_MAIN(TestBleBluez)
#include "tst_blebluez.moc"
