#pragma once

#include <QByteArray>
#include <QList>
#include <QSet>
#include <QString>

// One request waiting for its bridge: a light state change (PUT) or a read of the light (GET).
struct HueCommand
{
    QString light;
    QString property; // "on", "dimming", "color_temperature", "color", or "get" for a read
    QByteArray body;  // null for a read
    bool on = false;  // the value of a power command
    int attempts = 0;
};

// The waiting commands of one bridge. For each light and property only the latest value waits,
// and the commands of one light leave in the order they were given.
class HueCommandQueue
{
public:
    void enqueue(const HueCommand &command);
    // Puts a command that must be sent again ahead of the others of its light, unless a newer
    // value for the same light and property is already waiting.
    void retry(const HueCommand &command);
    // The first command whose light has no request on the way, if any.
    bool takeNext(const QSet<QString> &busyLights, HueCommand &command);
    bool hasReady(const QSet<QString> &busyLights) const;
    void clear() { m_items.clear(); }
    bool isEmpty() const { return m_items.isEmpty(); }
    int size() const { return int(m_items.size()); }

private:
    int find(const QString &light, const QString &property) const;

    QList<HueCommand> m_items;
};
