#pragma once

#include "NvxQtCommon/control/HydDeviceController.h"
#include "NvxQtCommon/discovery/HydMarcoAdapter.h"
#include "NvxQtCommon/logging/NvxWavLogger.h"
#include "NvxQtCommon/streaming/HydStreamAdapter.h"
#include "NvxQtCommon/streaming/NvxStreamMonitor.h"
#include "NvxQtSimulator/SimulatedRecorder.h"
#include "tests/support/Patience.h"

#include <QStringList>
#include <QTemporaryDir>

#include <memory>
#include <vector>

/// The road of a recording from a simulated recorder to wave files, in steps that a test takes one by one.
/// The recorder's signal is the ramp, so that each sample in a file tells its number.
class RoadRig : public QObject
{
    Q_OBJECT

public:
    /// Device time of the first event: no whole multiple of an hour lies within the next half hour.
    static constexpr int64_t kDeviceTime = 1600000000;
    static constexpr int64_t kFirstSequence = 100000;

    /// A recorder of 8000 Hz and 16 bits with blocks of 320 samples, as fast as it can, without epochs.
    static RecorderSettings settingsAt(const char* address);
    static FaultPlan planOf(const QByteArray& rule);

    explicit RoadRig(const RecorderSettings& settings);
    ~RoadRig() override;

    // Each step is false when it didn't come to its end.
    bool startRecorder();
    bool discover();
    bool openCommands();
    /// Identity, job setup and clock are known.
    bool startUp();
    /// All of the steps above.
    bool prepare();
    void makeStream(int fileSeconds = 3600, int alivePeriodMs = 60000);
    bool startStream();
    /// Samples came that many, or were counted as missing.
    bool waitForSamples(uint64_t count, int milliseconds = kPatienceMs);
    void stopRecording();
    /// All of it: the seconds that the recorder has are in files, and these hold what came.
    bool record(int fileSeconds = 3600);

    uint64_t samplesReceived() const { return monitor.total().samplesReceived; }
    /// What is wrong with the files: they must hold the samples of all blocks received, in their order and
    /// each with the value of its number, in files that other programs read. Empty when all is well.
    QString fileObjection() const;
    /// Sample rate of each file.
    QList<int> fileRates() const;

    SimulatedRecorder recorder;
    QTemporaryDir folder;
    std::shared_ptr<HydDevice> device;
    std::shared_ptr<NvxDeviceController> controller;
    NvxStreamMonitor monitor;
    std::unique_ptr<HydStreamAdapter> stream;
    std::unique_ptr<NvxWavLogger> logger;
    QStringList files;

private:
    struct Block
    {
        int64_t first = 0;
        int64_t count = 0;
        unsigned channels = 1;
        unsigned bits = 16;
    };

    std::vector<Block> m_blocks;
};
