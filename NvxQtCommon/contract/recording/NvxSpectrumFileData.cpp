#include "NvxQtCommon/contract/recording/NvxSpectrumFileData.h"

#include "NvxQtCommon/contract/recording/HydUtil.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumFileHeader.h"
#include "NvxQtCommon/contract/recording/RecordText.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

constexpr size_t kMaxBins = 65535;
constexpr int kFixedColumns = 5;
constexpr long long kDay = 86400;
/// How far ahead of its reference a time of day may lie.
constexpr long long kLookBack = 3600;
constexpr uint32_t kDecimalLayout = uint32_t{1} << 31;

/// A tab and the number, for each byte: four characters of which `size` count.
struct ByteField
{
    std::array<char, 4> text{};
    uint8_t size = 0;
};

constexpr std::array<ByteField, 256> makeByteFields()
{
    std::array<ByteField, 256> fields;
    for (unsigned value = 0; value < fields.size(); ++value) {
        ByteField& field = fields[value];
        field.text[field.size++] = '\t';
        if (value >= 100)
            field.text[field.size++] = static_cast<char>('0' + value / 100);
        if (value >= 10)
            field.text[field.size++] = static_cast<char>('0' + value / 10 % 10);
        field.text[field.size++] = static_cast<char>('0' + value % 10);
    }
    return fields;
}

constexpr std::array<ByteField, 256> kByteFields = makeByteFields();

unsigned char toByte(double value)
{
    const double inside = std::clamp(value, 0.0, 255.0);
    const auto whole = static_cast<int>(inside);
    return static_cast<unsigned char>(whole + (inside - whole >= 0.5 ? 1 : 0));
}

/// Reads fields that are numbers of a kind, all of them; false as soon as one is none, or has no room in
/// `out`.
template <class Number> bool takeNumbers(std::string_view fields, std::vector<Number>& out, size_t& count)
{
    count = 0;
    const char* const end = fields.data() + fields.size();
    for (const char* begin = fields.data(); count < out.size();) {
        const auto [next, error] = std::from_chars(begin, end, out[count]);
        if (error != std::errc() || (next != end && *next != '\t'))
            return false;
        ++count;
        if (next == end)
            return true;
        begin = next + 1;
    }
    return false;
}

/// Appends a tab and a frequency, without an exponent.
void appendFrequency(std::string& out, double frequency)
{
    char digits[64];
    const auto end = std::to_chars(digits, digits + sizeof digits, frequency, std::chars_format::fixed);
    out += '\t';
    out.append(digits, end.ptr);
}

/// The moment of a time of day that follows on a reference, or comes up to an hour ahead of it.
long long following(long long reference, long long timeOfDay)
{
    const long long earliest = reference - kLookBack;
    const long long wait = (timeOfDay - earliest % kDay + kDay) % kDay;
    return earliest + wait;
}

} // namespace

NvxSpectrumFileData::~NvxSpectrumFileData() = default;

std::unique_ptr<NvxSpectrumFileData> NvxSpectrumFileData::fromStreamData(const HydStreamDataPayload& payload)
{
    auto record = std::make_unique<NvxSpectrumFileData>();
    if (payload.eventKey())
        record->setDataTime(payload.eventKey()->eventId());
    if (!payload.data())
        return record;
    const HydStreamDataChunk& chunk = *payload.data();
    const auto bytes = chunk.bytes();
    const size_t count = bytes ? std::min<size_t>(chunk.numSamples(), chunk.byteSize()) : 0;
    record->m_spectrum.assign(bytes.get(), bytes.get() + count);
    if (const auto values = chunk.doubles(); values && payload.isNoiseFiltered())
        record->m_dSpectrum.assign(values.get(), values.get() + count);
    return record;
}

