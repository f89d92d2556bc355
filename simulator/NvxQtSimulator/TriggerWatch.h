#pragma once

#include "NvxQtCommon/contract/message/HydTrigger.h"
#include "NvxQtSimulator/RecorderState.h"

#include <QElapsedTimer>
#include <QTimer>

#include <cstdint>
#include <map>
#include <optional>

/// Lets the triggers of a recorder fire on its own signal, and writes the lines of its epoch stream. A child
/// of the state that it watches.
class TriggerWatch : public QObject
{
    Q_OBJECT

public:
    explicit TriggerWatch(RecorderState* state);

private:
    struct Watched
    {
        HydTrigger_5_6 trigger;
        bool isActive = false;
        /// Since when the level is on the side of the threshold that leads to a change, by m_clock.
        std::optional<int64_t> since;
    };

    void takeTriggers();
    void look();
    void lookAt(Watched& watched, double level);
    void change(Watched& watched, bool isActive);
    double unitInMicropascal() const;

    RecorderState* m_state;
    QTimer m_pace;
    QElapsedTimer m_clock;
    std::map<uint8_t, Watched> m_watched;
    uint64_t m_starts = 0;
};
