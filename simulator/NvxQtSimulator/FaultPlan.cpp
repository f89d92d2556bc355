#include "NvxQtSimulator/FaultPlan.h"

#include "NvxQtSimulator/SplitMix.h"

#include <QRandomGenerator>

#include <array>
#include <utility>

namespace {

constexpr std::array kFaultNames{
    std::pair{Fault::Split, "split"},
    std::pair{Fault::Merge, "merge"},
    std::pair{Fault::Junk, "junk"},
    std::pair{Fault::BadChecksum, "bad-checksum"},
    std::pair{Fault::RefuseSetup, "refuse-setup"},
    std::pair{Fault::RefuseTrigger, "refuse-trigger"},
    std::pair{Fault::TimeFailure, "time-failure"},
    std::pair{Fault::ScanBurst, "scan-burst"},
    std::pair{Fault::Silence, "silence"},
    std::pair{Fault::Close, "close"},
    std::pair{Fault::Reset, "reset"},
    std::pair{Fault::SequenceGap, "sequence-gap"},
    std::pair{Fault::SequenceBack, "sequence-back"},
    std::pair{Fault::NewEvent, "new-event"},
    std::pair{Fault::RateChange, "rate-change"},
    std::pair{Fault::Notify, "notify"},
    std::pair{Fault::Oversize, "oversize"},
    std::pair{Fault::RolloverUp, "rollover-up"},
    std::pair{Fault::RolloverDown, "rollover-down"},
    std::pair{Fault::Loss, "loss"},
    std::pair{Fault::Duplicate, "duplicate"},
    std::pair{Fault::Slow, "slow"},
    std::pair{Fault::Refuse, "refuse"},
    std::pair{Fault::Status, "status"},
    std::pair{Fault::Empty, "empty"},
    std::pair{Fault::Malformed, "malformed"},
    std::pair{Fault::ForeignSerial, "foreign-serial"},
    std::pair{Fault::MissingChannel, "missing-channel"},
    std::pair{Fault::FrameLength, "frame-length"},
    std::pair{Fault::BandWidth, "band-width"},
};

constexpr std::array kChannelNames{
    std::pair{FaultOnControl, "control"}, std::pair{FaultOnDiscovery, "discovery"},
    std::pair{FaultOnWave, "wave"},       std::pair{FaultOnSpectrum, "spectrum"},
    std::pair{FaultOnSensor, "sensor"},   std::pair{FaultOnEpoch, "epoch"},
    std::pair{FaultOnStreams, "streams"}, std::pair{FaultOnHttp, "http"},
    std::pair{FaultOnFtp, "ftp"},         std::pair{FaultOnFrames, "frames"},
    std::pair{FaultOnAll, "all"},
};

std::optional<uint16_t> faultChannelFromText(const QString& text)
{
    for (const auto& [channel, name] : kChannelNames)
        if (text == QLatin1String(name))
            return channel;
    return std::nullopt;
}

bool applyRuleKey(FaultRule& rule, const QString& key, const QString& text)
{
    bool ok = false;
    if (key == QLatin1String("value")) {
        rule.value = text.toLongLong(&ok);
    } else if (key == QLatin1String("after")) {
        rule.after = text.toULongLong(&ok);
    } else if (key == QLatin1String("times")) {
        rule.times = text.toULongLong(&ok);
    } else if (key == QLatin1String("chance")) {
        rule.chance = text.toDouble(&ok);
        ok = ok && rule.chance >= 0.0 && rule.chance <= 1.0;
    } else if (key == QLatin1String("on")) {
        const auto channel = faultChannelFromText(text);
        ok = channel.has_value();
        rule.on = channel.value_or(rule.on);
    }
    return ok;
}

} // namespace

QStringList FaultRule::names()
{
    QStringList list;
    for (const auto& entry : kFaultNames)
        list << QLatin1String(entry.second);
    return list;
}

QString FaultRule::name(Fault fault)
{
    for (const auto& [known, name] : kFaultNames)
        if (known == fault)
            return QLatin1String(name);
    return {};
}

std::optional<FaultRule> FaultRule::fromText(const QString& text, QString* error)
{
    const auto fail = [error](const QString& sentence) {
        if (error)
            *error = sentence;
        return std::nullopt;
    };
    const QString faultName = text.section(QLatin1Char(':'), 0, 0);
    std::optional<FaultRule> rule;
    for (const auto& [fault, name] : kFaultNames)
        if (faultName == QLatin1String(name))
            rule = FaultRule{fault};
    if (!rule)
        return fail(QStringLiteral("There is no fault \"%1\".").arg(faultName));

    const QString keys = text.section(QLatin1Char(':'), 1);
    for (const QString& part : keys.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const QString key = part.section(QLatin1Char('='), 0, 0);
        if (!applyRuleKey(*rule, key, part.section(QLatin1Char('='), 1)))
            return fail(QStringLiteral("\"%1\" does not fit the fault \"%2\".").arg(part, faultName));
    }
    return rule;
}

FaultPlan::FaultPlan(uint64_t seed) : m_seed(seed)
{
    while (m_seed == 0)
        m_seed = QRandomGenerator::global()->generate();
}

FaultDice::FaultDice(const FaultPlan& plan, FaultChannel channel) : m_state(splitMix64(plan.seed() + channel))
{
    for (const FaultRule& rule : plan.rules())
        if (rule.on & channel)
            m_rules.push_back({rule});
}

std::optional<int64_t> FaultDice::strike(Fault fault)
{
    for (Watch& watch : m_rules) {
        if (watch.rule.fault != fault)
            continue;
        if (watch.occasions++ < watch.rule.after)
            continue;
        if (watch.rule.times != 0 && watch.strikes >= watch.rule.times)
            continue;
        constexpr uint64_t kResolution = uint64_t{1} << 32;
        if (watch.rule.chance < 1.0 &&
            static_cast<double>(random(kResolution)) >= watch.rule.chance * static_cast<double>(kResolution))
            continue;
        ++watch.strikes;
        return watch.rule.value;
    }
    return std::nullopt;
}

uint64_t FaultDice::random(uint64_t bound)
{
    return bound == 0 ? 0 : splitMix64(m_state++) % bound;
}
