#include "modifywindow.h"

#include "bluetoothsettings.h"
#include "controlwidget.h"
#include "devicemgr.h"
#include "messageboxwidget.h"
#include "middlewidget.h"
#include "modifytitlebar.h"
#include "scanwidget.h"
#include "settingwindow.h"
#include "updatecheck.h"
#include "updatedialog.h"

#include <QAction>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QDebug>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QIcon>
#include <QMenu>
#include <QPainter>
#include <QScreen>
#include <QStyleOption>
#include <QSystemTrayIcon>
#include <QTimer>
#include <QVBoxLayout>

ModifyWindow::ModifyWindow(QWidget *parent)
    : QWidget(parent)
    , m_mainLayout(new QVBoxLayout(this))
    , m_contentLayout(new QHBoxLayout)
    , m_titleBar(new ModifyTitleBar(this, tr("Brivon Lumen")))
    , m_middleWidget(new MiddleWidget(this))
    , m_controlWidget(new ControlWidget(this))
    , m_scanWidget(new ScanWidget(this))
    , m_settingWindow(new SettingWindow(this))
    , m_messageBox(new MessageBoxWidget(this))
    , m_updateCheck(std::make_shared<UpdateCheck>())
    , m_updateDialog(new UpdateDialog(this))
    , m_openBluetoothSettings([] { openBluetoothSettings(); })
{
    setWindowFlags(Qt::FramelessWindowHint | Qt::WindowMinimizeButtonHint);
    setAttribute(Qt::WA_TranslucentBackground);

    m_mainLayout->setContentsMargins(0, 0, 0, 0);
    m_mainLayout->setSpacing(0);
    m_mainLayout->addWidget(m_titleBar);
    m_mainLayout->addLayout(m_contentLayout, 2);
    m_contentLayout->setContentsMargins(5, 5, 5, 5);
    m_contentLayout->addWidget(m_controlWidget, 1);
    m_contentLayout->addWidget(m_middleWidget, 1);

    m_scanWidget->hide();
    m_settingWindow->hide();
    m_messageBox->hide();
    m_updateDialog->hide();

    initConnections();

    DeviceMgr *mgr = DeviceMgrSingleton::instance();
    if (mgr->deviceCount() < 1) {
        m_controlWidget->hide();
        resizeAndCentre(610, 400);
    } else {
        m_middleWidget->hide();
        resizeAndCentre(610, 800);
        // Reconnect the stored lights once the window is up.
        QTimer::singleShot(200, this, [] { DeviceMgrSingleton::instance()->refreshDevices(); });
    }

    initTrayIcon();
}

ModifyWindow::~ModifyWindow()
{
    delete m_scanWidget;
    m_scanWidget = nullptr;
    delete m_settingWindow;
    m_settingWindow = nullptr;
    m_updateCheck.reset();
}

void ModifyWindow::setBluetoothSettingsOpener(BluetoothSettingsOpener opener)
{
    m_openBluetoothSettings = std::move(opener);
}

void ModifyWindow::initConnections()
{
    connect(m_scanWidget, &ScanWidget::OKClicked, this, &ModifyWindow::onGotoControlUI);
    connect(m_controlWidget, &ControlWidget::clearDeviceSig, this, &ModifyWindow::onGotoMiddleUI);
    connect(DeviceMgrSingleton::instance(), &BaseDevice::sigDeviceDiscoveredErrorOccurred, this,
            &ModifyWindow::onBluetoothError);
    connect(m_updateCheck.get(), &UpdateCheck::versionMessage, m_updateDialog, &UpdateDialog::onVersionMessage);
    connect(m_updateCheck.get(), &UpdateCheck::replyMessage, this, &ModifyWindow::onShowMessage);
    connect(m_updateCheck.get(), &UpdateCheck::errorMessage, this, &ModifyWindow::onShowMessage);
    connect(m_updateDialog, &UpdateDialog::sigMessage, this, &ModifyWindow::onShowMessage);
}

void ModifyWindow::initTrayIcon()
{
    m_trayIcon = new QSystemTrayIcon(QIcon(QStringLiteral(":/resource/svg/logo-app.ico")), this);
    auto *menu = new QMenu(this);
    QAction *open = menu->addAction(tr("打开主界面"));
    QAction *exit = menu->addAction(tr("退出"));
    connect(open, &QAction::triggered, this, &ModifyWindow::restore);
    connect(exit, &QAction::triggered, this, [] { QCoreApplication::exit(0); });
    m_trayIcon->setContextMenu(menu);
    connect(m_trayIcon, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger)
            restore();
    });
    // Without a tray (offscreen, some desktops) the icon stays hidden instead of warning.
    if (QSystemTrayIcon::isSystemTrayAvailable())
        m_trayIcon->setVisible(true);
    m_trayIcon->setToolTip(tr("Brivon Lumen"));
}

