#include "NvxQtCommon/contract/message/ZcrCgiRequest.h"

#include <cstdint>

namespace {

constexpr int kBitDepthFlag = 128;

std::string scriptUrl(const NvxIpAddr& address, const char* script)
{
    return "http://" + address.toString() + "/cgi-bin/" + script;
}

} // namespace

std::string zcrConfigurationUrl(const NvxIpAddr& address)
{
    return scriptUrl(address, "DataCollection.cgi?");
}

std::string zcrStatusUrl(const NvxIpAddr& address)
{
    return scriptUrl(address, "Status.cgi?");
}

std::string zcrSetTimeUrl(const NvxIpAddr& address, long long time)
{
    std::string url = scriptUrl(address, "Operation.cgi");
    // The time 0 asks for nothing. This is intended.
    if (time >= 1)
        url += R"(?data={"action":"synctime","newtime":)" + std::to_string(time) + "}";
    return url;
}

std::string zcrJobSetupUrl(const NvxIpAddr& address, const HydJobSettings& settings)
{
    std::string url = scriptUrl(address, R"(DataCollection.cgi?data={"configuration":{)");
    const auto member = [&url](const char* key, int64_t value) {
        url += std::string("\"") + key + "\":" + std::to_string(value) + ",";
    };
    const auto null = [&url](const char* key) { url += std::string("\"") + key + "\":null,"; };
    const int64_t startTime = settings.wavLogStartTime();
    member("isdLoggingEnabled", 1);
    member("tmiDevType", DevTypeZcr);
    null("viewport");
    null("btn-apply");
    member("wavSampRate", settings.wavRate());
    member("tmiWavLogMode", settings.wavLogMode());
    member("tmiWavLogLen", settings.wavLogLen());
    member("tmiFFTLogMode", settings.fftLogMode());
    member("tmiFFTLogLen", settings.fftLogLen());
    member("fftProcType", settings.fftProcType());
    member("fftDataRate", 0);
    member("fftAccum", settings.fftAccum());
    member("fftRef", settings.fftRef());
    null("isdCheckBox");
    null("delayCheckBox");
    null("startCheckBox");
    member("startTime", startTime);
    null("stopCheckBox");
    member("stopTime", startTime + settings.dutyCyclePeriod());
    member("fftWeight", settings.fftWeight());
    member("wavGain", settings.wavGain());
    member("wavFmt", settings.wavBitDepth() + kBitDepthFlag);
    member("wavEndian", settings.wavByteOrder());
    member("wavBitDepth", settings.wavBitDepth());
    url.back() = '}';
    return url + "}";
}
