#include "NvxQtCommon/contract/message/HydTrigger.h"

#include <algorithm>
#include <typeinfo>

namespace {

std::shared_ptr<HydTrigger> makeTrigger(uint8_t testType)
{
    if (testType == TestTypeAbove || testType == TestTypeBelow)
        return std::make_shared<HydTrigger_5_6>();
    return std::make_shared<HydTrigger>();
}

std::string refusalReason(uint16_t errorCode)
{
    switch (errorCode) {
    case 1:
        return "The trigger number is out of range.";
    case 2:
        return "The frequency band is out of range.";
    case 3:
        return "The threshold is out of range.";
    case 4:
        return "The test type is not supported.";
    case 5:
        return "The trigger list is full.";
    default:
        return "The device refused the trigger (code " + std::to_string(errorCode) + ").";
    }
}

} // namespace

bool HydTrigger::compare(const HydTrigger* other) const
{
    return other != nullptr && typeid(*this) == typeid(*other) && m_testType == other->m_testType &&
           m_body == other->m_body;
}

std::string HydTrigger::errorMes(bool withNumber) const
{
    if (m_errorCode == 0)
        return {};
    const auto reason = refusalReason(m_errorCode);
    return withNumber ? "Trigger " + std::to_string(trigNum()) + ": " + reason : reason;
}

void HydTrigger::serialize(ByteStream& out) const
{
    out.putU16(m_errorCode);
    serializeRecord(out);
}

bool HydTrigger::deserialize(ByteReader& in)
{
    m_errorCode = in.u16();
    return deserializeRecord(in);
}

void HydTrigger::serializeRecord(ByteStream& out) const
{
    out.putU8(m_testType);
    const auto lengthAt = out.size();
    out.putU16(0);
    serializeBody(out);
    // A length that exceeds 16 bits belongs to a payload that no frame takes.
    out.patchU16(lengthAt, static_cast<uint16_t>(out.size() - lengthAt - 2));
}

bool HydTrigger::deserializeRecord(ByteReader& in)
{
    m_testType = static_cast<TEST_TYPE>(in.u8());
    ByteReader body(in.take(in.u16()));
    if (!in.ok() || !deserializeBody(body) || !body.atEnd())
        in.fail();
    return in.ok();
}

std::shared_ptr<HydTrigger> HydTrigger::fromBytes(std::span<const uint8_t> bytes)
{
    ByteReader in(bytes);
    const auto errorCode = in.u16();
    auto trigger = fromRecord(in);
    if (!trigger || !in.atEnd())
        return nullptr;
    trigger->setErrorCode(errorCode);
    return trigger;
}

std::shared_ptr<HydTrigger> HydTrigger::fromRecord(ByteReader& in)
{
    ByteReader ahead = in;
    auto trigger = makeTrigger(ahead.u8());
    return trigger->deserializeRecord(in) ? trigger : nullptr;
}

void HydTrigger::serializeBody(ByteStream& out) const
{
    out.putBytes(m_body);
}

bool HydTrigger::deserializeBody(ByteReader& in)
{
    const auto bytes = in.take(in.remaining());
    m_body.assign(bytes.begin(), bytes.end());
    return in.ok();
}

bool HydTrigger_5_6::compare(const HydTrigger* other) const
{
    const auto* o = dynamic_cast<const HydTrigger_5_6*>(other);
    return o != nullptr && HydTrigger::compare(other) && m_trigNum == o->m_trigNum &&
           m_enabled == o->m_enabled && m_minFreq == o->m_minFreq && m_maxFreq == o->m_maxFreq &&
           m_duration == o->m_duration && m_eventHold == o->m_eventHold && m_preTrigger == o->m_preTrigger &&
           m_threshold == o->m_threshold && m_threshType == o->m_threshType && m_effect == o->m_effect;
}

void HydTrigger_5_6::serializeBody(ByteStream& out) const
{
    out.putU8(m_trigNum);
    out.putU8(m_enabled);
    out.putU32(m_minFreq);
    out.putU32(m_maxFreq);
    out.putU16(m_duration);
    out.putU16(m_eventHold);
    out.putU16(m_preTrigger);
    out.putU16(static_cast<uint16_t>(m_threshold));
    out.putU16(m_threshType);
    out.putU16(m_effect);
    out.putU16(m_reserved);
}

bool HydTrigger_5_6::deserializeBody(ByteReader& in)
{
    m_trigNum = in.u8();
    m_enabled = in.u8();
    m_minFreq = in.u32();
    m_maxFreq = in.u32();
    m_duration = in.u16();
    m_eventHold = in.u16();
    m_preTrigger = in.u16();
    m_threshold = in.i16();
    m_threshType = in.u16();
    m_effect = in.u16();
    m_reserved = in.u16();
    return in.ok();
}

void HydEnquireTrigger::serialize(ByteStream& out) const
{
    const auto countAt = out.size();
    uint16_t count = 0;
    out.putU16(0);
    for (const auto& trigger : m_triggers) {
        if (!trigger)
            continue;
        trigger->serializeRecord(out);
        ++count;
    }
    out.patchU16(countAt, count);
}

bool HydEnquireTrigger::deserialize(ByteReader& in)
{
    m_triggers.clear();
    if (in.atEnd())
        return in.ok();
    for (unsigned left = in.u16(); left > 0; --left) {
        auto trigger = HydTrigger::fromRecord(in);
        if (!trigger)
            return false;
        m_triggers.push_back(std::move(trigger));
    }
    return in.ok();
}
