#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <optional>

/// Cuts bytes that come in pieces of any size into lines, and holds at most one line of a stated length. A
/// plain value of whoever holds it.
class NVXQTCOMMON_EXPORT FtpLineSplitter
{
public:
    struct Line
    {
        /// With its line end. Valid until the next call, and no longer than the bytes that were handed in.
        QByteArrayView bytes;
        /// The line was longer than the limit and is left out; bytes is empty.
        bool isTooLong = false;
    };

    /// `maxLine` bytes is the longest line that is given, line end included.
    explicit FtpLineSplitter(qsizetype maxLine) : m_maxLine(maxLine) {}

    /// Takes bytes off the front of `input` up to the end of a line. Nothing once input is empty and no line
    /// has ended; the beginning of one is kept.
    std::optional<Line> next(QByteArrayView& input);

    /// Forgets the beginning of a line.
    void clear();

    /// The line without "\n" or "\r\n", as UTF-8, or as Latin-1 where it isn't valid UTF-8.
    static QString textOf(QByteArrayView line);

private:
    qsizetype m_maxLine;
    QByteArray m_part;
    bool m_isTooLong = false; ///< the rest of the line is thrown away
    bool m_isPartGiven = false;
};
