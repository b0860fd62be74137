#include "coalescer.h"

#include <QTimer>

Coalescer::Coalescer(int intervalMs, QObject *parent)
    : QObject(parent)
    , m_intervalMs(intervalMs)
{
    m_clock.start();
}

Coalescer::~Coalescer() = default;

void Coalescer::submit(const QString &key, std::function<void()> action, bool hold)
{
    Slot &slot = m_slots[key];
    const bool alreadyWaiting = bool(slot.waiting);
    slot.waiting = std::move(action);
    if (hold) {
        slot.held = true;
        if (slot.timer)
            slot.timer->stop();
        return;
    }
    if (slot.held || !alreadyWaiting)
        schedule(key, slot);
}

void Coalescer::release(const QString &key)
{
    const auto it = m_slots.find(key);
    if (it != m_slots.end() && it->held && it->waiting)
        schedule(key, *it);
}

bool Coalescer::isWaiting(const QString &key) const
{
    const auto it = m_slots.constFind(key);
    return it != m_slots.constEnd() && bool(it->waiting);
}

void Coalescer::forget(const QString &key)
{
    const auto it = m_slots.find(key);
    if (it == m_slots.end())
        return;
    if (it->timer) {
        it->timer->stop();
        it->timer->deleteLater();
    }
    m_slots.erase(it);
}

void Coalescer::schedule(const QString &key, Slot &slot)
{
    slot.held = false;
    const qint64 wait = slot.lastRunMs < 0 ? 0 : slot.lastRunMs + m_intervalMs - m_clock.elapsed();
    if (wait <= 0) {
        runWaiting(key);
        return;
    }
    if (!slot.timer) {
        slot.timer = new QTimer(this);
        slot.timer->setSingleShot(true);
        // A coarse timer may fire early; the interval is a promise to the light.
        slot.timer->setTimerType(Qt::PreciseTimer);
        connect(slot.timer, &QTimer::timeout, this, [this, key] { runWaiting(key); });
    }
    slot.timer->start(int(wait));
}

void Coalescer::runWaiting(const QString &key)
{
    const auto it = m_slots.find(key);
    if (it == m_slots.end() || !it->waiting || it->held)
        return;
    std::function<void()> action = std::move(it->waiting);
    it->waiting = nullptr;
    it->lastRunMs = m_clock.elapsed();
    if (it->timer)
        it->timer->stop();
    // The action may submit or forget keys: nothing of the slot is touched after it.
    action();
}
