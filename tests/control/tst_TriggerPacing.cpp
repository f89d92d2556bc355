#include "ControlPeer.h"
#include "TriggerLists.h"
#include "tests/support/NvxTestCase.h"

#include "NvxQtCommon/control/NvxDeviceController.h"

#include <QSet>
#include <QSignalSpy>

#include <algorithm>
#include <utility>
#include <vector>

namespace {

const QString kAddress = QStringLiteral("127.22.7.1");
constexpr qint64 kStep = 200;
constexpr qint64 kEarly = 10;
constexpr qint64 kLate = 150;
// Where the machine stalls, a command comes late and the gap behind it is short. So each gap has to be right
// in one of these tries, among those whose commands all came on time; wrong pacing is wrong in every try.
constexpr int kTries = 8;

/// When each command was due, in steps behind the marker that is sent ahead of the setup.
using Schedule = QList<std::pair<char, int>>;

} // namespace

Q_DECLARE_METATYPE(TriggerList)
Q_DECLARE_METATYPE(Schedule)

/// When the commands of a trigger setup arrive at the recorder. Runs alone, since it looks at times.
class tst_TriggerPacing : public NvxTestCase
{
    Q_OBJECT

private:
    std::unique_ptr<ControlPeer> m_peer;
    std::shared_ptr<NvxDeviceController> m_controller;

    /// Places of the schedule whose gap to what came before is wrong; all of them when a command came more
    /// than kLate behind the most punctual one.
    QSet<qsizetype> wrongGaps(const Schedule& schedule) const
    {
        const auto& requests = m_peer->requests();
        QSet<qsizetype> wrong;
        QSet<qsizetype> all;
        std::vector<qint64> lateness{requests[0].ms};
        for (qsizetype i = 0; i < schedule.size(); ++i) {
            const int before = i == 0 ? 0 : schedule[i - 1].second;
            const qint64 gap = requests[i + 1].ms - requests[i].ms;
            const qint64 due = (schedule[i].second - before) * kStep;
            if (gap < due - kEarly || gap > due + kLate)
                wrong << i;
            all << i;
            lateness.push_back(requests[i + 1].ms - schedule[i].second * kStep);
        }
        const auto [least, most] = std::minmax_element(lateness.begin(), lateness.end());
        return *most - *least > kLate ? all : wrong;
    }

private Q_SLOTS:
    void init()
    {
        failOnUnexpectedWarnings();
        m_peer = std::make_unique<ControlPeer>(kAddress);
        QVERIFY(m_peer->listen());
        const auto device = HydDevice::createDevice(DevTypeRecorderA);
        device->setNetHostInfo(NvxNetHostInfo(m_peer->ipAddr().toInt()));
        m_controller = NvxDeviceController::createController(device, ConnTcp);
        QSignalSpy opened(m_controller.get(), &NvxDeviceController::channelOpen);
        m_controller->openChannel(ChanCommand);
        QTRY_VERIFY(!opened.isEmpty() && m_peer->isConnected());
    }
    void cleanup()
    {
        m_controller.reset();
        m_peer.reset();
    }

    // --- happy flows
    void arrivals_data();
    void arrivals();
};

void tst_TriggerPacing::arrivals_data()
{
    QTest::addColumn<TriggerList>("held");
    QTest::addColumn<TriggerList>("wanted");
    QTest::addColumn<bool>("enquire");
    QTest::addColumn<Schedule>("schedule");
    const TriggerList both{eventTrigger(1), eventTrigger(2)};
    QTest::newRow("one changed") << both << TriggerList{eventTrigger(1), eventTrigger(2, 7)} << true
                                 << Schedule{{'S', 1}, {'R', 2}};
    QTest::newRow("one missing") << both << TriggerList{eventTrigger(2)} << true
                                 << Schedule{{'U', 0}, {'S', 2}, {'R', 3}};
    QTest::newRow("equal") << both << both << true << Schedule{{'R', 1}};
    QTest::newRow("empty wish") << both << TriggerList{} << true << Schedule{{'U', 0}, {'R', 1}};
    QTest::newRow("missing, nothing to send")
        << both << TriggerList{plainTrigger(9)} << true << Schedule{{'U', 0}, {'R', 2}};
    QTest::newRow("without enquiry") << TriggerList{} << both << false << Schedule{{'S', 1}, {'S', 2}};
    TriggerList many;
    Schedule steps;
    for (int i = 1; i <= 24; ++i) {
        many.push_back(eventTrigger(i));
        steps << std::pair('S', i);
    }
    QTest::newRow("long list") << TriggerList{} << many << true << steps + Schedule{{'R', 25}};
}

void tst_TriggerPacing::arrivals()
{
    QFETCH(TriggerList, held);
    QFETCH(TriggerList, wanted);
    QFETCH(bool, enquire);
    QFETCH(Schedule, schedule);
    QByteArray letters("E");
    for (const auto& command : schedule)
        letters += command.first;
    QSet<qsizetype> wrong;
    for (int i = 0; i < kTries; ++i) {
        m_peer->forget();
        m_controller->device()->setTriggers(held);
        m_controller->sendEnquire();
        m_controller->setupTriggers(wanted, enquire);
        QTRY_COMPARE_WITH_TIMEOUT(m_peer->letters(), letters, 15000);
        const auto now = wrongGaps(schedule);
        wrong = i == 0 ? now : wrong & now;
        if (wrong.isEmpty())
            return;
        qInfo() << "wrong gaps:" << wrong;
    }
    QFAIL("a gap was never right");
}

QTEST_GUILESS_MAIN(tst_TriggerPacing)
#include "tst_TriggerPacing.moc"
