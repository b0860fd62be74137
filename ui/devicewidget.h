#pragma once

#include "devdata.h"

#include <QList>
#include <QWidget>

class CustomListWidget;
class QLabel;
class QListWidget;
class ZrProcessBar;

// The list of lights found by a scan, with the searching tip shown while the scan runs.
// Each address is listed once; the records keep what discovery reported.
class DeviceWidget : public QWidget
{
    Q_OBJECT

public:
    explicit DeviceWidget(QWidget *parent = nullptr);

    // Appends a found light unless its address is already listed; true when it was appended.
    bool addDevice(const DevData &dev);
    void clear();
    QList<DevData> selectedDevices() const;
    void removeDevice(const QString &addr);
    int count() const;
    bool isDiscoverTipVisible() const;
    // Shown when a scan ended without finding anything.
    bool isNothingFoundVisible() const;
    QListWidget *listWidget() const;

signals:
    void selectedDeviceSig(bool sel);

public slots:
    void hideDeviceDiscoverTip();
    void showDeviceDiscoverTip();

private:
    CustomListWidget *m_list = nullptr;
    QWidget *m_tip = nullptr;
    ZrProcessBar *m_spinner = nullptr;
    QLabel *m_nothingFound = nullptr;
    QList<DevData> m_devices;
};
