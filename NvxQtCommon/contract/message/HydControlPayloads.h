#pragma once

#include "NvxQtCommon/contract/identity/NvxNetRecords.h"
#include "NvxQtCommon/contract/job/HydJobSettingsTag.h"
#include "NvxQtCommon/contract/message/HydCommandPayload.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// The control payloads but triggers (HydTrigger.h) and data collect messages (HydDataCollectCmd.h).
// The byte tables are in docs/wire-protocol.md.

/// A command that is its letter alone.
class NVXQTCOMMON_EXPORT HydMsgPayload : public HydControlMsgPayload
{
public:
    /// Sender mark of payloads that a controller makes.
    static constexpr uint8_t kControllerMark = 0xFE;

    explicit HydMsgPayload(uint8_t letter, uint8_t senderMark = kControllerMark)
        : m_letter(letter), m_senderMark(senderMark)
    {
    }

    uint8_t msgType() const override { return m_letter; }
    /// Who made this payload; local, never on the wire.
    uint8_t senderMark() const { return m_senderMark; }
    /// The whole framed message, the same bytes as HydControlMessage gives, in a derived class too; size 0
    /// where the payload exceeds 65535 bytes. The pointer lives as long as this object and until the next
    /// call.
    const unsigned char* getMessage(unsigned long long& size);

    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;

private:
    uint8_t m_letter;
    std::vector<uint8_t> m_data;
    uint8_t m_senderMark;
};

/// Letter E. Default-constructed it is the enquiry, without a body; a reply carries what the device says of
/// itself.
class NVXQTCOMMON_EXPORT HydEnquireCmd : public HydControlMsgPayload,
                                         public DeserializationFactory<HydEnquireCmd>
{
public:
    /// What a device says of itself.
    struct Report
    {
        HydDeviceType devType = DevTypeAny;
        uint16_t serial = 0;
        uint16_t hostDevNo = 0;
        HydBattStatus battStat = BattUnknown;
        uint8_t battPercent = 0; ///< 0 to 100
        int16_t sensitivity = 0; ///< tenths of a dB re 1 V/µPa
        int16_t temperature = 0; ///< tenths of a degree Celsius
        uint16_t humidity = 0;   ///< tenths of a percent
        uint32_t sampleRate = 0; ///< Hz
        int32_t timeUtc = 0;     ///< seconds since the epoch
        NvxNetHostInfo netHostInfo;
        std::string model;
        std::string firmwareVer;
        std::string firmwareRel;
    };

    HydEnquireCmd() = default;
    explicit HydEnquireCmd(const Report& report) : m_hasReport(true), m_report(report) {}

    uint8_t msgType() const override { return 'E'; }
    HydDeviceType devType() const { return m_report.devType; }
    /// False for an enquiry without a body.
    bool hasReport() const { return m_hasReport; }
    const Report& report() const { return m_report; }

    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;

private:
    bool m_hasReport = false;
    Report m_report;
};

/// Letter A. Time in seconds since the epoch; -1 means read only in a request and failure in a reply.
class NVXQTCOMMON_EXPORT HydSetTimeCmd : public HydControlMsgPayload,
                                         public DeserializationFactory<HydSetTimeCmd>
{
public:
    explicit HydSetTimeCmd(int time = -1) : m_time(time) {}

    uint8_t msgType() const override { return 'A'; }
    int32_t time() const { return m_time; }

    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;

private:
    int32_t m_time;
};

/// Why a device refused a job setup.
class NVXQTCOMMON_EXPORT HydJobSetupErr
{
public:
    explicit HydJobSetupErr(uint16_t errorCode = 0) : m_errorCode(errorCode) {}
    uint16_t errorCode() const { return m_errorCode; }

private:
    uint16_t m_errorCode;
};

/// Letter D: writes a job setup. The reply carries the setup that the device took, or an error code.
class NVXQTCOMMON_EXPORT HydJobSetupCmd : public HydControlMsgPayload,
                                          public DeserializationFactory<HydJobSetupCmd>
{
public:
    HydJobSetupCmd() = default;
    HydJobSetupCmd(const JobTagMap& map, JobSetupType type) : m_type(type), m_map(map) {}
    /// A refusal with an error code other than 0.
    HydJobSetupCmd(const JobTagMap& map, JobSetupType type, uint16_t errorCode);

    uint8_t msgType() const override { return 'D'; }
    JobSetupType type() const { return m_type; }
    bool isError() const { return m_error != nullptr; }
    /// Empty when the setup was accepted.
    std::shared_ptr<HydJobSetupErr> error() const { return m_error; }
    const JobTagMap& jobSetup() const { return m_map; }

    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;

private:
    JobSetupType m_type = JobSetupDefault;
    JobTagMap m_map;
    std::shared_ptr<HydJobSetupErr> m_error;
};

/// Letter F: asks for the job setup; the reply carries it.
class NVXQTCOMMON_EXPORT HydJobSetupEnq : public HydControlMsgPayload,
                                          public DeserializationFactory<HydJobSetupEnq>
{
public:
    HydJobSetupEnq() = default;
    HydJobSetupEnq(const JobTagMap& map, JobSetupType type) : m_type(type), m_map(map) {}

    uint8_t msgType() const override { return 'F'; }
    JobSetupType type() const { return m_type; }
    const JobTagMap& jobSetup() const { return m_map; }

    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;

private:
    JobSetupType m_type = JobSetupDefault;
    JobTagMap m_map;
};

/// Letter [: state of the device's clock against its time source. Passed on unread to the application.
class NVXQTCOMMON_EXPORT HydEnquireTimeSync : public HydControlMsgPayload,
                                              public DeserializationFactory<HydEnquireTimeSync>
{
public:
    HydEnquireTimeSync() = default;
    HydEnquireTimeSync(uint8_t state, uint16_t master, int32_t offsetNs, uint32_t lastSyncTime)
        : m_state(state), m_master(master), m_offsetNs(offsetNs), m_lastSyncTime(lastSyncTime)
    {
    }

    uint8_t msgType() const override { return '['; }
    /// 0 free running, 1 synchronising, 2 locked.
    uint8_t syncState() const { return m_state; }
    /// Serial number of the device that gives the time; 0 for none.
    uint16_t master() const { return m_master; }
    /// Offset to the time source in nanoseconds.
    int32_t offsetNs() const { return m_offsetNs; }
    /// Seconds since the epoch of the last synchronisation; 0 for never.
    uint32_t lastSyncTime() const { return m_lastSyncTime; }

    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;

private:
    uint8_t m_state = 0;
    uint16_t m_master = 0;
    int32_t m_offsetNs = 0;
    uint32_t m_lastSyncTime = 0;
};

/// Letter Y: restarts the device. Without a body both ways.
class NVXQTCOMMON_EXPORT HydResetCmd : public HydControlMsgPayload, public DeserializationFactory<HydResetCmd>
{
public:
    uint8_t msgType() const override { return 'Y'; }

    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;
};
