#include "custompopup.h"

#include <QPainter>
#include <QPainterPath>

CustomPopup::CustomPopup(QWidget *parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint)
{
    setAttribute(Qt::WA_TranslucentBackground);
    setFixedSize(50, 30);
}

void CustomPopup::placeAt(const QPoint &anchor)
{
    move(int(anchor.x() - width() * 0.5), int(anchor.y() - height()));
}

void CustomPopup::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setBrush(Qt::black);
    painter.setPen(Qt::black);

    const QRect body = rect().adjusted(0, 0, 0, -10);
    painter.drawRoundedRect(body, 5, 5);

    const qreal centreX = rect().center().x() + 0.5;
    const qreal bottom = rect().bottom() + 1;
    QPainterPath pointer;
    pointer.moveTo(centreX - 5, bottom - 10);
    pointer.lineTo(centreX + 5, bottom - 10);
    pointer.lineTo(centreX, bottom);
    pointer.closeSubpath();
    painter.drawPath(pointer);

    QFont font = painter.font();
    font.setPointSize(9);
    painter.setFont(font);
    painter.setPen(Qt::white);
    painter.drawText(rect().adjusted(5, 5, -5, -15), Qt::AlignCenter, m_text);
}

void CustomPopup::leaveEvent(QEvent *event)
{
    if (isVisible())
        hide();
    QWidget::leaveEvent(event);
}
