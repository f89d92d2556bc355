#include "NvxQtCommon/contract/base/Interleave.h"
#include "NvxQtCommon/contract/recording/HydUtil.h"
#include "NvxQtCommon/contract/recording/NvxWavDataChunk.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataTMI.h"
#include "NvxQtCommon/contract/recording/WavStreamEvent.h"
#include "NvxQtCommon/merge/NvxWavMerger.h"
#include "NvxQtCommon/merge/WavMergeInput.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QPointer>

#include <algorithm>
#include <limits>

// The second half of NvxWavMerger: a plan becomes files.

namespace {

constexpr float kPeakVolts = 3.0F;

void describeChannel(NvxWavInfoDataTMI& record, uint8_t channel, const NvxWavInfoDataHF& recorder)
{
    // The record has as many channels as the entry has; of a channel whose number is beyond them nothing is
    // kept. This is intended.
    record.setDeviceType(HydUtil::deviceType(recorder.deviceType(1)), channel);
    record.setSerialNo(recorder.serialNo(1), channel);
    record.setSensitivity(recorder.sensitivity(1), channel);
    record.setTemperature(recorder.temperature(1), channel);
    record.setHumidity(recorder.humidity(1), channel);
}

} // namespace

void NvxWavMerger::runMergePlan()
{
    const QPointer<NvxWavMerger> alive(this);
    Q_EMIT mergeStatusMsg(QStringLiteral("Starting Merge."));
    if (!alive)
        return;
    const int64_t seconds = int64_t{m_fileLength} * kSecondsPerMinute;
    m_writer.setMaxLength(static_cast<int>(std::clamp<int64_t>(seconds, 0, std::numeric_limits<int>::max())));
    m_writer.setPath(m_outputDir.toStdWString());
    for (const auto& [minute, entry] : m_mergePlan) {
        if (m_abort)
            break;
        if (!mergeEntry(minute, entry))
            return;
    }
    if (m_abort) {
        log(QStringLiteral("Merge Aborted!"));
        Q_EMIT mergeAborted();
    } else {
        log(QStringLiteral("Merge Complete!"));
        Q_EMIT mergeComplete();
    }
}

bool NvxWavMerger::mergeEntry(int64_t minute, const Entry& entry)
{
    if (entry.empty()) {
        log(QStringLiteral("No channel to merge at ") + timeText(minute) + QLatin1Char('.'));
        return true;
    }
    std::vector<InputPtr> inputs;
    for (const auto& [channel, files] : entry)
        inputs.push_back(files.front());

    const int64_t time = m_planStart.toSecsSinceEpoch() + minute * kSecondsPerMinute;
    NvxWavInfoDataTMI record(static_cast<unsigned char>(entry.size()));
    record.applyFileName(HydUtil::dateTimeFname(std::string("MERGED_"), time));
    record.setPeakVolts(kPeakVolts);
    record.setTimestamp(static_cast<uint32_t>(time));
    record.setSoftware("NvxWavMergerV0  ");
    record.setStartSample(0);
    record.setDeviceType(DevTypeTmi, 0);
    record.setSerialNo(0, 0);
    NvxWavSetupData setup;
    setup.setBitDepth(static_cast<unsigned char>(inputs.front()->format()->bitsPerSamp()));
    setup.setSampleRate(inputs.front()->format()->sampleRate());
    // The samples are what they were, even those of a big-endian file. This is intended.
    setup.setBigEndian(false);

    const QPointer<NvxWavMerger> alive(this);
    Q_EMIT mergeStatusMsg(QStringLiteral("Merging file: ") + QString::fromStdString(record.fileName()));
    if (!alive)
        return false;
    for (const auto& [channel, files] : entry)
        describeChannel(record, channel, *files.front()->recorder());

    m_hasOutput = false;
    if (!write(record, record) || !write(setup, record))
        return false;
    for (const InputPtr& input : inputs)
        input->open(setup.bytesPerSample());
    if (!mergeBlocks(inputs, record, setup))
        return false;
    m_writer.finishFile();
    if (m_writer.errorCode() != WavErrNone) {
        handleWriteError();
        return false;
    }
    // An aborted file is merged, too. This is intended.
    log(QString::fromStdString(record.fileName()) + QStringLiteral(" merged."));
    for (const InputPtr& input : inputs)
        input->close();
    m_numMerged += static_cast<int>(inputs.size());
    return true;
}

bool NvxWavMerger::mergeBlocks(const std::vector<InputPtr>& inputs, NvxWavInfoDataTMI& record,
                               const NvxWavSetupData& setup)
{
    const QPointer<NvxWavMerger> alive(this);
    const size_t width = setup.bytesPerSample();
    const size_t channels = record.numChannels();
    std::vector<unsigned char> output(width * channels * WavMergeInput::kBlockSamples);
    std::vector<const unsigned char*> blocks(channels);
    for (bool isAtEnd = false; !isAtEnd;) {
        if (m_abort)
            return true;
        size_t bytes = 0;
        for (const InputPtr& input : inputs)
            bytes += input->readBlock();
        const size_t samples = bytes / width / channels;
        std::ranges::transform(inputs, blocks.begin(),
                               [samples](const InputPtr& input) { return input->block(samples); });
        interleaveSamples(blocks, samples, static_cast<unsigned>(width), output.data());
        if (m_abort)
            return true;
        NvxWavDataChunk chunk;
        chunk.setBitDepth(setup.bitDepth());
        chunk.setNumChannels(static_cast<unsigned char>(channels));
        chunk.setNumSamples(static_cast<unsigned short>(samples));
        chunk.setData(output.data());
        if (!write(chunk, record))
            return false;
        isAtEnd = std::ranges::any_of(inputs, [](const InputPtr& input) { return input->atEnd(); });
        QCoreApplication::processEvents();
        if (!alive)
            return false;
    }
    return true;
}

bool NvxWavMerger::write(NvxWavEventData& data, NvxWavInfoDataTMI& record)
{
    WavStreamEvent event(&data, static_cast<int>(record.timestamp()), record.startSample());
    while (!event.isConsumed()) {
        m_writer.dispatch(&event);
        if (m_writer.errorCode() != WavErrNone) {
            handleWriteError();
            return false;
        }
        if (m_writer.isNewFile())
            noteNewFile(record);
    }
    return true;
}

void NvxWavMerger::noteNewFile(NvxWavInfoDataTMI& record)
{
    // The writer goes on in another file ahead of 4 GiB, and numbers names that exist.
    if (m_hasOutput)
        log(QString::fromStdString(record.fileName()) + QStringLiteral(" merged."));
    m_hasOutput = true;
    const QString path = QString::fromStdWString(m_writer.outputFileName());
    record.applyFileName(QFileInfo(path).completeBaseName().toStdString());
    log(QStringLiteral("Created file: ") + QString::fromStdString(record.fileName()));
}

void NvxWavMerger::handleWriteError()
{
    Q_EMIT mergeFailed(QString::fromUtf8(NvxWavWriter::errorStr(m_writer.errorCode())) +
                       QStringLiteral("\nPlease ensure that there is space on the disk and that you have "
                                      "permission to write to the destination directory."));
}
