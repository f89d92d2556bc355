#include "tests/array/ArrayController.h"
#include "tests/support/Buried.h"
#include "tests/support/NvxTestCase.h"

#include <QSignalSpy>
#include <QTimer>

#include <chrono>
#include <list>

using namespace std::chrono_literals;

namespace {

using Grave = Buried<ZcrDeviceController>;

const QStringList kErrorStream{QStringLiteral("error stream")};

} // namespace

/// How long an array controller's controller waits for frames of its channels: one wait for all functions,
/// which look at what is there afterwards.
class tst_ZcrDeviceControllerWait : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    // --- happy flows
    void endsAfterTwoSeconds();
    void wholeListAtTheEnd();
    void nothingMoreBehindAReport();
    // --- rainy day flows
    void extraConnectionsRepeatTheStep();
    void aLaterPassBeginsItAnew();
    void aPassInsideItsReportHasNone();
    void aNewStartUpReadIsReportedByTheWaitOfTheLast();
    void closingEndsIt();
    void noChannelsEndIt();
    void noLimitForAConfigurationByCgi();
    void deletedAtTheEnd();

private:
    /// Remembers the timer that fires.
    bool eventFilter(QObject* watched, QEvent* event) override;
    /// A controller with an address of its own.
    MuteArrayController& begun(bool isFile = true);

    std::list<MuteArrayController> m_controllers;
    MuteArrayController* m_missing = nullptr;
    MuteArrayController* m_filled = nullptr;
    MuteArrayController* m_reported = nullptr;
    MuteArrayController* m_thrice = nullptr;
    MuteArrayController* m_later = nullptr;
    MuteArrayController* m_inside = nullptr;
    MuteArrayController* m_again = nullptr;
    MuteArrayController* m_closed = nullptr;
    MuteArrayController* m_closedByItsBase = nullptr;
    MuteArrayController* m_emptied = nullptr;
    MuteArrayController* m_byCgi = nullptr;
    bool m_isEarly = true;
    bool m_isLate = false;
    bool m_wasInTime = false;
    bool m_wasProlonged = false;
    bool m_wasActiveInside = false;
    QTimer* m_firing = nullptr;
    QTimer* m_insideTimer = nullptr;
};

bool tst_ZcrDeviceControllerWait::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::Timer)
        m_firing = qobject_cast<QTimer*>(watched);
    return NvxTestCase::eventFilter(watched, event);
}

MuteArrayController& tst_ZcrDeviceControllerWait::begun(bool isFile)
{
    MuteArrayController& array =
        m_controllers.emplace_back(0x7F510710 + static_cast<uint32_t>(m_controllers.size()));
    array.listChannels({-165.0F, 0.0F});
    array.controller.handleZcrConfigRead(isFile);
    return array;
}

void tst_ZcrDeviceControllerWait::initTestCase()
{
    QCoreApplication::instance()->installEventFilter(this);
    // Timers fire in the order of their times, however late they are.
    QTimer::singleShot(1800ms, Qt::PreciseTimer, this, [this] { m_isEarly = false; });
    m_missing = &begun();
    connect(&m_missing->controller, &ZcrDeviceController::signalZCRErrorStream, this,
            [this] { m_wasInTime = !m_isEarly && !m_isLate; });
    m_filled = &begun();
    m_filled->adapter.hydDeviceList()[1]->setSensitivity(-170.0F);
    m_reported = &begun();
    m_thrice = &begun();
    m_later = &begun();
    m_inside = &begun();
    connect(
        &m_inside->controller, &ZcrDeviceController::signalZCRErrorStream, this,
        [this] {
            m_insideTimer = m_firing;
            m_inside->controller.handleZcrConfigRead(true);
            m_wasActiveInside = m_insideTimer != nullptr && m_insideTimer->isActive();
        },
        Qt::SingleShotConnection);
    m_again = &begun();
    m_closed = &begun();
    m_closedByItsBase = &begun();
    m_emptied = &begun();
    m_byCgi = &begun(false);
    auto* deleted = new Grave(ConnTcp);
    deleted->adapter()->hydDeviceList().push_back(std::make_shared<HydDevice>(DevTypeSkiff));
    for (int i = 0; i < 3; ++i)
        deleted->handleZcrConfigRead(true);
    connect(deleted, &ZcrDeviceController::signalZCRErrorStream, this, [deleted] { delete deleted; });
    QTimer::singleShot(2300ms, Qt::PreciseTimer, this, [this] {
        m_isLate = true;
        m_wasProlonged = m_later->told().isEmpty();
    });

    // Ahead of all limits, even on a machine that stands still for seconds.
    QTimer::singleShot(500ms, Qt::PreciseTimer, this,
                       [this] { m_later->controller.handleZcrConfigRead(true); });

    // What follows is done at once, without an event loop. Qt warns of each connection that is closed so
    // early.
    for (int closings = 0; closings < 6; ++closings)
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(QStringLiteral("QNativeSocketEngine::write.*")));
    m_reported->adapter.hydDeviceList()[1]->setSensitivity(-170.0F);
    Q_EMIT m_reported->adapter.signalZcrDevListFilled();
    QCOMPARE(m_reported->told(), wholeReport());
    m_thrice->controller.handleZcrConfigRead(true);
    m_thrice->controller.handleZcrConfigRead(true);
    m_again->controller.checkStatus(nullptr);
    m_closed->controller.closeAll();
    static_cast<NvxDeviceController&>(m_closedByItsBase->controller).closeAll();
    m_emptied->adapter.clearLists();
    m_emptied->controller.handleZcrConfigRead(true);
    QCOMPARE(m_emptied->told(), QStringList{QStringLiteral("no array")});
    QSignalSpy laterReports(&m_later->controller, &ZcrDeviceController::signalZCRErrorStream);
    QTRY_VERIFY(m_isLate);
    QTRY_COMPARE(laterReports.count(), 2);
}

