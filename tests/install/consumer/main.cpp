// A program of somebody else: it knows the installed headers and the shared library, nothing more. It writes
// a wave file, and opens the command channel to a recorder that is not there, whose refusal comes from the
// controller's thread.
#include "NvxQtCommon/contract/recording/NvxWavDataChunk.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataHF.h"
#include "NvxQtCommon/contract/recording/NvxWavWriter.h"
#include "NvxQtCommon/contract/recording/WavStreamEvent.h"
#include "NvxQtCommon/control/NvxDeviceController.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>

#include <array>
#include <cstdio>

namespace {

constexpr int kSamples = 500;
constexpr int kTime = 1700000000;

void dispatch(NvxWavWriter& writer, NvxWavEventData& data)
{
    WavStreamEvent event(&data, kTime, 0);
    while (!event.isConsumed())
        writer.dispatch(&event);
}

bool writesWaveFile()
{
    QTemporaryDir folder;
    NvxWavWriter writer(60, folder.path().toStdWString());
    NvxWavInfoDataHF info;
    info.setTimestamp(kTime);
    info.applyFileName("consumer");
    NvxWavSetupData setup;
    setup.setBitDepth(16);
    setup.setSampleRate(8000);
    std::array<unsigned char, 2 * kSamples> samples{};
    NvxWavDataChunk chunk;
    chunk.setBitDepth(16);
    chunk.setNumSamples(kSamples);
    chunk.setData(samples.data());
    dispatch(writer, info);
    dispatch(writer, setup);
    dispatch(writer, chunk);
    writer.finishFile();

    QFile file(QString::fromStdWString(writer.outputFileName()));
    return writer.errorCode() == WavErrNone && file.open(QIODevice::ReadOnly) && file.read(4) == "RIFF" &&
           file.size() > qint64(samples.size());
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    if (!writesWaveFile()) {
        std::fputs("consumer: the wave file is not as it should be\n", stderr);
        return 1;
    }

    auto device = std::make_shared<HydDevice>(DevTypeRecorderA);
    device->setNetHostInfo(NvxNetHostInfo(0x7F590009)); // 127.89.0.9
    const auto controller = NvxDeviceController::createController(device, ConnTcp);
    QObject::connect(controller.get(), &NvxDeviceController::error, &application,
                     [](HydControlError error, int) {
                         std::printf("consumer: refused with error %d, as it should be\n", error);
                         QCoreApplication::exit(error == ErrNotConnected ? 0 : 2);
                     });
    QTimer::singleShot(60000, &application, [] { QCoreApplication::exit(3); });
    controller->openChannel(ChanCommand);
    return QCoreApplication::exec();
}
