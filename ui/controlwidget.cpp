#include "controlwidget.h"

#include "controlitemwidget.h"
#include "devicemgr.h"
#include "groupheaderwidget.h"

#include <QDebug>
#include <QGroupBox>
#include <QScrollArea>
#include <QVBoxLayout>

#include <algorithm>

namespace {
const char kUuidProperty[] = "uuid";
}

ControlWidget::ControlWidget(QWidget *parent)
    : QFrame(parent)
{
    m_mainLayout = new QVBoxLayout(this);
    m_mainLayout->setContentsMargins(0, 8, 0, 0);
    m_scrollArea = new QScrollArea(this);
    m_scrollContent = new QWidget(m_scrollArea);
    m_scrollContent->setStyleSheet(QStringLiteral("background-color: transparent;"));
    m_contentLayout = new QVBoxLayout(m_scrollContent);
    m_contentLayout->addStretch();
    m_scrollArea->setWidget(m_scrollContent);
    m_scrollArea->setWidgetResizable(true);
    m_mainLayout->addWidget(m_scrollArea);

    setObjectName(QStringLiteral("controlWidget"));
    setStyleSheet(QStringLiteral("#controlWidget { background-color: #000000; border-radius: 4px; }"
                                 "QGroupBox { color: white; font-size: 14px; border: none; "
                                 "border-bottom: 1px solid #171717;}"));
    m_scrollArea->setStyleSheet(QStringLiteral(
        "QScrollArea {    background-color: #000000;    border: none;}"
        "QScrollBar:vertical {   border: none;   background:  #1F1F1F;   width: 8px;   margin: 0px 0px 0px 0px;"
        "   border-radius: 4px;}"
        "QScrollBar::handle:vertical {   background: #4B4C4E;   min-height: 8px;   border-radius: 4px;}"
        "QScrollBar::add-line:vertical {   border: none;   background: none;}"
        "QScrollBar::sub-line:vertical {   border: none;   background: none;}"
        "QScrollBar::up-arrow:vertical, QScrollBar::down-arrow:vertical {   border: none;   background: none;}"
        "QScrollBar::add-page:vertical, QScrollBar::sub-page:vertical {   background: none;}"));

    DevDataMgr *store = DeviceMgrSingleton::instance()->store();
    connect(store, &DevDataMgr::onAddDev, this, &ControlWidget::onAddDev);
    connect(store, &DevDataMgr::onDelDev, this, &ControlWidget::onDelDev);
    connect(store, &DevDataMgr::onAddGroup, this, &ControlWidget::onAddGroup);
    connect(store, &DevDataMgr::onDelGroup, this, &ControlWidget::onDelGroup);
    connect(store, &DevDataMgr::onUpdateGroup, this, &ControlWidget::onUpdateGroup);
    load();
}

void ControlWidget::load()
{
    DeviceMgr *mgr = DeviceMgrSingleton::instance();
    QList<DevData> all = mgr->getDevices().values();
    // The table has no order of its own: by name, so that the list looks the same at every start.
    std::sort(all.begin(), all.end(), [](const DevData &a, const DevData &b) {
        return a.name != b.name ? a.name < b.name : a.addr < b.addr;
    });
    addSection(defaultGroupUuid(), tr("设备列表"), all);
    const DevDataMgr::GroupTable &groups = mgr->getGroups();
    for (const GroupData &group : groups)
        addSection(group.uuid, group.name, mgr->getGroupDevices(group.uuid));
}

QGroupBox *ControlWidget::section(const QString &uuid) const
{
    for (QGroupBox *box : m_groupBoxes) {
        if (box->property(kUuidProperty).toString() == uuid)
            return box;
    }
    return nullptr;
}

QList<ControlItemWidget *> ControlWidget::cards(const QGroupBox *section)
{
    // The layout, not the children: a card on its way out is already taken out of the layout.
    QList<ControlItemWidget *> result;
    if (!section || !section->layout())
        return result;
    QLayout *layout = section->layout();
    for (int i = 0; i < layout->count(); ++i) {
        if (auto *card = qobject_cast<ControlItemWidget *>(layout->itemAt(i)->widget()))
            result.append(card);
    }
    return result;
}

