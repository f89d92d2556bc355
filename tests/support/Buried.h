#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/asan_interface.h>
#endif

/// A `Base` whose memory stays after its deletion, filled with a pattern: who still writes to it is seen, and
/// who follows a pointer in it crashes. Under AddressSanitizer each touch is an error. Made by `new`, one at
/// a time.
template <class Base> class Buried : public Base
{
public:
    using Base::Base;

    static void* operator new(size_t size)
    {
        open();
        s_grave = std::make_unique_for_overwrite<unsigned char[]>(size);
        s_size = size;
        s_isGone = false;
        return s_grave.get();
    }
    static void operator delete(void* memory)
    {
        std::memset(memory, kGone, s_size);
        s_isGone = true;
#ifdef __SANITIZE_ADDRESS__
        ASAN_POISON_MEMORY_REGION(memory, s_size);
#endif
    }

    static bool isGone()
    {
        return s_isGone;
    }
    static bool isUntouched()
    {
        open();
        return std::all_of(s_grave.get(), s_grave.get() + s_size,
                           [](unsigned char byte) { return byte == kGone; });
    }

private:
    static void open()
    {
#ifdef __SANITIZE_ADDRESS__
        ASAN_UNPOISON_MEMORY_REGION(s_grave.get(), s_size);
#endif
    }

    static constexpr unsigned char kGone = 0xEE;
    static inline std::unique_ptr<unsigned char[]> s_grave;
    static inline size_t s_size = 0;
    static inline bool s_isGone = false;
};
