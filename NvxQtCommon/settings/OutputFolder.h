#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <QString>

/// Where an application puts its files until it is told otherwise: the folder of documents, "/Nerivox/" and
/// the base name of the application's executable. It needs a QCoreApplication; the folder may not exist.
NVXQTCOMMON_EXPORT QString defaultOutputFolder();
