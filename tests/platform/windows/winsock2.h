#pragma once

// The part of Windows' header of this name that the library uses, played for a test.

#include <cstdint>

using BYTE = uint8_t;
using WORD = uint16_t;
using DWORD = uint32_t;
using HANDLE = void*;

struct in_addr
{
    uint32_t s_addr; // network byte order
};

uint32_t inet_addr(const char* text);
char* inet_ntoa(in_addr address);
DWORD GetLastError();
