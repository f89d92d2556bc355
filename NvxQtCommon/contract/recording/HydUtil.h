#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/identity/HydEnums.h"

#include <string>

/// Helpers for the names and stamps of files. All times are seconds since the epoch and all texts UTC; times
/// outside the years 1970 to 9999 count as the nearest one inside.
class NVXQTCOMMON_EXPORT HydUtil
{
public:
    /// The latest moment that names and stamps can tell, seconds since the epoch.
    static constexpr long long kLastSecondOf9999 = 253402300799;

    /// `prefix` and the time as "yyyyMMdd_HHmmss".
    static std::string dateTimeFname(const std::string& prefix, const long long& time);
    static std::wstring dateTimeFname(const std::wstring& prefix, const long long& time);
    /// `name` with the date and time at its end replaced; a name that doesn't end with one comes back as it
    /// is.
    static std::string replaceDateTime(const std::string& name, long long time);
    /// "yyyy-MM-dd".
    static std::string specDateStamp(long long time);
    /// "HH:mm:ss".
    static std::string specTimeStamp(long long time);
    /// The type that NvxWavInfoData::deviceType() gave the text of; DevTypeAny for any other text.
    static HydDeviceType deviceType(const std::string& text);
};
