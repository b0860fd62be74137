#include "devinfowidget.h"

#include "customdelegate.h"
#include "deletesettings.h"
#include "deletetipswidget.h"
#include "deviceitem.h"
#include "devicenamewidget.h"
#include "devicemgr.h"
#include "svgicon.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>

DevInfoWidget::DevInfoWidget(QWidget *parent)
    : QWidget(parent)
    , m_title(new QLabel(this))
    , m_listDevice(new QListWidget(this))
    , m_addButton(new QPushButton(svgIcon(QStringLiteral(":/resource/svg/btn_add.svg")), tr("添加设备"), this))
    , m_deleteTips(new DeleteTipsWidget(tr("确认删除该设备？"), this))
    , m_deviceNameWidget(new DeviceNameWidget(this))
{
    setObjectName(QStringLiteral("devInfoWidget"));
    setAttribute(Qt::WA_StyledBackground);
    setStyleSheet(QStringLiteral("#devInfoWidget { background-color: #1E1E1E; border-radius: 4px; }"));

    m_title->setObjectName(QStringLiteral("devInfoTitle"));
    m_title->setStyleSheet(QStringLiteral("#devInfoTitle { color: #DCDCDC; font-size: 14px; }"));

    m_listDevice->setObjectName(QStringLiteral("listDevice"));
    m_listDevice->setItemDelegate(new CustomDelegate(m_listDevice));
    m_listDevice->setSelectionMode(QAbstractItemView::SingleSelection);
    m_listDevice->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_listDevice->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_listDevice->setMouseTracking(true);
    m_listDevice->setContextMenuPolicy(Qt::CustomContextMenu);
    m_listDevice->setStyleSheet(QStringLiteral(
        "#listDevice { background-color: #1E1E1E; border: none; outline: none; }"
        "QScrollBar:vertical { background: transparent; width: 6px; }"
        "QScrollBar::handle:vertical { background: #4B4C4E; border-radius: 3px; min-height: 24px; }"
        "QScrollBar::add-line:vertical, QScrollBar::sub-line:vertical { height: 0px; }"));
    connect(m_listDevice, &QListWidget::customContextMenuRequested, this, &DevInfoWidget::showContextMenu);

    m_addButton->setObjectName(QStringLiteral("addDeviceButton"));
    m_addButton->setIconSize(QSize(20, 20));
    m_addButton->setFixedHeight(36);
    m_addButton->setCursor(Qt::PointingHandCursor);
    m_addButton->setStyleSheet(QStringLiteral(
        "#addDeviceButton { background-color: #313131; color: #EBEBF5; font-size: 14px; border: none;"
        " border-radius: 6px; padding: 0 16px; }"
        "#addDeviceButton:hover { background-color: #0A84FF; color: white; }"
        "#addDeviceButton:disabled { color: #6E6E6E; }"));
    connect(m_addButton, &QPushButton::clicked, this, &DevInfoWidget::chooseMembers);

    m_deviceNameWidget->hide();
    connect(m_deviceNameWidget, &DeviceNameWidget::handleAddDevice, this, &DevInfoWidget::handleAddDevice);
    // Members deselected in the box leave the group, after one question for all of them.
    connect(m_deviceNameWidget, &DeviceNameWidget::handleDelDevice, this, [this](const QString &addr) {
        if (m_deselected.isEmpty())
            QTimer::singleShot(0, this, [this] { askToRemove(std::exchange(m_deselected, {})); });
        m_deselected.append(addr);
    });

    m_deleteTips->setSettingKey(QStringLiteral("global/ask_to_delete_device"));
    m_deleteTips->hide();
    connect(m_deleteTips, &DeleteTipsWidget::deleteItem, this,
            [this] { removeFromGroup(std::exchange(m_pendingGroup, {}), std::exchange(m_pendingAddrs, {})); });

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 12, 12, 12);
    layout->setSpacing(10);
    layout->addWidget(m_title);
    layout->addWidget(m_listDevice, 1);
    layout->addWidget(m_addButton, 0, Qt::AlignRight);

    DevDataMgr *store = DeviceMgrSingleton::instance()->store();
    connect(store, &DevDataMgr::onAddDev, this, &DevInfoWidget::handleAddDeviceFromGroup);
    connect(store, &DevDataMgr::onDelDev, this,
            qOverload<QString, QString, QString>(&DevInfoWidget::handleRemoveDeviceFromGroup));
    connect(store, &DevDataMgr::onUpdateDev, this, &DevInfoWidget::onDeviceUpdated);
    connect(store, &DevDataMgr::onUpdateGroup, this, [this](const QString &uuid) {
        if (uuid == m_groupUuid)
            updateTitle();
    });
    connect(store, &DevDataMgr::onDelGroup, this, [this](const QString &uuid) {
        // The group shown is gone: fall back to the list of all lights.
        if (uuid == m_groupUuid)
            handleSelectGroup(defaultGroupUuid());
    });

    handleSelectGroup(defaultGroupUuid());
}