bool NvxSpectrumFileData::deserialise(std::string& line, unsigned long long startDt,
                                      const std::string& startDate)
{
    std::string_view rest = line;
    if (!rest.empty() && rest.back() == '\r')
        rest.remove_suffix(1);
    size_t tab = 0;
    for (int column = 1; column < kFixedColumns; ++column) {
        tab = rest.find('\t', tab) + 1;
        if (tab == 0)
            return false;
    }
    const std::string_view timeText = RecordText::takeField(rest);
    auto time = RecordText::dateTime(timeText);
    if (const auto timeOfDay = RecordText::timeOfDay(timeText)) {
        const auto start =
            static_cast<long long>(std::min<unsigned long long>(startDt, HydUtil::kLastSecondOf9999));
        const long long midnight = RecordText::date(startDate).value_or(start - start % kDay);
        const bool follows = m_readStart == startDt;
        const long long reference = follows ? static_cast<long long>(dataTime()) : midnight + start % kDay;
        time = following(reference, *timeOfDay);
    }
    const std::string_view comment = RecordText::takeField(rest);
    const auto temperature = RecordText::number<float>(RecordText::takeField(rest));
    const auto humidity = RecordText::number<float>(RecordText::takeField(rest));
    m_readBytes.clear();
    m_readValues.clear();
    const bool hasBins = rest.find('\t') != std::string_view::npos;
    const auto sequence = RecordText::number<unsigned long long>(RecordText::takeField(rest));
    if (!time || *time < 0 || !temperature || !humidity || !sequence || (hasBins && !takeBins(rest)))
        return false;
    setDataTime(static_cast<unsigned long long>(*time));
    setComment(std::string(comment));
    setSeqNum(*sequence);
    m_temperature = *temperature;
    m_humidity = *humidity;
    m_spectrum.swap(m_readBytes);
    m_dSpectrum.swap(m_readValues);
    m_readStart = startDt;
    return true;
}

bool NvxSpectrumFileData::takeBins(std::string_view fields)
{
    // A bin takes a digit and a tab at least.
    const size_t most = std::min(fields.size() / 2 + 1, kMaxBins);
    m_readBytes.resize(most);
    size_t count = 0;
    if (takeNumbers(fields, m_readBytes, count)) {
        m_readBytes.resize(count);
        return true;
    }
    m_readValues.resize(most);
    if (!takeNumbers(fields, m_readValues, count))
        return false;
    m_readValues.resize(count);
    if (!std::all_of(m_readValues.begin(), m_readValues.end(),
                     [](double value) { return std::isfinite(value); }))
        return false;
    m_readBytes.resize(count);
    std::transform(m_readValues.begin(), m_readValues.end(), m_readBytes.begin(), toByte);
    return true;
}

FFTMode NvxSpectrumFileData::fileKind(FFTMode headerMode) const
{
    switch (headerMode) {
    case FftModeWavStats:
    case FftModeImpulse:
    case FftModeAccMag:
    case FftModeBattery:
    case FftModeWavTime:
    case FftModeClick:
        return FftModeSpectrum;
    default:
        return headerMode;
    }
}

uint32_t NvxSpectrumFileData::columnLayout() const
{
    return static_cast<uint32_t>(m_spectrum.size()) | (isDSpectrum() ? kDecimalLayout : 0);
}

void NvxSpectrumFileData::appendEntries(std::string& out) const
{
    out += isDSpectrum() ? "Values\tdecimals\n" : "Values\tbytes\n";
}

void NvxSpectrumFileData::appendTitles(std::string& out, const NvxSpectrumFileHeader& header) const
{
    out += "Time\tComment\tTemperature (C)\tHumidity (%)\tSequence";
    // Without points the bins are taken to reach up to half of the rate.
    const double points = header.numPts() != 0 ? static_cast<double>(header.numPts()) : 2.0 * numBins();
    for (int bin = 0; bin < numBins(); ++bin)
        appendFrequency(out, static_cast<double>(header.sampleRate()) * bin / points);
}

void NvxSpectrumFileData::appendLine(std::string& out) const
{
    appendTimeAndComment(out);
    RecordText::appendField(out, m_temperature);
    RecordText::appendField(out, m_humidity);
    RecordText::appendField(out, seqNum());
    for (const double value : m_dSpectrum)
        RecordText::appendField(out, value);
    if (isDSpectrum())
        return;
    // Four bytes at once, of which the next field covers what doesn't count.
    const size_t start = out.size();
    out.resize(start + m_spectrum.size() * kByteFields[0].text.size());
    char* end = out.data() + start;
    for (const unsigned char value : m_spectrum) {
        const ByteField& field = kByteFields[value];
        std::copy(field.text.begin(), field.text.end(), end);
        end += field.size;
    }
    out.resize(static_cast<size_t>(end - out.data()));
}
