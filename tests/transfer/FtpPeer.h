#pragma once

#include "tests/support/SourceFile.h"

#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>
#include <QTest>

/// A packaged FTP server (ftp_peer.py) on port 21 of an address of its own, in a process of its own that ends
/// with this object. Lives on the thread that created it.
class FtpPeer
{
public:
    ~FtpPeer() { stop(); }

    /// Serves `directory` and waits until it listens. `options` are those of ftp_peer.py. False with a text
    /// in errorText() when it doesn't.
    bool start(const QString& address, const QString& directory, const QStringList& options = {})
    {
        m_lines.clear();
        m_process.start(QStringLiteral("/usr/bin/python3"),
                        QStringList{QStringLiteral("-B"),
                                    sourceFile(QStringLiteral("tests/transfer/ftp_peer.py")), address,
                                    directory} +
                            options);
        return waitForLine(QStringLiteral("ready"));
    }
    void stop()
    {
        m_process.closeWriteChannel();
        if (m_process.state() != QProcess::NotRunning && !m_process.waitForFinished(5000)) {
            m_process.kill();
            m_process.waitForFinished();
        }
    }
    /// Bytes in a second for the downloads that follow, of a peer with a rate; 0 is as fast as it can.
    void setRate(int bytes) { m_process.write(QByteArray::number(bytes) + '\n'); }
    QString errorText()
    {
        return m_process.errorString() + u' ' + QString::fromUtf8(m_process.readAllStandardError());
    }

    /// What it has said so far: "ready", "open" and "gone" for each control connection, and "cmd " with each
    /// command line.
    QStringList lines()
    {
        while (m_process.canReadLine())
            m_lines << QString::fromUtf8(m_process.readLine()).chopped(1);
        return m_lines;
    }
    /// The command lines so far that begin with a word.
    QStringList commands(const QString& first = {})
    {
        QStringList found;
        for (const QString& line : lines()) {
            if (line.startsWith(QStringLiteral("cmd ") + first))
                found << line.mid(4);
        }
        return found;
    }
    bool waitForLine(const QString& line, qsizetype count = 1)
    {
        return QTest::qWaitFor(
                   [&] { return lines().count(line) >= count || m_process.state() == QProcess::NotRunning; },
                   20000) &&
               lines().count(line) >= count;
    }

private:
    QProcess m_process;
    QStringList m_lines;
};
