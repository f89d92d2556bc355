#pragma once

#include "NvxQtCommon/contract/recording/NvxWavHeader.h"
#include "NvxQtCommon/replay/NvxDataThread.h"

#include <QFile>
#include <QList>

/// Reader of a replayed wave file: each tick reads its share of a second and emits it as blocks of one
/// channel, at most one FFT length long. Made and started by NvxWAVFile; see NvxDataThread for its threads
/// and its end. It holds one frame at a time, at most an FFT length of each channel, and one channel's block
/// of it: 67 MB for 255 channels of 32 bits and a length of 65536. A longer length takes more in proportion,
/// up to what the file holds for one tick. What its signals carry is their
/// receivers' to let go of.
class NVXQTCOMMON_EXPORT NvxWAVDataThread : public NvxDataThread
{
    Q_OBJECT

public:
    /// What a block can count.
    static constexpr unsigned kMaxBlockSamples = 65535;

    NvxWAVDataThread(const QString& name, QObject* parent);
    ~NvxWAVDataThread() override;

    /// Before start(): what to read, and where the samples begin. The length of the blocks follows from
    /// FFT_Params_WAV as it stands then. Without a header, its format or its record there is nothing to
    /// read, and the replay ends at its first tick.
    void setFileHeader(std::shared_ptr<NvxWavHeader> header, unsigned headerLength, int dataStart,
                       char ticksPerSecond);
    /// Puts the file to the first sample of a second. False before run() has opened it.
    bool seekToSec(unsigned sec);
    /// Closes the file, stops the ticks and ends the thread.
    void exitThread();
    /// Emits a block of a channel, `channel` from 0; under the first id for a channel without one.
    void formSignalReady(std::shared_ptr<HydStreamDataPayload> payload, int channel);

public Q_SLOTS:
    /// One tick.
    void readRecord();

Q_SIGNALS:
    /// Asks for the headers once more. Never emitted here.
    void signalForHeader();

protected:
    void run() override;

private:
    void readTick();
    qint64 tickBytes() const;
    qint64 end() const;
    bool handOut(const std::shared_ptr<unsigned char[]>& frame, qint64 size, bool isLast);
    std::shared_ptr<HydStreamDataPayload> payloadOf(std::shared_ptr<unsigned char[]> samples, unsigned count,
                                                    unsigned sampleNumber, bool isLast) const;

    QFile m_file;
    std::shared_ptr<NvxWavHeader> m_header;
    std::shared_ptr<NvxWavFmtData> m_fmt;
    std::shared_ptr<NvxWavInfoData> m_info;
    QList<HydDeviceId> m_channelIds;
    int m_dataStart = 0;
    quint64 m_tick = 0; ///< calls of readRecord() that got to their end
    unsigned m_bytesPerSample = 0;
    qint64 m_chunkBytes = 0; ///< of one channel in one block
    uint8_t m_sampleFormat = 0;
    double m_bytesPerSecond = 1.0; ///< of one channel
    qint64 m_dataEnd = 0;
    quint64 m_sampleCount = 0; ///< handed out, of all channels together
    qint8 m_ticksPerSecond = 1;
    int m_tickPhase = 0;
};
