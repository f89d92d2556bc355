#include "NvxQtCommon/transfer/CFtpProc.h"

#include <QDebug>
#include <QFile>
#include <QHostAddress>
#include <QSaveFile>
#include <QStringDecoder>

#include <algorithm>
#include <curl/curl.h>
#include <memory>
#include <mutex>

namespace {

constexpr long kFtpPort = 21;
constexpr long kTransferBufferBytes = 512 * 1024;
constexpr const char* kBoundFormat = "yyyyMMdd_hhmmss";
constexpr const char* kEasyInitFailed = "curl_easy_init() failed";
constexpr const char* kConnectFailed = "Failed to connect to FTP device: ";
constexpr const char* kWorkFailed = "Failed to work with the FTP device: ";
constexpr const char* kPerformFailed = "curl_easy_perform() failed: %1\n";

/// Keeps libcurl set up while one is alive, in any thread.
class CurlGlobal
{
public:
    CurlGlobal()
    {
        const std::lock_guard lock(s_mutex);
        if (s_count++ == 0)
            curl_global_init(CURL_GLOBAL_DEFAULT);
    }
    ~CurlGlobal()
    {
        const std::lock_guard lock(s_mutex);
        if (--s_count == 0)
            curl_global_cleanup();
    }
    CurlGlobal(const CurlGlobal&) = delete;
    CurlGlobal& operator=(const CurlGlobal&) = delete;

private:
    static inline std::mutex s_mutex;
    static inline int s_count = 0;
};

/// The handle of one transfer. A handle is never used again: libcurl 7.88 can stall where one control
/// connection serves file after file.
class CurlTransfer
{
public:
    CurlTransfer() : m_curl(curl_easy_init()) {}
    ~CurlTransfer()
    {
        if (m_curl != nullptr)
            curl_easy_cleanup(m_curl);
    }
    CurlTransfer(const CurlTransfer&) = delete;
    CurlTransfer& operator=(const CurlTransfer&) = delete;

    bool isNull() const { return m_curl == nullptr; }
    CURL* get() const { return m_curl; }

private:
    CurlGlobal m_global;
    CURL* m_curl;
};

struct CurlListDeleter
{
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using CurlList = std::unique_ptr<curl_slist, CurlListDeleter>;

CurlList curlList(const QStringList& texts)
{
    CurlList list;
    for (const QString& text : texts)
        list.reset(curl_slist_append(list.release(), text.toUtf8().constData()));
    return list;
}

bool hasControlCharacter(const std::string& text)
{
    return std::ranges::any_of(text, [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7F;
    });
}

/// Ends a transfer that has brought more than `limit`, a qint64 above 0.
int endBeyond(void* limit, curl_off_t /*total*/, curl_off_t done, curl_off_t /*toSend*/, curl_off_t /*sent*/)
{
    return done > *static_cast<const qint64*>(limit) ? 1 : 0;
}

QString curlText(int result)
{
    return QString::fromUtf8(curl_easy_strerror(static_cast<CURLcode>(result)));
}

/// How a host stands in a URL; empty for what is no host.
std::string hostInUrl(const QString& address)
{
    if (QHostAddress ip; ip.setAddress(address) && ip.protocol() == QAbstractSocket::IPv6Protocol)
        return '[' + ip.toString().replace(u'%', QLatin1String("%25")).toStdString() + ']';
    const std::string host = address.toStdString();
    const auto isHostCharacter = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' ||
               c == '-' || c == '_';
    };
    return std::ranges::all_of(host, isHostCharacter) ? host : std::string();
}

/// A path of a file, not of a directory.
bool isFilePath(const std::string& path)
{
    return !path.empty() && !path.ends_with('/');
}

/// A name that a file may be opened by.
bool isLocalPath(const std::string& path)
{
    return !path.empty() && path.find('\0') == std::string::npos;
}

std::string withSlash(std::string path)
{
    if (!path.ends_with('/'))
        path += '/';
    return path;
}

QString lineText(const QByteArray& line)
{
    QStringDecoder decoder(QStringDecoder::Utf8);
    const QString text = decoder(line);
    return decoder.hasError() ? QString::fromLatin1(line) : text;
}

} // namespace

CFtpProc::CFtpProc(QObject* parent) : QObject(parent)
{
    registerNvxMetaTypes();
}

void CFtpProc::setUser(const QString& user, const QString& password)
{
    m_user = user;
    m_password = password;
}

