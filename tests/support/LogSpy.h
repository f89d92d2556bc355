#pragma once

#include <QStringList>

#include <mutex>

/// Keeps what goes to Qt's log while it lives, from all threads, and passes it on to the handler that was
/// there. One at a time.
class LogSpy
{
public:
    LogSpy()
    {
        // A line of another thread waits until the handler to pass it on to is known.
        const std::lock_guard lock(s_mutex);
        s_current = this;
        m_previous = qInstallMessageHandler(&LogSpy::take);
    }
    ~LogSpy()
    {
        const std::lock_guard lock(s_mutex);
        qInstallMessageHandler(m_previous);
        s_current = nullptr;
    }
    LogSpy(const LogSpy&) = delete;
    LogSpy& operator=(const LogSpy&) = delete;

    QStringList lines() const
    {
        const std::lock_guard lock(s_mutex);
        return m_lines;
    }
    bool contains(const QString& line) const { return lines().contains(line); }
    qsizetype count(const QString& line) const { return lines().count(line); }
    void clear()
    {
        const std::lock_guard lock(s_mutex);
        m_lines.clear();
    }

private:
    static void take(QtMsgType type, const QMessageLogContext& context, const QString& message)
    {
        QtMessageHandler previous = nullptr;
        {
            const std::lock_guard lock(s_mutex);
            if (s_current != nullptr) {
                s_current->m_lines << message;
                previous = s_current->m_previous;
            }
        }
        if (previous != nullptr)
            previous(type, context, message);
    }

    static inline std::mutex s_mutex;
    static inline LogSpy* s_current = nullptr;
    QtMessageHandler m_previous = nullptr;
    QStringList m_lines;
};
