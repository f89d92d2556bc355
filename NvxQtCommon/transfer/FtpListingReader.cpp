#include "NvxQtCommon/transfer/FtpListingReader.h"

#include "NvxQtCommon/transfer/FtpListingParser.h"

#include <utility>

namespace {

constexpr QByteArrayView kMissingDirectory = "No such file or directory\r\n";

} // namespace

void FtpListingReader::setTimeRange(const QDateTime& start, const QDateTime& end, bool all)
{
    m_start = start;
    m_end = end;
    m_isAll = all;
}

void FtpListingReader::write(QByteArrayView bytes)
{
    const FtpListingParser parser;
    while (const auto line = m_lines.next(bytes)) {
        if (!line->isTooLong)
            takeLine(line->bytes, parser);
    }
}

void FtpListingReader::takeLine(QByteArrayView line, const FtpListingParser& parser)
{
    const QString text = FtpLineSplitter::textOf(line);
    const auto info = parser.parse(text);
    if (info) {
        if (isWanted(*info))
            m_batch.append(*info);
    } else if (line.endsWith(kMissingDirectory)) {
        m_errorText = text;
    }
}

bool FtpListingReader::isWanted(const QUrlInfo& info) const
{
    const QString name = info.name();
    const auto endsIn = [&name](QStringView ending) { return name.endsWith(ending, Qt::CaseInsensitive); };
    if (!info.isDir() && !endsIn(u".wav") && !endsIn(u".txt"))
        return false;
    const QDateTime time = info.created();
    return m_isAll || (time.isValid() && time >= m_start && time <= m_end);
}

QList<QUrlInfo> FtpListingReader::takeBatch()
{
    return std::exchange(m_batch, {});
}

void FtpListingReader::clear()
{
    m_lines.clear();
    m_batch.clear();
    m_errorText.clear();
}
