#include "custombutton.h"

#include "svgicon.h"

#include <QEnterEvent>
#include <QIcon>

CustomButton::CustomButton(QWidget *parent)
    : QPushButton(parent)
{
    setFixedSize(40, 30);
    setFlat(true);
    setStyleSheet(QStringLiteral("QPushButton { background: transparent; border: none; color: white; }"));
}

MinButton::MinButton(QWidget *parent)
    : CustomButton(parent)
{
    setIconSize(QSize(24, 24));
    setIcon(svgIcon(QStringLiteral(":/resource/svg/mini.svg")));
    setToolTip(tr("最小化"));
    setAccessibleName(tr("最小化"));
}

void MinButton::enterEvent(QEnterEvent *event)
{
    setStyleSheet(QStringLiteral("QPushButton { background: rgb(50,50,50); border: none;  color: white;}"));
    CustomButton::enterEvent(event);
}

void MinButton::leaveEvent(QEvent *event)
{
    setStyleSheet(QStringLiteral("QPushButton { background: transparent; border: none;  color: white;}"));
    CustomButton::leaveEvent(event);
}

CloseButton::CloseButton(QWidget *parent)
    : CustomButton(parent)
{
    setIcon(svgIcon(QStringLiteral(":/resource/svg/close.svg")));
    setToolTip(tr("关闭"));
    setAccessibleName(tr("关闭"));
}

void CloseButton::enterEvent(QEnterEvent *event)
{
    setStyleSheet(QStringLiteral("QPushButton { background-color: red; border: none; color: #EBEBF5;}"));
    CustomButton::enterEvent(event);
}

void CloseButton::leaveEvent(QEvent *event)
{
    setStyleSheet(QStringLiteral("QPushButton { background: transparent; border: none;  color: #EBEBF5;}"));
    CustomButton::leaveEvent(event);
}
