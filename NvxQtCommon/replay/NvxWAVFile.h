#pragma once

#include "NvxQtCommon/contract/recording/DetectorRecords.h"
#include "NvxQtCommon/contract/recording/NvxWavHeader.h"
#include "NvxQtCommon/replay/NvxDataFile.h"

#include <QFile>

class NvxWavHeaderProcessor;

/// Replay of one wave file: its header as devices and event headers, a device of type 68 for each channel,
/// and the samples as a live stream has them. It takes what NvxWavHeaderProcessor takes, and no more memory
/// for a header than that does. Failures are silent: headerPrepare() is false.
class NVXQTCOMMON_EXPORT NvxWAVFile : public NvxDataFile
{
    Q_OBJECT

public:
    /// `name` is the path of the file. Nothing is read yet.
    explicit NvxWAVFile(const QString& name, QObject* parent = nullptr);
    ~NvxWAVFile() override;

    void setFileName(const QString& name) { m_file.setFileName(name); }
    QString fileName() const { return m_file.fileName(); }
    /// A handle that is closed but for the time of headerPrepare(); callers may open it.
    QFile& file() { return m_file; }
    /// Null before headerPrepare() and after one that found no header.
    const std::shared_ptr<NvxWavHeader>& header() const { return m_header; }
    /// What headerPrepare() took for the size of the header, a list at the tail counted in.
    quint32 headerSize() const { return m_headerLength; }

    /// Reads the header and prepares the replay; false if the file can't be replayed. The list of texts of
    /// each device begins anew where `freshLog`. It may halve the FFT length of FFT_Params_WAV, which then
    /// stays so for the process. A file of less than 1276 bytes without a list ahead of its samples plays
    /// from the place where the samples of the file before began, 0 in a fresh object.
    bool headerPrepare(bool freshLog);
    /// Hands out the two records of the header, named after the file; false where one is missing.
    bool headerCheak(std::shared_ptr<NvxWavInfoData>& info, std::shared_ptr<NvxWavFmtData>& fmt);
    /// Emits a device and an event header for each channel. False without a header.
    bool headerEventPrepare();
    /// Starts the replay from the first sample, in place of one under way. Always true.
    bool processData();
    /// The record of a channel's device, `index` from 0. Null without a header. The only channel of a file
    /// gives its serial number to every index.
    std::shared_ptr<HydDevice> formDev(int index);
    /// Id of a channel, `index` from 0; of a wave file without a number for an index behind the last one.
    std::shared_ptr<HydDeviceId> devId(int index) const;

    /// Whole seconds of samples.
    unsigned length() const;
    /// Hz, 0 without a header.
    unsigned sampleRate() const;
    /// Time of the first sample, seconds since the epoch; 0 without a header.
    unsigned timestamp() const;
    /// Puts file() to the first sample of a second. False if it isn't open.
    bool seekToSec(unsigned sec);

    /// As the base class does, but with the number of channels that the file has, once that is known.
    void setReplayVel(ReplayFILEVelocity vel, int channels);
    void setAdjacent(bool adjacent, int channels);

public Q_SLOTS:
    /// Adds a line on the impulse to the texts of the device, if it is one of this file's. A record is one
    /// impulse, so each call adds one line, none for null.
    void handleImp(std::shared_ptr<SImpulseStatistics> imps, HydDeviceId devId);

Q_SIGNALS:
    /// The FFT length was looked at because the file's rate is low, whether it was changed or not.
    void signalFWFFTLenChanged();

private:
    /// The number of channels that stands where most files have it, 1 where there is none: a hint for the
    /// processor, on which nothing depends.
    int scanChannels();
    bool readHeader();
    bool readTailList(NvxWavHeaderProcessor& processor);
    void fitFftLength();
    void fillChannelDevices(const std::shared_ptr<NvxWavInfoData>& info, int channels);
    void prepareEpochLog(bool freshLog);
    void emitChannelHeader(const NvxWavInfoData& info, const NvxWavFmtData& fmt, int channel);
    int channelsOr(int channels) const;

    QFile m_file;
    std::shared_ptr<NvxWavHeader> m_header;
    quint32 m_headerLength = 0;
};
