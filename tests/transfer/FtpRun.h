#pragma once

#include "NvxQtCommon/transfer/QFtp.h"

#include <QBuffer>
#include <QEventLoop>
#include <QMap>
#include <QStringList>
#include <QTimer>

/// Queues commands of a client by their words ("connect", "login", "list", "get", "read" for a get without a
/// device, "put", "cd", "remove", "mkdir", "rmdir", "rename", "raw TEXT", "active", "close"), and keeps what
/// came of them. Lives on the thread of the client.
class FtpRun : public QObject
{
    Q_OBJECT

public:
    FtpRun(QFtp& ftp, const QString& host, quint16 port) : m_ftp(ftp), m_host(host), m_port(port)
    {
        m_device.open(QIODevice::WriteOnly);
        connect(&ftp, &QFtp::commandStarted, this, [this](int id) { started << m_words.value(id); });
        connect(&ftp, &QFtp::commandFinished, this, [this](int id, bool error) {
            finished << m_words.value(id) + (error ? QStringLiteral("!") : QString());
        });
        connect(&ftp, &QFtp::done, this, [this](bool error) {
            ++doneCount;
            doneError = error;
            errorText = m_ftp.errorString();
        });
        connect(&ftp, &QFtp::stateChanged, this, [this](int state) { states << state; });
        connect(&ftp, &QFtp::listInfoS, this, [this](const QList<QUrlInfo>& batch) {
            hasEmptyBatch |= batch.isEmpty();
            if (!batch.isEmpty())
                lastEntry = batch.last();
            entryCount += batch.size();
            for (const QUrlInfo& info : batch.first(qMin<qsizetype>(batch.size(), 10)))
                entries << info.name();
        });
        connect(&ftp, &QFtp::readyRead, this, [this] {
            hasEmptyRead |= m_ftp.bytesAvailable() == 0;
            m_read += m_ftp.readAll();
        });
        connect(&ftp, &QFtp::rawCommandReply, this,
                [this](int code, const QString& text) { replies << QString::number(code) + u' ' + text; });
        connect(&ftp, &QFtp::dataTransferProgress, this,
                [this](qlonglong done, qlonglong total) { progress << std::pair(done, total); });
    }

    void queue(const QString& words)
    {
        for (const QString& word : words.split(u' ', Qt::SkipEmptyParts))
            m_words[queueOne(word)] = word;
    }
    int queueOne(const QString& word)
    {
        if (word == u"connect")
            return m_ftp.connectToHost(m_host, m_port);
        if (word == u"login")
            return m_ftp.login();
        if (word == u"list")
            return m_ftp.list(QStringLiteral("Data"));
        if (word == u"get")
            return m_ftp.get(QStringLiteral("a.wav"), &m_device);
        if (word == u"read")
            return m_ftp.get(QStringLiteral("a.wav"));
        if (word == u"put")
            return m_ftp.put(toPut, QStringLiteral("b.wav"));
        if (word == u"cd")
            return m_ftp.cd(QStringLiteral("Data"));
        if (word == u"remove")
            return m_ftp.remove(QStringLiteral("a.wav"));
        if (word == u"mkdir")
            return m_ftp.mkdir(QStringLiteral("New"));
        if (word == u"rmdir")
            return m_ftp.rmdir(QStringLiteral("New"));
        if (word == u"rename")
            return m_ftp.rename(QStringLiteral("a"), QStringLiteral("b"));
        if (word == u"active")
            return m_ftp.setTransferMode(QFtp::Active);
        if (word == u"passive")
            return m_ftp.setTransferMode(QFtp::Passive);
        if (word == u"close")
            return m_ftp.close();
        if (word.startsWith(u"raw:"))
            return m_ftp.rawCommand(word.mid(4).replace(u'_', u' '));
        qFatal("no such word");
    }
    bool waitForDone(int count = 1, int milliseconds = 30000)
    {
        // An event loop of its own: QTest's waiting sleeps in between, and here both ends take turns.
        QEventLoop loop;
        connect(&m_ftp, &QFtp::done, &loop, [this, count, &loop] {
            if (doneCount >= count)
                loop.quit();
        });
        QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
        if (doneCount < count)
            loop.exec();
        return doneCount >= count;
    }
    /// Runs these words to their end.
    bool run(const QString& words)
    {
        const int count = doneCount + 1;
        queue(words);
        return waitForDone(count);
    }
    QByteArray received() const { return m_device.data() + m_read; }
    /// The word of each command with "!" for one that failed.
    QString outcome() const { return finished.join(u' '); }

    QByteArray toPut = "abcdefghij";
    QStringList started;
    QStringList finished;
    QStringList entries; ///< the first ten of each batch
    QUrlInfo lastEntry;
    qsizetype entryCount = 0;
    QStringList replies;
    QList<int> states;
    QList<std::pair<qlonglong, qlonglong>> progress;
    QString errorText;
    int doneCount = 0;
    bool doneError = false;
    bool hasEmptyRead = false;
    bool hasEmptyBatch = false;

private:
    QFtp& m_ftp;
    QString m_host;
    quint16 m_port;
    QMap<int, QString> m_words;
    QBuffer m_device;
    QByteArray m_read;
};
