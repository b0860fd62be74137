#include "pairlabel.h"

PairLabel::PairLabel(QWidget *parent)
    : QLabel(parent)
{
    m_timer.setInterval(kBlinkIntervalMs);
    connect(&m_timer, &QTimer::timeout, this, [this]() {
        ++m_tick;
        applyTick();
    });
    applyTick();
}

void PairLabel::start()
{
    if (!m_timer.isActive())
        m_timer.start();
}

void PairLabel::stop()
{
    m_tick = 0;
    m_timer.stop();
}

void PairLabel::applyTick()
{
    const int alpha = (m_tick % 2 != 0) ? 120 : 50;
    setStyleSheet(QStringLiteral("background-color: rgba(150, 150, 150, %1)").arg(alpha));
}
