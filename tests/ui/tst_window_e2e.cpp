// A scripted session of the real main window with the simulated lights: add two lights through
// the scan window, delete one in the group settings, and quit from the tray right after a change.
// The simulator's control socket shows what reached the lights.
#include "controlitemwidget.h"
#include "controlwidget.h"
#include "deletesettings.h"
#include "devicemgr.h"
#include "devicewidget.h"
#include "devinfowidget.h"
#include "middlewidget.h"
#include "modifytitlebar.h"
#include "modifywindow.h"
#include "processutil.h"
#include "scanwidget.h"
#include "settingmiddlewdg.h"
#include "settingwindow.h"
#include "simlights.h"
#include "testhome.h"

#include <QApplication>
#include <QGroupBox>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QListWidget>
#include <QMenu>
#include <QPushButton>
#include <QSystemTrayIcon>
#include <QTest>
#include <QTimer>

#include <memory>

namespace {

const QString kV60 = QStringLiteral("C4:7F:0E:10:00:01");
const QString kV80 = QStringLiteral("C4:7F:0E:20:00:02");

DeviceMgr *mgr() { return DeviceMgrSingleton::instance(); }

// Linked, and its first report is in (a report in flight would overwrite a later change).
bool online(const QString &addr)
{
    const DevData *dev = mgr()->store()->findDev(addr);
    return dev && dev->linkState == 1 && dev->brightness >= 0;
}

} // namespace

class TestWindowE2E : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_home = std::make_unique<TestHome>();
        SimLights::select(QByteArray(), true);
        setAskToDelete(QStringLiteral("global/ask_to_delete_device"), false);
        QApplication::setQuitOnLastWindowClosed(false);
        QCOMPARE(mgr()->deviceCount(), 0);
    }

    void addAndDelete()
    {
        ModifyWindow window;
        window.show();
        QVERIFY(window.middleWidget()->isVisible());

        // Add two lights through the scan window.
        window.middleWidget()->addButton()->click();
        ScanWidget *scan = window.scanWidget();
        QVERIFY(scan->isVisible() && !scan->connectButton()->isEnabled());
        QListWidget *found = scan->deviceWidget()->listWidget();
        QVERIFY(waitUntil([&] { return found->count() >= 5; }, 8000));
        for (int row = 0; row < found->count(); ++row) {
            const QString addr = found->item(row)->data(Qt::UserRole).toString();
            found->item(row)->setSelected(addr == kV60 || addr == kV80);
        }
        QVERIFY(scan->connectButton()->isEnabled());
        scan->connectButton()->click();
        QVERIFY(!scan->isVisible() && window.controlWidget()->isVisible());
        QCOMPARE(mgr()->deviceCount(), 2);

        // The scan window links the lights it adds.
        QVERIFY(waitUntil([] { return online(kV60) && online(kV80); }, 8000));

        // Delete one light from the group settings' list of all lights.
        window.titleBar()->settingMenu()->actions().at(0)->trigger(); // "群组设置"
        SettingWindow *settings = window.settingWindow();
        QVERIFY(settings->isVisible());
        DevInfoWidget *info = settings->middleWidget()->infoWidget();
        QCOMPARE(info->currentGroup(), defaultGroupUuid());
        QVERIFY(info->listedAddresses().contains(kV80));
        info->requestDelete(kV80);
        QVERIFY(!mgr()->store()->findDev(kV80));
        QGroupBox *section = window.controlWidget()->section(defaultGroupUuid());
        QVERIFY(waitUntil([&] { return ControlWidget::cards(section).size() == 1; }, 2000));
        QVERIFY(waitUntil([&] { return SimLights::state(kV80).value(QLatin1String("connected")) == QJsonValue(false); },
                3000));
        QVERIFY(window.controlWidget()->isVisible());
    }

    void trayExitKeepsTheLastChange()
    {
        ModifyWindow window;
        window.show();
        mgr()->powerOn(kV60);
        QVERIFY(waitUntil([&] { return online(kV60) && mgr()->store()->findDev(kV60)->switchState; }, 3000));
        // Within half a second of the last write: these wait for the next one, which never comes.
        mgr()->setBrightness(kV60, 44);
        mgr()->setBrightness(kV60, 45);
        QAction *exit = window.trayIcon()->contextMenu()->actions().value(1);
        QVERIFY(exit && exit->text() == QStringLiteral("退出"));
        QTimer::singleShot(0, exit, &QAction::trigger);
        QCOMPARE(QCoreApplication::exec(), 0);
        const QJsonObject saved = QJsonDocument::fromJson(readFile(m_home->configFile())).object();
        const QJsonArray devs = saved.value(QLatin1String("devs")).toArray();
        QCOMPARE(devs.size(), 1);
        QCOMPARE(devs.at(0)[u"brightness"][u"value"].toInt(), 45);
    }

private:
    std::unique_ptr<TestHome> m_home;
};

QTEST_MAIN(TestWindowE2E)
#include "tst_window_e2e.moc"
