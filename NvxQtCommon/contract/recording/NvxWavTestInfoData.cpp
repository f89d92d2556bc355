#include "NvxQtCommon/contract/recording/NvxWavTestInfoData.h"

NvxWavTestInfoData::~NvxWavTestInfoData() = default;
