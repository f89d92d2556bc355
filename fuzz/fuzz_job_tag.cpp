// HydJobSettingsTag::fromString(): whatever text comes, a tag that it makes is read again from its own text
// and from its bytes.

#include "FuzzTarget.h"

#include "NvxQtCommon/contract/job/HydJobSettingsTag.h"

#include <algorithm>
#include <string>

namespace {

std::string keyOf(const std::string& text)
{
    return text.substr(text.starts_with('$') ? 1 : 0, text.find('=') - (text.starts_with('$') ? 1 : 0));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), std::min<size_t>(size, 65536));
    const auto tag = HydJobSettingsTag::fromString(text);
    if (!tag)
        return 0;
    require(HydJobSettingsTag::keyName(tag->key()) == keyOf(text), "a tag has the key of its text");
    const std::string written = tag->toString();
    const auto again = HydJobSettingsTag::fromString(written);
    require(again && again->key() == tag->key() && again->toString() == written, "a tag's text reads back");
    ByteStream out;
    tag->serialize(out);
    const auto carried = HydJobSettingsTag::fromBytes(tag->key(), out.bytes());
    require(carried && carried->toString() == written, "a tag's bytes read back");
    return 0;
}
