#include "NvxQtCommon/contract/recording/SpecStreamEvent.h"

SpecStreamEvent::~SpecStreamEvent() = default;
