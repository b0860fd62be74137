#include "adddevicewidget.h"

#include "devicewidget.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

AddDeviceWidget::AddDeviceWidget(QWidget *parent)
    : QWidget(parent, Qt::Window)
    , m_deviceWidget(new DeviceWidget(this))
    , m_btnMakeSure(new QPushButton(tr("连接"), this))
    , m_btnCancel(new QPushButton(tr("取消"), this))
{
    setWindowTitle(tr("添加设备"));
    setObjectName(QStringLiteral("scanWidget"));
    setStyleSheet(QStringLiteral("#scanWidget { background-color: #141414;}"
                                 "QPushButton { background-color: #3A3A3C; color: #FFFFFF; border: none;"
                                 " border-radius: 4px; font-size: 14px;}"
                                 "QPushButton:hover { background-color: #48484A;}"
                                 "#btnMakeSure { background-color: #0A84FF;}"
                                 "#btnMakeSure:disabled { background-color: #2C3E55; color: #7A7A7A;}"));
    setAttribute(Qt::WA_StyledBackground);
    setFixedSize(600, 468);
    m_deviceWidget->hideDeviceDiscoverTip();

    auto *heading = new QLabel(tr("添加设备"), this);
    heading->setStyleSheet(QStringLiteral("color: #DCDCDC; font-size: 14px;"));
    m_btnMakeSure->setObjectName(QStringLiteral("btnMakeSure"));
    m_btnMakeSure->setFixedSize(96, 32);
    m_btnMakeSure->setEnabled(false);
    m_btnCancel->setObjectName(QStringLiteral("btnCancel"));
    m_btnCancel->setFixedSize(96, 32);

    auto *buttons = new QHBoxLayout;
    buttons->setSpacing(12);
    buttons->addStretch(1);
    buttons->addWidget(m_btnCancel);
    buttons->addWidget(m_btnMakeSure);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 16, 16, 16);
    layout->setSpacing(12);
    layout->addWidget(heading);
    layout->addWidget(m_deviceWidget, 1);
    layout->addLayout(buttons);

    connect(m_deviceWidget, &DeviceWidget::selectedDeviceSig, m_btnMakeSure, &QPushButton::setEnabled);
    connect(m_btnMakeSure, &QPushButton::clicked, this, [this]() {
        if (!m_deviceWidget->selectedDevices().isEmpty())
            emit OKClicked();
        close();
    });
    connect(m_btnCancel, &QPushButton::clicked, this, &QWidget::close);
}

void AddDeviceWidget::setDevices(const QList<DevData> &devices)
{
    m_deviceWidget->clear();
    for (const DevData &dev : devices)
        m_deviceWidget->addDevice(dev);
    m_btnMakeSure->setEnabled(false);
}

QList<DevData> AddDeviceWidget::selectedDevices() const
{
    return m_deviceWidget->selectedDevices();
}
