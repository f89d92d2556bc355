#include "NvxQtCommon/transfer/FtpCommand.h"

#include <algorithm>

namespace {

QString ftpLine(const QString& word, const QString& argument = {})
{
    return word + argument + QStringLiteral("\r\n");
}

bool breaksLine(const QString& text)
{
    return std::any_of(text.begin(), text.end(),
                       [](QChar c) { return c == u'\r' || c == u'\n' || c.isNull(); });
}

} // namespace

QString FtpCommand::flaw() const
{
    if (std::any_of(arguments.begin(), arguments.end(), breaksLine))
        return QStringLiteral("Line break or NUL in an argument");
    const bool canReceive = kind != QFtp::Get || !hasDevice || (device != nullptr && device->isWritable());
    if (!canReceive)
        return QStringLiteral("The device isn't open for writing");
    const bool canSend = kind != QFtp::Put || (sender() != nullptr && sender()->isReadable());
    return canSend ? QString() : QStringLiteral("The device isn't open for reading");
}

QStringList FtpCommand::lines(QFtp::TransferMode currentMode, const QString& proxiedHost) const
{
    const QString first = arguments.value(0);
    const QString second = arguments.value(1);
    const QString typeLine =
        ftpLine(type == QFtp::Binary ? QStringLiteral("TYPE I") : QStringLiteral("TYPE A"));
    // The protocol interpreter puts the addresses in.
    const QString dataLine =
        ftpLine(currentMode == QFtp::Passive ? QStringLiteral("PASV") : QStringLiteral("PORT"));
    switch (kind) {
    case QFtp::Login: {
        QString user = first.isNull() ? QStringLiteral("anonymous") : first;
        if (!proxiedHost.isEmpty())
            user += u'@' + proxiedHost;
        return {ftpLine(QStringLiteral("USER "), user),
                ftpLine(QStringLiteral("PASS "), second.isNull() ? QStringLiteral("anonymous@") : second)};
    }
    case QFtp::Close:
        return {ftpLine(QStringLiteral("QUIT"))};
    case QFtp::List:
        return {ftpLine(QStringLiteral("TYPE A")), dataLine,
                first.isEmpty() ? ftpLine(QStringLiteral("LIST")) : ftpLine(QStringLiteral("LIST "), first)};
    case QFtp::Cd:
        return {ftpLine(QStringLiteral("CWD "), first)};
    case QFtp::Get:
        return {typeLine, ftpLine(QStringLiteral("SIZE "), first), dataLine,
                ftpLine(QStringLiteral("RETR "), first)};
    case QFtp::Put: {
        QStringList all = {typeLine, dataLine};
        if (QIODevice* source = sender(); source != nullptr && !source->isSequential())
            all << ftpLine(QStringLiteral("ALLO "), QString::number(source->size() - source->pos()));
        return all << ftpLine(QStringLiteral("STOR "), first);
    }
    case QFtp::Remove:
        return {ftpLine(QStringLiteral("DELE "), first)};
    case QFtp::Mkdir:
        return {ftpLine(QStringLiteral("MKD "), first)};
    case QFtp::Rmdir:
        return {ftpLine(QStringLiteral("RMD "), first)};
    case QFtp::Rename:
        return {ftpLine(QStringLiteral("RNFR "), first), ftpLine(QStringLiteral("RNTO "), second)};
    case QFtp::RawCommand:
        return {ftpLine(first)};
    default:
        return {};
    }
}

QString FtpCommand::framed(const QString& serverText) const
{
    const auto frame = [this]() -> QString {
        switch (kind) {
        case QFtp::ConnectToHost:
            return QStringLiteral("Connecting to host failed:\n%1");
        case QFtp::Login:
            return QStringLiteral("Login failed:\n%1");
        case QFtp::List:
            return QStringLiteral("Listing directory failed:\n%1");
        case QFtp::Cd:
            return QStringLiteral("Changing directory failed:\n%1");
        case QFtp::Get:
            return QStringLiteral("Downloading file failed:\n%1");
        case QFtp::Put:
            return QStringLiteral("Uploading file failed:\n%1");
        case QFtp::Remove:
            return QStringLiteral("Removing file failed:\n%1");
        case QFtp::Mkdir:
            return QStringLiteral("Creating directory failed:\n%1");
        case QFtp::Rmdir:
            return QStringLiteral("Removing directory failed:\n%1");
        default:
            return QStringLiteral("%1");
        }
    }();
    return frame.arg(serverText);
}
