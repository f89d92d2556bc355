#pragma once

#include "NvxQtCommon/contract/base/DeserializationFactory.h"
#include "NvxQtCommon/contract/base/ISerializable.h"

#include <cstdint>

/// Root of what control and Marco messages carry. Held by std::shared_ptr.
class NVXQTCOMMON_EXPORT HydCommandPayload : public ISerializable
{
};

/// Root of the payloads on the command channel, told apart by a one-byte type letter.
class NVXQTCOMMON_EXPORT HydControlMsgPayload : public HydCommandPayload
{
public:
    /// The type letter, as it stands behind "*" on the wire.
    virtual uint8_t msgType() const = 0;
};
