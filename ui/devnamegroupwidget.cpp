#include "devnamegroupwidget.h"

#include "customdelegate.h"
#include "customlistwidget.h"
#include "deletesettings.h"
#include "deletetipswidget.h"
#include "devicemgr.h"
#include "svgicon.h"

#include <QMenu>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include <algorithm>

DevNameGroupWidget::DevNameGroupWidget(QWidget *parent)
    : QWidget(parent)
    , m_list(new CustomListWidget(this))
    , m_deleteTips(new DeleteTipsWidget(tr("确认删除该群组？"), this))
    , m_addRow(new QPushButton(svgIcon(QStringLiteral(":/resource/svg/btn_add.svg")), tr("创建群组"), this))
{
    setObjectName(QStringLiteral("devNameGroupWidget"));
    setAttribute(Qt::WA_StyledBackground);
    setStyleSheet(QStringLiteral("#devNameGroupWidget { background-color: #1E1E1E; border-radius: 4px; }"));

    m_list->setObjectName(QStringLiteral("devNameListWidget"));
    m_list->setItemDelegate(new CustomItemDelegate(m_list));
    m_list->setEditTriggers(QAbstractItemView::NoEditTriggers); // editing starts only through the rename rules
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_list->setMouseTracking(true);
    m_list->setContextMenuPolicy(Qt::CustomContextMenu);
    m_list->setStyleSheet(QStringLiteral(
        "#devNameListWidget { background-color: #1E1E1E; border: none; outline: none; }"
        "QScrollBar:vertical { background: transparent; width: 6px; }"
        "QScrollBar::handle:vertical { background: #4B4C4E; border-radius: 3px; min-height: 24px; }"
        "QScrollBar::add-line:vertical, QScrollBar::sub-line:vertical { height: 0px; }"));

    m_addRow->setObjectName(QStringLiteral("addGroupButton"));
    m_addRow->setIconSize(QSize(20, 20));
    m_addRow->setFixedHeight(40);
    m_addRow->setCursor(Qt::PointingHandCursor);
    m_addRow->setStyleSheet(QStringLiteral(
        "#addGroupButton { background-color: #282828; color: #EBEBF5; font-size: 14px; border: none;"
        " border-radius: 4px; text-align: left; padding-left: 8px; }"
        "#addGroupButton:hover { background-color: #333333; }"));

    m_deleteTips->setSettingKey(QStringLiteral("global/ask_to_delete_group"));
    m_deleteTips->hide();

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(8, 8, 8, 8);
    layout->setSpacing(8);
    layout->addWidget(m_list, 1);
    layout->addWidget(m_addRow);

    // The list of all lights first, then the groups by name (the store keeps no order).
    appendGroup(tr("设备列表"), defaultGroupUuid());
    QList<GroupData> groups = DeviceMgrSingleton::instance()->getGroups().values();
    std::sort(groups.begin(), groups.end(), [](const GroupData &a, const GroupData &b) {
        return a.name.localeAwareCompare(b.name) < 0;
    });
    for (const GroupData &group : qAsConst(groups))
        appendGroup(group.name, group.uuid);

    connect(m_list, &QListWidget::customContextMenuRequested, this, &DevNameGroupWidget::showContextMenu);
    connect(m_list, &QListWidget::itemDoubleClicked, this, &DevNameGroupWidget::handleItemChangedBefore);
    connect(m_list, &QListWidget::itemChanged, this, &DevNameGroupWidget::handleItemChanged);
    connect(m_list, &QListWidget::currentItemChanged, this, &DevNameGroupWidget::handlCurrentItemChanged);
    connect(m_list, &QListWidget::itemClicked, this, &DevNameGroupWidget::onClickItem);
    connect(m_list->itemDelegate(), &QAbstractItemDelegate::closeEditor, this, [this] { m_editingItem = nullptr; });
    connect(m_addRow, &QPushButton::clicked, this, &DevNameGroupWidget::handleAddNewGroup);
    connect(m_deleteTips, &DeleteTipsWidget::deleteItem, this, &DevNameGroupWidget::handleDeleteGroup);

    DevDataMgr *store = DeviceMgrSingleton::instance()->store();
    connect(store, &DevDataMgr::onAddGroup, this, &DevNameGroupWidget::onStoreGroupAdded);
    connect(store, &DevDataMgr::onDelGroup, this, &DevNameGroupWidget::onStoreGroupDeleted);
    connect(store, &DevDataMgr::onUpdateGroup, this, &DevNameGroupWidget::onStoreGroupRenamed);

    m_list->setCurrentRow(0);
}

QString DevNameGroupWidget::newGroupName() const
{
    const QString base = tr("创建群组");
    for (int n = 0;; ++n) {
        const QString candidate = n == 0 ? base : base + QStringLiteral("_%1").arg(n);
        if (m_list->findItems(candidate, Qt::MatchExactly | Qt::MatchCaseSensitive).isEmpty())
            return candidate;
    }
}

QListWidgetItem *DevNameGroupWidget::itemForUuid(const QString &uuid) const
{
    for (int row = 0; row < m_list->count(); ++row) {
        if (m_list->item(row)->data(Qt::UserRole).toString() == uuid)
            return m_list->item(row);
    }
    return nullptr;
}

