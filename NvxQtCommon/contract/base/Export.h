#pragma once

// NVXQTCOMMON_EXPORT marks what leaves the shared library; everything else stays hidden.
// Programs that compile the contract room into themselves define NVXQTCOMMON_STATIC.
#if defined(NVXQTCOMMON_STATIC)
#define NVXQTCOMMON_EXPORT
#elif defined(_WIN32)
#if defined(NVXQTCOMMON_BUILD)
#define NVXQTCOMMON_EXPORT __declspec(dllexport)
#else
#define NVXQTCOMMON_EXPORT __declspec(dllimport)
#endif
#else
#define NVXQTCOMMON_EXPORT __attribute__((visibility("default")))
#endif
