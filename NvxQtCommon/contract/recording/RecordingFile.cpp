#include "NvxQtCommon/contract/recording/RecordingFile.h"

#include "NvxQtCommon/contract/base/Utf8.h"

#include <cerrno>
#include <system_error>

namespace {

constexpr int kMaxSameName = 10000;
constexpr size_t kGatherSize = size_t{64} * 1024;
// From here on a system call costs less than one more copy.
constexpr size_t kDirectSize = size_t{16} * 1024;

/// Null with errno EEXIST when the file exists.
std::FILE* openExclusively(const std::wstring& path)
{
#ifdef _WIN32
    return _wfopen(path.c_str(), L"wbx");
#else
    return std::fopen(toUtf8(path).c_str(), "wbx");
#endif
}

bool saysDiskFull(int error)
{
#ifdef EDQUOT
    if (error == EDQUOT)
        return true;
#endif
    // A limit on the size of a file is, to whoever records, a disk that takes no more.
    return error == ENOSPC || error == EFBIG;
}

RecordingFile::Failure failureOf(int error)
{
    return saysDiskFull(error) ? RecordingFile::Failure::DiskFull : RecordingFile::Failure::WriteFailed;
}

bool seekTo(std::FILE* file, uint64_t offset)
{
#ifdef _WIN32
    return _fseeki64(file, static_cast<long long>(offset), SEEK_SET) == 0;
#else
    return fseeko(file, static_cast<off_t>(offset), SEEK_SET) == 0;
#endif
}

} // namespace

RecordingFile::~RecordingFile()
{
    close();
}

std::filesystem::path RecordingFile::systemPath(const std::wstring& path)
{
#ifdef _WIN32
    return std::filesystem::path(path);
#else
    return std::filesystem::path(toUtf8(path));
#endif
}

std::wstring RecordingFile::joined(const std::wstring& directory, const std::string& name,
                                   const char* extension)
{
    std::wstring path = directory;
    if (!path.empty() && path.back() != L'/')
        path += L'/';
    return path + fromUtf8(name) + fromUtf8(extension);
}

RecordingFile::Failure RecordingFile::create(const std::wstring& directory, const std::string& name,
                                             const char* extension)
{
    close();
    for (int number = 1; number <= kMaxSameName; ++number) {
        const std::string numbered = number == 1 ? name : name + '_' + std::to_string(number);
        const std::wstring path = joined(directory, numbered, extension);
        errno = 0;
        m_file.reset(openExclusively(path));
        if (m_file) {
            std::setvbuf(m_file.get(), nullptr, _IONBF, 0);
            m_path = path;
            m_name = numbered;
            m_written = 0;
            m_gathered.reserve(kGatherSize);
            return Failure::None;
        }
        if (saysDiskFull(errno))
            return Failure::DiskFull;
        if (errno != EEXIST)
            break;
    }
    return Failure::CannotOpen;
}

RecordingFile::Failure RecordingFile::append(std::span<const uint8_t> bytes)
{
    const bool isLarge = bytes.size() >= kDirectSize;
    if (isLarge || m_gathered.size() + bytes.size() > kGatherSize) {
        const Failure failure = flush();
        if (failure != Failure::None)
            return failure;
    }
    if (isLarge)
        return write(bytes);
    m_gathered.insert(m_gathered.end(), bytes.begin(), bytes.end());
    return Failure::None;
}

RecordingFile::Failure RecordingFile::flush()
{
    const Failure failure = m_gathered.empty() ? Failure::None : write(m_gathered);
    m_gathered.clear();
    return failure;
}

RecordingFile::Failure RecordingFile::write(std::span<const uint8_t> bytes)
{
    if (!m_file)
        return Failure::WriteFailed;
    errno = 0;
    const size_t written = std::fwrite(bytes.data(), 1, bytes.size(), m_file.get());
    m_written += written;
    return written == bytes.size() ? Failure::None : failureOf(errno);
}

RecordingFile::Failure RecordingFile::overwrite(uint64_t offset, std::span<const uint8_t> bytes)
{
    const Failure flushed = flush();
    if (flushed != Failure::None || !m_file)
        return m_file ? flushed : Failure::WriteFailed;
    errno = 0;
    const bool done = seekTo(m_file.get(), offset) &&
                      std::fwrite(bytes.data(), 1, bytes.size(), m_file.get()) == bytes.size();
    const int error = errno;
    // The end must be found again even after a failure, or the next block would land in the header.
    if (std::fseek(m_file.get(), 0, SEEK_END) != 0 || !done)
        return failureOf(error);
    return Failure::None;
}

RecordingFile::Failure RecordingFile::close()
{
    if (!m_file)
        return Failure::None;
    const Failure flushed = flush();
    errno = 0;
    const bool closed = std::fclose(m_file.release()) == 0;
    return flushed != Failure::None || closed ? flushed : failureOf(errno);
}

void RecordingFile::closeCutTo(uint64_t size)
{
    if (!m_file)
        return;
    close();
    if (m_written <= size)
        return;
    std::error_code ignored;
    std::filesystem::resize_file(systemPath(m_path), size, ignored);
}

void RecordingFile::discard()
{
    if (!m_file)
        return;
    close();
    std::error_code ignored;
    std::filesystem::remove(systemPath(m_path), ignored);
}

RecordingFile::Failure RecordingFile::closeAs(const std::wstring& target)
{
    const Failure closed = close();
    if (closed != Failure::None)
        return closed;
    std::error_code error;
    std::filesystem::rename(systemPath(m_path), systemPath(target), error);
    if (error)
        return Failure::WriteFailed;
    m_path = target;
    return Failure::None;
}
