#include "NvxQtCommon/contract/base/FiniteStateMachine.h"

#include "NvxQtCommon/contract/base/ISerializable.h"
#include "NvxQtCommon/contract/base/StateEvent.h"

// The three interface classes of this folder anchor their virtual tables here.
FiniteStateMachine::~FiniteStateMachine() = default;
StateEvent::~StateEvent() = default;
ISerializable::~ISerializable() = default;

void FiniteStateMachine::dispatch(StateEvent* event)
{
    if (event == nullptr)
        return;
    const int from = m_state == kEndState ? kFirstState : m_state;
    m_state = handleEvent(from, *event);
}
