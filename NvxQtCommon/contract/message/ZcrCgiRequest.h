#pragma once

#include "NvxQtCommon/contract/identity/NvxNetRecords.h"
#include "NvxQtCommon/contract/job/HydJobSettings.h"

#include <string>

// The addresses of the CGI scripts of an array controller, as text that isn't percent-encoded yet.
// docs/wire-protocol.md has them.

/// Asks for the configuration.
NVXQTCOMMON_EXPORT std::string zcrConfigurationUrl(const NvxIpAddr& address);
/// Asks for the status, with the list of channels.
NVXQTCOMMON_EXPORT std::string zcrStatusUrl(const NvxIpAddr& address);
/// Sets the time, seconds since the epoch; below 1 there is no query, and the script is called all the same.
NVXQTCOMMON_EXPORT std::string zcrSetTimeUrl(const NvxIpAddr& address, long long time);
/// Writes a job setup.
NVXQTCOMMON_EXPORT std::string zcrJobSetupUrl(const NvxIpAddr& address, const HydJobSettings& settings);
