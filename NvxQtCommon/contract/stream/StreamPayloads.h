#pragma once

#include "NvxQtCommon/contract/stream/HydStreamDataChunk.h"
#include "NvxQtCommon/contract/stream/HydStreamType.h"
#include "NvxQtCommon/contract/stream/StreamChunks.h"

#include <memory>
#include <string>
#include <vector>

/// Root of all stream payloads, told apart by dynamic casts and always held by std::shared_ptr. A payload is
/// made on one thread and only read once it was emitted.
class NVXQTCOMMON_EXPORT HydStreamMessagePayload
{
public:
    virtual ~HydStreamMessagePayload();

    /// Kind of the stream that the payload came from; public on purpose, makers of payloads write it.
    HydStreamType streamType = StreamWave;

protected:
    HydStreamMessagePayload() = default;
    HydStreamMessagePayload(const HydStreamMessagePayload&) = default;
    HydStreamMessagePayload& operator=(const HydStreamMessagePayload&) = default;
};

/// Start of a stream event.
class NVXQTCOMMON_EXPORT HydStreamEventHeaderPayload : public HydStreamMessagePayload
{
public:
    HydStreamEventHeaderPayload(std::shared_ptr<HydEventKeyChunk const> key,
                                std::vector<std::shared_ptr<HydDeviceInfoChunk const>> devices,
                                std::vector<std::shared_ptr<HydStreamStatusChunk const>> statuses,
                                HydStreamSetupContainer setup,
                                std::vector<std::shared_ptr<HydAmplScalingChunk const>> scalings,
                                unsigned char numChannels,
                                std::shared_ptr<HydDeviceInfoChunk const> arrayMaster);

    /// Null is possible.
    const std::shared_ptr<HydEventKeyChunk const>& eventKey() const { return m_key; }
    const std::vector<std::shared_ptr<HydDeviceInfoChunk const>>& deviceInfoChunks() const
    {
        return m_devices;
    }
    const std::vector<std::shared_ptr<HydStreamStatusChunk const>>& streamStatusChunks() const
    {
        return m_statuses;
    }
    /// Never null; the container may be empty.
    const HydStreamSetupContainer* streamSetupChunk() const { return &m_setup; }
    const std::vector<std::shared_ptr<HydAmplScalingChunk const>>& amplScalingChunks() const
    {
        return m_scalings;
    }
    unsigned char numChannels() const { return m_numChannels; }
    /// True when a master is present or there is more than one channel.
    bool isArray() const { return m_arrayMaster != nullptr || m_numChannels > 1; }
    /// Null when there is none.
    const std::shared_ptr<HydDeviceInfoChunk const>& arrayMasterInfo() const { return m_arrayMaster; }
    /// True when the event goes on from the file before.
    bool isAdjacent() const { return m_adjacent; }
    void setAdjacent(bool adjacent) { m_adjacent = adjacent; }

private:
    std::shared_ptr<HydEventKeyChunk const> m_key;
    std::vector<std::shared_ptr<HydDeviceInfoChunk const>> m_devices;
    std::vector<std::shared_ptr<HydStreamStatusChunk const>> m_statuses;
    HydStreamSetupContainer m_setup;
    std::vector<std::shared_ptr<HydAmplScalingChunk const>> m_scalings;
    unsigned char m_numChannels;
    std::shared_ptr<HydDeviceInfoChunk const> m_arrayMaster;
    bool m_adjacent = false;
};

/// One block of samples or one spectrum.
class NVXQTCOMMON_EXPORT HydStreamDataPayload : public HydStreamMessagePayload
{
public:
    HydStreamDataPayload(std::shared_ptr<HydEventKeyChunk const> key,
                         std::shared_ptr<HydStreamDataChunk const> data)
        : m_key(std::move(key)), m_data(std::move(data))
    {
    }

    const std::shared_ptr<HydStreamDataChunk const>& data() const { return m_data; }
    /// Null is possible.
    const std::shared_ptr<HydEventKeyChunk const>& eventKey() const { return m_key; }
    /// Marks the block that closes a second of samples.
    void setLastEvent(bool last) { m_lastEvent = last; }
    /// True when this payload or its key was marked.
    bool isLastEvent() const { return m_lastEvent || (m_key && m_key->isLastEvent()); }
    /// Says whether the chunk's double values hold noise-filtered values.
    void setNoiseFiltered(bool filtered) { m_noiseFiltered = filtered; }
    bool isNoiseFiltered() const { return m_noiseFiltered; }
    /// Readies the chunk's double array for `n` values.
    void ResetD(unsigned int n);

private:
    std::shared_ptr<HydEventKeyChunk const> m_key;
    std::shared_ptr<HydStreamDataChunk const> m_data;
    bool m_lastEvent = false;
    bool m_noiseFiltered = false;
};

/// A notification from the recorder.
class NVXQTCOMMON_EXPORT HydStreamNotifyPayload : public HydStreamMessagePayload
{
public:
    explicit HydStreamNotifyPayload(uint16_t errorCode, std::string text = {})
        : m_errorCode(errorCode), m_text(std::move(text))
    {
    }

    /// 2 and 4 leave the stream as it is, 3 drops the connection, any other ends the stream.
    uint16_t errorCode() const { return m_errorCode; }
    const std::string& text() const { return m_text; }

private:
    uint16_t m_errorCode;
    std::string m_text;
};

/// Sensor status; each chunk is null where the message held none of its kind.
class NVXQTCOMMON_EXPORT HydStatusDataPayload : public HydStreamMessagePayload
{
public:
    const std::shared_ptr<HydEventKeyChunk const>& eventKey() const { return m_key; }
    const std::shared_ptr<HydStreamStatusChunk const>& statusChunk() const { return m_status; }
    const std::shared_ptr<HydStreamHeadStatusChunk const>& headChunk() const { return m_head; }
    const std::shared_ptr<HydBatteryChunk const>& batteryChunk() const { return m_battery; }
    const std::shared_ptr<HydAccMagChunk const>& accMagChunk() const { return m_accMag; }
    const std::shared_ptr<HydTimeSyncChunk const>& timeSyncChunk() const { return m_timeSync; }
    const std::shared_ptr<HydTriggerChunk const>& triggerChunk() const { return m_trigger; }

    void setEventKey(std::shared_ptr<HydEventKeyChunk const> chunk) { m_key = std::move(chunk); }
    void setStatusChunk(std::shared_ptr<HydStreamStatusChunk const> chunk) { m_status = std::move(chunk); }
    void setHeadChunk(std::shared_ptr<HydStreamHeadStatusChunk const> chunk) { m_head = std::move(chunk); }
    void setBatteryChunk(std::shared_ptr<HydBatteryChunk const> chunk) { m_battery = std::move(chunk); }
    void setAccMagChunk(std::shared_ptr<HydAccMagChunk const> chunk) { m_accMag = std::move(chunk); }
    void setTimeSyncChunk(std::shared_ptr<HydTimeSyncChunk const> chunk) { m_timeSync = std::move(chunk); }
    void setTriggerChunk(std::shared_ptr<HydTriggerChunk const> chunk) { m_trigger = std::move(chunk); }

private:
    std::shared_ptr<HydEventKeyChunk const> m_key;
    std::shared_ptr<HydStreamStatusChunk const> m_status;
    std::shared_ptr<HydStreamHeadStatusChunk const> m_head;
    std::shared_ptr<HydBatteryChunk const> m_battery;
    std::shared_ptr<HydAccMagChunk const> m_accMag;
    std::shared_ptr<HydTimeSyncChunk const> m_timeSync;
    std::shared_ptr<HydTriggerChunk const> m_trigger;
};
