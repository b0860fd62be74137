#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QString>

#include <functional>

class QTimer;

// Paces actions per key: an action for a key that has been quiet for the interval runs at once;
// after that at most one runs per interval, and of those waiting only the latest. The last action
// submitted therefore runs at most one interval after it was submitted.
class Coalescer : public QObject
{
    Q_OBJECT

public:
    explicit Coalescer(int intervalMs, QObject *parent = nullptr);
    ~Coalescer() override;

    // Runs the action now when the key is quiet, else keeps it (replacing any waiting one) for the
    // key's next turn. A held action waits, however quiet the key, until release().
    void submit(const QString &key, std::function<void()> action, bool hold = false);
    // Lets a held action take its turn.
    void release(const QString &key);
    bool isWaiting(const QString &key) const;
    // Drops the key's waiting action and its history.
    void forget(const QString &key);

private:
    struct Slot
    {
        qint64 lastRunMs = -1;
        std::function<void()> waiting;
        bool held = false;
        QTimer *timer = nullptr;
    };
    // Runs the waiting action now if the key is quiet, else at the key's next turn.
    void schedule(const QString &key, Slot &slot);
    void runWaiting(const QString &key);

    int m_intervalMs;
    QElapsedTimer m_clock;
    QHash<QString, Slot> m_slots;
};
