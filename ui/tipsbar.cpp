#include "tipsbar.h"

#include <QMouseEvent>

TipsBar::TipsBar(QWidget *parent)
    : QFrame(parent)
{
    setFixedHeight(28);
    setStyleSheet(QStringLiteral(
        "background-color: #4B4C4E;border-top-left-radius: 10px; border-top-right-radius: 10px;"));
}

void TipsBar::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && parentWidget()) {
        m_offset = event->globalPosition().toPoint() - parentWidget()->frameGeometry().topLeft();
        event->accept();
    }
}

void TipsBar::mouseMoveEvent(QMouseEvent *event)
{
    if ((event->buttons() & Qt::LeftButton) && parentWidget()) {
        parentWidget()->move(event->globalPosition().toPoint() - m_offset);
        event->accept();
    }
}
