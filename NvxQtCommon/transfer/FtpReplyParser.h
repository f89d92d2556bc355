#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/transfer/FtpLineSplitter.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <optional>

/// One reply of a server.
struct FtpReply
{
    /// Three digits, 0 to 999.
    int code = 0;
    /// Without the code; the lines of a longer one are joined by "\n". At most FtpReplyParser::kMaxText
    /// bytes of what the server sent.
    QString text;
};

/// Finds replies in the bytes of a control connection: a line of three digits and text, or, where a hyphen
/// follows the digits, all up to the line with the same digits and a blank. A line in between replies that
/// doesn't begin with three digits is passed over. The same bytes in pieces of any size give the same
/// replies. A plain value of whoever holds it.
class NVXQTCOMMON_EXPORT FtpReplyParser
{
public:
    /// Bytes of the longest line, line end included.
    static constexpr qsizetype kMaxLine = 65536;
    /// Bytes of the longest reply, all lines and those passed over included.
    static constexpr qsizetype kMaxReply = 1048576;
    /// Bytes of a reply's text that are kept.
    static constexpr qsizetype kMaxText = 4096;

    /// Takes bytes off the front of `input` up to the end of a reply. Nothing once input is empty and no
    /// reply has ended, and nothing more once the input is broken.
    std::optional<FtpReply> next(QByteArrayView& input);

    /// A line or a reply was longer than its bound: no more replies come until clear().
    bool isBroken() const { return m_isBroken; }
    void clear();

private:
    std::optional<FtpReply> takeLine(QByteArrayView line);
    void keepText(QByteArrayView text);

    FtpLineSplitter m_lines{kMaxLine};
    QByteArray m_text;
    qsizetype m_size = 0; ///< bytes of the reply so far
    int m_openCode = -1;  ///< of the longer reply under way
    bool m_isBroken = false;
};