void tst_ZcrDeviceControllerWait::endsAfterTwoSeconds()
{
    QVERIFY(m_wasInTime);
    QCOMPARE(m_missing->told(), kErrorStream);
    QVERIFY(m_missing->adapter.isUnConnected());
    QCOMPARE(m_missing->device->devList().size(), size_t(2));
    QCOMPARE(m_missing->device->sensitivity(), -165.0F);
}

void tst_ZcrDeviceControllerWait::wholeListAtTheEnd()
{
    // All channels have answered, but nothing has told of it.
    QCOMPARE(m_filled->told(), wholeReport());
    QCOMPARE(m_filled->device->sensitivity(), -170.0F);
}

void tst_ZcrDeviceControllerWait::nothingMoreBehindAReport()
{
    QCOMPARE(m_reported->told(), QStringList());
}

void tst_ZcrDeviceControllerWait::extraConnectionsRepeatTheStep()
{
    // This is intended.
    QCOMPARE(m_thrice->told(), kErrorStream + kErrorStream + kErrorStream);
}

void tst_ZcrDeviceControllerWait::aLaterPassBeginsItAnew()
{
    QVERIFY(m_wasProlonged);
    QCOMPARE(m_later->told(), kErrorStream + kErrorStream);
}

void tst_ZcrDeviceControllerWait::aPassInsideItsReportHasNone()
{
    // The step of the report stops the timer, whatever a slot made of it: this is intended.
    QVERIFY(m_wasActiveInside);
    QVERIFY(!m_insideTimer->isActive());
    QCOMPARE(m_inside->told(), kErrorStream);
    QVERIFY(!m_inside->adapter.isUnConnected());
}

void tst_ZcrDeviceControllerWait::aNewStartUpReadIsReportedByTheWaitOfTheLast()
{
    // It emptied the list, and has read nothing when the wait of the pass before ends: this is intended.
    QCOMPARE(m_again->told(), wholeReport());
    QVERIFY(m_again->device->devList().empty());
    QVERIFY(m_again->adapter.isUnConnected());
}

void tst_ZcrDeviceControllerWait::closingEndsIt()
{
    QCOMPARE(m_closed->told(), QStringList());
    QCOMPARE(m_closedByItsBase->told(), QStringList());
}

void tst_ZcrDeviceControllerWait::noChannelsEndIt()
{
    QCOMPARE(m_emptied->told(), QStringList());
}

void tst_ZcrDeviceControllerWait::noLimitForAConfigurationByCgi()
{
    QCOMPARE(m_byCgi->told(), QStringList());
}

void tst_ZcrDeviceControllerWait::deletedAtTheEnd()
{
    // By the first of three steps.
    QVERIFY(Grave::isGone());
    QVERIFY(Grave::isUntouched());
}

QTEST_GUILESS_MAIN(tst_ZcrDeviceControllerWait)
#include "tst_ZcrDeviceControllerWait.moc"
