#pragma once

#include <QProcess>
#include <QStringList>
#include <QTest>

/// The recorder written in Python (peer_device.py) as a process of its own. It ends with this object. Lives
/// on the thread that created it.
class PeerDevice
{
public:
    ~PeerDevice()
    {
        m_process.closeWriteChannel();
        if (m_process.state() != QProcess::NotRunning && !m_process.waitForFinished(5000)) {
            m_process.kill();
            m_process.waitForFinished();
        }
    }

    /// Starts it with these arguments, behind the words of `prefix` (another program that runs it), and waits
    /// until it listens. False with a text in errorText() when it doesn't.
    bool start(const QStringList& arguments, QStringList prefix = {})
    {
        prefix << QStringLiteral("/usr/bin/python3") << QStringLiteral("-B")
               << QStringLiteral(NVX_SOURCE_DIR "/tests/support/peer_device.py") << arguments;
        const QString program = prefix.takeFirst();
        m_process.start(program, prefix);
        return waitForLines(QStringLiteral("ready"), 1);
    }
    qint64 processId() const { return m_process.processId(); }
    QString errorText()
    {
        return m_process.errorString() + u' ' + QString::fromUtf8(m_process.readAllStandardError());
    }

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
    bool waitForLines(const QString& first, qsizetype count, int timeoutMs = 10000)
    {
        return QTest::qWaitFor(
                   [&] { return lines(first).size() >= count || m_process.state() == QProcess::NotRunning; },
                   timeoutMs) &&
               lines(first).size() >= count;
    }
    /// Port of the wave stream.
    quint16 wavePort()
    {
        const QList<QStringList> found = lines(QStringLiteral("wave-port"));
        return found.isEmpty() ? quint16(0) : found.first().value(0).toUShort();
    }

private:
    QProcess m_process;
    QList<QStringList> m_lines;
};
