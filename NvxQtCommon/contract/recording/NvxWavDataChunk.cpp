#include "NvxQtCommon/contract/recording/NvxWavDataChunk.h"

NvxWavDataChunk::~NvxWavDataChunk() = default;
