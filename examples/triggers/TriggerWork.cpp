#include "triggers/TriggerWork.h"

#include "triggers/TriggerText.h"

#include <QTextStream>

#include <algorithm>

namespace {

constexpr int kEnquiries = 3;
constexpr int kAlivePeriodMs = 1000;
/// Between two commands of a trigger setup.
constexpr int kStepMs = 200;

QTextStream& triggersOut()
{
    static QTextStream stream(stdout);
    return stream;
}

} // namespace

TriggerWork::TriggerWork(const TriggerOrder& order, QObject* parent) : QObject(parent), m_order(order)
{
    m_timeout.setSingleShot(true);
}

TriggerWork::~TriggerWork() = default;

void TriggerWork::expect(const QString& complaint, int milliseconds)
{
    m_complaint = complaint;
    m_timeout.start(milliseconds);
}

// --- Step 1: find the recorder.

void TriggerWork::start()
{
    connect(&m_marco, &HydMarcoAdapter::deviceFound, this, &TriggerWork::openDevice);
    connect(&m_timeout, &QTimer::timeout, this, &TriggerWork::enquire);
    enquire();
}

void TriggerWork::enquire()
{
    if (m_enquiries++ == kEnquiries) {
        finish(NothingFound, QStringLiteral("no recorder answers at %1.").arg(m_order.address.toString()));
        return;
    }
    m_marco.netEnquireUDPIPAddr(m_order.address, false, false);
    m_timeout.start(m_order.patienceMs / kEnquiries);
}

// --- Step 2: open its command channel; the list of triggers is part of the start-up.

void TriggerWork::openDevice(std::shared_ptr<HydDevice> device)
{
    if (m_controller)
        return;
    m_timeout.disconnect(this);
    connect(&m_timeout, &QTimer::timeout, this, [this] { finish(Refused, m_complaint); });
    expect(QStringLiteral("the recorder doesn't answer on its command channel."), m_order.patienceMs);

    m_controller = NvxDeviceController::createController(std::move(device), ConnTcp);
    NvxDeviceController* controller = m_controller.get();
    connect(controller, &NvxDeviceController::channelOpen, controller, &NvxDeviceController::startUpProc);
    connect(controller, &NvxDeviceController::signalEnqTrig, this, &TriggerWork::takeList);
    connect(controller, &NvxDeviceController::signalErrorMes, this, [](const std::string& message) {
        triggersOut() << "The recorder says: " << QString::fromStdString(message) << Qt::endl;
    });
    connect(controller, &NvxDeviceController::error, this, [this](HydControlError, int socketError) {
        finish(
            Refused,
            QStringLiteral("the recorder refuses the command channel (socket error %1).").arg(socketError));
    });
    controller->openChannel(ChanCommand);
}

void TriggerWork::takeList()
{
    if (m_finished)
        return;
    if (!m_listKnown) {
        m_listKnown = true;
        printList(QStringLiteral("Triggers of the recorder"));
        if (m_order.watchSeconds > 0)
            openEpochs();
        else
            setTriggers();
    } else if (m_wishSent) {
        m_wishSent = false;
        printList(QStringLiteral("Triggers from now on"));
        if (isWishMet())
            watch();
        else
            finish(Refused, QStringLiteral("the recorder didn't take all triggers."));
    }
}

// --- Step 3: listen to what the triggers do, ahead of setting them, so that nothing is missed.

