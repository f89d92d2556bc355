#include "NvxQtCommon/contract/recording/DetectorData.h"

#include "NvxQtCommon/contract/recording/RecordText.h"

using RecordText::appendDevice;
using RecordText::appendField;

namespace {

const char* const kEventTitles =
    "Time\tComment\tDevice\tSerial\tFirst sample\tPeak sample\tSample behind\tDuration (s)\t"
    "90 % duration (s)\tRMS (dB re 1 uPa)\tPeak (dB re 1 uPa)\tPeak to peak (dB re 1 uPa)\tSEL (dB re 1 "
    "uPa2s)";

void appendEvent(std::string& out, const SEventStatistics& event)
{
    appendDevice(out, event.devId);
    for (const uint64_t sample : {event.startSample, event.peakSample, event.endSample})
        appendField(out, sample);
    for (const double seconds : {event.duration, event.duration90})
        appendField(out, seconds);
    for (const float level : {event.splRms, event.splPeak, event.splPeakToPeak, event.sel})
        appendField(out, level);
}

template <class Data, class Statistics>
std::unique_ptr<Data> makeRecord(const std::shared_ptr<Statistics>& statistics)
{
    if (!statistics)
        return nullptr;
    return std::make_unique<Data>(*statistics);
}

} // namespace

NvxSpectrumStatsData::NvxSpectrumStatsData(const SWavStatistics& statistics) : m_statistics(statistics)
{
    setDataTime(statistics.time);
    setSeqNum(statistics.startSample);
}

NvxSpectrumStatsData::~NvxSpectrumStatsData() = default;

std::unique_ptr<NvxSpectrumStatsData>
NvxSpectrumStatsData::fromStreamData(const std::shared_ptr<SWavStatistics>& statistics)
{
    return makeRecord<NvxSpectrumStatsData>(statistics);
}

FFTMode NvxSpectrumStatsData::fileKind(FFTMode /*headerMode*/) const
{
    return FftModeWavStats;
}

void NvxSpectrumStatsData::appendTitles(std::string& out, const NvxSpectrumFileHeader& /*header*/) const
{
    out += "Time\tComment\tDevice\tSerial\tFirst sample\tDuration (s)\tRMS (dB re 1 uPa)\t"
           "Peak (dB re 1 uPa)\tPeak to peak (dB re 1 uPa)\tSEL (dB re 1 uPa2s)\t"
           "Cumulative SEL (dB re 1 uPa2s)";
}

void NvxSpectrumStatsData::appendLine(std::string& out) const
{
    appendTimeAndComment(out);
    appendDevice(out, m_statistics.devId);
    appendField(out, seqNum());
    appendField(out, m_statistics.duration);
    for (const float level : {m_statistics.splRms, m_statistics.splPeak, m_statistics.splPeakToPeak,
                              m_statistics.sel, m_statistics.selCumulative})
        appendField(out, level);
}

NvxImpulseData::NvxImpulseData(const SImpulseStatistics& statistics) : m_statistics(statistics)
{
    setDataTime(statistics.time);
    setSeqNum(statistics.startSample);
}

NvxImpulseData::~NvxImpulseData() = default;

std::unique_ptr<NvxImpulseData>
NvxImpulseData::fromStreamData(const std::shared_ptr<SImpulseStatistics>& statistics)
{
    return makeRecord<NvxImpulseData>(statistics);
}

FFTMode NvxImpulseData::fileKind(FFTMode /*headerMode*/) const
{
    return FftModeImpulse;
}

void NvxImpulseData::appendTitles(std::string& out, const NvxSpectrumFileHeader& /*header*/) const
{
    out += kEventTitles;
}

void NvxImpulseData::appendLine(std::string& out) const
{
    appendTimeAndComment(out);
    appendEvent(out, m_statistics);
}

NvxClickData::NvxClickData(const SClickStatistics& statistics) : m_statistics(statistics)
{
    setDataTime(statistics.time);
    setSeqNum(statistics.startSample);
}

NvxClickData::~NvxClickData() = default;

std::unique_ptr<NvxClickData>
NvxClickData::fromStreamData(const std::shared_ptr<SClickStatistics>& statistics)
{
    return makeRecord<NvxClickData>(statistics);
}

FFTMode NvxClickData::fileKind(FFTMode /*headerMode*/) const
{
    return FftModeClick;
}

void NvxClickData::appendTitles(std::string& out, const NvxSpectrumFileHeader& /*header*/) const
{
    out += kEventTitles;
    out += "\tPeak frequency (Hz)";
}

void NvxClickData::appendLine(std::string& out) const
{
    appendTimeAndComment(out);
    appendEvent(out, m_statistics);
    appendField(out, m_statistics.peakFrequency);
}
