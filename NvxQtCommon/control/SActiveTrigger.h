#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/identity/HydDeviceId.h"
#include "NvxQtCommon/contract/message/HydTrigger.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <cstdint>

/// Who saw a trigger fire.
enum TrigType : uint8_t {
    TrigProgram = 0, ///< the application, on data of the device
    TrigDevice = 1,
    TrigInvalid = 2, ///< a line that couldn't be read
};

/// One occurrence of a trigger, or of the start or stop of a stream: what an epoch stream tells and what an
/// epoch log holds. A copyable value.
struct NVXQTCOMMON_EXPORT SActiveTrigger
{
    SActiveTrigger() = default;
    /// Reads a line of a device's epoch stream, such as
    /// "2021-03-04 05:06:07, SN 1234, Epoch 3, Seq 100, 10-1000 > 5000uPa, 30s", or with "Ended" in place of
    /// all from "Seq" on. The time is local, in the hour that the clocks skip by the offset of before. `type`
    /// becomes TrigInvalid for what is no such line. A number that is missing or doesn't fit 31 bits (the
    /// band: 32, the sequence number: 64) counts as 0; of one that is wider than its field the low bits
    /// count.
    SActiveTrigger(const QString& line, TrigType type);
    /// Reads nothing: the record keeps its defaults, and without a text its type is TrigInvalid. This is
    /// intended; the form above reads.
    SActiveTrigger(const QByteArray& line, TrigType type);

    /// Text of the state. The argument has no effect; this is intended.
    QString mes(bool unused) const;
    /// The occurrence as one line of a log, or two for the start of a file's replay, each with its line end.
    /// `dt` is the time that it bears. The line of a program's trigger ends with measCount as a percentage of
    /// the argument `measCount`, as far as `percent` is 1 to 99 and the other three are above 0.
    QString logMes(const QDateTime& dt, int percent, int measDur, int measCount) const;
    /// The same with logTime().
    QString logMes(int percent, int measDur, int measCount) const;
    /// The time as logs show it: in UTC for a program's occurrence, else in local time, which gives the
    /// digits of the device's line again.
    QDateTime logTime() const;

    uint64_t time = 0; ///< seconds since the epoch
    uint64_t seq = 0;
    uint32_t count = 0;     ///< carried along
    uint32_t measCount = 0; ///< measurements over the threshold
    HydTrigger_5_6 trigger;
    HydDeviceId devId;
    /// 0 inactive, 1 pre-event, 2 started, 4 and 7 active, 5 post-event, 6 ended; 9 to 13 a stream started,
    /// 14 and 15 it stopped; all others are messages.
    uint8_t state = 0;
    TrigType type = TrigProgram;
    QString fileName; ///< of the file that states 12 and 13 are about

private:
    void read(const QString& line, TrigType type);
    QString details() const;
    QString band() const;
};