DeviceItem *DevInfoWidget::deviceItem(const QString &addr) const
{
    QListWidgetItem *item = itemFor(addr);
    return item ? qobject_cast<DeviceItem *>(m_listDevice->itemWidget(item)) : nullptr;
}

QStringList DevInfoWidget::listedAddresses() const
{
    QStringList addrs;
    for (int row = 0; row < m_listDevice->count(); ++row)
        addrs << m_listDevice->item(row)->data(Qt::UserRole).toString();
    return addrs;
}

void DevInfoWidget::requestDelete(const QString &addr)
{
    askToRemove({addr});
}

void DevInfoWidget::askToRemove(const QStringList &addrs)
{
    QStringList listed;
    QStringList names;
    DevDataMgr *store = DeviceMgrSingleton::instance()->store();
    for (const QString &addr : addrs) {
        if (!itemFor(addr) || listed.contains(addr))
            continue;
        listed.append(addr);
        const DevData *dev = store->findDev(addr);
        names.append(dev && !dev->name.trimmed().isEmpty() ? dev->name : addr);
    }
    if (listed.isEmpty())
        return;
    if (!askToDeleteDevice()) {
        removeFromGroup(m_groupUuid, listed);
        return;
    }
    m_pendingGroup = m_groupUuid;
    m_pendingAddrs = listed;
    const QString lights = names.join(QStringLiteral("、"));
    if (m_groupUuid == defaultGroupUuid()) {
        m_deleteTips->setText(tr("确认删除设备“%1”？它将从所有群组中移除并被遗忘。").arg(lights));
    } else {
        const auto &groups = DeviceMgrSingleton::instance()->getGroups();
        const auto it = groups.constFind(m_groupUuid);
        m_deleteTips->setText(tr("确认将设备“%1”移出群组“%2”？设备本身仍会保留。")
                                  .arg(lights, it != groups.constEnd() ? it->name : QString()));
    }
    m_deleteTips->setName(listed.join(QLatin1Char(',')));
    m_deleteTips->show();
    m_deleteTips->raise();
}

void DevInfoWidget::removeFromGroup(const QString &groupUuid, const QStringList &addrs)
{
    DeviceMgr *mgr = DeviceMgrSingleton::instance();
    for (const QString &addr : addrs) {
        if (!mgr->store()->findDev(addr))
            continue;
        if (groupUuid == defaultGroupUuid())
            mgr->removeDevice(addr); // forget the link before the light leaves the store
        mgr->delDev(groupUuid, addr);
    }
}

void DevInfoWidget::showContextMenu(QPoint pos)
{
    QListWidgetItem *item = m_listDevice->itemAt(pos);
    if (!item)
        return;
    const QString addr = item->data(Qt::UserRole).toString();
    QMenu menu(this);
    menu.setStyleSheet(QStringLiteral("QMenu { background-color: #4B4C4E; color: #F5F5F5; border-radius: 2px;}"
                                      "QMenu::item:selected { background-color: #0A84FF; color: white; }"));
    QAction *remove = menu.addAction(tr("删除"));
    if (menu.exec(m_listDevice->viewport()->mapToGlobal(pos)) == remove)
        requestDelete(addr);
}

void DevInfoWidget::handleSelectGroup(QString uuid)
{
    // A choice of members open for another group must not land in this one.
    if (uuid != m_groupUuid)
        m_deviceNameWidget->hide();
    m_groupUuid = uuid;
    m_listDevice->clear();
    QList<DevData> devices = DeviceMgrSingleton::instance()->getGroupDevices(uuid);
    // A group keeps the order its lights were added in; the list of all lights has none, so by name.
    if (uuid == defaultGroupUuid()) {
        std::sort(devices.begin(), devices.end(), [](const DevData &a, const DevData &b) {
            return a.name.localeAwareCompare(b.name) < 0;
        });
    }
    for (const DevData &dev : qAsConst(devices))
        appendRow(dev);
    // Lights join the list of all lights through the scan window, not from here.
    m_addButton->setVisible(uuid != defaultGroupUuid());
    updateTitle();
}

