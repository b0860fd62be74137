// The main window against the real device manager, with the recording BLE plug-in standing in for
// the radio (it counts the scans that a refresh starts and sends discovery errors as the radio
// would) and the fake update server answering the update check.
#include "about.h"
#include "appdatapaths.h"
#include "bluetoothsettings.h"
#include "controlwidget.h"
#include "custombutton.h"
#include "devicemgr.h"
#include "fakeupdateserver.h"
#include "messageboxwidget.h"
#include "middlewidget.h"
#include "modifytitlebar.h"
#include "modifywindow.h"
#include "processutil.h"
#include "scanwidget.h"
#include "settingwindow.h"
#include "testhome.h"
#include "updatedialog.h"

#include <QApplication>
#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QMenu>
#include <QMouseEvent>
#include <QPluginLoader>
#include <QPushButton>
#include <QSystemTrayIcon>
#include <QTest>

#include <memory>

namespace {

const QString kBluetoothOff = QStringLiteral("蓝牙未打开，请先在系统设置中打开蓝牙");

DeviceMgr *mgr() { return DeviceMgrSingleton::instance(); }

void addLight(const QString &addr)
{
    DevData dev;
    dev.addr = addr;
    dev.name = QStringLiteral("Light ") + addr.right(2);
    dev.protocol = 1;
    mgr()->addDev(dev);
}

// Centred on the screen and within it: the offscreen screen (800 x 600) is smaller than the control
// page, as a 1080-pixel screen at 200 % is.
bool centredOnScreen(const QWidget *window)
{
    const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
    QRect frame(QPoint(0, 0), window->size());
    frame.moveCenter(area.center());
    return area.contains(window->frameGeometry()) && window->pos() == frame.topLeft();
}

QAction *actionNamed(QMenu *menu, const QString &text)
{
    for (QAction *action : menu->actions()) {
        if (action->text() == text)
            return action;
    }
    return nullptr;
}

} // namespace

