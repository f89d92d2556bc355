#include "NvxQtCommon/contract/recording/NvxSpectrumEventData.h"

NvxSpectrumEventData::~NvxSpectrumEventData() = default;
NvxComSpectrumEventData::~NvxComSpectrumEventData() = default;
