#include "settingwindow.h"

#include "settingmiddlewdg.h"

#include <QVBoxLayout>

SettingWindow::SettingWindow(QWidget *parent)
    : QWidget(parent, Qt::Window)
    , m_middle(new SettingMiddleWdg(this))
{
    setWindowTitle(tr("群组设置"));
    setObjectName(QStringLiteral("settingWidget"));
    setAttribute(Qt::WA_StyledBackground);
    setStyleSheet(QStringLiteral("#settingWidget {               background-color:  #282828;         }"));
    resize(720, 480);
    setMinimumSize(560, 360);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 12, 12, 12);
    layout->addWidget(m_middle);
}
