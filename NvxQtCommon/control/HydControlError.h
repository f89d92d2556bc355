#pragma once

#include <cstdint>

/// Fault of a command channel. The numbers are fixed; 2 is raised nowhere.
enum HydControlError : uint8_t {
    ErrNotConnected = 0,   ///< a socket error was reported, or a send found no connection
    ErrSocketWrite = 1,    ///< a TCP write failed, or the socket was not in connected state
    ErrSerialWrite = 3,    ///< a serial write was short
    ErrPortFailure = 4,    ///< the port could not be opened, or it reported an error
    ErrConnectionLost = 5, ///< the recovery count ran out and the channel is being reopened
};
