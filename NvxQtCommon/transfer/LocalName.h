#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <QString>

/// True for what may become the name of a file in a chosen folder and leads to nothing else on any platform:
/// not empty, no separator of paths, no colon, no control or invisible character, no name that Windows keeps
/// for devices, no blank or point at its end (so neither "." nor ".."), at most 255 bytes of UTF-8. Names
/// that servers give go through it before anything is written; what it refuses is never mended. It isn't the
/// whole of what Windows refuses: a name with a star, a question mark, a pipe, a double quote or an angle
/// bracket passes, and no file of it can be opened there.
NVXQTCOMMON_EXPORT bool isBareFileName(const QString& name);
