#pragma once

#include "devdata.h"

#include <QList>
#include <QWidget>

class QListWidget;
class QPushButton;

// The box in which the lights of a group are chosen: a click toggles an offered light, the
// current members start selected. "添加" reports the lights newly selected in one
// handleAddDevice() and each member that was deselected in handleDelDevice(addr).
class DeviceNameWidget : public QWidget
{
    Q_OBJECT

public:
    explicit DeviceNameWidget(QWidget *parent = nullptr);

    // The lights offered, none selected.
    void setDevices(const QList<DevData> &devices);
    QListWidget *listWidget() const { return m_list; }

signals:
    void handleAddDevice(QList<DevData> &info);
    void handleDelDevice(QString info);

public slots:
    void handleOkBtn();
    void handleCancelBtn();
    // Selects the offered lights that are in info (the group's members) and remembers them.
    void onSyncSelectDevice(QList<DevData> &info);

private:
    QListWidget *m_list = nullptr;
    QPushButton *m_btnOk = nullptr;
    QPushButton *m_btnCancel = nullptr;
    QList<DevData> m_devices;
    QStringList m_members;
};
