// Wave and spectrum files as a replay prepares them: from the disk, with all that is reckoned from their
// headers.

#include "FuzzTarget.h"

#include "NvxQtCommon/contract/recording/NvxWavHeaderProcessor.h"
#include "NvxQtCommon/contract/stream/FftParams.h"
#include "NvxQtCommon/replay/NvxFFTFile.h"
#include "NvxQtCommon/replay/NvxWAVFile.h"

#include <QTemporaryFile>

namespace {

/// Path of a file that holds `input`, the same for all of them.
QString pathOf(Bytes input)
{
    static QTemporaryFile file;
    const auto size = static_cast<qint64>(input.size());
    const bool isWritten = file.open() && file.resize(0) && file.seek(0) &&
                           file.write(reinterpret_cast<const char*>(input.data()), size) == size;
    file.close();
    require(isWritten, "the input can be written to a file");
    return file.fileName();
}

qint64 firstSample(NvxWAVFile& file)
{
    require(file.file().open(QIODevice::ReadOnly) && file.seekToSec(0), "the first sample can be gone to");
    const qint64 position = file.file().pos();
    file.file().close();
    return position;
}

/// What every replay has once it is prepared.
void checkReplay(const NvxDataFile& file, qsizetype channels)
{
    require(file.channelDevices().size() == channels, "each channel has an id");
    for (const HydDeviceId& id : file.channelDevices())
        require(file.epochLogLists().contains(id), "each id has its lines");
    require(file.timerTime() >= 0 && file.curTime() >= 0, "times aren't negative");
}

bool checkWave(const QString& path, qint64 size)
{
    FFT_Params_WAV = FftParams();
    NvxWAVFile file(path);
    if (!file.headerPrepare(true)) {
        require(!file.header() && !file.headerEventPrepare() && !file.formDev(0),
                "a refused file has nothing");
        return false;
    }
    const NvxWavHeader& header = *file.header();
    const int channels = header.fmt()->numChannels();
    require(channels >= 1 && channels <= NvxWavHeaderProcessor::kMaxChannels, "channels are bounded");
    checkReplay(file, channels);
    const qint64 first = firstSample(file);
    require(first <= size, "the first sample lies in the file");
    const qint64 samples = header.dataSize();
    require(samples == 0 || samples + file.headerSize() <= size, "header and samples fit into the file");
    require(FFT_Params_WAV.fftLength() > 0, "blocks have a length");
    const quint32 length = file.headerSize();
    require(file.headerEventPrepare() && file.formDev(0), "headers can be made");

    require(file.headerPrepare(false), "a file can be prepared again");
    require(file.headerSize() == length && qint64{file.header()->dataSize()} == samples &&
                firstSample(file) == first,
            "and is what it was");
    return true;
}

bool checkSpectra(const QString& path)
{
    NvxFFTFile file(path, nullptr);
    if (!file.headerPrepare(true)) {
        require(file.channelDevices().isEmpty(), "a refused file has no channel");
        return false;
    }
    checkReplay(file, 1);
    require(file.fileDate()->numBins() > 0, "the first record has a spectrum");
    const int bins = file.fileDate()->numBins();
    const qint64 period = file.timerTime();
    require(file.headerPrepare(false), "a file can be prepared again");
    require(file.fileDate()->numBins() == bins && file.timerTime() == period, "and is what it was");
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString path = pathOf({data, size});
    const bool isWave = checkWave(path, static_cast<qint64>(size));
    require(!checkSpectra(path) || !isWave, "a file is of one kind");
    return 0;
}
