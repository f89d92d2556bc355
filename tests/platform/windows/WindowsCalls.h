#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// What was asked of the played Windows, and what it answers.
struct WindowsCalls
{
    static constexpr uintptr_t kHandle = 0x1234;

    // What was asked.
    int m_handlesMade = 0;
    int m_echoes = 0;
    uintptr_t m_handle = 0;
    uint32_t m_destination = 0; ///< as the number of the dotted text, its first byte the most significant
    std::vector<uint8_t> m_data;
    bool m_hasOptions = false;
    uint32_t m_replySize = 0;
    uint32_t m_timeoutMs = 0;

    // What is answered.
    uint32_t m_replyCount = 1;
    uint32_t m_replier = 0x7F000001;
    uint32_t m_status = 0;
    uint32_t m_roundTripMs = 0;
    uint32_t m_error = 0;
    bool m_hasAddressText = true;
    std::string m_addressText;
};

extern WindowsCalls windowsCalls;
