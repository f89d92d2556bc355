#pragma once

#include "NvxQtCommon/contract/base/Export.h"

class StateEvent;

/// Frame of a state machine: dispatch() hands one event to the current state, which says what comes next.
/// A machine at its end state starts over from its first state at the next dispatch. Lives on its owner's
/// thread.
class NVXQTCOMMON_EXPORT FiniteStateMachine
{
public:
    virtual ~FiniteStateMachine();
    FiniteStateMachine(const FiniteStateMachine&) = delete;
    FiniteStateMachine& operator=(const FiniteStateMachine&) = delete;

    /// Handles one event in the current state. A null event changes nothing.
    void dispatch(StateEvent* event);
    bool isAtEndState() const { return m_state == kEndState; }

protected:
    static constexpr int kFirstState = 0;
    static constexpr int kEndState = -1;

    FiniteStateMachine() = default;

    /// Handles `event` in `state` and returns the next state: kEndState, kFirstState or a number of the
    /// machine's own.
    virtual int handleEvent(int state, StateEvent& event) = 0;
    int state() const { return m_state; }

private:
    int m_state = kFirstState;
};
