#include "NvxQtSimulator/TriggerWatch.h"

#include "NvxQtSimulator/SpectrumMaker.h"

#include <QDateTime>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

constexpr int kLookMs = 250;
constexpr unsigned kPoints = 4096;
// What a Hann window spreads over its neighbours counts in the sum of a band.
constexpr double kHannBandwidth = 1.5;

/// Power in a band, where a sine wave of full scale in it gives 1.
double bandPower(const std::vector<double>& powers, double binWidth, const HydTrigger_5_6& trigger)
{
    const auto last = static_cast<double>(powers.size() - 1);
    const auto from = static_cast<size_t>(std::min(std::floor(trigger.minFreq() / binWidth), last));
    const auto to = static_cast<size_t>(std::min(std::ceil(trigger.maxFreq() / binWidth), last));
    double sum = 0.0;
    for (size_t bin = from; bin <= to; ++bin)
        sum += powers[bin];
    return sum / kHannBandwidth;
}

} // namespace

TriggerWatch::TriggerWatch(RecorderState* state) : QObject(state), m_state(state)
{
    m_pace.setTimerType(Qt::PreciseTimer);
    m_clock.start();
    connect(&m_pace, &QTimer::timeout, this, &TriggerWatch::look);
    connect(m_state, &RecorderState::triggersChanged, this, &TriggerWatch::takeTriggers);
}

void TriggerWatch::takeTriggers()
{
    std::map<uint8_t, Watched> kept;
    for (const auto& trigger : m_state->triggers()) {
        const auto* known = dynamic_cast<const HydTrigger_5_6*>(trigger.get());
        if (known == nullptr || known->enabled() == 0)
            continue;
        const auto held = m_watched.find(known->trigNum());
        const bool isSame = held != m_watched.end() && held->second.trigger.compare(known);
        kept[known->trigNum()] = isSame ? held->second : Watched{*known, false, std::nullopt};
        if (isSame)
            m_watched.erase(held);
    }
    for (auto& [number, gone] : m_watched)
        if (gone.isActive)
            change(gone, false);
    m_watched = std::move(kept);
    if (m_watched.empty())
        m_pace.stop();
    else if (!m_pace.isActive())
        m_pace.start(kLookMs);
}

/// Effective value of a sine wave of full scale.
double TriggerWatch::unitInMicropascal() const
{
    constexpr double kVolts = RecorderSettings::kFullScaleMicrovolts / 1e6 / std::numbers::sqrt2;
    return kVolts / std::pow(10.0, m_state->identity().sensitivity / 10.0 / 20.0);
}

void TriggerWatch::look()
{
    const uint32_t rate = m_state->waveRate();
    const auto first = std::max<int64_t>(0, m_state->currentSample() - kPoints);
    const std::vector<double> powers = SpectrumMaker(m_state->settings().signal, rate, kPoints, kPoints)
                                           .powers(static_cast<uint64_t>(first), 1);
    const double binWidth = static_cast<double>(rate) / kPoints;
    for (auto& [number, watched] : m_watched)
        lookAt(watched, unitInMicropascal() * std::sqrt(bandPower(powers, binWidth, watched.trigger)));
}

void TriggerWatch::lookAt(Watched& watched, double level)
{
    const HydTrigger_5_6& trigger = watched.trigger;
    const bool isMet =
        trigger.testType() == TestTypeBelow ? level < trigger.threshold() : level > trigger.threshold();
    if (isMet == watched.isActive) {
        watched.since.reset();
        return;
    }
    const int64_t now = m_clock.elapsed();
    if (!watched.since)
        watched.since = now;
    const int64_t seconds = watched.isActive ? trigger.eventHold() : trigger.duration();
    if (now - *watched.since >= seconds * 1000)
        change(watched, isMet);
}

void TriggerWatch::change(Watched& watched, bool isActive)
{
    const HydTrigger_5_6& trigger = watched.trigger;
    watched.isActive = isActive;
    watched.since.reset();
    m_state->setTriggerActive(trigger.trigNum(), isActive);
    QString line = QStringLiteral("%1, SN %2, Epoch %3, ")
                       .arg(QDateTime::fromSecsSinceEpoch(m_state->deviceTime(), Qt::UTC)
                                .toString(QStringLiteral("yyyy-MM-dd hh:mm:ss")))
                       .arg(m_state->identity().serial)
                       .arg(trigger.trigNum());
    if (isActive)
        line += QStringLiteral("Seq %1, %2-%3 %4 %5uPa, %6s\n")
                    .arg(++m_starts)
                    .arg(trigger.minFreq())
                    .arg(trigger.maxFreq())
                    .arg(QLatin1Char(trigger.testType() == TestTypeBelow ? '<' : '>'))
                    .arg(trigger.threshold())
                    .arg(trigger.duration());
    else
        line += QStringLiteral("Ended\n");
    Q_EMIT m_state->epochLine(line.toUtf8());
}
