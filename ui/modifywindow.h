#pragma once

#include "devdata.h"

#include <QBluetoothDeviceDiscoveryAgent>
#include <QRect>
#include <QString>
#include <QWidget>

#include <functional>
#include <memory>

class ControlWidget;
class MessageBoxWidget;
class MiddleWidget;
class ModifyTitleBar;
class QHBoxLayout;
class QSystemTrayIcon;
class QVBoxLayout;
class ScanWidget;
class SettingWindow;
class UpdateCheck;
class UpdateDialog;

// The application's one main window: frameless, with its own title bar, a tray icon, and either
// the control page (lights are stored) or the empty page. Closing from the title bar only hides
// it; the application lives on in the tray.
class ModifyWindow : public QWidget
{
    Q_OBJECT

public:
    // Opens the system's Bluetooth settings; replaced by tests.
    using BluetoothSettingsOpener = std::function<void()>;

    explicit ModifyWindow(QWidget *parent = nullptr);
    ~ModifyWindow() override;

    ModifyTitleBar *titleBar() const { return m_titleBar; }
    MiddleWidget *middleWidget() const { return m_middleWidget; }
    ControlWidget *controlWidget() const { return m_controlWidget; }
    ScanWidget *scanWidget() const { return m_scanWidget; }
    SettingWindow *settingWindow() const { return m_settingWindow; }
    QSystemTrayIcon *trayIcon() const { return m_trayIcon; }
    MessageBoxWidget *messageBox() const { return m_messageBox; }
    UpdateCheck *updateCheck() const { return m_updateCheck.get(); }
    UpdateDialog *updateDialog() const { return m_updateDialog; }

    void setBluetoothSettingsOpener(BluetoothSettingsOpener opener);

public slots:
    void onSwitchControlInterface();
    void onGotoControlUI();
    void slotDiscoveredDev(DevData data);
    void onShowSetting();
    void onGotoMiddleUI();
    void onMessageReceived(QString msg);
    void showMini();
    void closeWindows();
    void checkUpdate();
    void onShowMessage(QString msg);

protected:
    void closeEvent(QCloseEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void initConnections();
    void initTrayIcon();
    void resizeAndCentre(int width, int height);
    QRect availableArea() const;
    // Keeps the whole window, title bar included, inside its screen's available area.
    void keepOnScreen();
    void restore();
    void onBluetoothError(QBluetoothDeviceDiscoveryAgent::Error error);

    QVBoxLayout *m_mainLayout = nullptr;
    QHBoxLayout *m_contentLayout = nullptr;
    ModifyTitleBar *m_titleBar = nullptr;
    MiddleWidget *m_middleWidget = nullptr;
    ControlWidget *m_controlWidget = nullptr;
    ScanWidget *m_scanWidget = nullptr;
    SettingWindow *m_settingWindow = nullptr;
    QSystemTrayIcon *m_trayIcon = nullptr;
    MessageBoxWidget *m_messageBox = nullptr;
    std::shared_ptr<UpdateCheck> m_updateCheck;
    UpdateDialog *m_updateDialog = nullptr;
    BluetoothSettingsOpener m_openBluetoothSettings;
};
