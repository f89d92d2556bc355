#include "NvxQtCommon/contract/message/ZcrCgiReply.h"

#include "NvxQtCommon/contract/base/TextNumber.h"

#include <algorithm>
#include <array>

namespace {

struct CgiField
{
    std::string_view key;
    int32_t ZcrCgiReply::*value; ///< null for a key that is read and dropped
};

/// In the order in which a piece is searched for them. Keys that come last and are dropped don't stand here:
/// it is the same as not to know them.
constexpr std::array kCgiFields{
    CgiField{"wavSampRate", &ZcrCgiReply::wavRate},
    CgiField{"startTime", &ZcrCgiReply::startTime},
    CgiField{"wavBitDepth", &ZcrCgiReply::wavBitDepth},
    CgiField{"wavGain", &ZcrCgiReply::wavGain},
    CgiField{"wavEndian", nullptr},
    CgiField{"wavLogMode", &ZcrCgiReply::wavLogMode},
    CgiField{"wavLogLen", &ZcrCgiReply::wavLogLen},
    CgiField{"fftSampRate", &ZcrCgiReply::fftSampRate},
    CgiField{"fftRef", &ZcrCgiReply::fftRef},
    CgiField{"fftPts", &ZcrCgiReply::fftPts},
    CgiField{"fftSampsBtwn", &ZcrCgiReply::fftSampsBtwn},
    CgiField{"fftProcType", &ZcrCgiReply::fftProcType},
    CgiField{"fftAccum", &ZcrCgiReply::fftAccum},
    CgiField{"fftWeight", &ZcrCgiReply::fftWeight},
    CgiField{"fftLogMode", &ZcrCgiReply::fftLogMode},
    CgiField{"fftLogLen", &ZcrCgiReply::fftLogLen},
};

void dropThrough(std::string& text, char last)
{
    if (const auto at = text.find(last); at != std::string::npos)
        text.erase(0, at + 1);
}

bool contains(std::string_view text, std::string_view part)
{
    return text.find(part) != std::string_view::npos;
}

} // namespace

int32_t ZcrCgiReply::extractField(std::string field, std::string_view prefix, char terminator)
{
    std::erase(field, '"');
    if (prefix.empty() && terminator != 0)
        std::erase(field, terminator);
    else if (!prefix.empty() && contains(field, prefix))
        dropThrough(field, terminator);
    dropThrough(field, ':');
    return textNumber<int32_t>(field);
}

void ZcrCgiReply::take(std::string_view piece)
{
    const auto number = [piece](std::string_view prefix = {}, char terminator = 0) {
        return extractField(std::string(piece), prefix, terminator);
    };
    if (contains(piece, "serialNumber")) {
        serial = number();
    } else if (contains(piece, "currentTime")) {
        currentTime = number({}, '}');
    } else if (contains(piece, "devSerial")) {
        if (!firstDevSerial)
            firstDevSerial = number("devs:[{", '}');
    } else {
        for (const auto& [key, value] : kCgiFields) {
            if (!contains(piece, key))
                continue;
            if (value != nullptr)
                this->*value = number();
            rateSeen = rateSeen || value == &ZcrCgiReply::wavRate;
            return;
        }
    }
}

ZcrCgiReply ZcrCgiReply::parse(std::string_view text)
{
    ZcrCgiReply reply;
    while (!text.empty()) {
        const auto length = std::min(text.find(','), text.size());
        reply.take(text.substr(0, length));
        text.remove_prefix(std::min(length + 1, text.size()));
    }
    return reply;
}

HydJobSettings ZcrCgiReply::settings() const
{
    HydJobSettings settings;
    settings.setWavLogStartTime(startTime);
    settings.setWavRate(static_cast<SampRate>(wavRate));
    settings.setWavBitDepth(static_cast<HydWavBitDepth>(wavBitDepth));
    settings.setWavGain(static_cast<unsigned>(wavGain));
    settings.setWavLogMode(static_cast<HydLogMode>(wavLogMode));
    settings.setWavLogLen(static_cast<unsigned>(wavLogLen));
    settings.setFftRate(static_cast<SampRate>(fftSampRate));
    settings.setFftRef(fftRef);
    settings.setFftPoints(static_cast<unsigned>(fftPts));
    settings.setFftPointsBtw(static_cast<unsigned>(fftSampsBtwn));
    settings.setFftProcType(static_cast<HydFftProc>(fftProcType));
    settings.setFftAccum(static_cast<unsigned>(fftAccum));
    settings.setFftWeight(static_cast<unsigned>(fftWeight));
    settings.setFftLogMode(static_cast<HydLogMode>(fftLogMode));
    settings.setFftLogLen(static_cast<unsigned>(fftLogLen));
    return settings;
}
