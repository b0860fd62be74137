#include "switchbutton.h"

#include <QStyle>

SwitchButton::SwitchButton(QWidget *parent)
    : QPushButton(parent)
{
}

void SwitchButton::setChoose(bool choose)
{
    if (choose == m_choose)
        return;
    m_choose = choose;
    emit chooseChanged();
    // Property selectors are matched at polish time only.
    style()->unpolish(this);
    style()->polish(this);
    update();
}
