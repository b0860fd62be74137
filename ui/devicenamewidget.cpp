#include "devicenamewidget.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

DeviceNameWidget::DeviceNameWidget(QWidget *parent)
    : QWidget(parent, Qt::Window)
    , m_list(new QListWidget(this))
    , m_btnOk(new QPushButton(tr("添加"), this))
    , m_btnCancel(new QPushButton(tr("取消"), this))
{
    setWindowTitle(tr("添加设备"));
    setObjectName(QStringLiteral("deviceNameWidget"));
    setStyleSheet(QStringLiteral(
        "#deviceNameWidget { background-color: #141414;}"
        "QListWidget { background: #0F0F0F; color: #E6E6E6; font-size: 14px; border: 1px solid #363636;"
        " border-radius: 4px; outline: none;}"
        "QListWidget::item { height: 36px; padding-left: 8px; border-bottom: 1px solid #1E1E1E;}"
        "QListWidget::item:hover { background-color: #1E1E1E;}"
        "QListWidget::item:selected { background-color: #0A84FF; color: #FFFFFF;}"
        "QPushButton { background-color: #3A3A3C; color: #FFFFFF; border: none; border-radius: 4px; font-size: 14px;}"
        "QPushButton:hover { background-color: #48484A;}"
        "#btnDeviceNameOk { background-color: #0A84FF;}"));
    setAttribute(Qt::WA_StyledBackground);
    resize(360, 420);

    auto *heading = new QLabel(tr("添加设备"), this);
    heading->setStyleSheet(QStringLiteral("color: #DCDCDC; font-size: 14px;"));
    // A click toggles a row: the selected rows are the group's lights.
    m_list->setSelectionMode(QAbstractItemView::MultiSelection);
    // Arrows move, Space picks or drops a light.
    m_list->setFocusPolicy(Qt::StrongFocus);
    m_btnOk->setObjectName(QStringLiteral("btnDeviceNameOk"));
    m_btnOk->setFixedSize(96, 32);
    m_btnCancel->setFixedSize(96, 32);

    auto *buttons = new QHBoxLayout;
    buttons->setSpacing(12);
    buttons->addStretch(1);
    buttons->addWidget(m_btnCancel);
    buttons->addWidget(m_btnOk);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 16, 16, 16);
    layout->setSpacing(12);
    layout->addWidget(heading);
    layout->addWidget(m_list, 1);
    layout->addLayout(buttons);

    connect(m_btnOk, &QPushButton::clicked, this, &DeviceNameWidget::handleOkBtn);
    connect(m_btnCancel, &QPushButton::clicked, this, &DeviceNameWidget::handleCancelBtn);
}

void DeviceNameWidget::setDevices(const QList<DevData> &devices)
{
    m_list->clear();
    m_devices.clear();
    m_members.clear();
    for (const DevData &dev : devices) {
        if (dev.addr.isEmpty())
            continue;
        auto *item = new QListWidgetItem(dev.name, m_list);
        item->setData(Qt::UserRole, dev.addr);
        m_devices.append(dev);
    }
}

void DeviceNameWidget::onSyncSelectDevice(QList<DevData> &info)
{
    m_members.clear();
    for (const DevData &dev : qAsConst(info))
        m_members.append(dev.addr);
    for (int row = 0; row < m_list->count(); ++row) {
        QListWidgetItem *item = m_list->item(row);
        item->setSelected(m_members.contains(item->data(Qt::UserRole).toString()));
    }
}

void DeviceNameWidget::handleOkBtn()
{
    QList<DevData> added;
    for (int row = 0; row < m_list->count(); ++row) {
        const QListWidgetItem *item = m_list->item(row);
        const QString addr = item->data(Qt::UserRole).toString();
        const bool chosen = item->isSelected();
        if (chosen && !m_members.contains(addr))
            added.append(m_devices.at(row));
        else if (!chosen && m_members.contains(addr))
            emit handleDelDevice(addr);
    }
    if (!added.isEmpty())
        emit handleAddDevice(added);
    close();
}

void DeviceNameWidget::handleCancelBtn()
{
    close();
}