void TriggerWork::openEpochs()
{
    const HydDeviceId devId = m_controller->device()->deviceId();
    m_diary = std::make_unique<NvxEpochLogger>(0, m_order.directory, 0, nullptr);
    m_diary->setDevId(devId);
    m_diary->setLogDevMode(LogOn);
    connect(m_diary.get(), &NvxEpochLogger::loggingFailed, this,
            [this](const QString& message) { finish(DiskError, message); });

    m_epochs = std::make_unique<HydEpochStreamAdapter>(
        StreamEpoch, m_order.epochPort, m_order.address.toString(), devId, kAlivePeriodMs, true);
    connect(m_epochs.get(), &HydEpochStreamAdapter::signalTrigActive, m_diary.get(),
            &NvxEpochLogger::handleTrigActive);
    connect(m_epochs.get(), &HydEpochStreamAdapter::signalTrigActive, this, &TriggerWork::note);
    connect(m_epochs.get(), &HydStreamAdapter::streamDisconnected, this, [this] {
        finish(
            Refused,
            m_epochsOpen
                ? QStringLiteral("the recorder's epoch stream was lost.")
                : QStringLiteral("the recorder refuses its epoch stream on port %1.").arg(m_order.epochPort));
    });
    connect(m_epochs.get(), &HydStreamAdapter::streamConnected, this, [this] { m_epochsOpen = true; });
    connect(m_epochs.get(), &HydStreamAdapter::streamConnected, this, &TriggerWork::setTriggers,
            Qt::QueuedConnection);
    expect(QStringLiteral("the recorder doesn't open its epoch stream."), m_order.patienceMs);
    m_diary->startLogging();
    if (!m_finished)
        m_epochs->startStream();
}

// --- Step 4: set what differs, and read back what the recorder took.

void TriggerWork::setTriggers()
{
    if (m_finished)
        return;
    if (!m_order.wish) {
        watch();
        return;
    }
    m_wishSent = true;
    const int steps = static_cast<int>(m_order.wish->size()) + 2;
    expect(QStringLiteral("the recorder doesn't say what triggers it has."),
           steps * kStepMs + m_order.patienceMs);
    m_controller->setupTriggers(*m_order.wish, true);
}

bool TriggerWork::isWishMet() const
{
    const HydDevice& device = *m_controller->device();
    const auto held = device.triggers();
    // Triggers of other kinds are none of this program's business.
    const auto count = std::count_if(held.begin(), held.end(), [](const auto& trigger) {
        return std::dynamic_pointer_cast<HydTrigger_5_6>(trigger) != nullptr;
    });
    return static_cast<size_t>(count) == m_order.wish->size() &&
           std::all_of(m_order.wish->begin(), m_order.wish->end(), [&device](const auto& wanted) {
               const auto found = device.trigger(wanted->trigNum());
               return found && found->compare(wanted.get());
           });
}

void TriggerWork::printList(const QString& title) const
{
    const auto triggers = m_controller->device()->triggers();
    triggersOut() << title << (triggers.empty() ? ": none" : ":") << Qt::endl;
    for (const auto& trigger : triggers)
        triggersOut() << "  " << triggerText(*trigger) << Qt::endl;
}

// --- Step 5: watch.

void TriggerWork::watch()
{
    m_timeout.stop();
    if (!m_epochs) {
        finish(Done);
        return;
    }
    triggersOut() << "Watching for " << m_order.watchSeconds << " s" << Qt::endl;
    QTimer::singleShot(m_order.watchSeconds * 1000, this, &TriggerWork::stop);
}

void TriggerWork::note(const SActiveTrigger& occurrence)
{
    m_diaryPath = m_diary->logPath();
    triggersOut() << occurrence.logTime().toString(QStringLiteral("hh:mm:ss")) << "  trigger "
                  << occurrence.trigger.trigNum() << ": " << occurrence.mes(false) << Qt::endl;
}

void TriggerWork::stop()
{
    finish(Done);
}

void TriggerWork::finish(Outcome outcome, const QString& complaint)
{
    if (m_finished)
        return;
    m_finished = true;
    m_timeout.stop();
    if (m_epochs) {
        m_epochs->stopStream();
        m_epochs->disconnectStream();
        m_diary->stopLogging();
        triggersOut() << (m_diaryPath.isEmpty() ? QStringLiteral("No trigger fired.")
                                                : QStringLiteral("Diary: ") + m_diaryPath)
                      << Qt::endl;
    }
    if (m_controller)
        m_controller->closeAll();
    if (outcome != Done)
        QTextStream(stderr) << "triggers: " << complaint << Qt::endl;
    Q_EMIT finished(outcome);
}
