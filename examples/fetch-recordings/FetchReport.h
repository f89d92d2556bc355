#pragma once

#include "NvxQtCommon/transfer/NvxFetchSession.h"

#include <QMap>
#include <QObject>
#include <QString>
#include <QTimer>

/// Says on standard output how a session goes: once a second a line for each file under way and one for all,
/// a line for each file that ends, and a summary. Lives on the session's thread, shorter than the session.
class FetchReport : public QObject
{
    Q_OBJECT

public:
    explicit FetchReport(const NvxFetchSession& session);

    const NvxFetchSummary& summary() const { return m_summary; }

private:
    void showProgress() const;
    void showResult(const NvxFetchResult& result);
    void showSummary(const NvxFetchSummary& summary);

    const NvxFetchSession& m_session;
    QTimer m_timer;
    /// Of each file under way.
    QMap<QString, QString> m_lines;
    QStringList m_failures;
    NvxFetchSummary m_summary;
};
