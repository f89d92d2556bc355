#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/identity/HydDeviceId.h"
#include "NvxQtCommon/contract/job/HydJobEnums.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumFileData.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumFileHeader.h"

#include <QDateTime>
#include <QString>

#include <cstdint>
#include <fstream>
#include <memory>
#include <vector>

/// What a spectrum stream does with the ambient noise. Other numbers are off.
enum NOISE_FILTER_MODE : int32_t {
    NoiseFilterOff = 0,
    /// The filter is kept ready, and spectra pass unfiltered.
    NoiseFilterReady = 1,
    /// The filter is subtracted.
    NoiseFilterSubtract = 2,
};

/// One ambient noise spectrum of one device, one float a bin in dB: a sum of spectra until calcAvg() makes
/// the filter of it. Copies share nothing; they are not in the middle of a file. A plain value of whoever
/// holds it.
class NVXQTCOMMON_EXPORT NvxNoiseFilter
{
public:
    /// The number of points is that of FFT_Params_WAV.
    NvxNoiseFilter();
    /// `folder` is that of the file; `rate` in Hz.
    NvxNoiseFilter(HydDeviceId const& devId, QString folder, SampRate rate);
    NvxNoiseFilter(const NvxNoiseFilter& other);
    NvxNoiseFilter& operator=(const NvxNoiseFilter& other);
    ~NvxNoiseFilter();

    const HydDeviceId& devId() const { return m_devId; }
    void setDevId(HydDeviceId devId) { m_devId = std::move(devId); }
    /// One value a bin: the sum, or the filter in dB.
    std::vector<float>& data() { return m_data; }
    const std::vector<float>& data() const { return m_data; }
    /// Hz.
    SampRate rate() const { return m_rate; }
    void setRate(SampRate rate) { m_rate = rate; }
    const QString& folderName() const { return m_folderName; }
    void setFolderName(QString const& folder) { m_folderName = folder; }
    /// Start of the recording, UTC; invalid until a file was read.
    const QDateTime& dateTime() const { return m_dateTime; }
    void setDateTime(QDateTime time) { m_dateTime = std::move(time); }
    /// True when the spectra come from the device, false when this computer made them of waves.
    bool ifDeviceFFT() const { return m_ifDeviceFFT; }
    void setIfDeviceFFT(bool deviceFft) { m_ifDeviceFFT = deviceFft; }
    /// Points of a spectrum.
    uint32_t numPts() const { return m_numPts; }
    /// Another number than before clears the data.
    void setNumPts(unsigned int points);
    /// How many spectra the data sum; 1 after calcAvg().
    int32_t count() const { return m_count; }

    void clearData();
    /// Another size than before leaves `n` zeros and no spectrum; a negative one counts as 0.
    void resizeData(int n);
    /// Adds a spectrum of `n` values, out of `values` with `asDouble`, else out of `bytes`; the other array
    /// isn't looked at. A null array of more than 0 values changes nothing. Another size than before throws
    /// the sum away.
    void addData(bool asDouble, int n, double* values, unsigned char* bytes);
    /// Turns the sum into the filter: the average, rounded up by design, and smoothed over the neighbouring
    /// bins. A single spectrum stays as it is.
    void calcAvg();

    /// Adds the spectra of the file to the data. False when there is no such file, it is none of the family,
    /// or its rate isn't `sampleRate` in Hz; rate, points and start are those of the file then. A line that
    /// is no record ends the reading, which is no failure.
    bool read(int sampleRate);
    /// Name of the file without folder and ending.
    QString fileNameForm() const;
    /// Reads the header of the file that read() was for. True when it is one.
    bool readHeader();
    /// Adds the next spectrum of the file that read() works on.
    bool readRecord();

private:
    void smooth();
    bool skipTitles();
    int64_t position();

    HydDeviceId m_devId;
    QString m_folderName;
    QString m_filePath;
    std::shared_ptr<NvxSpectrumFileHeader> m_header;
    std::shared_ptr<NvxSpectrumFileData> m_record;
    std::ifstream m_file;
    int64_t m_dataOffset = 0;
    std::vector<float> m_data;
    int32_t m_count = 0;
    SampRate m_rate{0};
    uint32_t m_numPts;
    QDateTime m_dateTime;
    bool m_ifDeviceFFT = true;
};
