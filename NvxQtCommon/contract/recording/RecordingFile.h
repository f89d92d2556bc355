#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

/// The file that a writer fills: made anew and never over an existing one. Small pieces are gathered and
/// written together; flush() hands to the system what is gathered, so that a killed program loses nothing of
/// it. Belongs to its writer and its thread.
class NVXQTCOMMON_EXPORT RecordingFile
{
public:
    enum class Failure {
        None,
        CannotOpen,
        WriteFailed,
        DiskFull,
    };

    RecordingFile() = default;
    ~RecordingFile();
    RecordingFile(const RecordingFile&) = delete;
    RecordingFile& operator=(const RecordingFile&) = delete;

    /// Makes `directory`/`name``extension`, with "_2", "_3" and so on behind the name where a file of that
    /// name exists. The directory must exist. What was open is closed first.
    Failure create(const std::wstring& directory, const std::string& name, const char* extension);
    bool isOpen() const { return m_file != nullptr; }
    /// Puts bytes behind what is there. After a failure here or in flush(), what was gathered is lost as far
    /// as it found no room.
    Failure append(std::span<const uint8_t> bytes);
    Failure flush();
    /// Replaces bytes from `offset` on, which is the file's end at most, after a flush(), and goes back to
    /// its end.
    Failure overwrite(uint64_t offset, std::span<const uint8_t> bytes);
    Failure close();
    /// Closes the file and cuts it to `size` bytes; as far as that works.
    void closeCutTo(uint64_t size);
    /// Closes and removes the file.
    void discard();
    /// Closes the file and gives it the path `target`, in place of a file that is there. After a failure it
    /// keeps its name.
    Failure closeAs(const std::wstring& target);

    /// `path` as the system takes it.
    static std::filesystem::path systemPath(const std::wstring& path);
    /// `directory`/`name``extension`.
    static std::wstring joined(const std::wstring& directory, const std::string& name, const char* extension);

    /// Bytes in the open file, gathered ones included.
    uint64_t size() const { return m_written + m_gathered.size(); }
    /// Path of the file made last; empty before the first.
    const std::wstring& path() const { return m_path; }
    /// The name that it got: as given to create(), with its number, without directory and extension; UTF-8.
    const std::string& name() const { return m_name; }

private:
    Failure write(std::span<const uint8_t> bytes);

    struct Closer
    {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    std::unique_ptr<std::FILE, Closer> m_file;
    std::wstring m_path;
    std::string m_name;
    std::vector<uint8_t> m_gathered;
    uint64_t m_written = 0; ///< with the system
};
