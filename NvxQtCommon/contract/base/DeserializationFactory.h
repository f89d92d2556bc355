#pragma once

#include "NvxQtCommon/contract/base/ByteStream.h"

#include <memory>
#include <span>

/// Gives a default-constructible ISerializable class T a factory out of bytes.
template <class T> class DeserializationFactory
{
public:
    /// A new T read from all of `bytes`, or empty when they are malformed or some are left over.
    static std::shared_ptr<T> fromBytes(std::span<const uint8_t> bytes)
    {
        auto object = std::make_shared<T>();
        ByteReader reader(bytes);
        if (!object->deserialize(reader) || !reader.ok() || !reader.atEnd())
            return nullptr;
        return object;
    }

protected:
    DeserializationFactory() = default;
    ~DeserializationFactory() = default;
    DeserializationFactory(const DeserializationFactory&) = default;
    DeserializationFactory& operator=(const DeserializationFactory&) = default;
};
