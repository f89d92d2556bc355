#include "NvxQtCommon/contract/recording/NvxSpectrumFileHeader.h"

#include "NvxQtCommon/contract/base/Utf8.h"
#include "NvxQtCommon/contract/recording/HydUtil.h"
#include "NvxQtCommon/contract/recording/RecordText.h"
#include "NvxQtCommon/contract/recording/RecordingFile.h"

#include <algorithm>
#include <fstream>
#include <type_traits>

namespace {

using Header = NvxSpectrumFileHeader;

constexpr std::string_view kSignature = "Nerivox spectrum file\t1";
/// Lines of the longest header that a reader takes.
constexpr int kMaxHeaderLines = 200;
constexpr float kTenthsPerDb = 10.0F;
constexpr std::string_view kByDevice = "device";
constexpr std::string_view kByComputer = "computer";

/// One line of the header, both ways. `read` is false for a value that is none.
struct Entry
{
    std::string_view key;
    void (*write)(std::string& out, const Header& header);
    bool (*read)(Header& header, std::string_view value);
};

template <auto Getter, auto Setter> constexpr Entry textEntry(std::string_view key)
{
    return {key,
            [](std::string& out, const Header& header) { RecordText::appendText(out, (header.*Getter)()); },
            [](Header& header, std::string_view value) {
                (header.*Setter)(std::string(value));
                return true;
            }};
}

template <auto Getter, auto Setter> constexpr Entry wideTextEntry(std::string_view key)
{
    return {key,
            [](std::string& out, const Header& header) {
                RecordText::appendText(out, toUtf8((header.*Getter)()));
            },
            [](Header& header, std::string_view value) {
                (header.*Setter)(fromUtf8(value));
                return true;
            }};
}

template <auto Getter, auto Setter> constexpr Entry numberEntry(std::string_view key)
{
    return {key,
            [](std::string& out, const Header& header) { RecordText::appendNumber(out, (header.*Getter)()); },
            [](Header& header, std::string_view value) {
                const auto number = RecordText::number<decltype((header.*Getter)())>(value);
                if (number)
                    (header.*Setter)(*number);
                return number.has_value();
            }};
}

template <auto Getter, auto Setter> constexpr Entry flagEntry(std::string_view key)
{
    return {key, [](std::string& out, const Header& header) { out += (header.*Getter)() ? '1' : '0'; },
            [](Header& header, std::string_view value) {
                (header.*Setter)(value == "1");
                return value == "0" || value == "1";
            }};
}

template <auto Getter, auto Setter> constexpr Entry timeEntry(std::string_view key)
{
    return {key,
            [](std::string& out, const Header& header) { RecordText::appendTime(out, (header.*Getter)()); },
            [](Header& header, std::string_view value) {
                const auto time = RecordText::dateTime(value);
                if (time)
                    (header.*Setter)(static_cast<unsigned long long>(*time));
                return time.has_value();
            }};
}

bool readNothing(Header& /*header*/, std::string_view /*value*/)
{
    return true;
}

bool readDeviceType(Header& header, std::string_view value)
{
    const auto type = RecordText::number<uint8_t>(value);
    if (type)
        header.setDeviceId(HydDeviceId(static_cast<HydDeviceType>(*type), header.devId().serialNo()));
    return type.has_value();
}

bool readSerial(Header& header, std::string_view value)
{
    const auto serial = RecordText::number<uint16_t>(value);
    if (serial)
        header.setDeviceId(HydDeviceId(header.devId().devType(), *serial));
    return serial.has_value();
}

bool readMaker(Header& header, std::string_view value)
{
    header.setIfDeviceFFT(value == kByDevice);
    return value == kByDevice || value == kByComputer;
}

const Entry kEntries[] = {
    wideTextEntry<&Header::fname, &Header::setFname>("Name"),
    textEntry<&Header::clientName, &Header::setClientName>("Client"),
    textEntry<&Header::jobName, &Header::setJobName>("Job"),
    textEntry<&Header::personnel, &Header::setPersonnel>("Personnel"),
    textEntry<&Header::computerName, &Header::setComputerName>("Computer"),
    textEntry<&Header::userName, &Header::setUserName>("User"),
    {"Device",
     [](std::string& out, const Header& header) { out += deviceTypeText(header.devId().devType()); },
     readNothing},
    {"Device type",
     [](std::string& out, const Header& header) {
         RecordText::appendNumber(out, unsigned{header.devId().devType()});
     },
     readDeviceType},
    {"Serial",
     [](std::string& out, const Header& header) { RecordText::appendNumber(out, header.devId().serialNo()); },
     readSerial},
    textEntry<&Header::devModel, &Header::setDevModel>("Model"),
    textEntry<&Header::firmware, &Header::setFirmware>("Firmware"),
    flagEntry<&Header::isWavFile, &Header::setWavFile>("Replayed wave file"),
    timeEntry<&Header::startDt, &Header::setStartDt>("Start"),
    numberEntry<&Header::startSample, &Header::setStartSample>("Start sample"),
    flagEntry<&Header::isAdjacent, &Header::setAdjacent>("Continued"),
    wideTextEntry<&Header::adjFname, &Header::setAdjFname>("Continued from"),
    timeEntry<&Header::adjacentT, &Header::setAdjacentT>("Continued from time"),
    {"Spectra by",
     [](std::string& out, const Header& header) { out += header.ifDeviceFFT() ? kByDevice : kByComputer; },
     readMaker},
    numberEntry<&Header::sampleRate, &Header::setSampleRate>("Sample rate (Hz)"),
    numberEntry<&Header::numPts, &Header::setNumPts>("Points"),
    numberEntry<&Header::numPtsBtw, &Header::setNumPtsBtw>("Points between"),
    numberEntry<&Header::accums, &Header::setAccums>("Accumulations"),
    numberEntry<&Header::powerCalc, &Header::setPowerCalc>("Power calculation"),
    numberEntry<&Header::refLevelVolts, &Header::setRefLevelVolts>("Reference level (dB re 1 V)"),
    {"Reference level (dB re 1 uPa)",
     [](std::string& out, const Header& header) { RecordText::appendNumber(out, header.refLeveluPa()); },
     readNothing},
    numberEntry<&Header::sensitivity, &Header::setSensitivity>("Sensitivity (dB re 1 V/uPa)"),
};

template <class Number> void appendSetting(std::string& out, std::string_view key, Number value)
{
    out += key;
    out += '\t';
    RecordText::appendNumber(out, value);
    out += '\n';
}

void appendSettings(std::string& out, const SSELSettings& settings)
{
    appendSetting(out, "Exposure interval (s)", settings.timeInterval);
    appendSetting(out, "Exposure window", settings.timeWindow);
    appendSetting(out, "Exposure window unit", settings.timeWindowUnits);
    appendSetting(out, "Exposure kept (h)", settings.maxKeepInterv);
    appendSetting(out, "Exposure kept without end", int{settings.infinitKeepInterv});
    appendSetting(out, "Exposure peak threshold (dB re 1 uPa)", settings.pkThresh);
}

void appendSettings(std::string& out, const SImpDetectSettings& settings)
{
    appendSetting(out, "Detect threshold (dB re 1 uPa)", settings.detectThresh);
    appendSetting(out, "Reset threshold (dB re 1 uPa)", settings.resetThresh);
    appendSetting(out, "Before the impulse (ms)", settings.preDetect);
    appendSetting(out, "After the impulse (ms)", settings.postDetect);
    appendSetting(out, "Exposure threshold (dB re 1 uPa2s)", settings.selThresh);
    appendSetting(out, "Band threshold (dB re 1 uPa)", settings.splBandThresh);
    appendSetting(out, "Relative to ambient level", int{settings.useAmbientLvl});
    appendSetting(out, "Ambient level (dB re 1 uPa)", settings.ambientLvl);
    appendSetting(out, "Longest impulse (ms)", settings.maxImpTime);
}

/// A line `key<TAB>value`; what holds records or their titles has more than one tab or begins with a digit.
bool isEntryLine(std::string_view line)
{
    return !line.empty() && (line.front() < '0' || line.front() > '9') && !RecordText::isTitleLine(line) &&
           std::count(line.begin(), line.end(), '\t') == 1;
}

} // namespace

