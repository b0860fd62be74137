#pragma once

#include <QWidget>

class DeviceWidget;
class HueBridgeDialog;
class QPushButton;

// The "add device" window: each showing starts a fresh scan through DeviceMgr and lists what is
// found; "连接" stores the selected lights. Every way of leaving the window stops the scan.
class ScanWidget : public QWidget
{
    Q_OBJECT

public:
    explicit ScanWidget(QWidget *parent = nullptr);
    ~ScanWidget() override;

    DeviceWidget *deviceWidget() const { return m_deviceWidget; }
    HueBridgeDialog *hueBridgeDialog() const { return m_hueDialog; }
    QPushButton *connectButton() const { return m_btnMakeSure; }
    QPushButton *cancelButton() const { return m_btnCancel; }
    QPushButton *hueButton() const { return m_btnHue; }
    QPushButton *rescanButton() const { return m_btnRescan; }

signals:
    // At least one light was added: the main window switches to its control page.
    void OKClicked();

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    void onConnect();
    void onCancel();
    void onRescan();

    DeviceWidget *m_deviceWidget = nullptr;
    QPushButton *m_btnMakeSure = nullptr;
    QPushButton *m_btnCancel = nullptr;
    QPushButton *m_btnHue = nullptr;
    QPushButton *m_btnRescan = nullptr;
    HueBridgeDialog *m_hueDialog = nullptr;
};
