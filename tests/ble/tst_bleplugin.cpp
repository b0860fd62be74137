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

QStringList calls(QObject *plugin)
{
    return plugin->property("calls").toStringList();
}

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

    void cleanup()
    {
        m_store.reset();
        m_home.reset();
    }

    void separatelyBuiltPluginWorks()
    {
        // A relative override is resolved against the working folder.
        qputenv(BluetoothMgr::kPluginEnvVar, QFile::encodeName(QDir::current().relativeFilePath(BRIVON_TEST_PLUGIN)));
        BluetoothMgr mgr(m_store);
        QVERIFY(mgr.isPluginLoaded());

        QPluginLoader loader(QStringLiteral(BRIVON_TEST_PLUGIN));
        QObject *plugin = loader.instance();
        QVERIFY(plugin);
        plugin->setProperty("calls", QStringList());
        quintptr pluginMeta = 0;
        QVERIFY(QMetaObject::invokeMethod(plugin, "interfaceMetaObject", Q_RETURN_ARG(quintptr, pluginMeta)));
        // The plug-in carries its own copy of the interface's meta-object, as the maker's library does.
        QVERIFY(pluginMeta != 0);
        QVERIFY(pluginMeta != quintptr(&BrivonQXBleInterface::staticMetaObject));

        // Operations reach the plug-in.
        mgr.startScan();
        mgr.stopScan();
        plugin->setProperty("reconnectResult", false);
        QCOMPARE(mgr.reconnectDevice(kAddr), false);
        plugin->setProperty("reconnectResult", true);
        QCOMPARE(mgr.reconnectDevice(kAddr), true);

        // Signals emitted by the plug-in's own code reach the manager.
        QSignalSpy discovered(&mgr, &BaseDevice::sigDeviceDiscovered);
        QSignalSpy errors(&mgr, &BaseDevice::sigDeviceDiscoveredErrorOccurred);
        QSignalSpy finished(&mgr, &BaseDevice::sigDeviceDiscoveredFinished);
        QVERIFY(QMetaObject::invokeMethod(plugin, "emitDiscovered", Q_ARG(int, 2), Q_ARG(QString, kAddr),
                                          Q_ARG(QString, QStringLiteral("RGB panel"))));
        QVERIFY(QMetaObject::invokeMethod(plugin, "emitError",
                                          Q_ARG(int, int(QBluetoothDeviceDiscoveryAgent::PoweredOffError))));
        QVERIFY(QMetaObject::invokeMethod(plugin, "emitFinished"));
        QCOMPARE(discovered.count(), 1);
        QCOMPARE(errors.at(0).at(0).value<QBluetoothDeviceDiscoveryAgent::Error>(),
                 QBluetoothDeviceDiscoveryAgent::PoweredOffError);
        QCOMPARE(finished.count(), 1);

        DevData dev = discovered.at(0).at(0).value<DevData>();
        m_store->addDev(dev);
        QVERIFY(QMetaObject::invokeMethod(plugin, "emitConnected", Q_ARG(QString, kAddr)));
        QCOMPARE(int(m_store->findDev(kAddr)->linkState), 1);
        QVERIFY(QMetaObject::invokeMethod(plugin, "emitMessage", Q_ARG(QString, kAddr),
                                          Q_ARG(QByteArray, QByteArray::fromHex("ff10093215e000000000020100aa"))));
        QCOMPARE(m_store->findDev(kAddr)->brightness, 50);
        QCOMPARE(m_store->findDev(kAddr)->switchState, true);
        mgr.setBrightness(kAddr, 20);
        QVERIFY(QMetaObject::invokeMethod(plugin, "emitDisconnected", Q_ARG(QString, kAddr)));
        QCOMPARE(int(m_store->findDev(kAddr)->linkState), 0);

        QCOMPARE(calls(plugin), (QStringList{
            QStringLiteral("startScan"), QStringLiteral("stopScan"),
            QStringLiteral("reconnectDevice ") + kAddr, QStringLiteral("reconnectDevice ") + kAddr,
            QStringLiteral("writeData ") + kAddr + QStringLiteral(" ff a1 01 30 30 aa"),
            QStringLiteral("writeData ") + kAddr + QStringLiteral(" ff a2 01 14 14 aa")}));
    }

    void bareNameIsSearchedInLibraryPaths()
    {
        // Stand in for the program's folder: a library path holding lib<bare name>.so.
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString target = dir.filePath(QStringLiteral("libBrivonQXBleDLL.so"));
        QVERIFY(QFile::copy(QStringLiteral(BRIVON_TEST_PLUGIN), target));
        const auto mgr = managerSearching(dir.path());
        QVERIFY(mgr->isPluginLoaded());
        QPluginLoader loader(target);
        QObject *plugin = loader.instance();
        QVERIFY(plugin);
        plugin->setProperty("calls", QStringList());
        mgr->startScan();
        QCOMPARE(calls(plugin), QStringList{QStringLiteral("startScan")});
    }

    void missingFileIsLoggedAndInert()
    {
        const QString missing = m_home->path() + QStringLiteral("/nowhere/libBrivonQXBleDLL.so");
        qputenv(BluetoothMgr::kPluginEnvVar, QFile::encodeName(missing));
        LogCapture log;
        BluetoothMgr mgr(m_store);
        QVERIFY(!mgr.isPluginLoaded());
        QPluginLoader reference(missing);
        QVERIFY(!reference.load());
        const QStringList lines = log.matching(QStringLiteral("Failed to load BLE plugin:"));
        QCOMPARE(lines.size(), 1);
        QCOMPARE(lines.first(), QStringLiteral("Failed to load BLE plugin: ") + reference.errorString());

        // Without Bluetooth, nothing breaks and the store still follows the operations.
        DevData dev;
        dev.addr = kAddr;
        dev.protocol = 2;
        dev.linkState = 1;
        dev.switchState = true;
        m_store->addDev(dev);
        mgr.startScan();
        mgr.setBrightness(kAddr, 10);
        QCOMPARE(m_store->findDev(kAddr)->brightness, 10);
        QCOMPARE(mgr.reconnectDevice(kAddr), false);

        // The bare name not found in the library paths is logged the same way.
        QTemporaryDir empty;
        log.clear();
        qunsetenv(BluetoothMgr::kPluginEnvVar);
        QVERIFY(!managerSearching(empty.path())->isPluginLoaded());
        QCOMPARE(log.matching(QStringLiteral("Failed to load BLE plugin: ")).size(), 1);
    }

    void wrongInterfaceIdIsRefused()
    {
        qputenv(BluetoothMgr::kPluginEnvVar, BRIVON_WRONG_IID_PLUGIN);
        LogCapture log;
        BluetoothMgr mgr(m_store);
        QVERIFY(!mgr.isPluginLoaded());
        QCOMPARE(log.matching(QStringLiteral("Failed to cast plugin to BrivonQXBleInterface.")).size(), 1);
        QVERIFY(!log.contains(QStringLiteral("Failed to load BLE plugin:")));

        QPluginLoader loader(QStringLiteral(BRIVON_WRONG_IID_PLUGIN));
        QObject *plugin = loader.instance();
        QVERIFY(plugin);
        QSignalSpy finished(&mgr, &BaseDevice::sigDeviceDiscoveredFinished);
        QMetaObject::invokeMethod(plugin, "sigDeviceDiscoveredFinished");
        QCOMPARE(finished.count(), 0);
        QCOMPARE(mgr.reconnectDevice(kAddr), false);
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
