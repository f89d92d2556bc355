#pragma once

#include "NvxQtCommon/contract/identity/HydDeviceId.h"
#include "NvxQtCommon/contract/message/HydControlPayloads.h"
#include "NvxQtCommon/contract/message/HydTrigger.h"
#include "NvxQtCommon/contract/stream/HydStreamType.h"
#include "NvxQtSimulator/RecorderCounters.h"
#include "NvxQtSimulator/RecorderSettings.h"

#include <QElapsedTimer>
#include <QObject>

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <vector>

/// What the parts of one simulated recorder share: identity, job setup, clock, sample counter, triggers and
/// faults. Owned by SimulatedRecorder; lives on its thread.
class RecorderState : public QObject
{
    Q_OBJECT

public:
    explicit RecorderState(const RecorderSettings& settings, QObject* parent);

    const RecorderSettings& settings() const { return m_settings; }
    const RecorderIdentity& identity() const { return m_settings.identity; }
    const NvxNetHostInfo& netInfo() const { return m_netInfo; }
    void setNetInfo(const NvxNetHostInfo& info) { m_netInfo = info; }
    HydEnquireCmd::Report report() const;

    const HydJobSettings& jobSettings() const { return m_job; }
    /// Takes a job setup over if the recorder can run it; the code of the first thing that it can't, else 0.
    uint16_t writeJobSetup(const JobTagMap& tags);
    void setWaveRate(uint32_t rate);
    uint32_t waveRate() const { return m_job.wavRate(); }
    SampleFormat sampleFormat() const;
    /// Reference level of the spectra of a setup in dBFS. The setup has it in dB re 1 V ahead of the gain.
    static double spectrumReference(const HydJobSettings& job);

    /// Device time, seconds since the epoch.
    int64_t deviceTime() const;
    void setDeviceTime(int64_t seconds);
    int64_t clockOffset() const { return m_clockOffset; }

    /// Running number of the sample that is taken now; never behind one that was sent.
    int64_t currentSample() const;
    /// The same moment as a number of samples of another rate in Hz, above 0.
    int64_t currentSample(uint32_t rate) const;
    void noteSampleSent(int64_t sample) { m_highestSample = std::max(m_highestSample, sample + 1); }

    std::vector<std::shared_ptr<HydTrigger>> triggers() const;
    /// Adds a trigger, or replaces the one of its number. The answer's code, 0 for accepted.
    uint16_t writeTrigger(const std::shared_ptr<HydTrigger>& trigger);
    void clearTriggers();
    bool isTriggerActive(uint8_t number) const { return m_activeTriggers.contains(number); }
    void setTriggerActive(uint8_t number, bool active);

    void noteArrival(char letter);
    const std::deque<CommandArrival>& arrivals() const { return m_arrivals; }

    uint8_t rollover() const { return m_rollover; }
    void setRollover(uint8_t value) { m_rollover = value; }

    void setFaults(const FaultPlan& plan);
    FaultDice& dice(FaultChannel channel) { return m_dice[channel]; }
    /// Asks the dice of a channel and counts a strike.
    std::optional<int64_t> strike(FaultChannel channel, Fault fault);

    /// Sample counter and triggers of a recorder that was just switched on.
    void restart();

    RecorderCounters counters;

Q_SIGNALS:
    /// The recorder restarts: whoever holds a connection drops it.
    void restarted();
    /// Every running stream sends this notification.
    void notification(quint16 code, const QByteArray& text);
    void commandReceived(char letter);
    void triggersChanged();
    /// Every reader of the epoch stream gets this line, which has its line feed.
    void epochLine(const QByteArray& line);
    void enquiryAnswered();
    void streamStarted(HydStreamType type);
    void streamStopped(HydStreamType type);

private:
    void rebaseSampleCounter();

    RecorderSettings m_settings;
    NvxNetHostInfo m_netInfo;
    HydJobSettings m_job;
    int64_t m_clockOffset;
    QElapsedTimer m_sinceBase;
    int64_t m_baseSample;
    int64_t m_highestSample;
    std::map<uint8_t, std::shared_ptr<HydTrigger>> m_triggers;
    std::set<uint8_t> m_activeTriggers;
    QElapsedTimer m_sinceMade;
    std::deque<CommandArrival> m_arrivals;
    uint8_t m_rollover;
    std::map<FaultChannel, FaultDice> m_dice;
};
