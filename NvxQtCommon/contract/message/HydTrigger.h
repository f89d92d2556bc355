#pragma once

#include "NvxQtCommon/contract/message/HydCommandPayload.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

/// Test of a trigger. Values other than these two are carried and not looked into.
enum TEST_TYPE : uint8_t {
    TestTypeNone = 0,
    TestTypeAbove = 5,
    TestTypeBelow = 6,
};

/// Letter S: one event trigger. This class carries a trigger of any test type with its body unread, so that
/// reading and writing back loses nothing; HydTrigger_5_6 knows the fields of types 5 and 6.
class NVXQTCOMMON_EXPORT HydTrigger : public HydControlMsgPayload, public DeserializationFactory<HydTrigger>
{
public:
    HydTrigger() = default;

    uint8_t msgType() const override { return 'S'; }
    TEST_TYPE testType() const { return m_testType; }
    void setTestType(TEST_TYPE type) { m_testType = type; }
    /// True when `other` is of the same class and equal in test type and in everything that describes the
    /// trigger; the device's answer takes no part. False for null.
    virtual bool compare(const HydTrigger* other) const;
    /// Text for a refused trigger, empty for an accepted one. `withNumber` puts the trigger's number in
    /// front.
    std::string errorMes(bool withNumber) const;
    /// Number of the trigger; 0 where the class doesn't know it.
    virtual uint8_t trigNum() const { return 0; }

    /// The device's answer: 0 accepted, else why it was refused (docs/wire-protocol.md).
    uint16_t errorCode() const { return m_errorCode; }
    void setErrorCode(uint16_t code) { m_errorCode = code; }

    /// Error code (2), then the record of serializeRecord().
    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;
    /// Test type (1), length of the body (2), body: the form inside a list.
    void serializeRecord(ByteStream& out) const;

    /// Reads a letter S payload and gives the class of its test type; empty when malformed. Takes the place
    /// of the inherited one, which would give this class for every type.
    static std::shared_ptr<HydTrigger> fromBytes(std::span<const uint8_t> bytes);
    /// Reads one record of a list; empty, and `in` no longer ok, when malformed.
    static std::shared_ptr<HydTrigger> fromRecord(ByteReader& in);

protected:
    virtual void serializeBody(ByteStream& out) const;
    virtual bool deserializeBody(ByteReader& in);

private:
    bool deserializeRecord(ByteReader& in);

    TEST_TYPE m_testType = TestTypeNone;
    uint16_t m_errorCode = 0;
    std::vector<uint8_t> m_body;
};

/// A trigger of test type 5 (level above threshold) or 6 (below).
class NVXQTCOMMON_EXPORT HydTrigger_5_6 : public HydTrigger
{
public:
    /// How the trigger's occurrence stands: set by whoever watches events, not by the device record.
    struct SEventTrigger
    {
        uint8_t type = 0;   ///< 0 program, 1 device, 2 invalid
        uint8_t regime = 0; ///< 0 idle, 2 active
    };

    HydTrigger_5_6() { setTestType(TestTypeAbove); }

    uint8_t trigNum() const override { return m_trigNum; }
    void setTrigNum(uint8_t value) { m_trigNum = value; }
    uint8_t enabled() const { return m_enabled; }
    void setEnabled(uint8_t value) { m_enabled = value; }
    /// Lower edge of the band in Hz.
    unsigned minFreq() const { return m_minFreq; }
    void setMinFreq(unsigned value) { m_minFreq = value; }
    /// Upper edge of the band in Hz.
    unsigned maxFreq() const { return m_maxFreq; }
    void setMaxFreq(unsigned value) { m_maxFreq = value; }
    /// Seconds that the level must hold.
    uint16_t duration() const { return m_duration; }
    void setDuration(uint16_t value) { m_duration = value; }
    /// Seconds that the event goes on afterwards.
    uint16_t eventHold() const { return m_eventHold; }
    void setEventHold(uint16_t value) { m_eventHold = value; }
    /// Seconds kept from before the event.
    uint16_t preTrigger() const { return m_preTrigger; }
    void setPreTrigger(uint16_t value) { m_preTrigger = value; }
    int16_t threshold() const { return m_threshold; }
    void setThreshold(int16_t value) { m_threshold = value; }
    uint16_t threshType() const { return m_threshType; }
    void setThreshType(uint16_t value) { m_threshType = value; }
    uint16_t effect() const { return m_effect; }
    void setEffect(uint16_t value) { m_effect = value; }
    uint8_t trgRegime() const { return m_eventTrg.regime; }
    SEventTrigger& eventTrg() { return m_eventTrg; }
    const SEventTrigger& eventTrg() const { return m_eventTrg; }

    /// Looks at the test type and every field with a setter; not at the regime, nor at the record's reserved
    /// bytes.
    bool compare(const HydTrigger* other) const override;

protected:
    void serializeBody(ByteStream& out) const override;
    bool deserializeBody(ByteReader& in) override;

private:
    uint8_t m_trigNum = 0;
    uint8_t m_enabled = 0;
    unsigned m_minFreq = 0;
    unsigned m_maxFreq = 0;
    uint16_t m_duration = 0;
    uint16_t m_eventHold = 0;
    uint16_t m_preTrigger = 0;
    int16_t m_threshold = 0;
    uint16_t m_threshType = 0;
    uint16_t m_effect = 0;
    // Without a meaning yet: goes back as it came.
    uint16_t m_reserved = 0;
    SEventTrigger m_eventTrg;
};

/// Letter R: the device's trigger list. One that arrives without a body reads as an empty list.
class NVXQTCOMMON_EXPORT HydEnquireTrigger : public HydControlMsgPayload,
                                             public DeserializationFactory<HydEnquireTrigger>
{
public:
    HydEnquireTrigger() = default;
    explicit HydEnquireTrigger(std::vector<std::shared_ptr<HydTrigger>> triggers)
        : m_triggers(std::move(triggers))
    {
    }

    uint8_t msgType() const override { return 'R'; }
    std::vector<std::shared_ptr<HydTrigger>> triggers() const { return m_triggers; }

    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;

private:
    std::vector<std::shared_ptr<HydTrigger>> m_triggers;
};
