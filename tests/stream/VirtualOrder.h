#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

/// Place of a virtual function among those of its class, counted from 1 with the destructor as one. Read from
/// the pointer to member as GCC and Clang make it: the offset into the table of virtual functions, in which
/// the destructor has two entries, and one bit that tells such offsets from addresses.
template <class Function> size_t virtualPlace(Function function)
{
    static_assert(sizeof function >= sizeof(uintptr_t));
    uintptr_t offset = 0;
    std::memcpy(&offset, &function, sizeof offset);
    return (offset & ~uintptr_t{1}) / sizeof(void*);
}
