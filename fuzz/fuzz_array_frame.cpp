// Frames of an array controller: any message is dropped for its length, or is one event header and one
// payload under the identity of its channel, which hold what the message says and no byte from beyond it.

#include "FuzzTarget.h"

#include "NvxQtCommon/array/ZcrStreamAdapter.h"

#include <QCoreApplication>

namespace {

struct FrameRig
{
    FrameRig()
    {
        QObject::connect(&socket, &CZCRWebSocket::signalWebSocBinMesReceived, &adapter,
                         &ZcrStreamAdapter::readStream);
        QObject::connect(&adapter, &HydStreamAdapter::eventHeader, [this] { ++headers; });
        QObject::connect(
            &adapter, &HydStreamAdapter::streamDataReady,
            [this](const std::shared_ptr<HydStreamMessagePayload>& payload, const HydDeviceId& id) {
                require(headers == ++payloads, "a header comes ahead of each payload");
                last = std::dynamic_pointer_cast<HydStreamDataPayload>(payload);
                channel = id;
            });
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    }

    CZCRWebSocket socket;
    ZcrStreamAdapter adapter{StreamSpectrum, 0, HydDeviceId(DevTypeZcr, 600), 1000};
    int headers = 0;
    int payloads = 0;
    std::shared_ptr<HydStreamDataPayload> last;
    HydDeviceId channel;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static int count = 1;
    static char name[] = "fuzz";
    static char* arguments[] = {name, nullptr};
    static QCoreApplication application(count, arguments);
    static FrameRig rig;

    const int before = rig.payloads;
    // A copy of its own, so that a sanitizer sees what reads beyond it.
    rig.socket.readWebStream(QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size)));
    if (size < ZcrFrameHeader::kSize) {
        require(rig.payloads == before, "a short message is dropped");
        return 0;
    }
    require(rig.payloads == before + 1, "a message is one payload");
    require(rig.last != nullptr, "the payload is of data");
    require(rig.channel.devType() == DevTypeSkiff && rig.channel.hostDevNo() == 600, "it is of a channel");
    require(rig.channel.serialNo() == data[2] + 256 * data[3], "the channel is the frame's");
    const auto chunk = rig.last->data();
    const size_t width = data[10] + 256 * size_t{data[11]};
    const size_t bins = size - ZcrFrameHeader::kSize;
    require(chunk->numSamples() == width, "the band width counts");
    for (size_t i = 0; i < std::max(width, bins); ++i) {
        const int bin = i < bins ? static_cast<int8_t>(data[ZcrFrameHeader::kSize + i]) / 2 : 0;
        require(static_cast<int8_t>(chunk->bytes().get()[i]) == bin, "a bin is halved, a missing one is 0");
    }
    return 0;
}
