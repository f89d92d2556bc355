// SActiveTrigger: whatever line comes, it is a start, an end, or none; fields behind the last one change
// nothing; and the line that a device would write of what was read gives the same again. What a log says of
// it is one line.

#include "FuzzTarget.h"

#include "NvxQtCommon/control/SActiveTrigger.h"

#include <algorithm>

namespace {

bool areEqual(const SActiveTrigger& left, const SActiveTrigger& right)
{
    return left.type == right.type && left.state == right.state && left.seq == right.seq &&
           left.devId.serialNo() == right.devId.serialNo() &&
           left.trigger.trgRegime() == right.trigger.trgRegime() && left.trigger.compare(&right.trigger);
}

QString deviceLine(const SActiveTrigger& read)
{
    const QString begin = QStringLiteral("2021-03-04 05:06:07, SN %1, Epoch %2, ")
                              .arg(read.devId.serialNo())
                              .arg(read.trigger.trigNum());
    if (read.state == 6)
        return begin + QStringLiteral("Ended");
    return begin + QStringLiteral("Seq %1, %2-%3 %4 %5uPa, %6s")
                       .arg(read.seq)
                       .arg(read.trigger.minFreq())
                       .arg(read.trigger.maxFreq())
                       .arg(QLatin1Char(read.trigger.testType() == TestTypeBelow ? '<' : '>'))
                       .arg(read.trigger.threshold())
                       .arg(read.trigger.duration());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const auto length = static_cast<qsizetype>(std::min<size_t>(size, 65536));
    const QString line = QString::fromUtf8(reinterpret_cast<const char*>(data), length);
    const SActiveTrigger read(line, TrigDevice);
    if (read.type == TrigInvalid) {
        require(read.state == 0, "what is no line has no state");
        return 0;
    }
    require(read.type == TrigDevice && (read.state == 2 || read.state == 6), "a line starts or ends");
    const SActiveTrigger longer(line + QStringLiteral(",x, 1-2 < 3,"), TrigDevice);
    require(areEqual(read, longer) && read.time == longer.time, "fields behind the last one don't count");
    require(areEqual(read, SActiveTrigger(deviceLine(read), TrigDevice)), "a device's line reads back");
    const QString logged = read.logMes(0, 0, 0);
    require(logged.endsWith(QLatin1Char('\n')) && logged.count(QLatin1Char('\n')) == 1, "one line is logged");
    return 0;
}
