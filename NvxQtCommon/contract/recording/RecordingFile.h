#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>

/// The file that a writer fills: made anew and never over an existing one, written without a buffer of its
/// own, so that a killed program loses nothing that append() took. Belongs to its writer and its thread.
class NVXQTCOMMON_EXPORT RecordingFile
{
public:
    enum class Failure {
        None,
        CannotOpen,
        WriteFailed,
        DiskFull,
    };

    /// Makes `directory`/`name``extension`, with "_2", "_3" and so on behind the name where a file of that
    /// name exists. The directory must exist. What was open is closed first.
    Failure create(const std::wstring& directory, const std::string& name, const char* extension);
    bool isOpen() const { return m_file != nullptr; }
    /// Writes behind what is there. After a failure size() still counts what got onto the disk.
    Failure append(std::span<const uint8_t> bytes);
    /// Replaces bytes near the file's start, and goes back to its end.
    Failure overwrite(long offset, std::span<const uint8_t> bytes);
    Failure close();
    /// Closes the file and cuts it to `size` bytes; as far as that works.
    void closeCutTo(uint64_t size);
    /// Closes and removes the file.
    void discard();

    /// Bytes in the open file.
    uint64_t size() const { return m_size; }
    /// Path of the file made last; empty before the first.
    const std::wstring& path() const { return m_path; }

private:
    struct Closer
    {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    std::unique_ptr<std::FILE, Closer> m_file;
    std::wstring m_path;
    uint64_t m_size = 0;
};
