#include "modifytitlebar.h"

#include "about.h"
#include "custombutton.h"
#include "modifywindow.h"
#include "svgicon.h"

#include <QDebug>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QPushButton>
#include <QStyleOption>

ModifyTitleBar::ModifyTitleBar(QWidget *parent, const QString &title)
    : QWidget(parent)
    , m_layout(new QHBoxLayout(this))
    , m_window(parent)
    , m_title(new QLabel(this))
    , m_addButton(new QPushButton(this))
    , m_settingButton(new QPushButton(this))
    , m_minButton(new MinButton(this))
    , m_closeButton(new CloseButton(this))
    , m_about(new About(this))
{
    m_about->hide();
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_StyledBackground);
    setFixedHeight(44);
    m_layout->setContentsMargins(15, 0, 15, 0);
    m_layout->setSpacing(0);
    setStyleSheet(QStringLiteral("#titleBarWidget { background-color: #1E1E1E;  border-top-left-radius: 10px; border-top-right-radius: 10px;}"));
    setObjectName(QStringLiteral("titleBarWidget"));

    m_title->setText(title);
    m_title->setFixedHeight(18);
    m_title->setAlignment(Qt::AlignCenter);
    m_title->setStyleSheet(QStringLiteral("color: #EBEBF5; font-size: 14px; background-color: #1E1E1E"));

    m_addButton->setIcon(svgIcon(QStringLiteral(":/resource/svg/btn_add.svg")));
    m_addButton->setIconSize(QSize(24, 24));
    m_addButton->setToolTip(tr("添加设备"));
    m_addButton->setAccessibleName(tr("添加设备"));
    m_addButton->setStyleSheet(QStringLiteral("QPushButton{background-color: transparent;}QPushButton:hover{background-color: #2E2E2E; border: none;}"));

    m_settingButton->setIcon(svgIcon(QStringLiteral(":/resource/svg/btn_setting.svg")));
    m_settingButton->setIconSize(QSize(24, 24));
    m_settingButton->setToolTip(tr("设置"));
    m_settingButton->setAccessibleName(tr("设置"));
    m_settingButton->setStyleSheet(QStringLiteral("QPushButton::menu-indicator{image:none;width:0px;}QPushButton{background-color: transparent;}QPushButton:hover{background-color: #2E2E2E; border: none;}"));

    // Flat: the style sheets leave the border to the style, which would draw a dark box.
    m_addButton->setFlat(true);
    m_settingButton->setFlat(true);

    m_layout->addWidget(m_addButton);
    m_layout->addSpacing(110);
    m_layout->addWidget(m_title, 1);
    m_layout->addWidget(m_settingButton);
    m_layout->addSpacing(30);
    m_layout->addWidget(m_minButton);
    m_layout->addWidget(m_closeButton);

    initMenu();
    initConnections();
}

void ModifyTitleBar::initMenu()
{
    m_settingMenu = new QMenu(m_settingButton);
    m_settingMenu->setStyleSheet(QStringLiteral(
        "QMenu {                             background: #4B4C4E;                             border-radius: 2px;                         }                         QMenu::item {                             background: #4B4C4E;                             color: white;                             height: 30px;                         }                        QMenu::item:selected {                                 background: #0A84FF;                         }"));
    QAction *groupSettings = m_settingMenu->addAction(tr("群组设置"));
    QAction *about = m_settingMenu->addAction(tr("关于"));
    QAction *checkUpdate = m_settingMenu->addAction(tr("检查更新"));
    QAction *exit = m_settingMenu->addAction(tr("退出"));

    connect(about, &QAction::triggered, m_about, [this] {
        m_about->show();
        m_about->raise();
    });

    auto *window = qobject_cast<ModifyWindow *>(m_window);
    if (!window) {
        qDebug().noquote() << "[ModifyTitleBar::initConnections] connect ModifyWindow::onSwitchControlInterface fail";
        return;
    }
    m_settingButton->setMenu(m_settingMenu);
    connect(groupSettings, &QAction::triggered, window, &ModifyWindow::onShowSetting);
    connect(checkUpdate, &QAction::triggered, window, &ModifyWindow::checkUpdate);
    connect(exit, &QAction::triggered, window, &QWidget::close);
}

void ModifyTitleBar::initConnections()
{
    auto *window = qobject_cast<ModifyWindow *>(m_window);
    if (!window) {
        qDebug().noquote() << "[ModifyTitleBar::initConnections] connect ModifyWindow::onSwitchControlInterface fail";
        return;
    }
    connect(m_addButton, &QPushButton::clicked, window, &ModifyWindow::onSwitchControlInterface);
    connect(m_minButton, &QPushButton::clicked, window, &QWidget::showMinimized);
    connect(m_closeButton, &QPushButton::clicked, window, &QWidget::hide);
}

void ModifyTitleBar::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton || !m_window)
        return;
    m_dragOffset = event->globalPosition().toPoint() - m_window->frameGeometry().topLeft();
    event->accept();
}

void ModifyTitleBar::mouseMoveEvent(QMouseEvent *event)
{
    if (!(event->buttons() & Qt::LeftButton) || !m_window)
        return;
    m_window->move(event->globalPosition().toPoint() - m_dragOffset);
    event->accept();
}

void ModifyTitleBar::paintEvent(QPaintEvent *)
{
    // A translucent widget gets no background from the style sheet by itself: draw it, so that
    // the bar is dark with its rounded top corners.
    QStyleOption option;
    option.initFrom(this);
    QPainter painter(this);
    style()->drawPrimitive(QStyle::PE_Widget, &option, &painter, this);
}