ControlItemWidget *ControlWidget::card(const QGroupBox *section, const QString &addr)
{
    const QList<ControlItemWidget *> all = cards(section);
    for (ControlItemWidget *card : all) {
        if (card->addr() == addr)
            return card;
    }
    return nullptr;
}

GroupHeaderWidget *ControlWidget::header(const QGroupBox *section)
{
    return section ? section->findChild<GroupHeaderWidget *>(QString(), Qt::FindDirectChildrenOnly) : nullptr;
}

void ControlWidget::addSection(const QString &uuid, const QString &name, const QList<DevData> &records)
{
    if (records.isEmpty())
        return;
    auto *box = new QGroupBox(name, m_scrollContent);
    box->setProperty(kUuidProperty, QVariant(uuid));
    auto *layout = new QVBoxLayout(box);
    layout->setContentsMargins(15, 30, 15, 9);
    m_groupBoxes.append(box);
    // The group's own switch and brightness, above its cards.
    layout->addWidget(new GroupHeaderWidget(uuid, box));
    for (const DevData &info : records)
        addCard(box, uuid, name, info);
    m_contentLayout->insertWidget(m_contentLayout->count() - 1, box);
}

void ControlWidget::addCard(QGroupBox *section, const QString &uuid, const QString &groupName, const DevData &info)
{
    auto *card = new ControlItemWidget(section);
    section->layout()->addWidget(card);
    card->setDevice(uuid, groupName, info);
}

void ControlWidget::removeSection(QGroupBox *section)
{
    m_groupBoxes.removeAll(section);
    m_contentLayout->removeWidget(section);
    section->hide();
    // Later, not now: the request may come from one of its own cards' menus.
    section->deleteLater();
}

void ControlWidget::onAddDev(QString uuid, QString groupName, DevData info)
{
    if (QGroupBox *box = section(uuid)) {
        if (!card(box, info.addr))
            addCard(box, uuid, groupName, info);
        return;
    }
    addSection(uuid, groupName, {info});
}

void ControlWidget::onDelDev(QString uuid, QString groupName, QString addr)
{
    qDebug().noquote() << "[ControlWidget::onDelDev] group:" << groupName << " addr:" << addr;
    QGroupBox *box = section(uuid);
    if (box) {
        if (ControlItemWidget *item = card(box, addr)) {
            box->layout()->removeWidget(item);
            item->hide();
            item->deleteLater();
        }
        if (!cards(box).isEmpty())
            return;
        removeSection(box);
    }
    // With no section left for all devices there is nothing to control: the window shows its empty page.
    if (uuid == defaultGroupUuid())
        emit clearDeviceSig();
}

void ControlWidget::onUpdateDev(QString uuid, QString groupName, DevData info)
{
    qDebug().noquote() << "[ControlWidget::onUpdateDev] name:" << info.name << " group:" << groupName
                       << " addr:" << info.addr << ", status:" << info.switchState;
    const QList<ControlItemWidget *> all = cards(section(uuid));
    for (ControlItemWidget *item : all)
        item->slotUpdateLightState(info);
}

void ControlWidget::onAddGroup(QString uuid, QString name)
{
    qDebug().noquote() << "[ControlWidget::onAddGroup] name:" << name;
    addSection(uuid, name, DeviceMgrSingleton::instance()->getGroupDevices(uuid));
}

void ControlWidget::onDelGroup(QString uuid)
{
    qDebug().noquote() << "[ControlWidget::onDelGroup] name:" << uuid;
    QGroupBox *box = section(uuid);
    if (!box)
        return;
    const QList<ControlItemWidget *> all = cards(box);
    for (ControlItemWidget *item : all) {
        qDebug().noquote() << "[ControlWidget::onDelGroup], devAddr:" << item->addr();
        item->deleteLater();
    }
    removeSection(box);
}

void ControlWidget::onUpdateGroup(QString uuid, QString newName)
{
    qDebug().noquote() << "[ControlWidget::onUpdateGroup] :" << uuid << " new name:" << newName;
    if (QGroupBox *box = section(uuid))
        box->setTitle(newName);
}
