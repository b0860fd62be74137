#include "devicewidget.h"

#include "customlistwidget.h"
#include "zrprocessbar.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QSvgWidget>
#include <QVBoxLayout>

DeviceWidget::DeviceWidget(QWidget *parent)
    : QWidget(parent)
    , m_list(new CustomListWidget(this))
    , m_tip(new QWidget(this))
    , m_spinner(new ZrProcessBar(m_tip))
    , m_nothingFound(new QLabel(tr("未找到设备"), this))
{
    setObjectName(QStringLiteral("DeviceWidget"));
    setStyleSheet(QStringLiteral(
        "#DeviceWidget{width: 568px;height: 358px;border-radius: 4px;border: 0.5px solid #363636;background: #0F0F0F;}"));
    setAttribute(Qt::WA_StyledBackground);

    auto *heading = new QLabel(tr("选择要操作的设备"), this);
    heading->setStyleSheet(QStringLiteral("color: #9C9C9C; font-size: 13px;"));

    m_list->setObjectName(QStringLiteral("deviceListWidget"));
    // Any set of lights: Ctrl and Shift clicks, arrows and Space.
    m_list->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_list->setFrameShape(QFrame::NoFrame);
    m_list->setFocusPolicy(Qt::StrongFocus);
    m_list->setStyleSheet(QStringLiteral(
        "QListWidget { background: transparent; color: #E6E6E6; font-size: 14px; outline: none;}"
        "QListWidget::item { height: 40px; padding-left: 8px; border-bottom: 1px solid #1E1E1E;}"
        "QListWidget::item:hover { background-color: #1E1E1E;}"
        "QListWidget::item:selected { background-color: #0A84FF; color: #FFFFFF;}"
        "QListWidget::item:focus { border: 1px solid #5AB0FF;}"));
    m_nothingFound->setAlignment(Qt::AlignCenter);
    m_nothingFound->setStyleSheet(QStringLiteral("font-size: 16px;color: #9C9C9C;"));
    m_nothingFound->hide();

    auto *wifi = new QSvgWidget(QStringLiteral(":/resource/svg/wifi.svg"), m_tip);
    wifi->setFixedSize(24, 24);
    auto *searching = new QLabel(tr("搜索设备......"), m_tip);
    searching->setStyleSheet(QStringLiteral("font-size: 16px;color: #FFFFFF;"));
    auto *tipLayout = new QHBoxLayout(m_tip);
    tipLayout->setContentsMargins(0, 0, 0, 0);
    tipLayout->setSpacing(10);
    tipLayout->addStretch(1);
    tipLayout->addWidget(wifi);
    tipLayout->addWidget(searching);
    tipLayout->addWidget(m_spinner);
    tipLayout->addStretch(1);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 10, 12, 6);
    layout->setSpacing(6);
    layout->addWidget(heading);
    layout->addWidget(m_list, 1);
    layout->addWidget(m_nothingFound);
    layout->addWidget(m_tip);

    connect(m_list, &QListWidget::itemSelectionChanged, this,
            [this]() { emit selectedDeviceSig(!m_list->selectedItems().isEmpty()); });
}

bool DeviceWidget::addDevice(const DevData &dev)
{
    for (const DevData &listed : qAsConst(m_devices)) {
        if (listed.addr == dev.addr)
            return false;
    }
    // Two lights of one model share a name: the address tells them apart.
    const QString text = dev.name.trimmed().isEmpty() ? dev.addr : dev.name + QStringLiteral("    ") + dev.addr;
    auto *item = new QListWidgetItem(text, m_list);
    item->setData(Qt::UserRole, dev.addr);
    item->setToolTip(dev.addr);
    m_nothingFound->hide();
    m_devices.append(dev);
    return true;
}

void DeviceWidget::clear()
{
    m_list->clear();
    m_devices.clear();
}

QList<DevData> DeviceWidget::selectedDevices() const
{
    QList<DevData> selected;
    for (int row = 0; row < m_list->count(); ++row) {
        const QListWidgetItem *item = m_list->item(row);
        if (!item->isSelected())
            continue;
        const QString addr = item->data(Qt::UserRole).toString();
        for (const DevData &dev : m_devices) {
            if (dev.addr == addr) {
                selected.append(dev);
                break;
            }
        }
    }
    return selected;
}

void DeviceWidget::removeDevice(const QString &addr)
{
    for (int row = m_list->count() - 1; row >= 0; --row) {
        if (m_list->item(row)->data(Qt::UserRole).toString() == addr)
            delete m_list->takeItem(row);
    }
    m_devices.erase(std::remove_if(m_devices.begin(), m_devices.end(),
                                   [&addr](const DevData &dev) { return dev.addr == addr; }),
                    m_devices.end());
}

QListWidget *DeviceWidget::listWidget() const
{
    return m_list;
}

int DeviceWidget::count() const
{
    return m_list->count();
}

bool DeviceWidget::isDiscoverTipVisible() const
{
    return !m_tip->isHidden();
}

bool DeviceWidget::isNothingFoundVisible() const
{
    return !m_nothingFound->isHidden();
}

void DeviceWidget::hideDeviceDiscoverTip()
{
    m_spinner->stopAnimation();
    m_tip->hide();
    m_nothingFound->setVisible(m_list->count() == 0);
}

void DeviceWidget::showDeviceDiscoverTip()
{
    m_nothingFound->hide();
    m_tip->show();
    m_spinner->startAnimation();
}
