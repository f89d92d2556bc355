// The configuration file of an array controller: any bytes are a file, an edited file is edited no further,
// and what isn't ours stays.

#include "FuzzTarget.h"

#include "NvxQtCommon/contract/job/ZcrConfigFile.h"

#include <algorithm>
#include <vector>

namespace {

HydJobSettings fuzzSettings()
{
    HydJobSettings settings;
    settings.setWavRate(SampRate{96000});
    settings.setFftRef(-120);
    settings.setWavLogStartTime(1700000000);
    return settings;
}

/// The lines, without their ends, that begin with no key.
std::vector<std::string_view> otherLines(std::string_view file, const std::string& ours)
{
    std::vector<std::string_view> lines;
    while (!file.empty()) {
        const auto length = std::min(file.find('\n'), file.size() - 1) + 1;
        auto line = file.substr(0, length);
        file.remove_prefix(length);
        while (line.ends_with('\n') || line.ends_with('\r'))
            line.remove_suffix(1);
        const auto equals = line.find('=');
        const bool isOurs = equals != std::string_view::npos && line.starts_with('$') &&
                            ours.find('\n' + std::string(line.substr(0, equals + 1))) != std::string::npos;
        if (!isOurs)
            lines.push_back(line);
    }
    return lines;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string file(reinterpret_cast<const char*>(data), std::min<size_t>(size, 65536));
    const HydJobSettings settings = fuzzSettings();
    const std::vector<uint16_t> serials{7, 65535};
    const std::string ours = '\n' + editedZcrConfig({}, settings, serials);

    const std::string edited = editedZcrConfig(file, settings, serials);
    require(editedZcrConfig(edited, settings, serials) == edited, "an edited file is edited no further");
    require(otherLines(edited, ours) == otherLines(file, ours), "other lines stay in their order");

    const auto before = zcrConfigSerials(file);
    auto both = zcrConfigSerials(file + "\n$ARRAY_SERIALS=1,65535");
    require(std::equal(before.begin(), before.end(), both.begin()), "channels keep their order");
    require(std::ranges::count(both, 1) == 1 && std::ranges::count(both, 65535) == 1,
            "each channel is listed once");
    std::ranges::sort(both);
    require(std::ranges::adjacent_find(both) == both.end(), "no channel is listed twice");

    HydJobSettings read;
    readZcrConfig(file + "\n$FFT_ACCUM=4711\n", read);
    require(read.fftAccum() == 4711, "the last line of a key counts");
    return 0;
}
