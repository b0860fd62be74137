#pragma once

#include "devdata.h"

#include <QList>
#include <QWidget>

class DeviceWidget;
class QPushButton;

// A window of the scan window's look over a given list of lights (no scan of its own): the
// owner fills it, "连接" reports the choice through OKClicked() and closes it.
class AddDeviceWidget : public QWidget
{
    Q_OBJECT

public:
    explicit AddDeviceWidget(QWidget *parent = nullptr);

    void setDevices(const QList<DevData> &devices);
    QList<DevData> selectedDevices() const;
    DeviceWidget *deviceWidget() const { return m_deviceWidget; }
    QPushButton *connectButton() const { return m_btnMakeSure; }

signals:
    void OKClicked();

private:
    DeviceWidget *m_deviceWidget = nullptr;
    QPushButton *m_btnMakeSure = nullptr;
    QPushButton *m_btnCancel = nullptr;
};
