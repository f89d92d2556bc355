// ZcrCgiReply: any bytes are a reply, and what stands behind a comma is read whatever stands ahead.

#include "FuzzTarget.h"

#include "NvxQtCommon/contract/message/ZcrCgiReply.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), std::min<size_t>(size, 65536));
    const ZcrCgiReply alone = ZcrCgiReply::parse(text);
    require(alone.settings().map().size() == 15, "a reply has all settings");

    const ZcrCgiReply behind = ZcrCgiReply::parse(text + ",\"serialNumber\":4711");
    require(behind.serial == 4711, "the last serial number counts");
    require(behind.currentTime == alone.currentTime && behind.wavRate == alone.wavRate &&
                behind.rateSeen == alone.rateSeen && behind.firstDevSerial == alone.firstDevSerial,
            "a piece changes its own field alone");
    return 0;
}
