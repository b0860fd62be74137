#pragma once

#include "devdata.h"

#include <QList>
#include <QString>
#include <QWidget>

class DeleteTipsWidget;
class DeviceItem;
class DeviceNameWidget;
class QLabel;
class QListWidget;
class QListWidgetItem;
class QPushButton;

// The right pane of the group settings: the lights of the selected group, one DeviceItem row
// each. It follows the store, so rows come and go with the store's signals, whoever made the
// change.
class DevInfoWidget : public QWidget
{
    Q_OBJECT

public:
    explicit DevInfoWidget(QWidget *parent = nullptr);

    QString currentGroup() const { return m_groupUuid; }
    QListWidget *listWidget() const { return m_listDevice; }
    QPushButton *addButton() const { return m_addButton; }
    DeviceItem *deviceItem(const QString &addr) const;
    // Addresses listed, top to bottom.
    QStringList listedAddresses() const;
    // The box of "添加设备", in which the members of a user group are chosen.
    DeviceNameWidget *deviceNameWidget() const { return m_deviceNameWidget; }
    // Asks to delete a light from the list shown: confirmed first unless the user said not to ask.
    void requestDelete(const QString &addr);

public slots:
    void showContextMenu(QPoint pos);
    void handleSelectGroup(QString uuid);
    void handleAddDevice(QList<DevData> &device);
    void handleDelDevice(QString uuid);
    void handleRemoveDeviceFromGroup(QString uuid, QString devAddr);
    void handleRemoveDeviceFromGroup(QString uuid, QString name, QString devAddr);
    void handleAddDeviceFromGroup(QString uuid, QString name, DevData data);

private:
    void appendRow(const DevData &data);
    QListWidgetItem *itemFor(const QString &addr) const;
    void onDeviceUpdated(QString uuid, QString groupName, DevData data);
    void updateTitle();
    void chooseMembers();
    // Asks (unless told not to) and then takes the lights out of the group shown now; the answer
    // applies to that group and those lights even if the selection changes meanwhile.
    void askToRemove(const QStringList &addrs);
    void removeFromGroup(const QString &groupUuid, const QStringList &addrs);

    QString m_groupUuid;
    QLabel *m_title = nullptr;
    QListWidget *m_listDevice = nullptr;
    QPushButton *m_addButton = nullptr;
    DeleteTipsWidget *m_deleteTips = nullptr;
    DeviceNameWidget *m_deviceNameWidget = nullptr;
    QString m_pendingGroup;
    QStringList m_pendingAddrs;
    // Members deselected in the box, collected into one question.
    QStringList m_deselected;
};
