#include "shared/SpectrumLevels.h"

#include "shared/SpectrumFile.h"

#include <QFileInfo>

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

namespace {

// No sound is louder, and its power fits a float.
constexpr double kMostDb = 300.0;

/// When each spectrum begins, in seconds since the first, and how long one lasts.
struct Times
{
    std::vector<double> starts;
    double interval = 1.0;

    double end() const { return starts.back() + interval; }
    /// The next spectrum goes on from this one, unless more than whole seconds can hide is missing between.
    double endOf(size_t index) const
    {
        const double own = starts[index] + interval;
        if (index + 1 == starts.size() || starts[index + 1] > own + 0.5 * interval + 1.0)
            return own;
        return starts[index + 1];
    }
};

/// The file has whole seconds; the spectra of one second follow each other in it.
Times readTimes(SpectrumFile& file)
{
    const NvxSpectrumFileHeader& header = file.header();
    Times times;
    if (header.accums() > 0 && header.numPtsBtw() > 0)
        times.interval = double(header.accums()) * header.numPtsBtw() / header.sampleRate();
    std::vector<unsigned long long> seconds;
    while (file.next())
        seconds.push_back(seconds.empty()
                              ? file.record().dataTime()
                              : std::max<unsigned long long>(seconds.back(), file.record().dataTime()));
    for (size_t first = 0, behind = 0; first < seconds.size(); first = behind) {
        while (behind < seconds.size() && seconds[behind] == seconds[first])
            ++behind;
        const double step = std::min(times.interval, 1.0 / double(behind - first));
        for (size_t i = first; i < behind; ++i)
            times.starts.push_back(double(seconds[first] - seconds.front()) + double(i - first) * step);
    }
    return times;
}

} // namespace

SpectrumLevels readSpectrumLevels(const QString& path, int columns)
{
    SpectrumLevels found;
    SpectrumFile file;
    const auto objection = [&] {
        return file.error().isEmpty() ? path + QStringLiteral(": there are no spectra in it.") : file.error();
    };
    if (!file.open(path)) {
        found.error = objection();
        return found;
    }
    const Times times = readTimes(file);
    found.oddLines = file.oddLines();

    // Read again: a long file needn't fit the memory.
    SpectrumFile again;
    if (times.starts.empty() || !again.open(path) || !again.next()) {
        found.error = objection();
        return found;
    }
    const int bins = again.record().numBins();
    LevelGrid& grid = found.grid;
    grid.columns.resize(size_t(columns));
    grid.bins = bins;
    grid.seconds = times.end();
    grid.kilohertz = again.binWidth() * bins / 1000.0;
    grid.unit =
        again.record().isDSpectrum() ? QStringLiteral("dB above noise") : QStringLiteral("dB re 1 µPa");

    std::vector<int> counts(grid.columns.size(), 0);
    const auto columnAt = [&](double second) {
        return std::clamp(int(second / grid.seconds * columns), 0, columns);
    };
    std::vector<float> powers(static_cast<size_t>(bins));
    size_t index = 0;
    do {
        for (int bin = 0; bin < bins; ++bin)
            powers[size_t(bin)] =
                float(std::pow(10.0, std::clamp(again.level(bin), -kMostDb, kMostDb) / 10.0));
        const int first = std::min(columnAt(times.starts[index]), columns - 1);
        const int behind = std::max(first + 1, columnAt(times.endOf(index)));
        for (int column = first; column < behind; ++column) {
            std::vector<float>& sums = grid.columns[size_t(column)];
            sums.resize(size_t(bins), 0.0F);
            std::transform(sums.begin(), sums.end(), powers.begin(), sums.begin(), std::plus<>());
            ++counts[size_t(column)];
        }
    } while (++index < times.starts.size() && again.next());
    for (size_t column = 0; column < grid.columns.size(); ++column)
        for (float& level : grid.columns[column])
            level = 10.0F * std::log10(level / float(counts[column]));

    const NvxSpectrumFileHeader& header = again.header();
    found.title = QStringLiteral("%1    %2 spectra of %3 points, %4 Hz, device %5")
                      .arg(QFileInfo(path).fileName())
                      .arg(times.starts.size())
                      .arg(header.numPts())
                      .arg(header.sampleRate())
                      .arg(header.devId().serialNo());
    return found;
}
