// Loading the BLE plug-in library: a plug-in built on its own with its own copy of the
// interface's meta-object, the bare default name, the environment override, and both failures.
#include "bluetoothmgr.h"
#include "brivonqxbleinterface.h"
#include "devdatamgr.h"
#include "logcapture.h"
#include "testhome.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QPluginLoader>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace {

const QString kAddr = QStringLiteral("C0:FF:EE:00:00:01");

} // namespace

class TestBlePlugin : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_home = std::make_unique<TestHome>();
        m_store = std::make_shared<DevDataMgr>();
        qunsetenv(BluetoothMgr::kPluginEnvVar); // each case sets the override it needs
    }

    void cleanup() { m_store.reset(), m_home.reset(); }

    // Found through a relative override (resolved against the working folder) or by its bare name in
    // the library paths, which stand in for the program's folder.
    void separatelyBuiltPluginWorks_data()
    {
        QTest::addColumn<bool>("override");
        QTest::newRow("relative override") << true;
        QTest::newRow("bare name in the library paths") << false;
    }

    void separatelyBuiltPluginWorks()
    {
        QFETCH(bool, override);
        QTemporaryDir dir;
        const QString copy = dir.filePath(QStringLiteral("libBrivonQXBleDLL.so"));
        QVERIFY(QFile::copy(QStringLiteral(BRIVON_TEST_PLUGIN), copy));
        if (override)
            qputenv(BluetoothMgr::kPluginEnvVar, QFile::encodeName(QDir::current().relativeFilePath(BRIVON_TEST_PLUGIN)));
        const auto mgr = managerSearching(dir.path());
        QVERIFY(mgr->isPluginLoaded());

        QPluginLoader loader(override ? QStringLiteral(BRIVON_TEST_PLUGIN) : copy);
        QObject *plugin = loader.instance();
        QVERIFY(plugin);
        plugin->setProperty("calls", QStringList());
        quintptr pluginMeta = 0;
        QVERIFY(QMetaObject::invokeMethod(plugin, "interfaceMetaObject", Q_RETURN_ARG(quintptr, pluginMeta)));
        // The plug-in carries its own copy of the interface's meta-object, as the maker's library does.
        QVERIFY(pluginMeta != quintptr(&BrivonQXBleInterface::staticMetaObject));

        // Operations reach the plug-in, and its answers and signals come back. The other signals of a
        // plug-in built on its own reach the manager in tst_blesim_e2e, from the simulated lights.
        mgr->startScan();
        mgr->stopScan();
        plugin->setProperty("reconnectResult", false);
        QCOMPARE(mgr->reconnectDevice(kAddr), false);
        QSignalSpy errors(mgr.get(), &BaseDevice::sigDeviceDiscoveredErrorOccurred);
        const int poweredOff = QBluetoothDeviceDiscoveryAgent::PoweredOffError;
        QVERIFY(QMetaObject::invokeMethod(plugin, "emitError", Q_ARG(int, poweredOff)));
        QCOMPARE(errors.at(0).at(0).value<QBluetoothDeviceDiscoveryAgent::Error>(),
                 QBluetoothDeviceDiscoveryAgent::PoweredOffError);
        const QStringList calls = plugin->property("calls").toStringList();
        QCOMPARE(calls, (QStringList{"startScan", "stopScan", "reconnectDevice " + kAddr}));
    }

    // A plug-in that is not there (by path or by bare name) or is not a BLE plug-in is logged, and
    // the manager works without Bluetooth: the store still follows the operations.
    void refusedPluginLeavesManagerInert_data()
    {
        QTest::addColumn<QByteArray>("path"); // the override; empty: the bare name, in an empty folder
        QTest::addColumn<QString>("logged");
        QTest::newRow("missing file") << QByteArray("nowhere/libBrivonQXBleDLL.so") << "Failed to load BLE plugin: ";
        QTest::newRow("bare name not found") << QByteArray() << "Failed to load BLE plugin: ";
        QTest::newRow("wrong interface id") << QByteArray(BRIVON_WRONG_IID_PLUGIN)
                                            << "Failed to cast plugin to BrivonQXBleInterface.";
    }

    void refusedPluginLeavesManagerInert()
    {
        QFETCH(QByteArray, path);
        QFETCH(QString, logged);
        if (!path.isEmpty())
            qputenv(BluetoothMgr::kPluginEnvVar, path.startsWith('/') ? path : m_home->path().toUtf8() + '/' + path);
        QTemporaryDir empty;
        LogCapture log;
        const auto mgr = managerSearching(empty.path());
        QVERIFY(!mgr->isPluginLoaded());
        QCOMPARE(log.matching(logged).size(), 1);
        QCOMPARE(log.matching(QStringLiteral("Failed to")).size(), 1);
        DevData dev;
        dev.addr = kAddr, dev.protocol = 2, dev.linkState = 1, dev.switchState = true;
        m_store->addDev(dev);
        mgr->startScan();
        mgr->setBrightness(kAddr, 10);
        QCOMPARE(m_store->findDev(kAddr)->brightness, 10);
        QCOMPARE(mgr->reconnectDevice(kAddr), false);
    }

private:
    // A manager that looks for the plug-in's bare name in `folder` only.
    std::unique_ptr<BluetoothMgr> managerSearching(const QString &folder)
    {
        const QStringList saved = QCoreApplication::libraryPaths();
        QCoreApplication::setLibraryPaths({folder});
        auto mgr = std::make_unique<BluetoothMgr>(m_store);
        QCoreApplication::setLibraryPaths(saved);
        return mgr;
    }

    std::unique_ptr<TestHome> m_home;
    std::shared_ptr<DevDataMgr> m_store;
};

QTEST_GUILESS_MAIN(TestBlePlugin)
#include "tst_bleplugin.moc"
