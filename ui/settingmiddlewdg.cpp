#include "settingmiddlewdg.h"

#include "devinfowidget.h"
#include "devnamegroupwidget.h"

#include <QHBoxLayout>

SettingMiddleWdg::SettingMiddleWdg(QWidget *parent)
    : QWidget(parent)
    , m_groupWidget(new DevNameGroupWidget(this))
    , m_spaceWidget(new QWidget(this))
    , m_infoWidget(new DevInfoWidget(this))
{
    setObjectName(QStringLiteral("settingMiddleWdg"));
    setAttribute(Qt::WA_StyledBackground);
    setStyleSheet(QStringLiteral("#settingMiddleWdg {background-color: #282828;}"));
    m_spaceWidget->setObjectName(QStringLiteral("spaceWidget"));
    m_spaceWidget->setStyleSheet(QStringLiteral("#spaceWidget {background-color: balck;}"));
    // A thin line in the middle of the gutter between the panes.
    m_spaceWidget->setFixedWidth(1);

    m_groupWidget->setFixedWidth(220);

    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_groupWidget);
    layout->addSpacing(5);
    layout->addWidget(m_spaceWidget);
    layout->addSpacing(5);
    layout->addWidget(m_infoWidget, 1);

    connect(m_groupWidget, &DevNameGroupWidget::selectGroup, m_infoWidget, &DevInfoWidget::handleSelectGroup);
}
