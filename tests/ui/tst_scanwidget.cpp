// The add-light flow with the real DeviceMgr over the simulated lights: what a scan lists, what
// "连接" stores, and that every way out of the scan window stops the scan.
#include "devicemgr.h"
#include "devicenamewidget.h"
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

DeviceMgr *mgr() { return DeviceMgrSingleton::instance(); }
QString addr(int n) { return QStringLiteral("AA:00:00:00:00:0%1").arg(n); }

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
    void initTestCase()
    {
        m_home = std::make_unique<TestHome>();
        SimLights::select(kLights, false);
        // Keep the Hue side of every scan off the network: discovery is refused for years.
        QSettings hue = programSettings("philipshue");
        hue.setValue(QStringLiteral("discover/datatime"), QDateTime::currentDateTime().addYears(50));
        hue.sync();
        QCOMPARE(mgr()->deviceCount(), 0);
    }

    void init() { m_scan = std::make_unique<ScanWidget>(); }

    void cleanup()
    {
        m_scan.reset();
        mgr()->stopScan();
        // The simulator reports the end of a stopped scan from its event loop: let it pass here.
        QTest::qWait(50);
    }

    void eachLightListedOncePerScan()
    {
        m_scan->show();
        QVERIFY(m_scan->deviceWidget()->isDiscoverTipVisible());
        QVERIFY(waitListed(5));

        // A transport that reports a light again, and a second scan started while the window is
        // open (the manager then reports every light anew): still one row per light.
        QSignalSpy discovered(mgr(), &BaseDevice::sigDeviceDiscovered);
        DevData repeat;
        repeat.addr = addr(3);
        repeat.name = QStringLiteral("Back light");
        emit mgr()->sigDeviceDiscovered(repeat);
        mgr()->startScan();
        QVERIFY(waitUntil([&]() { return discovered.size() >= 6; }, 5000));
        QCOMPARE(listedAddresses(m_scan->deviceWidget()), (QStringList{addr(1), addr(2), addr(3), addr(4), addr(5)}));
        // The address beside the name.
        const QString fill = m_scan->deviceWidget()->listWidget()->item(1)->text();
        QVERIFY(fill.startsWith(QStringLiteral("Fill light")) && fill.endsWith(addr(2)));

        // The next showing starts from an empty list.
        m_scan->hide();
        m_scan->show();
        QCOMPARE(m_scan->deviceWidget()->count(), 0);
        QVERIFY(waitListed(5));
        QCOMPARE(m_scan->deviceWidget()->count(), 5);
    }

    // Both ways out stop the scan; closing also closes the pairing dialog.
    void everyWayOutStopsTheScan_data()
    {
        QTest::addColumn<bool>("cancel");
        QTest::newRow("cancel") << true;
        QTest::newRow("window close, pairing dialog open") << false;
    }

    void everyWayOutStopsTheScan()
    {
        QFETCH(bool, cancel);
        QSignalSpy finished(mgr(), &BaseDevice::sigDeviceDiscoveredFinished);
        m_scan->show();
        QVERIFY(waitListed(1));
        m_scan->hueButton()->click();
        QVERIFY(m_scan->hueBridgeDialog()->isVisible());
        QCOMPARE(finished.size(), 0); // the scan is still running
        if (cancel)
            m_scan->cancelButton()->click();
        else
            QVERIFY(m_scan->close());
        QVERIFY(!m_scan->isVisible() && !m_scan->hueBridgeDialog()->isVisible());
        // The simulated scan lasts a minute; only a stop ends it now.
        QVERIFY(waitUntil([&]() { return finished.size() >= 1; }, 2000));
        QVERIFY(!m_scan->deviceWidget()->isDiscoverTipVisible());
        QCOMPARE(mgr()->deviceCount(), 0);
    }

    void emptyScanOffersAnother()
    {
        m_scan->show();
        QVERIFY(!m_scan->rescanButton()->isEnabled());
        // A transport whose scan ends before anything is found.
        emit mgr()->sigDeviceDiscoveredFinished();
        QVERIFY(m_scan->deviceWidget()->isNothingFoundVisible() && m_scan->rescanButton()->isEnabled());
        QTest::mouseClick(m_scan->rescanButton(), Qt::LeftButton);
        QVERIFY(m_scan->isVisible());
        QVERIFY(!m_scan->deviceWidget()->isNothingFoundVisible() && m_scan->deviceWidget()->isDiscoverTipVisible());
        QVERIFY(waitListed(1));
    }

    void connectingTwoLightsSwitchesOnce()
    {
        QSignalSpy switched(m_scan.get(), &ScanWidget::OKClicked);
        QSignalSpy stored(mgr()->store(), &DevDataMgr::onAddDev);
        m_scan->show();
        QVERIFY(waitListed(5));
        QListWidget *list = m_scan->deviceWidget()->listWidget();
        // Any set: a click, then a Ctrl click two rows further.
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualItemRect(list->item(1)).center());
        QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::ControlModifier,
                list->visualItemRect(list->item(3)).center());
        QCOMPARE(list->selectedItems().size(), 2);
        QTest::mouseClick(m_scan->connectButton(), Qt::LeftButton);

        QCOMPARE(switched.size(), 1);
        QCOMPARE(stored.size(), 2);
        const DevData *fill = mgr()->store()->findDev(addr(2));
        QVERIFY(fill);
        QCOMPARE(fill->name, QStringLiteral("Fill light"));
        QCOMPARE(fill->protocol, 2); // the record as discovery reported it
        QVERIFY(mgr()->store()->findDev(addr(4)));
        QVERIFY(!m_scan->isVisible());
        // Both are linked at once, not only when a later scan sees them again.
        QVERIFY(waitUntil([&]() { return mgr()->store()->findDev(addr(2))->linkState == 1
                && mgr()->store()->findDev(addr(4))->linkState == 1; }, 3000));

        // Next time the stored lights are not offered again.
        m_scan->show();
        QVERIFY(waitListed(3));
        QTest::qWait(600);
        QCOMPARE(listedAddresses(m_scan->deviceWidget()), (QStringList{addr(1), addr(3), addr(5)}));
    }

    void groupBoxReportsTheChange_data()
    {
        QTest::addColumn<QStringList>("members");
        QTest::addColumn<QList<int>>("clicks"); // rows clicked, in order
        QTest::addColumn<QStringList>("added");
        QTest::addColumn<QStringList>("removed");

        QTest::newRow("clicked twice") << QStringList{"C"} << QList<int>{1, 1} << QStringList() << QStringList();
        QTest::newRow("swapped") << QStringList{"A"} << QList<int>{0, 1} << QStringList{"B"} << QStringList{"A"};
    }

    void groupBoxReportsTheChange()
    {
        QFETCH(QStringList, members);
        QFETCH(QList<int>, clicks);
        QList<DevData> offered, groupLights;
        for (const QString &addr : {QStringLiteral("A"), QStringLiteral("B"), QStringLiteral("C")}) {
            DevData dev;
            dev.addr = addr;
            dev.name = QStringLiteral("Light ") + addr;
            offered << dev;
            if (members.contains(addr))
                groupLights << dev;
        }
        DeviceNameWidget box;
        box.setDevices(offered);
        box.onSyncSelectDevice(groupLights);
        box.show();
        QVERIFY(QTest::qWaitForWindowExposed(&box));
        QStringList added, removed;
        connect(&box, &DeviceNameWidget::handleAddDevice, this,
                [&](QList<DevData> &info) { for (const DevData &dev : info) added << dev.addr; });
        connect(&box, &DeviceNameWidget::handleDelDevice, this, [&](QString addr) { removed << addr; });

        QListWidget *list = box.listWidget();
        for (int row : clicks)
            QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualItemRect(list->item(row)).center());
        box.findChild<QPushButton *>(QStringLiteral("btnDeviceNameOk"))->click();
        QTEST(added, "added");
        QTEST(removed, "removed");
        QVERIFY(!box.isVisible());
    }

private:
    bool waitListed(int count) { return waitUntil([&]() { return m_scan->deviceWidget()->count() >= count; }, 5000); }

    std::unique_ptr<TestHome> m_home;
    std::unique_ptr<ScanWidget> m_scan;
};

QTEST_MAIN(TestScanWidget)
#include "tst_scanwidget.moc"
