#pragma once

#include "NvxQtCommon/contract/base/Export.h"

/// Something that a FiniteStateMachine is fed with. Made, dispatched and deleted by the caller.
class NVXQTCOMMON_EXPORT StateEvent
{
public:
    StateEvent() = default;
    virtual ~StateEvent();
    StateEvent(const StateEvent&) = default;
    StateEvent& operator=(const StateEvent&) = default;
};
