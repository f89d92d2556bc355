#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/transfer/FtpLineSplitter.h"
#include "NvxQtCommon/transfer/QUrlInfo.h"

#include <QByteArrayView>
#include <QDateTime>
#include <QList>
#include <QString>

class FtpListingParser;

/// Makes entries of the bytes of a listing, and keeps recordings ("*.wav", "*.txt") and directories that lie
/// in the time range. Lines of more than kMaxLine bytes and lines of no known form are left out, as is a last
/// line without an end. A plain value of whoever holds it.
class NVXQTCOMMON_EXPORT FtpListingReader
{
public:
    /// Bytes of the longest line, line end included.
    static constexpr qsizetype kMaxLine = 8192;

    /// Both ends belong to the range; with `all` there is none. Until this is called, all entries are taken.
    void setTimeRange(const QDateTime& start, const QDateTime& end, bool all);

    /// Takes the next bytes of the listing.
    void write(QByteArrayView bytes);
    /// The entries of the bytes since the last call.
    QList<QUrlInfo> takeBatch();
    /// The server's line about a directory that isn't there; empty where none came.
    QString errorText() const { return m_errorText; }
    /// Forgets all but the range.
    void clear();

private:
    void takeLine(QByteArrayView line, const FtpListingParser& parser);
    bool isWanted(const QUrlInfo& info) const;

    FtpLineSplitter m_lines{kMaxLine};
    QList<QUrlInfo> m_batch;
    QString m_errorText;
    QDateTime m_start;
    QDateTime m_end;
    bool m_isAll = true;
};
