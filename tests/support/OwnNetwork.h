#pragma once

#include <QByteArray>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

/// Where it is set, this program runs in a network namespace that it has made.
inline constexpr const char* kOwnNetworkVariable = "NVX_INSIDE_OWN_NETWORK";

inline bool isInOwnNetwork()
{
    return qEnvironmentVariableIsSet(kOwnNetworkVariable);
}

/// Runs this program again in a network namespace of its own, where nobody else has port 21 or 80 and
/// everybody may bind it, and where no packet finds a way out. Returns inside of it, or, where there are no
/// namespaces, without it.
inline void enterOwnNetwork(int argc, char* argv[])
{
    if (isInOwnNetwork())
        return;
    for (const char* option : {"-n", "-rn"}) {
        const std::string probe = std::string("unshare ") + option + " ip link set lo up >/dev/null 2>&1";
        if (std::system(probe.c_str()) != 0)
            continue;
        qputenv(kOwnNetworkVariable, "1");
        const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
        std::vector<const char*> words{
            "unshare", option, "--", "sh", "-c", "ip link set lo up; exec \"$0\" \"$@\"", self.c_str()};
        words.insert(words.end(), argv + 1, argv + argc);
        words.push_back(nullptr);
        execvp(words[0], const_cast<char* const*>(words.data()));
        qunsetenv(kOwnNetworkVariable);
    }
}
