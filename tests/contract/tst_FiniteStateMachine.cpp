#include "NvxQtCommon/contract/base/FiniteStateMachine.h"

#include "NvxQtCommon/contract/base/StateEvent.h"
#include "tests/support/NvxTestCase.h"

#include <vector>

class tst_FiniteStateMachine : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void beginsInItsFirstState();
    void goesFromStateToState();
    void startsOverBehindItsEnd();
    void handsOverTheEventItWasGiven();
    // --- rainy day flows
    void nullEventChangesNothing();
    void nullEventKeepsTheEndState();
};

namespace {

class NumberEvent : public StateEvent
{
public:
    explicit NumberEvent(int next) : m_next(next) {}
    int next() const { return m_next; }

private:
    int m_next;
};

/// Goes to the state that its event names and remembers where it came from.
class ListeningMachine : public FiniteStateMachine
{
public:
    static constexpr int kEnd = kEndState;
    static constexpr int kFirst = kFirstState;

    using FiniteStateMachine::state;
    std::vector<int> from;
    std::vector<const StateEvent*> events;

protected:
    int handleEvent(int state, StateEvent& event) override
    {
        from.push_back(state);
        events.push_back(&event);
        return static_cast<NumberEvent&>(event).next();
    }
};

} // namespace

void tst_FiniteStateMachine::beginsInItsFirstState()
{
    const ListeningMachine machine;
    QVERIFY(!machine.isAtEndState());
    QCOMPARE(machine.state(), ListeningMachine::kFirst + 0);
}

void tst_FiniteStateMachine::goesFromStateToState()
{
    ListeningMachine machine;
    for (const int next : {3, 3, 7, int{ListeningMachine::kEnd}}) {
        NumberEvent event(next);
        machine.dispatch(&event);
    }
    QCOMPARE(machine.from, (std::vector<int>{0, 3, 3, 7}));
    QVERIFY(machine.isAtEndState());
}

void tst_FiniteStateMachine::startsOverBehindItsEnd()
{
    ListeningMachine machine;
    NumberEvent last(ListeningMachine::kEnd);
    NumberEvent other(5);
    machine.dispatch(&last);
    machine.dispatch(&other);
    QCOMPARE(machine.from, (std::vector<int>{0, 0}));
    QVERIFY(!machine.isAtEndState());
    QCOMPARE(machine.state(), 5);
}

void tst_FiniteStateMachine::handsOverTheEventItWasGiven()
{
    ListeningMachine machine;
    NumberEvent event(1);
    machine.dispatch(&event);
    machine.dispatch(&event);
    QCOMPARE(machine.events, (std::vector<const StateEvent*>{&event, &event}));
}

void tst_FiniteStateMachine::nullEventChangesNothing()
{
    ListeningMachine machine;
    NumberEvent event(4);
    machine.dispatch(&event);
    machine.dispatch(nullptr);
    QCOMPARE(machine.from.size(), size_t{1});
    QCOMPARE(machine.state(), 4);
}

void tst_FiniteStateMachine::nullEventKeepsTheEndState()
{
    ListeningMachine machine;
    NumberEvent event(ListeningMachine::kEnd);
    machine.dispatch(&event);
    machine.dispatch(nullptr);
    QVERIFY(machine.isAtEndState());
}

QTEST_APPLESS_MAIN(tst_FiniteStateMachine)
#include "tst_FiniteStateMachine.moc"