NvxSpectrumFileHeader::~NvxSpectrumFileHeader() = default;

std::unique_ptr<NvxSpectrumFileHeader>
NvxSpectrumFileHeader::fromEventHdr(const HydStreamEventHeaderPayload& event,
                                    const std::shared_ptr<HydDevice>& device, FFTMode mode)
{
    auto header = std::make_unique<NvxSpectrumFileHeader>();
    header->m_typeMode = mode;
    if (device) {
        header->m_devId = HydDeviceId(device->devType(), device->serial());
        header->m_firmware = device->firmwareRel();
        header->m_sensitivity = device->sensitivity();
    }
    if (const auto& chunks = event.deviceInfoChunks(); !chunks.empty() && chunks.front()) {
        const HydDeviceInfoChunk& chunk = *chunks.front();
        header->m_devId = HydDeviceId(chunk.devType(), chunk.serialNo());
        header->m_sensitivity = static_cast<float>(chunk.sensitivity()) / kTenthsPerDb;
    }
    if (event.eventKey()) {
        header->m_startDt = event.eventKey()->eventId();
        header->m_startSample = static_cast<uint64_t>(event.eventKey()->sequence());
    }
    header->m_adjacent = event.isAdjacent();
    if (const auto setup = event.streamSetupChunk()->fftSetup()) {
        header->m_sampleRate = setup->sampleRate();
        header->m_numPts = setup->points();
        header->m_numPtsBtw = setup->pointsBtw();
        header->m_accums = setup->accum();
        header->m_powerCalc = setup->procType();
        header->m_refLevelVolts = setup->refLevel();
    } else if (const auto wave = event.streamSetupChunk()->wavSetup()) {
        header->m_sampleRate = wave->sampleRate();
    }
    return header;
}

