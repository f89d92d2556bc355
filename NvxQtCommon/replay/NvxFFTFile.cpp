#include "NvxQtCommon/replay/NvxFFTFile.h"

#include "NvxQtCommon/contract/recording/RecordText.h"
#include "NvxQtCommon/contract/recording/RecordingFile.h"
#include "NvxQtCommon/replay/NvxFFTDataThread.h"

#include <QFileInfo>

#include <cmath>
#include <fstream>

namespace {

/// Lines behind the titles among which the first record is looked for.
constexpr int kLinesLookedAt = 4;

} // namespace

NvxFFTFile::NvxFFTFile(const QString& name, QObject* parent)
    : NvxDataFile(parent), m_header(std::make_shared<NvxSpectrumFileHeader>()),
      m_fileDate(std::make_shared<NvxSpectrumFileData>()), m_fileName(name)
{
}

NvxFFTFile::~NvxFFTFile() = default;

std::shared_ptr<HydDeviceId> NvxFFTFile::devId() const
{
    return std::make_shared<HydDeviceId>(DevTypeSpecFile, m_header->devId().serialNo());
}

bool NvxFFTFile::headerPrepare(bool freshLog)
{
    // Opening a pipe would wait for its writer.
    if (!QFileInfo(m_fileName).isFile())
        return false;
    *m_fileDate = NvxSpectrumFileData();
    const std::wstring path = m_fileName.toStdWString();
    m_dataPos = m_header->deserialise(path);
    if (m_dataPos < 0)
        return false;
    computeBaseTime();
    calcTimerTime(1);
    std::ifstream in(RecordingFile::systemPath(path), std::ios::binary);
    if (!in.seekg(m_dataPos) || !readFirstRecord(in))
        return false;
    const HydDeviceId id = *devId();
    m_channelDevices = {id};
    if (freshLog) {
        m_epochLog = {{id, {}}};
        m_epochCarry = {{id, {}}};
    } else {
        // The other way round than for an adjacent file. This is intended.
        writeEpochBuff(&m_epochCarry, &m_epochLog, true);
    }
    m_curTime = static_cast<qint64>(m_header->startDt());
    return true;
}

void NvxFFTFile::computeBaseTime()
{
    m_baseTime = 1;
    if (m_header->accums() == 0 || m_header->sampleRate() == 0 || m_header->numPts() == 0)
        return;
    const double seconds =
        static_cast<double>(m_header->accums()) * m_header->numPts() / m_header->sampleRate();
    m_baseTime =
        wholeMilliseconds(seconds > 0.95 ? std::round(seconds) * 500.0 : std::round(seconds * 10.0) * 50.0);
}

bool NvxFFTFile::readFirstRecord(std::istream& in)
{
    std::string line;
    if (!RecordText::readLine(in, line) || !RecordText::isTitleLine(line))
        return false;
    for (int count = 0; count < kLinesLookedAt && RecordText::readLine(in, line); ++count) {
        if (line.empty())
            continue;
        m_fileDate->deserialise(line, m_header->startDt(), m_header->startDate());
        break;
    }
    return m_fileDate->numBins() != 0;
}

bool NvxFFTFile::processData()
{
    letGoOfThread();
    auto* const thread = new NvxFFTDataThread(m_fileName, m_dataPos, this);
    m_thread = thread;
    thread->setFileHeader(m_header);
    setConnections();
    thread->start();
    Q_EMIT streamFileStarted(m_fileName, m_curTime);
    return true;
}

void NvxFFTFile::setSignalPowerSet(const CSignalPowerSettings& settings)
{
    if (m_thread != nullptr)
        static_cast<NvxFFTDataThread*>(m_thread)->setSignalPowerSet(settings);
}
