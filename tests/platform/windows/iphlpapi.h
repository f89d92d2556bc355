#pragma once

// The part of Windows' header of this name that the library uses, played for a test.

#include <winsock2.h>

using IPAddr = uint32_t;

struct IP_OPTION_INFORMATION
{
    uint8_t Ttl;
    uint8_t Tos;
    uint8_t Flags;
    uint8_t OptionsSize;
    uint8_t* OptionsData;
};

struct ICMP_ECHO_REPLY
{
    IPAddr Address;
    uint32_t Status;
    uint32_t RoundTripTime;
    uint16_t DataSize;
    uint16_t Reserved;
    void* Data;
    IP_OPTION_INFORMATION Options;
};
