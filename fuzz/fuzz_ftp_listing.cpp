// Listings of an FTP server: the same bytes in pieces of any size give the same entries, each with what its
// line says, and an entry in a range lies in it.

#include "FuzzTarget.h"

#include "NvxQtCommon/transfer/FtpListingReader.h"

namespace {

QList<QUrlInfo> entriesOf(FtpListingReader& reader, QByteArrayView bytes, qsizetype piece)
{
    QList<QUrlInfo> entries;
    for (qsizetype at = 0; at < bytes.size(); at += piece) {
        reader.write(bytes.sliced(at, std::min(piece, bytes.size() - at)));
        entries += reader.takeBatch();
    }
    return entries;
}

void checkEntry(const QUrlInfo& info)
{
    const QString name = info.name();
    require(info.isValid() && !name.isEmpty() && !name.contains(u'\n'), "an entry has a name of one line");
    require(info.isDir() || name.endsWith(u".wav", Qt::CaseInsensitive) ||
                name.endsWith(u".txt", Qt::CaseInsensitive),
            "an entry is a recording or a directory");
    require(int(info.isDir()) + int(info.isFile()) + int(info.isSymLink()) == 1, "an entry is of one kind");
    require(info.size() >= 0, "a size isn't negative");
    require(info.permissions() >= 0 && info.permissions() <= 0777, "permissions are nine bits");
    require(!info.lastModified().isValid() || info.lastModified().timeSpec() == Qt::UTC, "times are UTC");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArrayView bytes(data, static_cast<qsizetype>(size));
    FtpListingReader reader;
    const QList<QUrlInfo> whole = entriesOf(reader, bytes, std::max<qsizetype>(bytes.size(), 1));
    for (const QUrlInfo& info : whole)
        checkEntry(info);
    for (const qsizetype piece : {1, 11}) {
        FtpListingReader inPieces;
        require(entriesOf(inPieces, bytes, piece) == whole, "pieces give the same entries");
        require(inPieces.errorText() == reader.errorText(), "pieces give the same error");
    }
    const QDateTime start(QDate(2020, 1, 1), QTime(0, 0), Qt::UTC);
    const QDateTime end(QDate(2021, 12, 31), QTime(0, 0), Qt::UTC);
    FtpListingReader ranged;
    ranged.setTimeRange(start, end, false);
    for (const QUrlInfo& info : entriesOf(ranged, bytes, std::max<qsizetype>(bytes.size(), 1)))
        require(info.created() >= start && info.created() <= end, "an entry lies in the range");
    return 0;
}
