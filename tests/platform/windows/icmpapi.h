#pragma once

// The part of Windows' header of this name that the library uses, played for a test.

#include <iphlpapi.h>

HANDLE IcmpCreateFile();
DWORD IcmpSendEcho(HANDLE handle, IPAddr destination, void* data, WORD dataSize,
                   IP_OPTION_INFORMATION* options, void* reply, DWORD replySize, DWORD timeoutMs);
