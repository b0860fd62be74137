#pragma once

// Collects the debug stream while it lives, so tests can check the specified log lines.

#include <QMessageLogContext>
#include <QStringList>
#include <QtGlobal>

class LogCapture
{
public:
    LogCapture() { s_lines.clear(); m_previous = qInstallMessageHandler(&LogCapture::handler); }
    ~LogCapture() { qInstallMessageHandler(m_previous); }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    QStringList lines() const { return s_lines; }
    void clear() { s_lines.clear(); }
    bool contains(const QString &text) const
    {
        for (const QString &line : s_lines) {
            if (line.contains(text))
                return true;
        }
        return false;
    }
    QStringList matching(const QString &text) const
    {
        QStringList found;
        for (const QString &line : s_lines) {
            if (line.contains(text))
                found << line;
        }
        return found;
    }

private:
    static void handler(QtMsgType, const QMessageLogContext &, const QString &message) { s_lines << message; }

    inline static QStringList s_lines;
    QtMessageHandler m_previous = nullptr;
};
