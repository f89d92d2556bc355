#pragma once

#include "NvxQtCommon/contract/job/HydJobSettings.h"
#include "NvxQtSimulator/ArraySettings.h"

#include <QByteArray>
#include <QObject>

#include <deque>
#include <map>
#include <optional>

/// What the services of one simulated array controller share: settings, clock, job setup, configuration file,
/// faults, counters. Child of the controller; lives on its thread.
class ArrayState : public QObject
{
    Q_OBJECT

public:
    /// Requests that are remembered.
    static constexpr size_t kMaxTargets = 4096;
    /// Connections that one service has at a time.
    static constexpr int kMaxConnections = 64;
    /// Bytes of a configuration file.
    static constexpr qsizetype kMaxFileSize = 32 * 1024 * 1024;

    /// Bytes of replies that may wait for a slow reader; what it asks meanwhile stays in the system.
    static constexpr qint64 kMaxUnsent = 64 * 1024;

    ArrayState(const ArraySettings& settings, QObject* parent);

    const ArraySettings& settings() const { return m_settings; }
    /// Seconds since the epoch by the controller's clock.
    int64_t deviceTime() const;
    void setDeviceTime(int64_t time);

    const HydJobSettings& jobSettings() const { return m_job; }
    /// Takes over what `tags` has, also into the configuration file.
    void mergeJob(const JobTagMap& tags);
    const QByteArray& configFile() const { return m_file; }
    /// Replaces the file, and takes over the job setup that it holds. False, and nothing changes, beyond
    /// kMaxFileSize.
    bool setConfigFile(const QByteArray& file);

    void noteTarget(const QByteArray& target);
    const std::deque<QByteArray>& targets() const { return m_targets; }

    void setFaults(const FaultPlan& plan);
    /// Asks the dice of a channel and counts a strike.
    std::optional<int64_t> strike(FaultChannel channel, Fault fault);

    ArrayCounters counters;

Q_SIGNALS:
    void requestReceived(const QByteArray& target);
    void configFileRead();
    void configFileWritten();
    void frameClientOpened();
    void frameClientClosed();

private:
    std::vector<uint16_t> serials() const;

    ArraySettings m_settings;
    HydJobSettings m_job;
    QByteArray m_file;
    int64_t m_clockOffset;
    std::deque<QByteArray> m_targets;
    std::map<FaultChannel, FaultDice> m_dice;
};
