#pragma once

#include "NvxQtCommon/contract/recording/NvxSpectrumEventData.h"
#include "NvxQtCommon/contract/stream/StreamPayloads.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// One spectrum as a line of a file: time, comment, temperature, humidity, sequence and one column a bin. A
/// copyable value that may be used for one line after the other.
class NVXQTCOMMON_EXPORT NvxSpectrumFileData : public NvxComSpectrumEventData
{
public:
    ~NvxSpectrumFileData() override;

    /// A new record with a copy of the payload's values: noise-filtered ones where it holds such, else bytes.
    /// The time is the key's. Never more bins than the payload holds bytes; none for a payload without data.
    static std::unique_ptr<NvxSpectrumFileData> fromStreamData(const HydStreamDataPayload& payload);
    /// Takes over a line of a file whose header gives `startDt` (seconds since the epoch) and `startDate`
    /// ("yyyy-MM-dd"). The line's time is full or one of day alone, which counts from the header's date and
    /// start, or from the line before if that was read under the same header: up to 23 hours on from there,
    /// over midnight, or up to an hour back. False for a line that is no record: a wrong time, fewer than the
    /// fixed columns, a value that is no finite number, more than 65535 bins. Then the record is as it was.
    bool deserialise(std::string& line, unsigned long long startDt, const std::string& startDate);

    /// Degrees Celsius.
    void setTemperature(float temperature) { m_temperature = temperature; }
    float temperature() const { return m_temperature; }
    /// Percent.
    void setHumidity(float humidity) { m_humidity = humidity; }
    float humidity() const { return m_humidity; }
    int numBins() const { return static_cast<int>(m_spectrum.size()); }
    /// numBins() byte values, steps of 1 dB; of a filtered spectrum out of a file rounded to 0 to 255. Null
    /// without bins. They stay the record's.
    unsigned char* spectrum() { return m_spectrum.empty() ? nullptr : m_spectrum.data(); }
    /// numBins() noise-filtered values in dB; null unless isDSpectrum(). They stay the record's.
    double* dSpectrum() { return m_dSpectrum.empty() ? nullptr : m_dSpectrum.data(); }
    /// True when the values are noise-filtered. Out of a file that is so when one of them is no whole number
    /// of 0 to 255.
    bool isDSpectrum() const { return !m_dSpectrum.empty(); }

    FFTMode fileKind(FFTMode headerMode) const override;
    uint32_t columnLayout() const override;
    /// "Values": "bytes" or "decimals".
    void appendEntries(std::string& out) const override;
    void appendTitles(std::string& out, const NvxSpectrumFileHeader& header) const override;
    void appendLine(std::string& out) const override;

private:
    bool takeBins(std::string_view fields);

    float m_temperature = 0.0F;
    float m_humidity = 0.0F;
    std::vector<unsigned char> m_spectrum;
    std::vector<double> m_dSpectrum; ///< empty, or as many as m_spectrum
    std::vector<unsigned char> m_readBytes;
    std::vector<double> m_readValues;
    std::optional<uint64_t> m_readStart; ///< start of the file whose line was read last
};
