#include "NvxQtCommon/contract/recording/NvxSpectrumFileHeader.h"

#include "NvxQtCommon/contract/recording/HydUtil.h"

#include <algorithm>

namespace {

/// A text of several lines would look like further entries.
std::string headerLine(const char* title, std::string value)
{
    std::replace_if(
        value.begin(), value.end(), [](char c) { return c == '\n' || c == '\r' || c == '\t'; }, ' ');
    return std::string(title) + ":\t" + value + "\n";
}

} // namespace

NvxSpectrumFileHeader::~NvxSpectrumFileHeader() = default;

std::string NvxSpectrumFileHeader::startDate() const
{
    return HydUtil::specDateStamp(static_cast<long long>(m_startDt));
}

std::string NvxSpectrumFileHeader::text() const
{
    return headerLine("File type", std::to_string(m_typeMode)) + headerLine("Client", m_clientName) +
           headerLine("Job", m_jobName) + headerLine("Personnel", m_personnel) +
           headerLine("Computer", m_computerName) + headerLine("User", m_userName) +
           headerLine("Device", deviceTypeText(m_devId.devType())) +
           headerLine("Serial", std::to_string(m_devId.serialNo())) + headerLine("Model", m_devModel) +
           headerLine("Firmware", m_firmware) + headerLine("Start date", startDate()) +
           headerLine("Start time", HydUtil::specTimeStamp(static_cast<long long>(m_startDt)));
}
