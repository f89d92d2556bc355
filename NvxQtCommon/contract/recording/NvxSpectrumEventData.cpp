#include "NvxQtCommon/contract/recording/NvxSpectrumEventData.h"

#include "NvxQtCommon/contract/recording/RecordText.h"

NvxSpectrumEventData::~NvxSpectrumEventData() = default;
NvxComSpectrumEventData::~NvxComSpectrumEventData() = default;

void NvxComSpectrumEventData::appendEntries(std::string& /*out*/) const {}

void NvxComSpectrumEventData::appendTimeAndComment(std::string& out) const
{
    RecordText::appendTime(out, m_dataTime);
    out += '\t';
    RecordText::appendText(out, m_comment);
}