long long NvxSpectrumFileHeader::deserialise(const std::wstring& path)
{
    std::ifstream file(RecordingFile::systemPath(path), std::ios::binary);
    return deserialise(file);
}

long long NvxSpectrumFileHeader::deserialise(std::istream& in)
{
    std::string line;
    if (!RecordText::readLine(in, line) || line != kSignature)
        return -1;
    NvxSpectrumFileHeader read;
    for (int count = 0; count < kMaxHeaderLines; ++count) {
        // A last line without its end leaves a mark that would hide the position.
        in.clear(in.rdstate() & ~std::ios::eofbit);
        const auto position = static_cast<long long>(in.tellg());
        const bool isLine = RecordText::readLine(in, line);
        if (!isLine && !in.eof())
            return -1;
        if (!isLine || !isEntryLine(line)) {
            *this = read;
            return position;
        }
        std::string_view value = line;
        const std::string_view key = RecordText::takeField(value);
        if (!read.takeEntry(key, value))
            return -1;
    }
    return -1;
}

bool NvxSpectrumFileHeader::takeEntry(std::string_view key, std::string_view value)
{
    if (key == "Type") {
        const auto mode = RecordText::number<uint8_t>(value);
        m_typeMode = static_cast<FFTMode>(mode.value_or(m_typeMode));
        return mode.has_value();
    }
    const auto* entry = std::find_if(std::begin(kEntries), std::end(kEntries),
                                     [key](const Entry& known) { return known.key == key; });
    // Entries that a later version adds are passed over.
    return entry == std::end(kEntries) || entry->read(*this, value);
}

std::string NvxSpectrumFileHeader::startDate() const
{
    return HydUtil::specDateStamp(static_cast<long long>(m_startDt));
}

void NvxSpectrumFileHeader::appendLines(std::string& out, const NvxComSpectrumEventData& record) const
{
    const FFTMode kind = record.fileKind(m_typeMode);
    out += kSignature;
    out += '\n';
    appendSetting(out, "Type", unsigned{kind});
    record.appendEntries(out);
    for (const Entry& entry : kEntries) {
        out += entry.key;
        out += '\t';
        entry.write(out, *this);
        out += '\n';
    }
    if (kind == FftModeWavStats)
        appendSettings(out, m_selSettings);
    if (kind == FftModeImpulse)
        appendSettings(out, m_impSettings);
}

bool NvxSpectrumFileHeader::fitsFileOf(const NvxSpectrumFileHeader& other) const
{
    return m_sampleRate == other.m_sampleRate && m_numPts == other.m_numPts && m_accums == other.m_accums &&
           m_typeMode == other.m_typeMode;
}
