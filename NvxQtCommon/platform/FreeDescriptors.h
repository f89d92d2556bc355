#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <cstddef>

/// How many more files and sockets this process may open under its own limit; 0 when it can't be told because
/// none is left. A system without such a limit gives a large number. From any thread.
NVXQTCOMMON_EXPORT size_t freeDescriptors();
