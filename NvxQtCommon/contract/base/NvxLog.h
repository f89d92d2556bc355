#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <string>

enum class NvxLogLevel {
    Debug,
    Warning,
};

/// Receives the log lines of the contract room, UTF-8 without a line break. May be called from any thread.
using NvxLogSink = void (*)(NvxLogLevel level, const std::string& text);

/// Replaces the process-wide sink and returns the one before; null puts the default back, which writes to the
/// standard error stream. The shared library routes the lines to Qt's log when it is loaded.
NVXQTCOMMON_EXPORT NvxLogSink setNvxLogSink(NvxLogSink sink);
/// Hands one line to the sink.
NVXQTCOMMON_EXPORT void nvxLog(NvxLogLevel level, const std::string& text);
