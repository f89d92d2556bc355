#include "NvxQtSimulator/ArrayCgi.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>
#include <limits>

namespace {

constexpr int kOtherSerial = 65000;

template <auto Setter> void setSetupValue(HydJobSettings& job, int64_t value)
{
    const auto call = [&job, value]<class T>(void (HydJobSettings::*setter)(T)) {
        (job.*setter)(static_cast<T>(value));
    };
    call(Setter);
}

using J = HydJobSettings;

struct SetupMember
{
    const char* name;
    void (*set)(HydJobSettings&, int64_t);
};

/// What a job setup writes. Members that don't stand here are what a form of the controller's pages has
/// beside them.
constexpr SetupMember kSetupMembers[]{
    {"wavSampRate", setSetupValue<&J::setWavRate>},       {"tmiWavLogMode", setSetupValue<&J::setWavLogMode>},
    {"tmiWavLogLen", setSetupValue<&J::setWavLogLen>},    {"tmiFFTLogMode", setSetupValue<&J::setFftLogMode>},
    {"tmiFFTLogLen", setSetupValue<&J::setFftLogLen>},    {"fftProcType", setSetupValue<&J::setFftProcType>},
    {"fftAccum", setSetupValue<&J::setFftAccum>},         {"fftRef", setSetupValue<&J::setFftRef>},
    {"startTime", setSetupValue<&J::setWavLogStartTime>}, {"fftWeight", setSetupValue<&J::setFftWeight>},
    {"wavGain", setSetupValue<&J::setWavGain>},           {"wavEndian", setSetupValue<&J::setWavByteOrder>},
    {"wavBitDepth", setSetupValue<&J::setWavBitDepth>},
};

bool isWholeNumber(const QJsonValue& value)
{
    const double number = value.toDouble();
    return value.isDouble() && std::abs(number) <= double(std::numeric_limits<uint32_t>::max()) &&
           number == std::trunc(number);
}

/// The JSON object in "data="; empty, which no order is, where there is none.
QJsonObject dataOf(const QByteArray& query)
{
    static const QByteArray kData = QByteArrayLiteral("data=");
    if (!query.startsWith(kData))
        return {};
    return QJsonDocument::fromJson(QByteArray::fromPercentEncoding(query.mid(kData.size()))).object();
}

QByteArray jsonMember(const char* name, int64_t value)
{
    return '"' + QByteArray(name) + "\":" + QByteArray::number(qlonglong(value)) + ',';
}

} // namespace

ArrayCgi::Reply ArrayCgi::answer(const QByteArray& target)
{
    const qsizetype mark = target.indexOf('?');
    const QByteArray path = target.first(mark < 0 ? target.size() : mark);
    const QByteArray query = mark < 0 ? QByteArray() : target.mid(mark + 1);
    if (path == "/cgi-bin/DataCollection.cgi")
        return configuration(query);
    if (path == "/cgi-bin/Status.cgi")
        return status();
    if (path == "/cgi-bin/Operation.cgi")
        return operation(query);
    return {404, QByteArrayLiteral("{}")};
}

/// Begins a reply.
QByteArray ArrayCgi::identity()
{
    int64_t serial = m_state->settings().serial;
    if (const auto other = m_state->strike(FaultOnHttp, Fault::ForeignSerial))
        serial = *other > 0 ? *other : kOtherSerial;
    return '{' + jsonMember("serialNumber", serial);
}

ArrayCgi::Reply ArrayCgi::configuration(const QByteArray& query)
{
    if (!query.isEmpty() && !takeSetup(dataOf(query).value(QLatin1String("configuration")).toObject()))
        return {400, QByteArrayLiteral("{}")};
    const HydJobSettings& job = m_state->jobSettings();
    QByteArray body = identity();
    body += jsonMember("wavSampRate", job.wavRate());
    body += jsonMember("wavBitDepth", job.wavBitDepth());
    body += jsonMember("wavGain", job.wavGain());
    body += jsonMember("wavEndian", job.wavByteOrder());
    body += jsonMember("wavLogMode", job.wavLogMode());
    body += jsonMember("wavLogLen", job.wavLogLen());
    body += jsonMember("fftSampRate", job.fftRate());
    body += jsonMember("fftRef", job.fftRef());
    body += jsonMember("fftPts", job.fftPoints());
    body += jsonMember("fftSampsBtwn", job.fftPointsBtw());
    body += jsonMember("fftProcType", job.fftProcType());
    body += jsonMember("fftAccum", job.fftAccum());
    body += jsonMember("fftWeight", job.fftWeight());
    body += jsonMember("fftLogMode", job.fftLogMode());
    body += jsonMember("fftLogLen", job.fftLogLen());
    body += jsonMember("startTime", job.wavLogStartTime());
    body += jsonMember("stopTime", int64_t{job.wavLogStartTime()} + job.dutyCyclePeriod());
    // Last: readers stop a number at a comma, and take a brace behind the time alone.
    body += "\"currentTime\":" + QByteArray::number(qlonglong(m_state->deviceTime())) + '}';
    return {200, body};
}

ArrayCgi::Reply ArrayCgi::status()
{
    QByteArray body = identity() + jsonMember("currentTime", m_state->deviceTime()) + "\"devs\":[";
    for (const ArrayChannel& channel : m_state->settings().channels)
        // The channel's number comes first: readers take no serial number right behind the bracket.
        body += '{' + jsonMember("channel", channel.number) + jsonMember("devSerial", channel.serial) +
                "\"state\":1},";
    if (body.endsWith(','))
        body.chop(1);
    return {200, body + "]}"};
}

ArrayCgi::Reply ArrayCgi::operation(const QByteArray& query)
{
    if (!query.isEmpty()) {
        const QJsonObject order = dataOf(query);
        const QJsonValue time = order.value(QLatin1String("newtime"));
        if (order.value(QLatin1String("action")).toString() != QLatin1String("synctime") ||
            !isWholeNumber(time) || time.toInteger() < 1)
            return {400, QByteArrayLiteral("{}")};
        m_state->setDeviceTime(time.toInteger());
    }
    return {200,
            identity() + "\"currentTime\":" + QByteArray::number(qlonglong(m_state->deviceTime())) + '}'};
}

bool ArrayCgi::takeSetup(const QJsonObject& setup)
{
    HydJobSettings job;
    for (const SetupMember& member : kSetupMembers) {
        const QJsonValue value = setup.value(QLatin1String(member.name));
        if (value.isUndefined())
            continue;
        if (!isWholeNumber(value))
            return false;
        member.set(job, value.toInteger());
    }
    const QJsonValue stop = setup.value(QLatin1String("stopTime"));
    if (isWholeNumber(stop) && stop.toInteger() >= job.wavLogStartTime())
        job.setDutyCyclePeriod(static_cast<unsigned>(stop.toInteger() - job.wavLogStartTime()));
    if (job.map().empty())
        return false;
    m_state->mergeJob(job.map());
    return true;
}
