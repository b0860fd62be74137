#include "huecommandqueue.h"

int HueCommandQueue::find(const QString &light, const QString &property) const
{
    for (int i = 0; i < m_items.size(); ++i) {
        if (m_items.at(i).light == light && m_items.at(i).property == property)
            return i;
    }
    return -1;
}

void HueCommandQueue::enqueue(const HueCommand &command)
{
    const int index = find(command.light, command.property);
    if (index >= 0) {
        bool laterOfSameLight = false;
        for (int i = index + 1; i < m_items.size() && !laterOfSameLight; ++i)
            laterOfSameLight = m_items.at(i).light == command.light;
        // In place keeps a drag across many lights fair; when the light has later commands the old
        // value goes and the new one queues behind them, so the light's order stays as given.
        if (!laterOfSameLight) {
            m_items[index] = command;
            return;
        }
        m_items.removeAt(index);
    }
    m_items.append(command);
}

void HueCommandQueue::retry(const HueCommand &command)
{
    if (find(command.light, command.property) >= 0)
        return;
    for (int i = 0; i < m_items.size(); ++i) {
        if (m_items.at(i).light == command.light) {
            m_items.insert(i, command);
            return;
        }
    }
    m_items.prepend(command);
}

bool HueCommandQueue::takeNext(const QSet<QString> &busyLights, HueCommand &command)
{
    for (int i = 0; i < m_items.size(); ++i) {
        if (!busyLights.contains(m_items.at(i).light)) {
            command = m_items.takeAt(i);
            return true;
        }
    }
    return false;
}

bool HueCommandQueue::hasReady(const QSet<QString> &busyLights) const
{
    for (const HueCommand &command : m_items) {
        if (!busyLights.contains(command.light))
            return true;
    }
    return false;
}