void DevInfoWidget::handleAddDevice(QList<DevData> &device)
{
    if (m_groupUuid == defaultGroupUuid())
        return;
    // The store does not refuse a second copy of a member, so only newcomers are passed on.
    QStringList members = listedAddresses();
    for (const DevData &dev : qAsConst(device)) {
        if (dev.addr.isEmpty() || members.contains(dev.addr))
            continue;
        members.append(dev.addr);
        DeviceMgrSingleton::instance()->addDevToGroup(m_groupUuid, dev);
    }
}

void DevInfoWidget::handleDelDevice(QString uuid)
{
    // Carries the light's address: the name the confirmation was given.
    const QString &addr = uuid;
    if (!itemFor(addr))
        return;
    removeFromGroup(m_groupUuid, {addr});
}

void DevInfoWidget::handleRemoveDeviceFromGroup(QString uuid, QString devAddr)
{
    if (uuid != m_groupUuid)
        return;
    delete itemFor(devAddr);
}

void DevInfoWidget::handleRemoveDeviceFromGroup(QString uuid, QString name, QString devAddr)
{
    Q_UNUSED(name)
    handleRemoveDeviceFromGroup(uuid, devAddr);
}

void DevInfoWidget::handleAddDeviceFromGroup(QString uuid, QString name, DevData data)
{
    Q_UNUSED(name)
    if (uuid != m_groupUuid || itemFor(data.addr))
        return;
    // The store's record, not the caller's copy, so that the row shows the stored name.
    const DevData *stored = DeviceMgrSingleton::instance()->store()->findDev(data.addr);
    appendRow(stored ? *stored : data);
}

void DevInfoWidget::appendRow(const DevData &data)
{
    auto *item = new QListWidgetItem(m_listDevice);
    item->setData(Qt::UserRole, data.addr);
    item->setSizeHint(QSize(0, CustomDelegate::kRowHeight + 6));
    auto *row = new DeviceItem(data, m_listDevice);
    connect(row, &DeviceItem::removeClicked, this, &DevInfoWidget::requestDelete);
    m_listDevice->setItemWidget(item, row);
}

QListWidgetItem *DevInfoWidget::itemFor(const QString &addr) const
{
    for (int row = 0; row < m_listDevice->count(); ++row) {
        QListWidgetItem *item = m_listDevice->item(row);
        if (item->data(Qt::UserRole).toString() == addr)
            return item;
    }
    return nullptr;
}

void DevInfoWidget::onDeviceUpdated(QString uuid, QString groupName, DevData data)
{
    Q_UNUSED(groupName)
    // Every change arrives once for the list of all lights; that one is enough for any list.
    if (uuid != defaultGroupUuid())
        return;
    if (DeviceItem *row = deviceItem(data.addr)) {
        const DevData *stored = DeviceMgrSingleton::instance()->store()->findDev(data.addr);
        row->setData(stored ? *stored : data);
    }
}

void DevInfoWidget::chooseMembers()
{
    if (m_groupUuid == defaultGroupUuid())
        return;
    DeviceMgr *mgr = DeviceMgrSingleton::instance();
    QList<DevData> all = mgr->getDevices().values();
    std::sort(all.begin(), all.end(), [](const DevData &a, const DevData &b) {
        return a.name.localeAwareCompare(b.name) < 0;
    });
    m_deviceNameWidget->setDevices(all);
    QList<DevData> members = mgr->getGroupDevices(m_groupUuid);
    m_deviceNameWidget->onSyncSelectDevice(members);
    m_deviceNameWidget->show();
    m_deviceNameWidget->raise();
}

void DevInfoWidget::updateTitle()
{
    if (m_groupUuid == defaultGroupUuid()) {
        m_title->setText(tr("设备列表"));
        return;
    }
    const auto &groups = DeviceMgrSingleton::instance()->getGroups();
    const auto it = groups.constFind(m_groupUuid);
    m_title->setText(it != groups.constEnd() ? it->name : QString());
}
