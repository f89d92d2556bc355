// Live spectra, their files, the files' replay, the files of that one, and so on: bytes, times and total
// power stay.
#include "NvxQtCommon/logging/NvxSpecLogger.h"
#include "NvxQtCommon/replay/NvxFFTFile.h"
#include "RoadRig.h"
#include "tests/support/NvxTestCase.h"

#include <QSignalSpy>

#include <algorithm>
#include <cmath>

namespace {

constexpr int kRecordsOfAFile = 10;
constexpr int kSpectra = 25;

struct Spectrum
{
    uint64_t time = 0;
    std::vector<unsigned char> bytes;

    bool operator==(const Spectrum&) const = default;
};

/// What came by the signals that a stream adapter and a replay have in common.
struct Heard
{
    std::vector<Spectrum> spectra;
    std::vector<double> powers;

    void takeData(const HydStreamDataPayload& payload)
    {
        const HydStreamDataChunk& chunk = *payload.data();
        const auto bytes = chunk.bytes();
        spectra.push_back({payload.eventKey()->eventId(), {bytes.get(), bytes.get() + chunk.numSamples()}});
    }
};

/// Writes spectra into files of its own folder.
class Recording
{
public:
    explicit Recording(int recordsOfAFile)
        : logger(recordsOfAFile, folder.path(), QStringLiteral("SPC"), nullptr),
          newFiles(&logger, &NvxSpecLogger::newFileCreated)
    {
    }
    QStringList files() const
    {
        QStringList names;
        for (const QList<QVariant>& arguments : newFiles)
            names << arguments.first().toString();
        return names;
    }

    QTemporaryDir folder;
    NvxSpecLogger logger;
    QSignalSpy newFiles;
};

/// Plays files one after the other into a logger.
Heard replay(const QStringList& files, NvxSpecLogger& logger)
{
    Heard heard;
    for (const QString& path : files) {
        NvxFFTFile file(path, nullptr);
        QObject::connect(&file, &NvxDataFile::streamHeaderReady, &logger, &NvxSpecLogger::handleEventHdr);
        QObject::connect(&file, &NvxDataFile::streamDataReady, &logger, &NvxSpecLogger::handleData);
        QObject::connect(
            &file, &NvxDataFile::streamDataReady, &logger,
            [&heard](const std::shared_ptr<HydStreamDataPayload>& payload) { heard.takeData(*payload); });
        QObject::connect(&file, &NvxDataFile::signalTotalPower, &logger,
                         [&heard](const HydDeviceId&, double value) { heard.powers.push_back(value); });
        QSignalSpy finished(&file, &NvxDataFile::threadFinished);
        if (!file.headerPrepare(true))
            return {};
        file.setReplayVel(ReplayMax, 1);
        file.setAdjacent(path != files.first(), 1);
        file.processData();
        if (finished.isEmpty() && !finished.wait(kPatienceMs))
            return {};
    }
    logger.stopLogging();
    return heard;
}

} // namespace

class tst_spectrum_replay : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void generationsStayTheSame_data();
    void generationsStayTheSame();

private:
    bool setReference(RoadRig& rig, int level);
    bool record(RoadRig& rig, Recording& recording, Heard& heard);
};

bool tst_spectrum_replay::setReference(RoadRig& rig, int level)
{
    HydJobSettings wanted;
    wanted.setFftRef(level);
    QSignalSpy taken(rig.controller.get(), &NvxDeviceController::jobSetupGotFromDev);
    rig.controller->sendJobSetup(wanted.map(), false);
    return QTest::qWaitFor([&] { return !taken.isEmpty(); }, kPatienceMs) &&
           rig.recorder.jobSettings().fftRef() == level;
}

bool tst_spectrum_replay::record(RoadRig& rig, Recording& recording, Heard& heard)
{
    HydStreamAdapter stream(StreamSpectrum, rig.recorder.streamPort(StreamSpectrum),
                            rig.recorder.settings().address.toString(), rig.device->deviceId(), 60000, true);
    stream.updateDeviceInfo(*rig.device);
    connect(&stream, &HydStreamAdapter::eventHeader, &recording.logger, &NvxSpecLogger::handleEventHdr);
    connect(&stream, &HydStreamAdapter::streamDataReady, &recording.logger, &NvxSpecLogger::handleData);
    connect(&stream, &HydStreamAdapter::streamDataReady, this,
            [&heard](const std::shared_ptr<HydStreamDataPayload>& payload) { heard.takeData(*payload); });
    connect(&stream, &HydStreamAdapter::signalTotalPower, this,
            [&heard](const HydDeviceId&, double value) { heard.powers.push_back(value); });
    stream.startStream();
    const bool came = QTest::qWaitFor([&] { return heard.spectra.size() >= kSpectra; }, kPatienceMs);
    stream.stopStream();
    recording.logger.stopLogging();
    stream.disconnectStream();
    return came;
}

void tst_spectrum_replay::generationsStayTheSame_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<int>("reference");
    QTest::addColumn<double>("levelDb");

    QTest::newRow("the reference of the adapter's scale") << QStringLiteral("127.97.1.1") << -180 << -110.0;
    QTest::newRow("another reference") << QStringLiteral("127.97.1.2") << -120 << -50.0;
}

void tst_spectrum_replay::generationsStayTheSame()
{
    QFETCH(QString, address);
    QFETCH(int, reference);
    QFETCH(double, levelDb);
    RecorderSettings settings = RoadRig::settingsAt(qPrintable(address));
    settings.roles = RoleAll;
    settings.bitDepth = 32;
    settings.spectrumPort = 0;
    settings.streamSeconds = 6;
    settings.signal.kind = SignalSettings::Noise;
    settings.signal.levelDb = levelDb;
    RoadRig rig(settings);
    QVERIFY(rig.prepare());
    QVERIFY(setReference(rig, reference));

    Recording first(kRecordsOfAFile);
    Heard live;
    QVERIFY(record(rig, first, live));
    QVERIFY(first.files().size() >= kSpectra / kRecordsOfAFile);
    // Spectra that differ, and hold levels of their own.
    QVERIFY(live.spectra[0].bytes != live.spectra[1].bytes);
    QVERIFY(live.spectra.front().time < live.spectra.back().time);
    const auto [least, most] =
        std::minmax_element(live.spectra[0].bytes.begin(), live.spectra[0].bytes.end());
    QVERIFY(*least > 0 && *most < 128 && *least < *most);

    Recording second(0);
    const Heard replayed = replay(first.files(), second.logger);
    QCOMPARE(replayed.spectra.size(), live.spectra.size());
    QVERIFY(replayed.spectra == live.spectra);
    QCOMPARE(second.files().size(), 1);
    Recording third(0);
    const Heard again = replay(second.files(), third.logger);
    QVERIFY(again.spectra == live.spectra);
    // A replay adds the levels of the file, the adapter those of its scale: -180 and -170.
    QCOMPARE(replayed.powers.size(), live.powers.size());
    for (size_t i = 0; i < live.powers.size(); ++i)
        QVERIFY(std::abs(replayed.powers[i] - live.powers[i] - (reference + 180)) < 1e-9);
    QVERIFY(again.powers == replayed.powers);
}

QTEST_GUILESS_MAIN(tst_spectrum_replay)
#include "tst_spectrum_replay.moc"
