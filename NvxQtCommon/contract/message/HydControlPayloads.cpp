#include "NvxQtCommon/contract/message/HydControlPayloads.h"

#include "NvxQtCommon/contract/message/HydControlMessage.h"

const unsigned char* HydMsgPayload::getMessage(unsigned long long& size)
{
    m_data = HydControlMessage::frame(*this);
    size = m_data.size();
    return m_data.data();
}

void HydMsgPayload::serialize(ByteStream&) const {}

bool HydMsgPayload::deserialize(ByteReader& in)
{
    return in.ok();
}

void HydEnquireCmd::serialize(ByteStream& out) const
{
    if (!m_hasReport)
        return;
    out.putU8(m_report.devType);
    out.putU16(m_report.serial);
    out.putU16(m_report.hostDevNo);
    out.putU8(m_report.battStat);
    out.putU8(m_report.battPercent);
    out.putU16(static_cast<uint16_t>(m_report.sensitivity));
    out.putU16(static_cast<uint16_t>(m_report.temperature));
    out.putU16(m_report.humidity);
    out.putU32(m_report.sampleRate);
    out.putU32(static_cast<uint32_t>(m_report.timeUtc));
    m_report.netHostInfo.serialize(out);
    out.putText(m_report.model);
    out.putText(m_report.firmwareVer);
    out.putText(m_report.firmwareRel);
}

bool HydEnquireCmd::deserialize(ByteReader& in)
{
    m_report = Report();
    m_hasReport = !in.atEnd();
    if (!m_hasReport)
        return in.ok();
    m_report.devType = static_cast<HydDeviceType>(in.u8());
    m_report.serial = in.u16();
    m_report.hostDevNo = in.u16();
    m_report.battStat = static_cast<HydBattStatus>(in.u8());
    m_report.battPercent = in.u8();
    m_report.sensitivity = in.i16();
    m_report.temperature = in.i16();
    m_report.humidity = in.u16();
    m_report.sampleRate = in.u32();
    m_report.timeUtc = in.i32();
    m_report.netHostInfo.deserialize(in);
    m_report.model = in.text();
    m_report.firmwareVer = in.text();
    m_report.firmwareRel = in.text();
    return in.ok();
}

void HydSetTimeCmd::serialize(ByteStream& out) const
{
    out.putU32(static_cast<uint32_t>(m_time));
}

bool HydSetTimeCmd::deserialize(ByteReader& in)
{
    m_time = in.i32();
    return in.ok();
}

HydJobSetupCmd::HydJobSetupCmd(const JobTagMap& map, JobSetupType type, uint16_t errorCode)
    : m_type(type), m_map(map)
{
    if (errorCode != 0)
        m_error = std::make_shared<HydJobSetupErr>(errorCode);
}

void HydJobSetupCmd::serialize(ByteStream& out) const
{
    out.putU16(m_type);
    out.putU16(m_error ? m_error->errorCode() : uint16_t{0});
    serializeTags(m_map, out);
}

bool HydJobSetupCmd::deserialize(ByteReader& in)
{
    m_type = static_cast<JobSetupType>(in.u16());
    const auto errorCode = in.u16();
    m_error = errorCode == 0 ? nullptr : std::make_shared<HydJobSetupErr>(errorCode);
    m_map.clear();
    return deserializeTags(in, m_map);
}

void HydJobSetupEnq::serialize(ByteStream& out) const
{
    out.putU16(m_type);
    serializeTags(m_map, out);
}

bool HydJobSetupEnq::deserialize(ByteReader& in)
{
    m_type = static_cast<JobSetupType>(in.u16());
    m_map.clear();
    return deserializeTags(in, m_map);
}

void HydEnquireTimeSync::serialize(ByteStream& out) const
{
    out.putU8(m_state);
    out.putU16(m_master);
    out.putU32(static_cast<uint32_t>(m_offsetNs));
    out.putU32(m_lastSyncTime);
}

bool HydEnquireTimeSync::deserialize(ByteReader& in)
{
    if (in.atEnd()) {
        *this = HydEnquireTimeSync();
        return in.ok();
    }
    m_state = in.u8();
    m_master = in.u16();
    m_offsetNs = in.i32();
    m_lastSyncTime = in.u32();
    return in.ok();
}

void HydResetCmd::serialize(ByteStream&) const {}

bool HydResetCmd::deserialize(ByteReader& in)
{
    return in.ok();
}
