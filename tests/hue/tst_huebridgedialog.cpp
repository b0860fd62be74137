// The Hue pairing dialog against tools/fakehuebridge on loopback, reached the way the program
// reaches it: through the Hue manager of the real DeviceMgr. The retry interval is shortened, so
// the twelve requests and the give-up tick take seconds instead of a minute.
#include "devicemgr.h"
#include "fakebridgeprocess.h"
#include "huebridgedialog.h"
#include "huedevicemgr.h"
#include "pairlabel.h"
#include "processutil.h"
#include "scanwidget.h"
#include "simlights.h"
#include "testhome.h"

#include <QElapsedTimer>
#include <QListWidget>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

#include <memory>

namespace {

const QString kLight = QStringLiteral("7b2e9d40-1c5a-4e83-b6f2-2d3e4f5a6b02"); // the fake's ambiance lamp
const int kPairInterval = 500; // room for the link button press between two requests

} // namespace

class TestHueBridgeDialog : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_home = std::make_unique<TestHome>();
        QVERIFY(m_home->isValid());
        QVERIFY(FakeBridgeProcess::makeCertificate(m_home->path()));
        SimLights::select("[]", false); // no Bluetooth lights
        QVERIFY(std::dynamic_pointer_cast<HueDeviceMgr>(DeviceMgrSingleton::instance()->getDeviceMgrByProtocol(2001)));
    }

    void init()
    {
        // A bridge on a fresh address per case: the client keeps what it paired for the process's life.
        // (The next one when another process holds the address.)
        for (int attempt = 0; attempt < 3; ++attempt) {
            m_address = ownLoopbackAddress(m_nextHost);
            // And its own id: the same id at a new address would be the paired bridge having moved.
            m_bridgeId = QStringLiteral("ecb5fafffe2d4e%1").arg(m_nextHost++, 2, 16, QLatin1Char('0'));
            // It gives no client key with the pairing, which stands without one.
            const QStringList arguments{QStringLiteral("--address"), m_address, QStringLiteral("--bridge-id"), m_bridgeId,
                                        QStringLiteral("--no-clientkey")};
            if (m_fake.start(m_home->path(), arguments))
                break;
        }
        QVERIFY(m_fake.isRunning());
        qputenv("BRIVON_HUE_DISCOVERY_URL", QStringLiteral("http://%1/discovery").arg(m_address).toUtf8());
        FakeBridgeProcess::setDiscoveryStamp();
    }

    void cleanup()
    {
        m_fake.kill();
    }

    void givingUpAfterTwelveRequests()
    {
        HueBridgeDialog dialog;
        QCOMPARE(dialog.retryInterval(), 5000); // so the twelfth request leaves at 60 s, failure at 65 s
        dialog.setRetryInterval(kPairInterval);
        QVERIFY(discover(dialog));
        list(dialog)->item(0)->setSelected(true);
        // Started before the press: the pace is measured from no later than the press itself.
        QElapsedTimer clock;
        clock.start();
        QTest::mouseClick(dialog.findChild<QPushButton *>(QStringLiteral("pushButton_pair")), Qt::LeftButton);
        QCOMPARE(dialog.currentPage(), int(HueBridgeDialog::PairingPage));
        auto *blink = dialog.findChild<PairLabel *>(QStringLiteral("label_pair_gif"));
        QVERIFY(blink->isBlinking());
        QCOMPARE(pairingRequests(), 0); // the first request leaves one interval after the press

        QVERIFY(m_fake.waitForRequests(12, QStringLiteral("POST"), QStringLiteral("/api"), 20000));
        QCOMPARE(dialog.currentPage(), int(HueBridgeDialog::PairingPage));
        QVERIFY(waitUntil([&]() { return dialog.currentPage() == HueBridgeDialog::FailedPage; }, 5000));
        // Qt's coarse timers may fire up to 5 % early, each time.
        QVERIFY2(clock.elapsed() >= 13 * kPairInterval * 95 / 100, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(pairingRequests(), 12);
        QVERIFY(!blink->isBlinking());
        QCOMPARE(list(dialog)->count(), 1); // still there to try again
        QVERIFY(!programSettings("philipshue").contains(bridgeKey()));

        // "重试" starts over with twelve requests at the same pace; the button is pressed after the eleventh,
        // and another bridge is selected while it pairs.
        Bridge other;
        other.id = QStringLiteral("001788fffe000009");
        other.ip = QStringLiteral("192.0.2.9");
        dialog.onDiscoverBridge({other});
        clock.restart();
        QTest::mouseClick(dialog.findChild<QPushButton *>(QStringLiteral("pushButton_retry")), Qt::LeftButton);
        QCOMPARE(dialog.currentPage(), int(HueBridgeDialog::PairingPage));
        QCOMPARE(dialog.remainingAttempts(), 12);
        QVERIFY(m_fake.waitForRequests(23, QStringLiteral("POST"), QStringLiteral("/api"), 20000));
        QVERIFY2(clock.elapsed() >= 11 * kPairInterval * 95 / 100, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(dialog.currentPage(), int(HueBridgeDialog::PairingPage));
        list(dialog)->item(1)->setSelected(true);
        QVERIFY(m_fake.control(m_address, QStringLiteral("linkbutton")));
        QVERIFY(waitUntil([&]() { return dialog.currentPage() == HueBridgeDialog::PairedPage; }, 20000));
        QCOMPARE(pairingRequests(), 24);
        QVERIFY(!blink->isBlinking());
        QCOMPARE(dialog.remainingAttempts(), 0);
        QVERIFY(programSettings("philipshue").contains(bridgeKey()));
        // The paired bridge leaves the list and is not offered again.
        QCOMPARE(list(dialog)->count(), 1);
        QCOMPARE(list(dialog)->item(0)->text(), other.id);
        FakeBridgeProcess::setDiscoveryStamp();
        dialog.discoverBridges();
        QVERIFY(m_fake.waitForRequests(2, QStringLiteral("GET"), QStringLiteral("/discovery")));
        QTest::qWait(3 * kPairInterval);
        QVERIFY(list(dialog)->findItems(m_bridgeId, Qt::MatchExactly).isEmpty());
        QCOMPARE(pairingRequests(), 24); // the retries stopped
    }

    void rePairingTheBridgeOfAKnownLight()
    {
        DeviceMgr *mgr = DeviceMgrSingleton::instance();
        const auto hue = std::dynamic_pointer_cast<HueDeviceMgr>(mgr->getDeviceMgrByProtocol(2001));
        QSignalSpy offered(hue->hueBridge().get(), &HueBridge::discover2);
        HueBridgeDialog dialog;
        dialog.setRetryInterval(kPairInterval);
        Bridge listed;
        listed.id = QStringLiteral("001788fffe000003");
        listed.ip = QStringLiteral("192.0.2.8");
        dialog.onDiscoverBridge({listed});
        QVERIFY(!dialog.isRepairMode());

        // A stored lamp whose bridge is not paired: reconnecting it finds the bridge and offers it.
        DevData lamp;
        lamp.addr = m_address + QLatin1Char('/') + m_bridgeId + QLatin1Char('/') + kLight;
        lamp.name = QStringLiteral("Desk lamp");
        lamp.protocol = 2001;
        mgr->addDev(lamp);
        QVERIFY(mgr->reconnectDevice(lamp.addr));
        QVERIFY(waitUntil([&]() { return dialog.isRepairMode(); }, 15000));
        QCOMPARE(list(dialog)->count(), 1);
        QCOMPARE(list(dialog)->item(0)->text(), m_bridgeId);
        QCOMPARE(list(dialog)->item(0)->data(Qt::UserRole + 1).toString(), kLight);
        // Known now: offered again at once, without asking the discovery service again.
        QVERIFY(mgr->reconnectDevice(lamp.addr));
        QCOMPARE(offered.size(), 2);
        QCOMPARE(m_fake.requests(QStringLiteral("GET"), QStringLiteral("/discovery")).size(), 1);

        QVERIFY(m_fake.control(m_address, QStringLiteral("linkbutton")));
        list(dialog)->item(0)->setSelected(true);
        dialog.onPairBridge();
        QVERIFY(waitUntil([&]() { return dialog.currentPage() == HueBridgeDialog::PairedPage; }, 10000));
        QCOMPARE(list(dialog)->count(), 0);
        const QString key = programSettings("philipshue").value(bridgeKey()).toString();
        QVERIFY2(key.endsWith(QLatin1Char('/')) && key.size() == 41, qPrintable(key));
        // The pairing is followed by that one lamp's state, not by the bridge's whole light list.
        const QString lampPath = QStringLiteral("/clip/v2/resource/light/") + kLight;
        QVERIFY(m_fake.waitForRequests(1, QStringLiteral("GET"), lampPath));
        QVERIFY(waitUntil([&]() { return mgr->store()->findDev(lamp.addr)->linkState == 1; }, 10000));
        QCOMPARE(mgr->store()->findDev(lamp.addr)->temperature, 4200); // 233 mirek
        QCOMPARE(m_fake.requests(QStringLiteral("GET"), QStringLiteral("/clip/v2/resource/light")).size(), 0);

        // The bridge forgets the key (a reset bridge knows no application): the lamp goes offline and
        // the dialog offers this bridge again, once in the run however often the bridge refuses.
        dialog.hide();
        m_fake.kill();
        QVERIFY(m_fake.start(m_home->path(),
                             {QStringLiteral("--address"), m_address, QStringLiteral("--bridge-id"), m_bridgeId}));
        mgr->connectToDevice(lamp.addr);
        QVERIFY(waitUntil([&]() { return dialog.isVisible() && mgr->store()->findDev(lamp.addr)->linkState == 0; }, 15000));
        QVERIFY(dialog.isRepairMode());
        QCOMPARE(list(dialog)->count(), 1);
        QVERIFY(list(dialog)->item(0)->isSelected());
        QCOMPARE(dialog.currentPage(), int(HueBridgeDialog::SelectedPage));
        dialog.hide();
        mgr->connectToDevice(lamp.addr);
        QVERIFY(m_fake.waitForRequests(2, QStringLiteral("GET"), lampPath));
        QTest::qWait(300);
        QVERIFY(!dialog.isVisible());
        mgr->delDev(defaultGroupUuid(), lamp.addr);
    }

    void scanWindowOpensThePairingDialog()
    {
        // A scan's own discovery finds the bridge but does not open the dialog by itself.
        FakeBridgeProcess::setDiscoveryStamp();
        ScanWidget scan;
        scan.move(100, 80);
        scan.show();
        HueBridgeDialog *dialog = scan.hueBridgeDialog();
        QVERIFY(waitUntil([&]() { return list(*dialog)->count() == 1; }, 15000));
        QVERIFY(!dialog->isVisible());

        // The Hue button does, beside the scan window; the bridge reported again is listed once.
        FakeBridgeProcess::setDiscoveryStamp();
        QTest::mouseClick(scan.hueButton(), Qt::LeftButton);
        QVERIFY(dialog->isVisible());
        QCOMPARE(dialog->x(), scan.x() + scan.width());
        QVERIFY(m_fake.waitForRequests(2, QStringLiteral("GET"), QStringLiteral("/discovery")));
        QVERIFY(waitUntil([&]() { return list(*dialog)->count() == 1; }, 15000));

        // And once more together with another bridge, twice.
        Bridge other;
        other.id = QStringLiteral("001788fffe000002");
        other.ip = QStringLiteral("192.0.2.7");
        const Bridge fake = list(*dialog)->item(0)->data(Qt::UserRole).value<Bridge>();
        dialog->onDiscoverBridge({fake, other, other});
        QCOMPARE(list(*dialog)->count(), 2);
        QCOMPARE(list(*dialog)->item(0)->text(), m_bridgeId);
        QCOMPARE(list(*dialog)->item(1)->text(), other.id);
        list(*dialog)->item(1)->setSelected(true);
        QCOMPARE(dialog->currentPage(), int(HueBridgeDialog::SelectedPage));
        list(*dialog)->clearSelection();
        QCOMPARE(dialog->currentPage(), int(HueBridgeDialog::SelectPage));

        scan.close();
        QVERIFY(!dialog->isVisible());
    }

private:
    int pairingRequests() const { return m_fake.requests(QStringLiteral("POST"), QStringLiteral("/api")).size(); }
    QListWidget *list(HueBridgeDialog &d) const { return d.findChild<QListWidget *>(QStringLiteral("listWidget")); }
    // Discovery through the real client; true once the dialog lists the fake bridge.
    bool discover(HueBridgeDialog &dialog)
    {
        dialog.discoverBridges();
        return waitUntil([&]() {
            const QList<QListWidgetItem *> found = list(dialog)->findItems(m_bridgeId, Qt::MatchExactly);
            return found.size() == 1 && found.first()->data(Qt::UserRole).value<Bridge>().ip == m_address;
        }, 15000);
    }

    QString bridgeKey() const { return QStringLiteral("bridge/") + m_address + QLatin1Char('/') + m_bridgeId; }

    std::unique_ptr<TestHome> m_home;
    FakeBridgeProcess m_fake;
    QString m_address;
    QString m_bridgeId;
    int m_nextHost = 200;
};

QTEST_MAIN(TestHueBridgeDialog)
#include "tst_huebridgedialog.moc"
