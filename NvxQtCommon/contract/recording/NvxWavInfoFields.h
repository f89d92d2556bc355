#pragma once

#include "NvxQtCommon/contract/base/ByteStream.h"
#include "NvxQtCommon/contract/identity/HydEnums.h"

#include <cstdint>
#include <string>

class NvxWavInfoData;

/// What an information record holds of one device.
struct NvxWavInfoSlot
{
    HydDeviceType deviceType = DevTypeAny;
    uint16_t serialNo = 0;
    int16_t sensitivity = 0;
    int16_t temperature = 0;
    int16_t humidity = 0;
    uint8_t statusExtra = 0;
    std::string deviceText;
    std::string hwRelease;
};

/// Bytes of the parts that both kinds of information record share, most significant byte first as in
/// docs/file-formats.md. Texts are cut to kMaxText bytes at a character's border.
class NvxWavInfoFields
{
public:
    static constexpr size_t kMaxText = 80;
    static constexpr uint16_t kVersion = 1;
    enum class Kind : uint8_t {
        OneRecorder = 1,
        Array = 2,
    };

    static void putText(ByteStream& out, const std::string& text);
    static void putCommon(ByteStream& out, Kind kind, const NvxWavInfoData& info);
    /// False when version or kind is another one.
    static bool takeCommon(ByteReader& in, Kind kind, NvxWavInfoData& info);
    static void putSlot(ByteStream& out, const NvxWavInfoSlot& slot);
    static void takeSlot(ByteReader& in, NvxWavInfoSlot& slot);
};