void CFtpProc::setTimeouts(std::chrono::seconds connect, std::chrono::seconds silence)
{
    m_connectTimeout = std::max(connect, std::chrono::seconds(1));
    m_silenceTimeout = std::max(silence, std::chrono::seconds(1));
}

void CFtpProc::setDTBegin(const QDateTime& begin)
{
    m_begin = begin;
    m_lowerBound = begin.toUTC().toString(QLatin1String(kBoundFormat));
}

void CFtpProc::setDTEnd(const QDateTime& end)
{
    m_end = end;
    m_upperBound = end.toUTC().toString(QLatin1String(kBoundFormat));
}

void CFtpProc::initConnect(void* curl, const std::string& path) const
{
    const std::string login =
        m_user.isEmpty() ? std::string("anonymous:anonymous@") : (m_user + u':' + m_password).toStdString();
    const auto silence = static_cast<long>(m_silenceTimeout.count());
    curl_easy_setopt(curl, CURLOPT_URL, url(path).c_str());
    curl_easy_setopt(curl, CURLOPT_PORT, kFtpPort);
    curl_easy_setopt(curl, CURLOPT_USERPWD, login.c_str());
    // Intended: also in an application that has nobody to read it.
    curl_easy_setopt(curl, CURLOPT_VERBOSE, 1L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    // Devices are reached on their own network, whatever the environment says of proxies.
    curl_easy_setopt(curl, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(curl, CURLOPT_PATH_AS_IS, 1L);
    curl_easy_setopt(curl, CURLOPT_BUFFERSIZE, kTransferBufferBytes);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, static_cast<long>(m_connectTimeout.count()));
    curl_easy_setopt(curl, CURLOPT_FTP_RESPONSE_TIMEOUT, silence);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, silence);
}

std::string CFtpProc::url(const std::string& path) const
{
    const QByteArray encoded = QByteArray::fromStdString(path).toPercentEncoding("/");
    return "ftp://" + hostInUrl(m_ipAddr) + (path.starts_with('/') ? "" : "/") + encoded.toStdString();
}

bool CFtpProc::isSafe(const std::string& path) const
{
    return !hostInUrl(m_ipAddr).empty() && !hasControlCharacter(path) && !m_user.contains(u':') &&
           !hasControlCharacter((m_user + m_password + m_uploadCommands.join(QString())).toStdString());
}

size_t CFtpProc::ftpFWrite(void* buffer, size_t size, size_t count, void* stream)
{
    const qint64 written = static_cast<QIODevice*>(stream)->write(static_cast<const char*>(buffer),
                                                                  static_cast<qint64>(size * count));
    return written < 0 ? 0 : static_cast<size_t>(written);
}

size_t CFtpProc::read_callback(char* buffer, size_t size, size_t count, void* stream)
{
    const qint64 bytes = static_cast<QIODevice*>(stream)->read(buffer, static_cast<qint64>(size * count));
    if (bytes < 0)
        return CURL_READFUNC_ABORT;
    qDebug("*** We read %llu bytes from file\n", static_cast<unsigned long long>(bytes));
    return static_cast<size_t>(bytes);
}

size_t CFtpProc::WriteInStringCallback(void* buffer, size_t size, size_t count, void* text)
{
    auto& target = *static_cast<std::string*>(text);
    const size_t bytes = size * count;
    if (bytes > kMaxListingBytes - target.size())
        return 0;
    target.append(static_cast<const char*>(buffer), bytes);
    return bytes;
}

bool CFtpProc::openLocal(QFileDevice& file, const std::string& local, QIODevice::OpenMode mode)
{
    if (isLocalPath(local) && file.open(mode | QIODevice::Unbuffered))
        return true;
    Q_EMIT signalError(
        QStringLiteral("Couldn't open '%1': %2\n").arg(QString::fromStdString(local), file.errorString()));
    return false;
}

template <typename Use> std::optional<int> CFtpProc::perform(const std::string& path, Use use)
{
    const CurlTransfer transfer;
    if (transfer.isNull()) {
        Q_EMIT signalError(QString::fromLatin1(kEasyInitFailed));
        return std::nullopt;
    }
    initConnect(transfer.get(), path);
    return use(transfer.get());
}

