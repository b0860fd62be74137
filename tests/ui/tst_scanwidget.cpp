// The add-light flow with the real DeviceMgr over the simulated lights: what a scan lists, what
// "连接" stores, and that every way out of the scan window stops the scan.
#include "devicemgr.h"
#include "devicewidget.h"
#include "huebridgedialog.h"
#include "processutil.h"
#include "scanwidget.h"
#include "simlights.h"
#include "testhome.h"

#include <QDateTime>
#include <QListWidget>
#include <QPushButton>
#include <QSettings>
#include <QSignalSpy>
#include <QTest>

#include <memory>

namespace {

// Five lights found 100 ms apart; a scan that would run for a minute unless it is stopped.
const char kLights[] = R"({
  "timing": { "discoverFirstMs": 100, "discoverStepMs": 100, "scanMs": 60000, "connectMs": 100 },
  "lights": [
    { "addr": "AA:00:00:00:00:01", "name": "Key light", "protocol": 1 },
    { "addr": "AA:00:00:00:00:02", "name": "Fill light", "protocol": 2 },
    { "addr": "AA:00:00:00:00:03", "name": "Back light", "protocol": 7 },
    { "addr": "AA:00:00:00:00:04", "name": "Panel", "protocol": 162 },
    { "addr": "AA:00:00:00:00:05", "name": "COB", "protocol": 1001 }
  ]
})";

QStringList listedAddresses(const DeviceWidget *list)
{
    QStringList addrs;
    for (int row = 0; row < list->listWidget()->count(); ++row)
        addrs << list->listWidget()->item(row)->data(Qt::UserRole).toString();
    return addrs;
}

} // namespace

class TestScanWidget : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void eachLightListedOncePerScan();
    void everyWayOutStopsTheScan_data();
    void everyWayOutStopsTheScan();
    void connectingTwoLightsSwitchesOnce();

private:
    bool waitListed(int count) { return waitUntil([&]() { return m_scan->deviceWidget()->count() >= count; }, 5000); }

    std::unique_ptr<TestHome> m_home;
    std::unique_ptr<ScanWidget> m_scan;
};

void TestScanWidget::initTestCase()
{
    m_home = std::make_unique<TestHome>();
    SimLights::select(kLights, false);
    // Keep the Hue side of every scan off the network: discovery is refused for years.
    QSettings hue(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("brivon"),
                  QStringLiteral("com.brivon.beamcrafter.philipshue"));
    hue.setValue(QStringLiteral("discover/datatime"), QDateTime::currentDateTime().addYears(50));
    hue.sync();
    QCOMPARE(DeviceMgrSingleton::instance()->deviceCount(), 0);
}

void TestScanWidget::init()
{
    m_scan = std::make_unique<ScanWidget>();
}

void TestScanWidget::cleanup()
{
    m_scan.reset();
    DeviceMgrSingleton::instance()->stopScan();
    // The simulator reports the end of a stopped scan from its event loop: let it pass here.
    QTest::qWait(50);
}

void TestScanWidget::eachLightListedOncePerScan()
{
    DeviceMgr *mgr = DeviceMgrSingleton::instance();
    m_scan->show();
    QVERIFY(m_scan->deviceWidget()->isDiscoverTipVisible());
    QVERIFY(waitListed(5));

    // A transport that reports a light again, and a second scan started while the window is
    // open (the manager then reports every light anew): still one row per light.
    QSignalSpy discovered(mgr, &BaseDevice::sigDeviceDiscovered);
    DevData repeat;
    repeat.addr = QStringLiteral("AA:00:00:00:00:03");
    repeat.name = QStringLiteral("Back light");
    emit mgr->sigDeviceDiscovered(repeat);
    mgr->startScan();
    QVERIFY(waitUntil([&]() { return discovered.size() >= 6; }, 5000));
    QCOMPARE(listedAddresses(m_scan->deviceWidget()),
             (QStringList{"AA:00:00:00:00:01", "AA:00:00:00:00:02", "AA:00:00:00:00:03", "AA:00:00:00:00:04",
                          "AA:00:00:00:00:05"}));
    QCOMPARE(m_scan->deviceWidget()->listWidget()->item(1)->text(), QStringLiteral("Fill light"));
    // "连接" needs a selection.
    QVERIFY(!m_scan->connectButton()->isEnabled());
    m_scan->deviceWidget()->listWidget()->item(1)->setSelected(true);
    QVERIFY(m_scan->connectButton()->isEnabled());
    m_scan->deviceWidget()->listWidget()->clearSelection();
    QVERIFY(!m_scan->connectButton()->isEnabled());

    // The next showing starts from an empty list.
    m_scan->hide();
    m_scan->show();
    QCOMPARE(m_scan->deviceWidget()->count(), 0);
    QVERIFY(waitListed(5));
    QCOMPARE(m_scan->deviceWidget()->count(), 5);
}