void DevNameGroupWidget::showContextMenu(QPoint pos)
{
    QListWidgetItem *item = m_list->itemAt(pos);
    if (!item || isDefaultItem(item))
        return;
    QMenu menu(this);
    menu.setStyleSheet(QStringLiteral("QMenu { background-color: #4B4C4E; color: #F5F5F5; border-radius: 2px;}"
                                      "QMenu::item:selected { background-color: #0A84FF; color: white; }"));
    QAction *rename = menu.addAction(tr("重命名"));
    QAction *remove = menu.addAction(tr("删除"));
    QAction *chosen = menu.exec(m_list->viewport()->mapToGlobal(pos));
    // The item may have gone while the menu was open (a plug-in client deleted the group).
    item = m_list->itemAt(pos);
    if (!chosen || !item || isDefaultItem(item))
        return;
    if (chosen == rename) {
        handleItemChangedBefore(item);
    } else if (chosen == remove) {
        if (!askToDeleteGroup()) {
            deleteGroupItem(item);
            return;
        }
        m_deleteTips->setName(item->text());
        m_deleteTips->show();
        m_deleteTips->raise();
    }
}

void DevNameGroupWidget::handleAddNewGroup()
{
    const QString name = newGroupName();
    const QString uuid = DeviceMgrSingleton::instance()->addGroup(name);
    // The store's signal has usually listed it already.
    if (!itemForUuid(uuid))
        appendGroup(name, uuid);
    emit addGroup(name);
    m_list->setCurrentRow(m_list->count() - 1);
    onClickItem(m_list->item(m_list->count() - 1));
}

void DevNameGroupWidget::handleItemChangedBefore(QListWidgetItem *item)
{
    if (!item || isDefaultItem(item))
        return;
    m_editText = item->text();
    m_editingItem = item;
    m_list->editItem(item);
}

void DevNameGroupWidget::handleItemChanged(QListWidgetItem *item)
{
    // Only a committed edit counts; other changes to items (new items, store renames) do not.
    if (!item || item != m_editingItem)
        return;
    m_editingItem = nullptr;

    const QString text = item->text();
    bool clash = text.trimmed().isEmpty() || text == tr("设备列表");
    for (int row = 0; row < m_list->count() && !clash; ++row) {
        const QListWidgetItem *other = m_list->item(row);
        clash = other != item && other->text() == text;
    }
    if (clash) {
        const QSignalBlocker blocker(m_list);
        item->setText(m_editText);
    }
    const QString uuid = item->data(Qt::UserRole).toString();
    if (item->text() != m_editText)
        DeviceMgrSingleton::instance()->renameGroup(uuid, item->text());
    emit selectGroup(uuid);
}

void DevNameGroupWidget::handleDeleteGroup(QString name)
{
    const QList<QListWidgetItem *> found = m_list->findItems(name, Qt::MatchExactly | Qt::MatchCaseSensitive);
    for (QListWidgetItem *item : found) {
        if (!isDefaultItem(item)) {
            deleteGroupItem(item);
            return;
        }
    }
}

void DevNameGroupWidget::handlCurrentItemChanged(QListWidgetItem *current, QListWidgetItem *previous)
{
    Q_UNUSED(previous)
    if (current)
        emit selectGroup(current->data(Qt::UserRole).toString());
}

void DevNameGroupWidget::onClickItem(QListWidgetItem *item)
{
    if (item)
        emit selectGroup(item->data(Qt::UserRole).toString());
}

QListWidgetItem *DevNameGroupWidget::appendGroup(const QString &name, const QString &uuid)
{
    auto *item = new QListWidgetItem(name);
    item->setData(Qt::UserRole, uuid);
    if (uuid != defaultGroupUuid())
        item->setFlags(item->flags() | Qt::ItemIsEditable);
    const QSignalBlocker blocker(m_list); // a new entry is not a rename
    m_list->addItem(item);
    return item;
}

void DevNameGroupWidget::deleteGroupItem(QListWidgetItem *item)
{
    const QString uuid = item->data(Qt::UserRole).toString();
    const QString name = item->text();
    if (item == m_editingItem)
        m_editingItem = nullptr;
    const bool wasCurrent = m_list->currentItem() == item;
    // The store's signal removes the item; remove it here too in case the group was already gone.
    DeviceMgrSingleton::instance()->delGroup(uuid);
    delete itemForUuid(uuid);
    emit delGroup(name);
    if (wasCurrent)
        m_list->setCurrentRow(0);
}

bool DevNameGroupWidget::isDefaultItem(const QListWidgetItem *item) const
{
    return item->data(Qt::UserRole).toString() == defaultGroupUuid();
}

void DevNameGroupWidget::onStoreGroupAdded(const QString &uuid, const QString &name)
{
    if (!itemForUuid(uuid))
        appendGroup(name, uuid);
}

void DevNameGroupWidget::onStoreGroupDeleted(const QString &uuid)
{
    QListWidgetItem *item = itemForUuid(uuid);
    if (!item)
        return;
    if (item == m_editingItem)
        m_editingItem = nullptr;
    delete item;
}

void DevNameGroupWidget::onStoreGroupRenamed(const QString &uuid, const QString &name)
{
    QListWidgetItem *item = itemForUuid(uuid);
    if (!item || item->text() == name)
        return;
    const QSignalBlocker blocker(m_list);
    item->setText(name);
}
