#pragma once

#include <QHash>
#include <QList>
#include <QString>

#include <initializer_list>
#include <iterator>
#include <utility>

// A table keyed by text that keeps its entries in the order they were first inserted: lookups go
// through a hash, iteration follows the order. Replacing the value of a key keeps its place.
// Removal is linear in the size, which suits tables the user fills by hand.
template <typename T>
class OrderedTable
{
    using Entry = std::pair<QString, T>;
    using Entries = QList<Entry>;

public:
    template <typename It, typename Value>
    class Iterator
    {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = T;
        using difference_type = qsizetype;
        using pointer = Value *;
        using reference = Value &;

        Iterator() = default;
        explicit Iterator(It it) : m_it(it) {}
        const QString &key() const { return m_it->first; }
        Value &value() const { return m_it->second; }
        Value &operator*() const { return m_it->second; }
        Value *operator->() const { return &m_it->second; }
        Iterator &operator++()
        {
            ++m_it;
            return *this;
        }
        Iterator operator++(int)
        {
            Iterator old = *this;
            ++m_it;
            return old;
        }
        bool operator==(const Iterator &other) const { return m_it == other.m_it; }
        bool operator!=(const Iterator &other) const { return m_it != other.m_it; }

    private:
        It m_it{};
    };
    using iterator = Iterator<typename Entries::iterator, T>;
    using const_iterator = Iterator<typename Entries::const_iterator, const T>;

    OrderedTable() = default;
    OrderedTable(std::initializer_list<std::pair<QString, T>> entries)
    {
        for (const auto &entry : entries)
            insert(entry.first, entry.second);
    }

    qsizetype size() const { return m_entries.size(); }
    qsizetype count() const { return m_entries.size(); }
    bool isEmpty() const { return m_entries.isEmpty(); }
    bool contains(const QString &key) const { return m_index.contains(key); }

    T value(const QString &key, const T &fallback = T()) const
    {
        const auto it = m_index.constFind(key);
        return it == m_index.constEnd() ? fallback : m_entries.at(*it).second;
    }

    // Null when absent; valid until the table changes.
    T *pointer(const QString &key)
    {
        const auto it = m_index.constFind(key);
        return it == m_index.constEnd() ? nullptr : &m_entries[*it].second;
    }
    const T *pointer(const QString &key) const
    {
        const auto it = m_index.constFind(key);
        return it == m_index.constEnd() ? nullptr : &m_entries.at(*it).second;
    }

    iterator find(const QString &key)
    {
        const auto it = m_index.constFind(key);
        return it == m_index.constEnd() ? end() : iterator(m_entries.begin() + *it);
    }
    const_iterator find(const QString &key) const { return constFind(key); }
    const_iterator constFind(const QString &key) const
    {
        const auto it = m_index.constFind(key);
        return it == m_index.constEnd() ? constEnd() : const_iterator(m_entries.cbegin() + *it);
    }

    // A new key goes to the end; a known one keeps its place.
    void insert(const QString &key, const T &value)
    {
        const auto it = m_index.constFind(key);
        if (it != m_index.constEnd()) {
            m_entries[*it].second = value;
            return;
        }
        m_index.insert(key, m_entries.size());
        m_entries.append(Entry(key, value));
    }

    // Gives an entry a new key (absent from the table) and value, in its old place.
    bool rekey(const QString &oldKey, const QString &newKey, const T &value)
    {
        const auto it = m_index.constFind(oldKey);
        if (it == m_index.constEnd() || m_index.contains(newKey))
            return false;
        const qsizetype at = *it;
        m_index.erase(it);
        m_index.insert(newKey, at);
        m_entries[at] = Entry(newKey, value);
        return true;
    }

    qsizetype remove(const QString &key)
    {
        const auto it = m_index.constFind(key);
        if (it == m_index.constEnd())
            return 0;
        const qsizetype at = *it;
        m_index.erase(it);
        m_entries.removeAt(at);
        for (qsizetype i = at; i < m_entries.size(); ++i)
            m_index[m_entries.at(i).first] = i;
        return 1;
    }

    void clear()
    {
        m_entries.clear();
        m_index.clear();
    }

    QList<QString> keys() const
    {
        QList<QString> result;
        result.reserve(m_entries.size());
        for (const Entry &entry : m_entries)
            result.append(entry.first);
        return result;
    }

    QList<T> values() const
    {
        QList<T> result;
        result.reserve(m_entries.size());
        for (const Entry &entry : m_entries)
            result.append(entry.second);
        return result;
    }

    iterator begin() { return iterator(m_entries.begin()); }
    iterator end() { return iterator(m_entries.end()); }
    const_iterator begin() const { return constBegin(); }
    const_iterator end() const { return constEnd(); }
    const_iterator cbegin() const { return constBegin(); }
    const_iterator cend() const { return constEnd(); }
    const_iterator constBegin() const { return const_iterator(m_entries.cbegin()); }
    const_iterator constEnd() const { return const_iterator(m_entries.cend()); }

private:
    Entries m_entries;
    QHash<QString, qsizetype> m_index;
};
