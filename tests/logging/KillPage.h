#pragma once

#include <atomic>
#include <cstdint>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

/// A number in a file that two processes map: it outlives the one that is killed.
class KillPage
{
public:
    explicit KillPage(const char* path)
    {
        const int file = open(path, O_RDWR | O_CREAT, 0600);
        if (file < 0)
            return;
        if (ftruncate(file, sizeof(Number)) == 0) {
            void* memory = mmap(nullptr, sizeof(Number), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
            if (memory != MAP_FAILED)
                m_number = static_cast<Number*>(memory);
        }
        close(file);
    }
    ~KillPage()
    {
        if (m_number != nullptr)
            munmap(m_number, sizeof(Number));
    }
    KillPage(const KillPage&) = delete;
    KillPage& operator=(const KillPage&) = delete;

    bool isValid() const { return m_number != nullptr; }
    void store(uint64_t value) { m_number->store(value); }
    uint64_t load() const { return m_number->load(); }

private:
    using Number = std::atomic<uint64_t>;
    static_assert(Number::is_always_lock_free);
    Number* m_number = nullptr;
};
