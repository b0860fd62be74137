#include "zrprocessbar.h"

#include <QConicalGradient>
#include <QPainter>
#include <QPainterPath>
#include <QTimer>

ZrProcessBar::ZrProcessBar(QWidget *parent)
    : QWidget(parent)
    , m_timer(new QTimer(this))
{
    setFixedSize(70, 70);
    connect(m_timer, &QTimer::timeout, this, &ZrProcessBar::updateRotation);
}

ZrProcessBar::~ZrProcessBar()
{
    m_timer->stop();
    delete m_timer;
}

void ZrProcessBar::startAnimation()
{
    m_angle = 0.0;
    m_timer->start(10);
}

void ZrProcessBar::stopAnimation()
{
    m_timer->stop();
}

bool ZrProcessBar::isAnimating() const
{
    return m_timer->isActive();
}

void ZrProcessBar::updateRotation()
{
    m_angle += 1.0;
    if (m_angle >= 360.0)
        m_angle = 0.0;
    update();
}

void ZrProcessBar::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing);
    painter.translate(width() / 2, height() / 2);
    const qreal side = qMin(width(), height());
    painter.scale(side / 200.0, side / 200.0);

    const QRectF outer(-36, -36, 72, 72);
    QPainterPath ring;
    ring.moveTo(outer.center());
    ring.arcTo(outer, 0, 270);
    ring.closeSubpath();
    QPainterPath hole;
    hole.addEllipse(outer.adjusted(5, 5, -5, -5));
    ring = ring.subtracted(hole);

    QConicalGradient gradient(0, 0, 0);
    gradient.setColorAt(0, QColor(QStringLiteral("#FFFFFF")));
    gradient.setColorAt(1, QColor(QStringLiteral("#FFFFFF")));
    painter.setBrush(gradient);
    painter.setPen(Qt::NoPen);
    painter.rotate(m_angle);
    painter.drawPath(ring);
}
