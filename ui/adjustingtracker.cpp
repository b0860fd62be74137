#include "adjustingtracker.h"

#include "devicemgr.h"

#include <QPointer>

#include <utility>

AdjustingTracker *AdjustingTracker::instance()
{
    static QPointer<AdjustingTracker> tracker;
    // Owned by the manager: a card deleted right after a drag must not take the pending end along.
    if (!tracker)
        tracker = new AdjustingTracker(DeviceMgrSingleton::instance());
    return tracker;
}

AdjustingTracker::AdjustingTracker(QObject *parent)
    : QObject(parent)
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &AdjustingTracker::sendEnds);
}

void AdjustingTracker::begin(const QString &addr)
{
    ++m_active;
    DeviceMgrSingleton::instance()->setAdjusting(addr, true);
}

void AdjustingTracker::end(const QString &addr)
{
    m_active = qMax(0, m_active - 1);
    m_ending.insert(addr);
    m_timer.start(kEndDelayMs);
}

void AdjustingTracker::sendEnds()
{
    if (m_active > 0)
        return; // the slider still held sends the ends when it is let go
    const QSet<QString> ending = std::exchange(m_ending, {});
    for (const QString &addr : ending)
        DeviceMgrSingleton::instance()->setAdjusting(addr, false);
}
