#pragma once

#include "NvxQtCommon/contract/job/HydJobSettings.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// What the CGI scripts of an array controller reply: a status, a configuration, a time, or several of them.
/// The text isn't read as JSON: it is cut at each comma, and the first key that a piece contains decides what
/// the piece is. A number that doesn't convert counts as 0. docs/wire-protocol.md has the keys. A plain
/// record.
struct NVXQTCOMMON_EXPORT ZcrCgiReply
{
    /// Bytes of the longest reply that is read.
    static constexpr size_t kMaxSize = 4194304;

    int32_t serial = 0;      ///< serial number of the controller that replies
    int32_t currentTime = 0; ///< seconds since the epoch
    int32_t wavRate = 0;     ///< Hz
    int32_t startTime = 0;   ///< seconds since the epoch
    int32_t wavBitDepth = 24;
    int32_t wavGain = 0; ///< dB
    int32_t wavLogMode = 0;
    int32_t wavLogLen = 0;
    int32_t fftSampRate = 0; ///< Hz
    int32_t fftRef = -120;   ///< dB
    int32_t fftPts = 1024;
    int32_t fftSampsBtwn = 512;
    int32_t fftProcType = 4;
    int32_t fftAccum = 0;
    int32_t fftWeight = 1;
    int32_t fftLogMode = 0;
    int32_t fftLogLen = 0;
    /// Serial number of the first channel that the reply names; nothing where it names none.
    std::optional<int32_t> firstDevSerial;
    bool rateSeen = false;

    /// Reads a whole reply. Any bytes are a reply.
    static ZcrCgiReply parse(std::string_view text);
    /// The number in one piece of a reply: quotes go, then all of `terminator` (with an empty `prefix`) or
    /// what ends with the first of them (where the piece contains `prefix`), then what ends with the first
    /// colon. 0 where the rest is no number of 32 bits. `terminator` 0 means none.
    static int32_t extractField(std::string field, std::string_view prefix, char terminator);

    /// The configuration as job settings: all fifteen tags, also those that the reply doesn't have.
    HydJobSettings settings() const;

private:
    void take(std::string_view piece);
};
