#pragma once

// Collects the debug stream while it lives, so tests can check the log lines the code writes.
// With `echo`, every message also goes on to the previous handler, i.e. into the test log.

#include <QMessageLogContext>
#include <QStringList>
#include <QtGlobal>

class LogCapture
{
public:
    explicit LogCapture(bool echo = false)
    {
        s_lines.clear();
        s_echo = echo;
        m_previous = qInstallMessageHandler(&LogCapture::handler);
        s_previous = m_previous;
    }
    ~LogCapture() { qInstallMessageHandler(m_previous); }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    void clear() { s_lines.clear(); }
    bool contains(const QString &text) const { return !matching(text).isEmpty(); }
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
    static void handler(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        s_lines << message;
        if (s_echo && s_previous)
            s_previous(type, context, message);
    }

    inline static QStringList s_lines;
    inline static bool s_echo = false;
    inline static QtMessageHandler s_previous = nullptr;
    QtMessageHandler m_previous = nullptr;
};
