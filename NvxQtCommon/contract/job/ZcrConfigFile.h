#pragma once

#include "NvxQtCommon/contract/job/HydJobSettings.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

// The configuration file of an array controller, JOBSETUP.CFG. docs/file-formats.md has its keys. Any bytes
// are a file; what is read costs in proportion to its length.

/// The keys' texts by their numbers, 0 to 35. The functions below know a key by its number and leave out
/// those that their `keys` lack.
using ZcrConfigKeys = std::map<int, std::string>;
NVXQTCOMMON_EXPORT const ZcrConfigKeys& zcrConfigKeys();

/// The serial numbers in the lines of the channel list, each once, in their order. A piece that is no number
/// of 32 bits counts as 0, and a number loses what 16 bits don't hold.
NVXQTCOMMON_EXPORT std::vector<uint16_t> zcrConfigSerials(std::string_view file,
                                                          const ZcrConfigKeys& keys = zcrConfigKeys());

/// Sets on `settings` what the lines `KEY=value` say; keys are compared exactly, of equal ones the last
/// counts, and a value that is no number of 32 bits counts as 0.
NVXQTCOMMON_EXPORT void readZcrConfig(std::string_view file, HydJobSettings& settings,
                                      const ZcrConfigKeys& keys = zcrConfigKeys());

/// The file with all keys set to `settings` and the channel list to `serials`, in the section "*": behind the
/// line "[*]", or ahead of any "[" where there is no such line. The first line of a key is changed in place
/// and keeps its line end; keys that are missing go to the end of that section. All else stays as it is.
NVXQTCOMMON_EXPORT std::string editedZcrConfig(std::string_view file, const HydJobSettings& settings,
                                               const std::vector<uint16_t>& serials,
                                               const ZcrConfigKeys& keys = zcrConfigKeys());
