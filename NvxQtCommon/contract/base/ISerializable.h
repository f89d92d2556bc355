#pragma once

#include "NvxQtCommon/contract/base/ByteStream.h"
#include "NvxQtCommon/contract/base/Export.h"

/// A record that can be written to bytes and read back from them.
class NVXQTCOMMON_EXPORT ISerializable
{
public:
    virtual ~ISerializable();

    virtual void serialize(ByteStream& out) const = 0;
    /// Takes the record over from `in`. False, with the record in an unspecified but valid state, when the
    /// bytes are too short or make no sense.
    virtual bool deserialize(ByteReader& in) = 0;

protected:
    ISerializable() = default;
    ISerializable(const ISerializable&) = default;
    ISerializable& operator=(const ISerializable&) = default;
};