class TestModifyWindow : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_home = std::make_unique<TestHome>();
        qputenv("BRIVON_BLE_PLUGIN", BRIVON_RECORDING_PLUGIN);
        QVERIFY(m_updateServer.listen());
        qputenv("BRIVON_UPDATE_URL", m_updateServer.baseUrl().toUtf8());
        QCOMPARE(mgr()->deviceCount(), 0);
        m_plugin = QPluginLoader(QStringLiteral(BRIVON_RECORDING_PLUGIN)).instance();
        QVERIFY(m_plugin);
        // As start-up dresses the window.
        qApp->setStyleSheet(QStringLiteral("#mainWindow {    border-radius: 11px;    background-color: #282828;}"));
        // Closing the window would otherwise end the test's event loops.
        QApplication::setQuitOnLastWindowClosed(false);
    }

    void cleanup()
    {
        m_window.reset();
        for (const QString &addr : mgr()->getDevices().keys())
            mgr()->delDev(defaultGroupUuid(), addr);
    }

    // Started without lights: the empty page and no refresh; the pages then follow the lights added
    // and deleted. Started with a stored light: the control page, and one refresh.
    void startUpPage()
    {
        int before = scans();
        m_window = std::make_unique<ModifyWindow>();
        m_window->setObjectName(QStringLiteral("mainWindow"));
        m_window->show();
        ControlWidget *control = m_window->controlWidget();
        MiddleWidget *middle = m_window->middleWidget();
        QVERIFY(middle->isVisible() && !control->isVisible());
        const QSize emptyPage = m_window->size();
        QTest::qWait(600);
        QCOMPARE(scans(), before);

        // The scan window added a light.
        addLight(QStringLiteral("AA:00:00:00:00:10"));
        emit m_window->scanWidget()->OKClicked();
        QVERIFY(control->isVisible() && !middle->isVisible());
        QVERIFY(m_window->height() > emptyPage.height() && centredOnScreen(m_window.get()));

        // The last light deleted: back to the empty page.
        mgr()->delDev(defaultGroupUuid(), QStringLiteral("AA:00:00:00:00:10"));
        QVERIFY(waitUntil([&] { return middle->isVisible(); }, 2000));
        QVERIFY(!control->isVisible());
        QCOMPARE(m_window->size(), emptyPage);
        QVERIFY(centredOnScreen(m_window.get()));

        // The title bar's add button opens the scan window.
        m_window->titleBar()->addButton()->click();
        QVERIFY(m_window->scanWidget()->isVisible());
        m_window.reset();

        // The refresh waits 200 ms (a timer never fires early), then runs once.
        addLight(QStringLiteral("AA:00:00:00:00:01"));
        before = scans();
        QElapsedTimer clock;
        clock.start();
        m_window = std::make_unique<ModifyWindow>();
        m_window->show();
        QVERIFY(m_window->controlWidget()->isVisible() && !m_window->middleWidget()->isVisible());
        QVERIFY(m_window->height() > emptyPage.height() && centredOnScreen(m_window.get()));
        QVERIFY(waitUntil([&] { return scans() > before; }, 3000));
        QVERIFY2(clock.elapsed() >= 200, qPrintable(QString::number(clock.elapsed())));
        QTest::qWait(600);
        QCOMPARE(scans() - before, 1);
    }

    void bluetoothErrors_data()
    {
        QTest::addColumn<int>("error");
        QTest::addColumn<QString>("message");
        QTest::newRow("input/output") << 1 << QString();
        QTest::newRow("powered off") << 2 << kBluetoothOff;
        QTest::newRow("no adapter") << 3 << QStringLiteral("蓝牙不存在");
        QTest::newRow("unknown") << 100 << kBluetoothOff;
    }

    void bluetoothErrors()
    {
        QFETCH(int, error);
        QFETCH(QString, message);
        m_window = std::make_unique<ModifyWindow>();
        int opened = 0;
        m_window->setBluetoothSettingsOpener([&] { ++opened; });
        m_window->show();

        // As the radio reports it: from the plug-in through the BLE manager and the device manager.
        QVERIFY(QMetaObject::invokeMethod(m_plugin, "emitError", Q_ARG(int, error)));
        QCOMPARE(m_window->messageBox()->isVisible() ? m_window->messageBox()->text() : QString(), message);
        // Only the question about a radio that is off offers the system's Bluetooth settings.
        QCOMPARE(opened, message == kBluetoothOff ? 1 : 0);
    }

    // One session: dragged by the title bar, closed to the tray and back, and left by "退出".
    void closeHidesAndTheTrayRestores()
    {
        m_window = std::make_unique<ModifyWindow>();
        m_window->show();
        m_window->move(100, 80);
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
        ModifyTitleBar *bar = m_window->titleBar();
        const QPoint start = m_window->pos();
        const QPoint local(300, 20), global = bar->mapToGlobal(local), delta(37, 25);
        QMouseEvent press(QEvent::MouseButtonPress, local, global, Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(bar, &press);
        QMouseEvent move(QEvent::MouseMove, local + delta, global + delta, Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(bar, &move);
        QCOMPARE(m_window->pos(), start + delta);

        QSystemTrayIcon *tray = m_window->trayIcon();
        QMenu *trayMenu = tray->contextMenu();
        m_window->titleBar()->closeButton()->click();
        QVERIFY(!m_window->isVisible() && !m_window->isMinimized());

        // A click on the tray icon brings it back.
        emit tray->activated(QSystemTrayIcon::Trigger);
        QVERIFY(m_window->isVisible());

        m_window->titleBar()->closeButton()->click();
        actionNamed(trayMenu, QStringLiteral("打开主界面"))->trigger();
        QVERIFY(m_window->isVisible());

        // A second start's "Show" brings back a minimised window.
        m_window->titleBar()->minButton()->click();
        QVERIFY(m_window->isMinimized());
        m_window->onMessageReceived(QStringLiteral("Show"));
        QVERIFY(m_window->isVisible() && !m_window->isMinimized());

        // "退出" closes every window the program opened.
        QMenu *menu = m_window->titleBar()->settingMenu();
        actionNamed(menu, QStringLiteral("群组设置"))->trigger();
        actionNamed(menu, QStringLiteral("关于"))->trigger();
        QVERIFY(m_window->titleBar()->aboutBox()->isVisible());
        m_window->onSwitchControlInterface();
        QVERIFY(m_window->settingWindow()->isVisible() && m_window->scanWidget()->isVisible());
        actionNamed(menu, QStringLiteral("退出"))->trigger();
        QVERIFY(!m_window->isVisible() && !m_window->settingWindow()->isVisible() && !m_window->scanWidget()->isVisible());
    }

    void checkUpdate_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<bool>("offered");
        QTest::addColumn<QString>("message");
        // Installing an offer ends in the message box: nothing unchecked runs, and an installer that
        // cannot start is kept for the user.
        const QByteArray installer = "#!/bin/sh\n";
        m_updateServer.setFile(QStringLiteral("setup.run"), installer);
        const QString url = m_updateServer.url("/files/setup.run");
        const QString md5 = QCryptographicHash::hash(installer, QCryptographicHash::Md5).toHex();
        QTest::newRow("newer version, wrong md5")
            << FakeUpdateServer::offerReply("1.2.0", "Faster pairing.", url, installer.size(), QString(32, u'0')) << true
            << "下载的安装程序与更新服务器给出的大小或 MD5 不符，已删除，未启动。";
        QTest::newRow("newer version, installer does not start")
            << FakeUpdateServer::offerReply("1.2.0", "Faster pairing.", url, installer.size(), md5) << true
            << "无法启动安装程序。文件保留在：" + downloadFolderPath() + "setup.run";
        QTest::newRow("up to date") << FakeUpdateServer::upToDateReply() << false << QStringLiteral("已是最新版本，不需要更新");
    }

    void checkUpdate()
    {
        QFETCH(QByteArray, reply);
        QFETCH(bool, offered);
        QFETCH(QString, message);
        m_updateServer.setCheckReply(reply);
        m_window = std::make_unique<ModifyWindow>();
        m_window->updateDialog()->setInstallerLauncher([](const QString &) { return false; });
        m_window->show();

        actionNamed(m_window->titleBar()->settingMenu(), QStringLiteral("检查更新"))->trigger();
        QVERIFY(waitUntil([&] { return m_window->updateDialog()->isVisible() || m_window->messageBox()->isVisible(); },
                5000));
        QCOMPARE(m_window->updateDialog()->isVisible(), offered);
        QCOMPARE(m_window->messageBox()->isVisible(), !offered);
        if (offered) {
            QTest::mouseClick(m_window->updateDialog()->findChild<QPushButton *>(QStringLiteral("pushButton_update")),
                    Qt::LeftButton);
            QVERIFY(waitUntil([&] { return m_window->messageBox()->isVisible(); }, 10000));
            // Kept only when it could not be started.
            QCOMPARE(QFile::exists(downloadFolderPath() + "setup.run"), message.contains(QLatin1String("setup.run")));
        }
        QCOMPARE(m_window->messageBox()->text(), message);
    }

    void bluetoothSettingsProgram_data()
    {
        QTest::addColumn<QStringList>("installed");
        QTest::addColumn<QString>("started");
        QTest::newRow("none") << QStringList() << QString();
        QTest::newRow("KDE") << QStringList{"systemsettings"} << "systemsettings kcm_bluetooth";
        QTest::newRow("GNOME and Blueman") << QStringList{"blueman-manager", "gnome-control-center"}
                << "gnome-control-center bluetooth";
    }

    void bluetoothSettingsProgram()
    {
        QFETCH(QStringList, installed);
        QFETCH(QString, started);
        // Stand-in programs on a PATH of their own record how they were started.
        QTemporaryDir bin;
        QVERIFY(bin.isValid());
        const QString record = bin.filePath(QStringLiteral("started.txt"));
        for (const QString &name : installed) {
            const QString path = bin.filePath(name);
            QVERIFY(writeFile(path, QStringLiteral("#!/bin/sh\necho \"${0##*/} $*\" > '%1'\n").arg(record).toUtf8()));
            QVERIFY(QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        }
        const QByteArray savedPath = qgetenv("PATH");
        qputenv("PATH", bin.path().toUtf8());
        const bool opened = openBluetoothSettings();
        qputenv("PATH", savedPath);

        QCOMPARE(opened, !started.isEmpty());
        if (!started.isEmpty()) {
            QVERIFY(waitUntil([&] { return QFile::exists(record) && !readFile(record).isEmpty(); }, 5000));
            QCOMPARE(QString::fromUtf8(readFile(record)).trimmed(), started);
        }
    }

private:
    int scans() const
    {
        return int(m_plugin->property("calls").toStringList().count(QStringLiteral("startScan")));
    }

    std::unique_ptr<TestHome> m_home;
    QObject *m_plugin = nullptr;
    FakeUpdateServer m_updateServer;
    std::unique_ptr<ModifyWindow> m_window;
};

QTEST_MAIN(TestModifyWindow)
#include "tst_modifywindow.moc"