bool CFtpProc::upLoadFile(const std::string& local, const std::string& remote)
{
    const auto fail = [this](int result) {
        Q_EMIT signalError(QString::fromLatin1(kPerformFailed).arg(curlText(result)));
        return false;
    };
    if (!isFilePath(remote) || !isSafe(remote))
        return fail(CURLE_URL_MALFORMAT);
    QFile file(QString::fromStdString(local));
    if (!openLocal(file, local, QIODevice::ReadOnly))
        return false;
    const CurlList commands = curlList(m_uploadCommands);
    const auto result = perform(remote, [&](CURL* curl) {
        curl_easy_setopt(curl, CURLOPT_READFUNCTION, &CFtpProc::read_callback);
        curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
        curl_easy_setopt(curl, CURLOPT_URL, url(remote).c_str());
        curl_easy_setopt(curl, CURLOPT_POSTQUOTE, commands.get());
        curl_easy_setopt(curl, CURLOPT_READDATA, static_cast<void*>(static_cast<QIODevice*>(&file)));
        curl_easy_setopt(curl, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(file.size()));
        return curl_easy_perform(curl);
    });
    return result && (*result == CURLE_OK || fail(*result));
}

bool CFtpProc::downLoadFile(const std::string& remote, const std::string& local)
{
    const auto fail = [this](int result) {
        Q_EMIT signalError(QString::fromLatin1(kWorkFailed) + curlText(result));
        return false;
    };
    if (!isFilePath(remote) || !isSafe(remote))
        return fail(CURLE_URL_MALFORMAT);
    QSaveFile file(QString::fromStdString(local));
    if (!openLocal(file, local, QIODevice::WriteOnly))
        return false;
    qint64 limit = m_downLoadLimit;
    auto result = perform(remote, [&](CURL* curl) {
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &CFtpProc::ftpFWrite);
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, static_cast<void*>(static_cast<QIODevice*>(&file)));
        if (limit > 0) {
            curl_easy_setopt(curl, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(limit));
            // For servers that don't tell the size.
            curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, &endBeyond);
            curl_easy_setopt(curl, CURLOPT_XFERINFODATA, static_cast<void*>(&limit));
            curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
        }
        return curl_easy_perform(curl);
    });
    if (!result)
        return false;
    if (*result == CURLE_ABORTED_BY_CALLBACK)
        result = CURLE_FILESIZE_EXCEEDED;
    qDebug("curl told us %d\n", *result);
    if (*result != CURLE_OK)
        return fail(*result);
    return file.commit() || fail(CURLE_WRITE_ERROR);
}

bool CFtpProc::upLoad(const std::string& local, const std::string& remote)
{
    const bool succeed = upLoadFile(local, remote);
    Q_EMIT signalLoadingFinished(succeed, QString::fromStdString(local));
    return succeed;
}

bool CFtpProc::downLoad(const std::string& remote, const std::string& local)
{
    const bool succeed = downLoadFile(remote, local);
    Q_EMIT signalLoadingFinished(succeed, QString::fromStdString(local));
    return succeed;
}

template <typename Load> bool CFtpProc::loadAll(Load load)
{
    const QLatin1String separator(kListSeparator);
    bool all = true;
    // A slot may set another list.
    const QList<QString> list = m_downLoadList;
    for (const QString& entry : list) {
        const qsizetype at = entry.indexOf(separator);
        const std::string from = entry.left(at).toStdString();
        const std::string to = at < 0 ? std::string() : entry.mid(at + separator.size()).toStdString();
        all &= load(from, to);
    }
    return all;
}

bool CFtpProc::upLoad()
{
    return loadAll(
        [this](const std::string& local, const std::string& remote) { return upLoad(local, remote); });
}

bool CFtpProc::downLoad()
{
    return loadAll(
        [this](const std::string& remote, const std::string& local) { return downLoad(remote, local); });
}

bool CFtpProc::reportConnection(int result)
{
    if (result != CURLE_OK) {
        Q_EMIT signalError(QString::fromLatin1(kConnectFailed) + curlText(result));
        return false;
    }
    qDebug("Connected to FTP server successfully.");
    return true;
}

bool CFtpProc::askForSize(const std::string& path)
{
    if (!isFilePath(path) || !isSafe(path))
        return reportConnection(CURLE_URL_MALFORMAT);
    std::string header;
    curl_off_t bytes = -1;
    const auto result = perform(path, [&](CURL* curl) {
        curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
        curl_easy_setopt(curl, CURLOPT_HEADER, 1L);
        // Without them the header would go to standard output.
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &CFtpProc::WriteInStringCallback);
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, static_cast<void*>(&header));
        const CURLcode code = curl_easy_perform(curl);
        if (curl_easy_getinfo(curl, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &bytes) != CURLE_OK)
            bytes = -1;
        return code;
    });
    return result && reportConnection(*result) && bytes >= 0;
}

