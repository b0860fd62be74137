#include "middlewidget.h"

#include <QLabel>
#include <QPushButton>
#include <QSvgWidget>
#include <QVBoxLayout>

MiddleWidget::MiddleWidget(QWidget *parent)
    : QWidget(parent)
    , m_addButton(new QPushButton(tr("添加设备"), this))
{
    setObjectName(QStringLiteral("middleBarWidget"));
    setStyleSheet(QStringLiteral("#middleBarWidget { background-color: #1E1E1E; border-radius: 4px;}"));
    setAttribute(Qt::WA_StyledBackground);

    auto *icon = new QSvgWidget(QStringLiteral(":/resource/svg/wifi.svg"), this);
    icon->setFixedSize(48, 48);

    auto *heading = new QLabel(tr("选择要操作的设备"), this);
    heading->setStyleSheet(QStringLiteral("color: #E6E6E6; font-size: 14px;"));
    heading->setAlignment(Qt::AlignCenter);
    auto *hint = new QLabel(tr("单击下方按钮以添加设备"), this);
    hint->setStyleSheet(QStringLiteral("color: #9C9C9C; font-size: 14px;"));
    hint->setAlignment(Qt::AlignCenter);

    m_addButton->setObjectName(QStringLiteral("btnAddDevice"));
    m_addButton->setFixedSize(160, 36);
    m_addButton->setCursor(Qt::PointingHandCursor);
    m_addButton->setStyleSheet(QStringLiteral(
        "QPushButton { background-color: #0A84FF; color: #FFFFFF; border: none; border-radius: 4px; font-size: 14px;}"
        "QPushButton:hover { background-color: #3A9BFF;}"
        "QPushButton:pressed { background-color: #0060C0;}"));

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 20);
    layout->setSpacing(12);
    layout->addStretch(1);
    layout->addWidget(icon, 0, Qt::AlignHCenter);
    layout->addSpacing(4);
    layout->addWidget(heading);
    layout->addWidget(hint);
    layout->addSpacing(12);
    layout->addWidget(m_addButton, 0, Qt::AlignHCenter);
    layout->addStretch(1);

    connect(m_addButton, &QPushButton::clicked, this, &MiddleWidget::addDeviceClicked);
    // The main window is not known here by type: reach its slot through the meta-object.
    if (parent && parent->metaObject()->indexOfSlot("onSwitchControlInterface()") >= 0)
        connect(m_addButton, SIGNAL(clicked()), parent, SLOT(onSwitchControlInterface()));
}
