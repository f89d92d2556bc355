#include "NvxQtCommon/transfer/FtpLineSplitter.h"

std::optional<FtpLineSplitter::Line> FtpLineSplitter::next(QByteArrayView& input)
{
    if (m_isPartGiven)
        clear();
    const qsizetype end = input.indexOf('\n');
    const bool isWhole = end >= 0;
    const QByteArrayView piece = isWhole ? input.first(end + 1) : input;
    input = input.sliced(piece.size());
    if (piece.size() > m_maxLine - m_part.size()) {
        m_isTooLong = true;
        m_part.clear();
    }
    if (!isWhole) {
        if (!m_isTooLong)
            m_part.append(piece);
        return {};
    }
    m_isPartGiven = true;
    if (m_isTooLong)
        return Line{{}, true};
    if (m_part.isEmpty())
        return Line{piece};
    m_part.append(piece);
    return Line{m_part};
}

void FtpLineSplitter::clear()
{
    m_part.clear();
    m_isTooLong = false;
    m_isPartGiven = false;
}

QString FtpLineSplitter::textOf(QByteArrayView line)
{
    if (line.endsWith('\n'))
        line.chop(1);
    if (line.endsWith('\r'))
        line.chop(1);
    return line.isValidUtf8() ? QString::fromUtf8(line) : QString::fromLatin1(line);
}
