#include "NvxQtCommon/contract/base/NvxLog.h"

#include <atomic>
#include <cstdio>

namespace {

void writeToStandardError(NvxLogLevel, const std::string& text)
{
    std::fprintf(stderr, "%s\n", text.c_str());
}

// Constant-initialised, so that it works before any static constructor has run.
constinit std::atomic<NvxLogSink> logSink{writeToStandardError};

} // namespace

NvxLogSink setNvxLogSink(NvxLogSink sink)
{
    return logSink.exchange(sink != nullptr ? sink : writeToStandardError);
}

void nvxLog(NvxLogLevel level, const std::string& text)
{
    logSink.load()(level, text);
}
