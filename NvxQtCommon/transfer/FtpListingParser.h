#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/transfer/QUrlInfo.h"

#include <QDateTime>
#include <QStringView>

#include <optional>

/// Makes a directory entry of one line of a listing: a Unix line, or else an MS-DOS line. A plain value of
/// whoever holds it. Takes time in proportion to the line.
///
/// Times are UTC. The name of a recording ("ABC1234_20210304_050607.wav") overrules created(). A Unix line
/// whose date can't be read leaves lastModified() and created() invalid, as does an MS-DOS one.
/// isReadable(), isWritable() and isExecutable() are set where anybody at all has the right; an MS-DOS line
/// tells no rights, so its entry counts as readable and writable, with permissions() 0.
class NVXQTCOMMON_EXPORT FtpListingParser
{
public:
    /// `now` is the time that dates without a year are judged by.
    explicit FtpListingParser(const QDateTime& now = QDateTime::currentDateTimeUtc());

    /// `line` without its line end. Nothing where it is of neither form.
    std::optional<QUrlInfo> parse(QStringView line) const;

    /// A Unix line's date ("Feb 29 12:34", "Mar  4  2021"); invalid where it is none.
    QDateTime unixTime(QStringView text) const;
    /// An MS-DOS line's date ("03-04-21  05:06AM"); a year below 1971 gets 100 added. Invalid where it is
    /// none.
    static QDateTime dosTime(QStringView text);
    /// The time in a recording's name; invalid where there is none.
    static QDateTime recordingTime(QStringView name);

private:
    std::optional<QUrlInfo> parseUnix(QStringView line) const;
    static std::optional<QUrlInfo> parseDos(QStringView line);

    QDateTime m_now;
};