void ModifyWindow::onSwitchControlInterface()
{
    m_scanWidget->show();
    m_scanWidget->raise();
}

void ModifyWindow::onGotoControlUI()
{
    if (m_controlWidget->isVisibleTo(this))
        return;
    m_middleWidget->hide();
    m_controlWidget->show();
    resizeAndCentre(610, 800);
}

void ModifyWindow::slotDiscoveredDev(DevData data)
{
    Q_UNUSED(data)
}

void ModifyWindow::onShowSetting()
{
    m_settingWindow->show();
    m_settingWindow->raise();
}

void ModifyWindow::onGotoMiddleUI()
{
    if (m_middleWidget->isVisibleTo(this))
        return;
    m_middleWidget->show();
    m_controlWidget->hide();
    resizeAndCentre(610, 400);
}

void ModifyWindow::onMessageReceived(QString msg)
{
    if (msg != QLatin1String("Show"))
        return;
    qDebug() << "[ModifyWindow::onMessageReceived]: message:" << msg;
    restore();
}

void ModifyWindow::showMini()
{
    showMinimized();
}

void ModifyWindow::closeWindows()
{
    hide();
}

void ModifyWindow::checkUpdate()
{
    m_updateCheck->checkVersion();
}

void ModifyWindow::onShowMessage(QString msg)
{
    m_messageBox->setText(msg);
    m_messageBox->show();
}

void ModifyWindow::closeEvent(QCloseEvent *event)
{
    if (m_scanWidget && m_scanWidget->isVisible())
        m_scanWidget->close();
    if (m_settingWindow && m_settingWindow->isVisible())
        m_settingWindow->close();
    event->accept();
}

void ModifyWindow::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    keepOnScreen();
    if (m_settingWindow && m_settingWindow->isVisible())
        m_settingWindow->raise();
}

void ModifyWindow::paintEvent(QPaintEvent *)
{
    // The window is translucent for its rounded corners, so its style sheet background
    // ("#mainWindow") has to be drawn here.
    QStyleOption option;
    option.initFrom(this);
    QPainter painter(this);
    style()->drawPrimitive(QStyle::PE_Widget, &option, &painter, this);
}

QRect ModifyWindow::availableArea() const
{
    // The screen the window is on, not the primary one: it must not jump screens.
    const QScreen *on = screen() ? screen() : QGuiApplication::primaryScreen();
    return on ? on->availableGeometry() : QRect();
}

void ModifyWindow::resizeAndCentre(int width, int height)
{
    const QRect area = availableArea();
    if (area.isEmpty()) {
        resize(width, height);
        return;
    }
    // At 150 % or 200 % a 1080-pixel screen has fewer logical pixels than the page wants: the
    // panel scrolls instead of the window reaching under the task bar.
    resize(qMin(width, area.width()), qMin(height, area.height()));
    QRect frame(QPoint(0, 0), frameGeometry().size());
    frame.moveCenter(area.center());
    move(frame.topLeft());
    keepOnScreen();
}

void ModifyWindow::keepOnScreen()
{
    const QRect area = availableArea();
    if (area.isEmpty() || area.contains(frameGeometry()))
        return;
    if (width() > area.width() || height() > area.height())
        resize(qMin(width(), area.width()), qMin(height(), area.height()));
    const QRect frame = frameGeometry();
    const int x = qBound(area.left(), frame.left(), qMax(area.left(), area.right() - frame.width() + 1));
    const int y = qBound(area.top(), frame.top(), qMax(area.top(), area.bottom() - frame.height() + 1));
    move(x, y);
}

void ModifyWindow::restore()
{
    showNormal();
    activateWindow();
    raise();
}

void ModifyWindow::onBluetoothError(QBluetoothDeviceDiscoveryAgent::Error error)
{
    switch (error) {
    case QBluetoothDeviceDiscoveryAgent::PoweredOffError:
    case QBluetoothDeviceDiscoveryAgent::UnknownError:
        onShowMessage(tr("蓝牙未打开，请先在系统设置中打开蓝牙"));
        if (m_openBluetoothSettings)
            m_openBluetoothSettings();
        break;
    case QBluetoothDeviceDiscoveryAgent::InvalidBluetoothAdapterError:
        onShowMessage(tr("蓝牙不存在"));
        break;
    default:
        break;
    }
}