void TestScanWidget::everyWayOutStopsTheScan_data()
{
    QTest::addColumn<QString>("way");
    QTest::addColumn<bool>("withPairingDialog");
    QTest::newRow("cancel") << "cancel" << false;
    QTest::newRow("window close, pairing dialog open") << "close" << true;
    QTest::newRow("hidden by its owner") << "hide" << false;
    QTest::newRow("connect") << "connect" << false;
}

void TestScanWidget::everyWayOutStopsTheScan()
{
    QFETCH(QString, way);
    QFETCH(bool, withPairingDialog);
    DeviceMgr *mgr = DeviceMgrSingleton::instance();
    QSignalSpy finished(mgr, &BaseDevice::sigDeviceDiscoveredFinished);
    m_scan->show();
    QVERIFY(waitListed(1));
    if (withPairingDialog) {
        m_scan->hueButton()->click();
        QVERIFY(m_scan->hueBridgeDialog()->isVisible());
    }
    QCOMPARE(finished.size(), 0); // the scan is still running

    if (way == QLatin1String("cancel")) {
        m_scan->cancelButton()->click();
    } else if (way == QLatin1String("close")) {
        QVERIFY(m_scan->close());
    } else if (way == QLatin1String("hide")) {
        m_scan->hide();
    } else {
        m_scan->deviceWidget()->listWidget()->item(0)->setSelected(true);
        m_scan->connectButton()->click();
    }
    QVERIFY(!m_scan->isVisible());
    QVERIFY(!m_scan->hueBridgeDialog()->isVisible());
    // The simulated scan lasts a minute; only a stop ends it now.
    QVERIFY(waitUntil([&]() { return finished.size() >= 1; }, 2000));
    QVERIFY(!m_scan->deviceWidget()->isDiscoverTipVisible());
    // Nothing was added on the way out, except by "连接".
    QCOMPARE(mgr->deviceCount(), way == QLatin1String("connect") ? 1 : 0);
    for (const QString &addr : mgr->getDevices().keys()) {
        mgr->removeDevice(addr); // the link goes too, so the light is found again next time
        mgr->delDev(defaultGroupUuid(), addr);
    }
}

void TestScanWidget::connectingTwoLightsSwitchesOnce()
{
    DeviceMgr *mgr = DeviceMgrSingleton::instance();
    QSignalSpy switched(m_scan.get(), &ScanWidget::OKClicked);
    QSignalSpy stored(mgr->store(), &DevDataMgr::onAddDev);
    m_scan->show();
    QVERIFY(waitListed(5));
    QListWidget *list = m_scan->deviceWidget()->listWidget();
    list->item(1)->setSelected(true);
    list->item(2)->setSelected(true);
    QTest::mouseClick(m_scan->connectButton(), Qt::LeftButton);

    QCOMPARE(switched.size(), 1);
    QCOMPARE(stored.size(), 2);
    const DevData *fill = mgr->store()->findDev(QStringLiteral("AA:00:00:00:00:02"));
    QCOMPARE(fill->name + QString::number(fill->protocol), QStringLiteral("Fill light2")); // as discovery reported it

    // Next time the stored lights are not offered again.
    m_scan->show();
    QVERIFY(waitListed(3));
    QTest::qWait(600);
    QCOMPARE(listedAddresses(m_scan->deviceWidget()),
             (QStringList{"AA:00:00:00:00:01", "AA:00:00:00:00:04", "AA:00:00:00:00:05"}));
}

QTEST_MAIN(TestScanWidget)
#include "tst_scanwidget.moc"
