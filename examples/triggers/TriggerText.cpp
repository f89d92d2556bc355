#include "triggers/TriggerText.h"

#include <QRegularExpression>

#include <limits>

namespace {

/// Reads a group of a match, 0 where it is empty; `ok` goes false when the number doesn't fit `Number`.
template <class Number> Number numberOf(const QRegularExpressionMatch& match, int group, bool& ok)
{
    const QString text = match.captured(group);
    if (text.isEmpty())
        return 0;
    bool fits = false;
    const qlonglong value = text.toLongLong(&fits);
    ok = ok && fits && value >= std::numeric_limits<Number>::min() &&
         value <= std::numeric_limits<Number>::max();
    return static_cast<Number>(value);
}

} // namespace

std::shared_ptr<HydTrigger> triggerFromText(const QString& text)
{
    static const QRegularExpression form(
        QStringLiteral("^([0-9]+),([0-9]+)-([0-9]+),(above|below),(-?[0-9]+)(?:,([0-9]+))?(?:,([0-9]+))?$"));
    const QRegularExpressionMatch match = form.match(text);
    if (!match.hasMatch())
        return nullptr;
    bool ok = true;
    auto trigger = std::make_shared<HydTrigger_5_6>();
    trigger->setTestType(match.captured(4) == QLatin1String("below") ? TestTypeBelow : TestTypeAbove);
    trigger->setEnabled(1);
    trigger->setTrigNum(numberOf<uint8_t>(match, 1, ok));
    trigger->setMinFreq(numberOf<unsigned>(match, 2, ok));
    trigger->setMaxFreq(numberOf<unsigned>(match, 3, ok));
    trigger->setThreshold(numberOf<int16_t>(match, 5, ok));
    trigger->setDuration(numberOf<uint16_t>(match, 6, ok));
    trigger->setEventHold(numberOf<uint16_t>(match, 7, ok));
    return ok ? trigger : nullptr;
}

QString triggerText(const HydTrigger& trigger)
{
    const auto* known = dynamic_cast<const HydTrigger_5_6*>(&trigger);
    if (known == nullptr)
        return QStringLiteral("trigger of test type %1").arg(trigger.testType());
    return QStringLiteral("trigger %1  %2-%3 Hz %4 %5 µPa for %6 s, held %7 s%8")
        .arg(known->trigNum())
        .arg(known->minFreq())
        .arg(known->maxFreq())
        .arg(known->testType() == TestTypeBelow ? QStringLiteral("below") : QStringLiteral("above"))
        .arg(known->threshold())
        .arg(known->duration())
        .arg(known->eventHold())
        .arg(known->enabled() != 0 ? QString() : QStringLiteral(", off"));
}
