#pragma once

#include <QObject>
#include <QSet>
#include <QString>
#include <QTimer>

// Brackets the adjusting state of the lights for every slider of the interface. The end of an
// adjustment goes out 200 ms after the last slider is let go, and only once no slider anywhere is
// held: a light's late reports must not move a handle back, and an end meant for one drag must
// not land in the middle of the next one.
class AdjustingTracker : public QObject
{
public:
    static constexpr int kEndDelayMs = 200;

    static AdjustingTracker *instance();

    void begin(const QString &addr);
    void end(const QString &addr);

private:
    explicit AdjustingTracker(QObject *parent);
    void sendEnds();

    int m_active = 0;
    QSet<QString> m_ending;
    QTimer m_timer;
};
