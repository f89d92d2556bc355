#include "fetch-recordings/FetchReport.h"

#include <QTextStream>

namespace {

constexpr int kReportMs = 1000;

void say(const QString& line)
{
    QTextStream(stdout) << line << Qt::endl;
}

QString part(qint64 done, qint64 size)
{
    const auto percent =
        size > 0 ? static_cast<int>(100.0 * static_cast<double>(done) / static_cast<double>(size)) : 0;
    return QStringLiteral("%1 % of %2 bytes").arg(percent).arg(size);
}

/// One line, whatever a server said.
QString oneLine(QString text)
{
    for (QChar& c : text) {
        if (!c.isPrint())
            c = u' ';
    }
    return text;
}

} // namespace

FetchReport::FetchReport(const NvxFetchSession& session) : m_session(session)
{
    connect(&session, &NvxFetchSession::hostListed, this, [](const QString& host, int count) {
        say(QStringLiteral("%1 has %2 recordings").arg(host).arg(count));
    });
    connect(&session, &NvxFetchSession::hostRetried, this, [](const QString& host, const QString& error) {
        say(QStringLiteral("%1 is asked once more: %2").arg(host, oneLine(error)));
    });
    connect(&session, &NvxFetchSession::hostFailed, this, [](const QString& host, const QString& error) {
        say(QStringLiteral("%1 can't be listed: %2").arg(host, oneLine(error)));
    });
    connect(&session, &NvxFetchSession::fileProgress, this,
            [this](const QString& host, const QString& name, qint64 done, qint64 size) {
                m_lines[host + name] =
                    QStringLiteral("  %1 %2: %3").arg(host, oneLine(name), part(done, size));
            });
    connect(&session, &NvxFetchSession::fileRetried, this,
            [this](const QString& host, const QString& name, const QString& error) {
                m_lines.remove(host + name);
                say(QStringLiteral("%1 %2 once more: %3").arg(host, oneLine(name), oneLine(error)));
            });
    connect(&session, &NvxFetchSession::fileFinished, this, &FetchReport::showResult);
    connect(&session, &NvxFetchSession::finished, this, &FetchReport::showSummary);
    connect(&m_timer, &QTimer::timeout, this, &FetchReport::showProgress);
    m_timer.start(kReportMs);
}

void FetchReport::showProgress() const
{
    if (m_session.isPaused())
        return;
    for (const QString& line : m_lines)
        say(line);
    if (m_session.bytesInAll() > 0)
        say(QStringLiteral("in all %1").arg(part(m_session.bytesDone(), m_session.bytesInAll())));
}

void FetchReport::showResult(const NvxFetchResult& result)
{
    m_lines.remove(result.host + result.name);
    const QString file = result.host + u' ' + oneLine(result.name);
    if (result.outcome == NvxFetchResult::Fetched) {
        say(QStringLiteral("%1 fetched, %2 bytes").arg(file).arg(result.size));
        return;
    }
    const bool isCancelled = result.outcome == NvxFetchResult::Cancelled;
    m_failures << file + (isCancelled ? QStringLiteral(" cancelled")
                                      : QStringLiteral(" failed: ") + oneLine(result.error));
}

void FetchReport::showSummary(const NvxFetchSummary& summary)
{
    m_timer.stop();
    m_summary = summary;
    for (const QString& failure : std::as_const(m_failures))
        say(failure);
    for (const QString& host : summary.failedHosts)
        say(QStringLiteral("not listed: ") + oneLine(host));
    say(QStringLiteral("%1 files fetched (%2 bytes), %3 failed, %4 cancelled, %5 recorders not listed")
            .arg(summary.fetched)
            .arg(summary.bytes)
            .arg(summary.failed)
            .arg(summary.cancelled)
            .arg(summary.failedHosts.size()));
}
