// How NvxDeviceController brings the triggers of its device and of its record in line.
#include "NvxQtCommon/control/NvxDeviceController.h"

#include <QPointer>

#include <algorithm>
#include <chrono>

namespace {

using namespace std::chrono_literals;

constexpr auto kTriggerStep = 200ms;

using TriggerList = std::vector<std::shared_ptr<HydTrigger>>;

/// The trigger as one that can be set up; null for those of other test types.
const HydTrigger_5_6* eventTrigger(const std::shared_ptr<HydTrigger>& trigger)
{
    if (!trigger || (trigger->testType() != TestTypeAbove && trigger->testType() != TestTypeBelow))
        return nullptr;
    return dynamic_cast<const HydTrigger_5_6*>(trigger.get());
}

bool lacksOneOf(const HydDevice& device, const TriggerList& triggers)
{
    return std::any_of(triggers.begin(), triggers.end(), [&device](const auto& trigger) {
        const auto* known = eventTrigger(trigger);
        return known != nullptr && !device.trigger(known->trigNum());
    });
}

bool holdsEqual(const HydDevice& device, const HydTrigger_5_6& wanted)
{
    const auto held = std::dynamic_pointer_cast<HydTrigger_5_6>(device.trigger(wanted.trigNum()));
    return held && held->compare(&wanted);
}

bool areEqual(const TriggerList& held, const TriggerList& reported)
{
    return std::equal(held.begin(), held.end(), reported.begin(), reported.end(),
                      [](const auto& left, const auto& right) { return left && left->compare(right.get()); });
}

} // namespace

void NvxDeviceController::setupTriggers(TriggerList triggers, bool bEnquire)
{
    m_pendingCommands.clear();
    // Precise, so that the enquiry doesn't meet the last command of a long list.
    const auto afterSteps = [this](int steps, auto step) {
        QTimer::singleShot(steps * kTriggerStep, Qt::PreciseTimer, this, step);
    };
    const QPointer<NvxDeviceController> self(this);
    if (triggers.empty()) {
        // The record keeps its triggers: intended.
        clearTriggers();
        if (self && bEnquire)
            afterSteps(1, [this] { enquireTriggers(); });
        return;
    }

    const auto device = m_device;
    int steps = 0;
    bool removed = false;
    if (device) {
        HydDevice wanted(device->devType());
        wanted.setTriggers(triggers);
        removed = lacksOneOf(wanted, device->triggers());
    }
    if (removed) {
        clearTriggers();
        if (!self)
            return;
        steps = 1;
    }
    bool sent = false;
    for (const auto& trigger : triggers) {
        const auto* wanted = eventTrigger(trigger);
        if (wanted == nullptr || (!removed && device && holdsEqual(*device, *wanted)))
            continue;
        m_pendingCommands.push_back(std::make_shared<HydTrigger_5_6>(*wanted));
        afterSteps(++steps, [this] { sendFrontOfQueue(); });
        sent = true;
    }
    if (bEnquire)
        afterSteps(steps + 1, [this] { enquireTriggers(); });
    // At once, although the device may refuse: the enquiry corrects it. Intended.
    if (sent && device)
        device->setTriggers(std::move(triggers));
}

void NvxDeviceController::handleTriggerReply(const HydEnquireTrigger* reply)
{
    const auto device = m_device;
    const QPointer<NvxDeviceController> self(this);
    if (reply != nullptr && !areEqual(device->triggers(), reply->triggers())) {
        device->setTriggers(reply->triggers());
        Q_EMIT signalTrigUdated(device);
    }
    if (self)
        Q_EMIT signalEnqTrig(device);
}
