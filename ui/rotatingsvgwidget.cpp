#include "rotatingsvgwidget.h"

#include <QMouseEvent>
#include <QKeyEvent>
#include <QPainter>
#include <QSvgRenderer>
#include <QTimer>

namespace {
constexpr int kTickMs = 50;
constexpr double kStepDegrees = 5.0;
}

RotatingSvgWidget::RotatingSvgWidget(QWidget *parent)
    : QWidget(parent)
    , m_timer(new QTimer(this))
    , m_renderer(new QSvgRenderer(QStringLiteral(":/resource/svg/Vector.svg"), this))
{
    setFixedSize(24, 24);
    connect(m_timer, &QTimer::timeout, this, [this] {
        m_rotation += kStepDegrees;
        update();
        if (m_rotation >= 360.0) {
            m_rotation = 0.0;
            update();
        }
    });
    connect(this, &RotatingSvgWidget::startRotation, this, &RotatingSvgWidget::onStartRotation);
    connect(this, &RotatingSvgWidget::stopRotation, this, &RotatingSvgWidget::onStopRotation);
}

void RotatingSvgWidget::setRotation(double degrees)
{
    m_rotation = degrees;
    update();
}

bool RotatingSvgWidget::isRotating() const
{
    return m_timer->isActive();
}

void RotatingSvgWidget::onStartRotation()
{
    if (!m_timer->isActive())
        m_timer->start(kTickMs);
}

void RotatingSvgWidget::onStopRotation()
{
    // The icon keeps its angle: snapping back to 0 would look like a jump.
    if (m_timer->isActive())
        m_timer->stop();
}

void RotatingSvgWidget::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    requestReconnect();
}

void RotatingSvgWidget::keyPressEvent(QKeyEvent *event)
{
    // Space and Enter do what a click does, for those who work from the keyboard.
    if (event->key() == Qt::Key_Space || event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        requestReconnect();
        return;
    }
    QWidget::keyPressEvent(event);
}

void RotatingSvgWidget::focusInEvent(QFocusEvent *event)
{
    QWidget::focusInEvent(event);
    update(); // the focus ring
}

void RotatingSvgWidget::focusOutEvent(QFocusEvent *event)
{
    QWidget::focusOutEvent(event);
    update();
}

void RotatingSvgWidget::requestReconnect()
{
    // One reconnect at a time: clicks while spinning are ignored.
    if (m_timer->isActive())
        return;
    emit reconnect_dev();
    if (!m_timer->isActive())
        m_timer->start(kTickMs);
}

void RotatingSvgWidget::paintEvent(QPaintEvent *event)
{
    QWidget::paintEvent(event);
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    if (hasFocus()) {
        painter.setPen(QPen(QColor(0x0A, 0x84, 0xFF), 1.5));
        painter.drawEllipse(QRectF(rect()).adjusted(1, 1, -1, -1));
    }
    painter.translate(width() / 2.0, height() / 2.0);
    painter.rotate(m_rotation);
    painter.translate(-width() / 2.0, -height() / 2.0);
    if (m_renderer->isValid()) {
        const int w = int(width() * 0.8);
        const int h = int(height() * 0.8);
        m_renderer->render(&painter, QRectF((width() - w) / 2.0, (height() - h) / 2.0, w, h));
    }
}
