#include "NvxQtCommon/platform/FreeDescriptors.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <limits>

namespace {

// Where the system doesn't list what is open, higher numbers are taken for unused.
constexpr rlim_t kHighestTried = 65536;

rlim_t countTried(rlim_t limit)
{
    rlim_t count = 0;
    for (rlim_t number = 0; number < std::min(limit, kHighestTried); ++number) {
        if (fcntl(static_cast<int>(number), F_GETFD) != -1)
            ++count;
    }
    return count;
}

} // namespace

size_t freeDescriptors()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return std::numeric_limits<int>::max();
    DIR* folder = opendir("/dev/fd");
    if (folder == nullptr && (errno == EMFILE || errno == ENFILE))
        return 0;
    rlim_t used = 0;
    if (folder == nullptr) {
        used = countTried(limit.rlim_cur);
    } else {
        const auto own = static_cast<rlim_t>(dirfd(folder));
        while (const dirent* entry = readdir(folder)) {
            char* end = nullptr;
            const rlim_t number = std::strtoul(entry->d_name, &end, 10);
            // The limit is on the number itself: what was opened under a higher one takes nothing away.
            if (end != entry->d_name && number < limit.rlim_cur && number != own)
                ++used;
        }
        closedir(folder);
    }
    return limit.rlim_cur > used ? static_cast<size_t>(limit.rlim_cur - used) : 0;
}
