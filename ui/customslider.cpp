#include "customslider.h"

#include "custompopup.h"

#include <QMouseEvent>
#include <QWheelEvent>

CustomSlider::CustomSlider(QWidget *parent)
    : QSlider(parent)
{
    init();
}

CustomSlider::CustomSlider(Qt::Orientation orientation, QWidget *parent)
    : QSlider(orientation, parent)
{
    init();
}

void CustomSlider::init()
{
    m_popup = new CustomPopup(this);
    m_popup->hide();
    connect(this, &QAbstractSlider::valueChanged, this, [this] { updatePopup(); });
}

QPoint CustomSlider::popupAnchor() const
{
    const QPoint topLeft = mapToGlobal(QPoint(0, 0));
    const double fraction = double(value() - minimum()) / double(maximum() - minimum());
    return QPoint(int(topLeft.x() + width() * fraction), topLeft.y());
}

void CustomSlider::updatePopup()
{
    if (maximum() == minimum())
        return;
    m_popup->placeAt(popupAnchor());
    m_popup->setText(QStringLiteral("%1").arg(value() * m_ratio, 0, 10, QLatin1Char(' ')) + m_unit);
    m_popup->update();
}

void CustomSlider::enterEvent(QEnterEvent *event)
{
    if (isActiveWindow()) {
        updatePopup();
        m_popup->show();
    }
    QSlider::enterEvent(event);
}

void CustomSlider::leaveEvent(QEvent *event)
{
    m_popup->hide();
    QSlider::leaveEvent(event);
}

void CustomSlider::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton)
        emit sigSliderPressed();
    QSlider::mousePressEvent(event);
}

void CustomSlider::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton)
        emit sigSliderReleased();
    QSlider::mouseReleaseEvent(event);
}

void CustomSlider::wheelEvent(QWheelEvent *event)
{
    event->ignore();
}

CustomStepSlider::CustomStepSlider(QWidget *parent)
    : CustomSlider(parent)
{
}

void CustomStepSlider::updatePopup()
{
    if (maximum() == minimum())
        return;
    m_popup->placeAt(popupAnchor());
    const int shown = value() >= 1 ? value() : value() - 1;
    m_popup->setText(QString::number(shown) + m_unit);
    m_popup->update();
    emit valueChanged(shown);
}
