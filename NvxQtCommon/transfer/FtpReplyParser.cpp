#include "NvxQtCommon/transfer/FtpReplyParser.h"

#include <algorithm>

namespace {

constexpr qsizetype kDigits = 3;

/// -1 where the line doesn't begin with three digits.
int codeOf(QByteArrayView line)
{
    if (line.size() < kDigits ||
        !std::all_of(line.begin(), line.begin() + kDigits, [](char c) { return c >= '0' && c <= '9'; }))
        return -1;
    return (line[0] - '0') * 100 + (line[1] - '0') * 10 + (line[2] - '0');
}

QByteArrayView withoutEnd(QByteArrayView line)
{
    if (line.endsWith('\n'))
        line.chop(1);
    if (line.endsWith('\r'))
        line.chop(1);
    return line;
}

} // namespace

std::optional<FtpReply> FtpReplyParser::next(QByteArrayView& input)
{
    while (!input.isEmpty() && !m_isBroken) {
        const qsizetype before = input.size();
        const auto line = m_lines.next(input);
        m_size += before - input.size();
        m_isBroken = m_size > kMaxReply || (line && line->isTooLong);
        if (!line || m_isBroken)
            continue;
        if (const auto reply = takeLine(withoutEnd(line->bytes))) {
            m_size = 0;
            return reply;
        }
    }
    return {};
}

std::optional<FtpReply> FtpReplyParser::takeLine(QByteArrayView line)
{
    const int code = codeOf(line);
    const char mark = line.size() > kDigits ? line[kDigits] : ' ';
    if (m_openCode < 0) {
        if (code < 0)
            return {};
        m_text.clear();
        if (mark == '-')
            m_openCode = code;
        keepText(line.sliced(mark == ' ' || mark == '-' ? std::min(line.size(), kDigits + 1) : kDigits));
    } else {
        const bool hasCode = code == m_openCode && (mark == ' ' || mark == '-');
        keepText("\n");
        keepText(hasCode ? line.sliced(std::min(line.size(), kDigits + 1)) : line);
        if (hasCode && mark == ' ')
            m_openCode = -1;
    }
    if (m_openCode >= 0)
        return {};
    // A letter that the bound cut in two would make all of it look like Latin-1.
    for (int cut = 0; cut < 3 && m_text.size() + cut == kMaxText && !m_text.isValidUtf8(); ++cut)
        m_text.chop(1);
    return FtpReply{code, FtpLineSplitter::textOf(m_text)};
}

void FtpReplyParser::keepText(QByteArrayView text)
{
    m_text.append(text.first(std::min(text.size(), kMaxText - m_text.size())));
}

void FtpReplyParser::clear()
{
    *this = FtpReplyParser();
}
