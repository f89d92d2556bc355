#include "NvxQtCommon/contract/recording/NvxWavSetupData.h"

NvxWavSetupData::~NvxWavSetupData() = default;
