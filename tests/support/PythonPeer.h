#pragma once

#include "tests/support/Patience.h"
#include "tests/support/SourceFile.h"

#include <QProcess>
#include <QStringList>

/// A peer written in Python as a process of its own: it says "ready" and then a line for everything that
/// reaches it, takes commands as lines, and ends with this object. Lives on the thread that created it.
class PythonPeer
{
public:
    /// `script` is its file in tests/support.
    explicit PythonPeer(const QString& script) : m_script(script) {}
    PythonPeer(const PythonPeer&) = delete;
    PythonPeer& operator=(const PythonPeer&) = delete;
    ~PythonPeer()
    {
        m_process.closeWriteChannel();
        if (m_process.state() != QProcess::NotRunning && !m_process.waitForFinished(kPatienceMs)) {
            m_process.kill();
            m_process.waitForFinished();
        }
    }

    /// Starts it with these arguments, behind the words of `prefix` (another program that runs it), and waits
    /// until it listens. False with a text in errorText() when it doesn't.
    bool start(const QStringList& arguments, QStringList prefix = {})
    {
        prefix << QStringLiteral("/usr/bin/python3") << QStringLiteral("-B")
               << sourceFile(QStringLiteral("tests/support/") + m_script) << arguments;
        const QString program = prefix.takeFirst();
        m_process.start(program, prefix);
        return waitForLines(QStringLiteral("ready"), 1);
    }
    qint64 processId() const { return m_process.processId(); }
    QString errorText()
    {
        return m_process.errorString() + u' ' + QString::fromUtf8(m_process.readAllStandardError());
    }
    void kill()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

    void command(const QByteArray& line) { m_process.write(line + '\n'); }
    /// The words behind `first` of each line so far that begins with that word.
    QList<QStringList> lines(const QString& first)
    {
        while (m_process.canReadLine())
            m_lines << QString::fromUtf8(m_process.readLine()).trimmed().split(u' ');
        QList<QStringList> found;
        for (const QStringList& line : m_lines) {
            if (line.first() == first)
                found << line.mid(1);
        }
        return found;
    }
    bool waitForLines(const QString& first, qsizetype count, int timeoutMs = kPatienceMs)
    {
        return QTest::qWaitFor(
                   [&] { return lines(first).size() >= count || m_process.state() == QProcess::NotRunning; },
                   timeoutMs) &&
               lines(first).size() >= count;
    }

private:
    QString m_script;
    QProcess m_process;
    QList<QStringList> m_lines;
};