bool CFtpProc::fileExists(const std::string& path, int ind)
{
    const bool exists = askForSize(path);
    Q_EMIT signalFileExists(exists, path, m_ipAddr, ind);
    return exists;
}

bool CFtpProc::fileZCRExists(const QString& id, const QDateTime& time)
{
    // Intended: the files of an array begin with the minute.
    const QString name = QLatin1String("TMW") + id + u'_' + time.toString(QStringLiteral("yyyyMMdd_hhmm00")) +
                         QLatin1String(".wav");
    const QString day = time.toString(QStringLiteral("yyyyMMdd"));
    const auto hit = std::ranges::find_if(m_dirList, [&](const QString& dir) { return dir.contains(day); });
    return hit != m_dirList.cend() && fileExists((m_basePath + u'/' + *hit + u'/' + name).toStdString());
}

bool CFtpProc::getList(const std::string& path, std::string& listing)
{
    listing.clear();
    if (!isSafe(path))
        return reportConnection(CURLE_URL_MALFORMAT);
    // What ends in a slash is listed, all else would be downloaded.
    const auto result = perform(withSlash(path), [&](CURL* curl) {
        curl_easy_setopt(curl, CURLOPT_UPLOAD, 0L);
        curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 2L);
        curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &CFtpProc::WriteInStringCallback);
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, static_cast<void*>(&listing));
        return curl_easy_perform(curl);
    });
    return result && reportConnection(*result);
}

bool CFtpProc::getListFTP(QList<QString>* files, QList<QString>* dirs, DEV_TYPE type)
{
    std::string listing;
    if (!getList(m_basePath.toStdString(), listing))
        return false;
    m_dirList.clear();
    parseList(listing, nullptr, &m_dirList, type);
    parseList(listing, files, dirs, type);
    Q_EMIT signalListReady(m_ipAddr, files, dirs);
    return true;
}

void CFtpProc::parseList(const std::string& listing, QList<QString>* files, QList<QString>* dirs,
                         DEV_TYPE type) const
{
    constexpr qsizetype kFewestFields = 6;
    size_t end = 0;
    for (size_t begin = 0; begin < listing.size(); begin = end + 1) {
        end = std::min(listing.find('\n', begin), listing.size());
        if (end - begin > static_cast<size_t>(kMaxLineBytes))
            continue;
        QString line = lineText(QByteArray(listing.data() + begin, static_cast<qsizetype>(end - begin)));
        if (line.endsWith(u'\r'))
            line.chop(1);
        const QStringList fields = line.split(u' ', Qt::SkipEmptyParts);
        if (fields.size() < kFewestFields)
            continue;
        const QString& name = fields.last();
        if (line.contains(QLatin1String("drwxr"))) {
            if (dirs != nullptr)
                dirs->append(name);
        } else if (files != nullptr && isInRange(name, fields, type)) {
            files->append(name);
        }
    }
}

bool CFtpProc::isInRange(const QString& name, const QStringList& fields, DEV_TYPE type) const
{
    if (type < DevArray) {
        const qsizetype from = name.indexOf(u'_') + 1;
        const qsizetype to = name.indexOf(u'.');
        const QString text = from > 0 && to > from ? name.mid(from, to - from) : QString();
        return !text.isEmpty() && text >= m_lowerBound && text <= m_upperBound;
    }
    // Permissions, links, owner, group and size stand ahead of the date; where one of them is missing, it is
    // counted from the name.
    const qsizetype month = fields.size() >= 9 ? 5 : fields.size() - 4;
    // Intended: the year is always the current one, and a day has two digits.
    const QString date = QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyy")) + u'-' +
                         fields[month] + u'-' + fields[month + 1];
    const QString time = fields[month + 2] + QLatin1String(":00");
    // Read apart, since a local time may be one that the clocks leave out.
    const QDateTime when(QDate::fromString(date, QStringLiteral("yyyy-MMM-dd")),
                         QTime::fromString(time, QStringLiteral("hh:mm:ss")), Qt::UTC);
    return when.isValid() && m_begin.isValid() && m_end.isValid() && when >= m_begin && when <= m_end;
}
