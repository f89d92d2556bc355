#include "NvxQtCommon/contract/recording/NvxWavEventData.h"

NvxWavEventData::~NvxWavEventData() = default;
