#include "NvxQtCommon/contract/recording/WavStreamEvent.h"

WavStreamEvent::~WavStreamEvent() = default;
