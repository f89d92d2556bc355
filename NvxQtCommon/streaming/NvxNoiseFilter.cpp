#include "NvxQtCommon/streaming/NvxNoiseFilter.h"

#include "NvxQtCommon/contract/recording/RecordText.h"
#include "NvxQtCommon/contract/recording/RecordingFile.h"
#include "NvxQtCommon/contract/stream/FftParams.h"

#include <algorithm>
#include <cmath>

NvxNoiseFilter::NvxNoiseFilter() : NvxNoiseFilter(HydDeviceId(), QString(), SampRate{0}) {}

NvxNoiseFilter::NvxNoiseFilter(HydDeviceId const& devId, QString folder, SampRate rate)
    : m_devId(devId), m_folderName(std::move(folder)), m_rate(rate), m_numPts(FFT_Params_WAV.fftLength())
{
}

NvxNoiseFilter::NvxNoiseFilter(const NvxNoiseFilter& other) : NvxNoiseFilter()
{
    *this = other;
}

NvxNoiseFilter& NvxNoiseFilter::operator=(const NvxNoiseFilter& other)
{
    // All but what reading works with: each filter has its own file, header and record.
    m_devId = other.m_devId;
    m_folderName = other.m_folderName;
    m_filePath = other.m_filePath;
    m_data = other.m_data;
    m_count = other.m_count;
    m_rate = other.m_rate;
    m_numPts = other.m_numPts;
    m_dateTime = other.m_dateTime;
    m_ifDeviceFFT = other.m_ifDeviceFFT;
    return *this;
}

NvxNoiseFilter::~NvxNoiseFilter() = default;

// --- data

void NvxNoiseFilter::setNumPts(unsigned int points)
{
    if (points == m_numPts)
        return;
    m_numPts = points;
    clearData();
}

void NvxNoiseFilter::clearData()
{
    m_data.clear();
    m_count = 0;
}

void NvxNoiseFilter::resizeData(int n)
{
    const auto size = static_cast<size_t>(std::max(0, n));
    if (size == m_data.size())
        return;
    m_data.assign(size, 0.0F);
    m_count = 0;
}

void NvxNoiseFilter::addData(bool asDouble, int n, double* values, unsigned char* bytes)
{
    if (n > 0 && (asDouble ? values == nullptr : bytes == nullptr))
        return;
    resizeData(n);
    for (size_t bin = 0; bin < m_data.size(); ++bin) {
        if (asDouble)
            m_data[bin] = static_cast<float>(m_data[bin] + values[bin]);
        else
            m_data[bin] += static_cast<float>(bytes[bin]);
    }
    ++m_count;
}

void NvxNoiseFilter::calcAvg()
{
    if (m_count > 1 && !m_data.empty()) {
        const auto count = static_cast<float>(m_count);
        const auto half = static_cast<float>(m_count >> 1);
        // Half the count and 1 are both added. This is intended.
        for (float& value : m_data)
            value = (value + half + 1.0F) / count;
        smooth();
    }
    m_count = 1;
}

/// Adds the neighbours' powers with half their weight; 3 dB less make good that the weights sum to 2. The
/// ends, with one neighbour each, so come out lower. This is intended.
void NvxNoiseFilter::smooth()
{
    std::vector<double> powers(m_data.size());
    std::transform(m_data.begin(), m_data.end(), powers.begin(),
                   [](float value) { return std::pow(10.0, static_cast<double>(value) / 10.0); });
    for (size_t bin = 0; bin < m_data.size(); ++bin) {
        double power = powers[bin];
        if (bin > 0)
            power += 0.5 * powers[bin - 1];
        if (bin + 1 < powers.size())
            power += 0.5 * powers[bin + 1];
        m_data[bin] = static_cast<float>(10.0 * std::log10(power) + 0.5) - 3.0F;
    }
}

// --- file

QString NvxNoiseFilter::fileNameForm() const
{
    return QStringLiteral("F_CAL_") + QString::number(m_devId.serialNo()) +
           (m_ifDeviceFFT ? QStringLiteral("_DEV") : QStringLiteral("_PROG"));
}

bool NvxNoiseFilter::readHeader()
{
    if (m_header == nullptr)
        m_header = std::make_shared<NvxSpectrumFileHeader>();
    m_dataOffset = m_header->deserialise(m_filePath.toStdWString());
    return m_dataOffset >= 0;
}

bool NvxNoiseFilter::read(int sampleRate)
{
    m_filePath = m_folderName + u'/' + fileNameForm() + QStringLiteral(".txt");
    if (!readHeader())
        return false;
    m_rate = SampRate{m_header->sampleRate()};
    m_dateTime = QDateTime::fromSecsSinceEpoch(static_cast<qint64>(m_header->startDt()), Qt::UTC);
    m_numPts = m_header->numPts();
    // The filter has the file's rate by now, though it isn't the one asked for. This is intended.
    if (m_header->sampleRate() != static_cast<uint32_t>(sampleRate))
        return false;
    m_file = std::ifstream(RecordingFile::systemPath(m_filePath.toStdWString()), std::ios::binary);
    const bool isRead = m_file.is_open() && skipTitles();
    if (isRead) {
        if (m_record == nullptr)
            m_record = std::make_shared<NvxSpectrumFileData>();
        while (readRecord()) {
        }
    }
    m_file = {};
    return isRead;
}

/// Moves on to the first record; false when the file ends before its records.
bool NvxNoiseFilter::skipTitles()
{
    constexpr int kMaxEmptyLines = 5;
    std::string line;
    m_file.seekg(m_dataOffset);
    if (!RecordText::readLine(m_file, line))
        return false;
    if (RecordText::isTitleLine(line)) {
        m_dataOffset = position();
        for (int count = 1; RecordText::readLine(m_file, line) && line.empty() && count < kMaxEmptyLines;
             ++count)
            m_dataOffset = position();
    }
    m_file.clear();
    m_file.seekg(m_dataOffset);
    return true;
}

bool NvxNoiseFilter::readRecord()
{
    std::string line;
    if (m_header == nullptr || m_record == nullptr || !RecordText::readLine(m_file, line))
        return false;
    if (!m_record->deserialise(line, m_header->startDt(), m_header->startDate()))
        return false;
    addData(false, m_record->numBins(), nullptr, m_record->spectrum());
    m_dataOffset = position();
    return true;
}

/// Where the next line begins, also behind a last one without its end.
int64_t NvxNoiseFilter::position()
{
    m_file.clear();
    return m_file.tellg();
}
