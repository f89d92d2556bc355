#include "RoadRig.h"

#include "tests/recording/WavJudge.h"
#include "tests/support/NvxTestCase.h"

#include <QFileInfo>
#include <QSignalSpy>

// The library against the simulated recorder, from discovery to wave files.

class tst_road : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void everySampleLandsInAFile_data()
    {
        QTest::addColumn<unsigned>("bits");
        QTest::addColumn<bool>("bigEndian");
        QTest::addColumn<unsigned>("channels");
        // Every pair of the three; the tests of the wave writer have all of them together.
        const auto row = [](unsigned bits, bool bigEndian, unsigned channels) {
            QTest::addRow("%u bit, %s, %u channels", bits, bigEndian ? "big" : "little", channels)
                << bits << bigEndian << channels;
        };
        for (const unsigned bits : {16U, 24U, 32U})
            for (const bool bigEndian : {false, true})
                for (const unsigned channels : {1U, 2U, 8U})
                    row(bits, bigEndian, channels);
        for (const unsigned channels : {3U, 4U, 5U, 6U, 7U})
            row(24, channels % 2 == 0, channels);
    }
    void everySampleLandsInAFile()
    {
        QFETCH(unsigned, bits);
        QFETCH(bool, bigEndian);
        QFETCH(unsigned, channels);
        RecorderSettings settings = RoadRig::settingsAt("127.94.0.1");
        settings.bitDepth = bits;
        settings.byteOrder = bigEndian ? OrderBigEndian : OrderLittleEndian;
        settings.channels = channels;
        settings.sampleRate = 2000;
        settings.streamSeconds = 2;
        RoadRig rig(settings);
        QVERIFY(rig.prepare());
        rig.makeStream();
        QSignalSpy headerErrors(rig.stream.get(), &HydStreamAdapter::headerError);
        QSignalSpy failures(rig.logger.get(), &NvxWavLogger::loggingFailed);
        QVERIFY(rig.startStream());
        QVERIFY(rig.waitForSamples(4000));
        rig.stopRecording();

        const NvxStreamStats stats = rig.monitor.stats(rig.device->deviceId());
        QCOMPARE(stats.samplesReceived, uint64_t{4000});
        QCOMPARE(stats.samplesMissing, uint64_t{0});
        QCOMPARE(stats.bytes, uint64_t{4000} * channels * bits / 8);
        QCOMPARE(stats.nominalRate, 2000U);
        QCOMPARE(headerErrors.size(), 0);
        QCOMPARE(failures.size(), 0);
        QCOMPARE(rig.files.size(), 1);
        const JudgedWav file = judgeWav(rig.files.front());
        QCOMPARE(file.bits, int(bits));
        QCOMPARE(file.channels, int(channels));
        QCOMPARE(file.rate, 2000);
        QCOMPARE(file.frames, qint64{4000});
        // The array path never sets the file's byte order, which is intended.
        QCOMPARE(file.isBigEndian, bigEndian && channels == 1);
        QCOMPARE(rig.fileObjection(), QString());
    }

    void identitySetupAndClockAreRead()
    {
        RecorderSettings settings = RoadRig::settingsAt("127.94.0.2");
        settings.identity.serial = 4711;
        settings.identity.model = "Model A";
        settings.identity.firmwareVersion = "2.1";
        settings.identity.firmwareRelease = "B7";
        RoadRig rig(settings);
        QVERIFY(rig.startRecorder());
        QVERIFY(rig.discover());
        QCOMPARE(rig.device->serial(), uint16_t{4711});
        QCOMPARE(rig.device->devType(), DevTypeRecorderA);
        QCOMPARE(rig.device->netHostInfo().ipAddress().toString(), std::string("127.94.0.2"));
        QVERIFY(rig.openCommands());
        QVERIFY(rig.startUp());
        QCOMPARE(rig.device->modelString(), std::string("Model A"));
        QCOMPARE(rig.device->firmwareVer(), std::string("2.1"));
        QCOMPARE(rig.device->firmwareRel(), std::string("B7"));
        QCOMPARE(rig.device->sensitivity(), -170.0F);
        QCOMPARE(uint32_t{rig.device->jobSettings().wavRate()}, 8000U);
        QCOMPARE(int{rig.device->jobSettings().wavBitDepth()}, 16);
        // Years behind this computer's clock, which it runs with; between the two readings the machine may be
        // busy.
        QVERIFY(std::abs(rig.device->timeUtc() - rig.recorder.deviceTime()) <= 60);
    }

    void writtenSetupChangesTheRecording()
    {
        RoadRig rig(RoadRig::settingsAt("127.94.0.3"));
        QVERIFY(rig.prepare());
        QSignalSpy taken(rig.controller.get(), &NvxDeviceController::jobSetupGotFromDev);
        HydJobSettings wanted;
        wanted.setWavRate(SampRate{16000});
        wanted.setWavBitDepth(HydWavBitDepth{24});
        rig.controller->sendJobSetup(wanted.map(), false);
        QTRY_COMPARE(taken.size(), 1);
        QCOMPARE(rig.device->configStat(), ConfigConfirmed);
        rig.makeStream();
        QSignalSpy headerErrors(rig.stream.get(), &HydStreamAdapter::headerError);
        QVERIFY(rig.startStream());
        QVERIFY(rig.waitForSamples(64000));
        rig.stopRecording();
        QCOMPARE(headerErrors.size(), 0);
        QCOMPARE(rig.fileRates(), QList<int>{16000});
        QCOMPARE(judgeWav(rig.files.front()).bits, 24);
        QCOMPARE(rig.fileObjection(), QString());
    }

    void writtenClockNamesTheFiles()
    {
        RoadRig rig(RoadRig::settingsAt("127.94.0.4"));
        QVERIFY(rig.prepare());
        QSignalSpy clocked(rig.controller.get(), &NvxDeviceController::timeChanged);
        rig.controller->sendSetTime(1700000100);
        QTRY_VERIFY(!clocked.isEmpty());
        QVERIFY(std::abs(rig.device->timeUtc() - 1700000100) <= 60);
        rig.makeStream();
        QVERIFY(rig.startStream());
        QVERIFY(rig.waitForSamples(32000));
        rig.stopRecording();
        const QString name = QFileInfo(rig.files.front()).fileName();
        // Within a minute of the time that was written: a busy machine starts late.
        QVERIFY2(name >= QStringLiteral("REC1234_20231114_221500") &&
                     name <= QStringLiteral("REC1234_20231114_221600"),
                 qPrintable(name));
    }

    void filesFollowOneAnother()
    {
        RecorderSettings settings = RoadRig::settingsAt("127.94.0.5");
        settings.streamSeconds = 12;
        RoadRig rig(settings);
        QVERIFY(rig.prepare());
        rig.makeStream(5);
        QVERIFY(rig.startStream());
        QVERIFY(rig.waitForSamples(96000));
        rig.stopRecording();
        QCOMPARE(rig.fileObjection(), QString());
        QVERIFY2(rig.files.size() == 3 || rig.files.size() == 4,
                 qPrintable(QString::number(rig.files.size())));
        for (qsizetype i = 1; i + 1 < rig.files.size(); ++i)
            QCOMPARE(judgeWav(rig.files[i]).frames, qint64{40000});
    }

    void pacedRecordingLosesNothing()
    {
        RecorderSettings settings = RoadRig::settingsAt("127.94.0.6");
        settings.unpaced = false;
        settings.sampleRate = 64000;
        settings.bitDepth = 24;
        RoadRig rig(settings);
        QVERIFY(rig.prepare());
        rig.makeStream();
        QVERIFY(rig.startStream());
        QVERIFY(rig.waitForSamples(32000));
        rig.stopRecording();
        QCOMPARE(rig.monitor.total().samplesMissing, uint64_t{0});
        QCOMPARE(rig.fileObjection(), QString());
    }

    void severalRecordersAtOnce()
    {
        std::vector<std::unique_ptr<RoadRig>> rigs;
        for (uint16_t i = 0; i < 4; ++i) {
            RecorderSettings settings = RoadRig::settingsAt("127.94.1.1");
            settings.address = QHostAddress(settings.address.toIPv4Address() + i);
            settings.identity.serial = static_cast<uint16_t>(100 + i);
            rigs.push_back(std::make_unique<RoadRig>(settings));
            QVERIFY(rigs.back()->prepare());
            QCOMPARE(rigs.back()->device->serial(), static_cast<uint16_t>(100 + i));
            rigs.back()->makeStream();
        }
        for (auto& rig : rigs)
            QVERIFY(rig->startStream());
        for (auto& rig : rigs) {
            QVERIFY(rig->waitForSamples(32000));
            rig->stopRecording();
            QCOMPARE(rig->samplesReceived(), uint64_t{32000});
            QCOMPARE(rig->fileObjection(), QString());
        }
    }

    void stoppedStreamStartsAgain()
    {
        RoadRig rig(RoadRig::settingsAt("127.94.0.7"));
        QVERIFY(rig.prepare());
        rig.makeStream();
        for (int i = 1; i <= 3; ++i) {
            QVERIFY(rig.startStream());
            QVERIFY(rig.waitForSamples(uint64_t(i) * 32000));
            rig.stream->stopStream();
        }
        rig.stopRecording();
        QCOMPARE(rig.samplesReceived(), uint64_t{96000});
        QCOMPARE(rig.fileObjection(), QString());
    }

    void collectedWavesAreTheSame()
    {
        RecorderSettings settings = RoadRig::settingsAt("127.94.0.8");
        settings.bitDepth = 24;
        settings.scanMemorySeconds = 60;
        RoadRig rig(settings);
        QVERIFY(rig.prepare());
        HydStreamAdapter scan(StreamWave, 1, rig.device->deviceId(), 60000, false);
        scan.updateDeviceInfo(*rig.device);
        auto* controller = dynamic_cast<HydDeviceController*>(rig.controller.get());
        QVERIFY(controller);
        connect(controller, &HydDeviceController::dataCollected, &scan,
                &HydStreamAdapter::handleDataCollectMessage);
        QSignalSpy headers(&scan, &HydStreamAdapter::eventHeader);
        QSignalSpy lost(&scan, &HydStreamAdapter::streamDataLost);
        NvxWavLogger logger(3600, rig.folder.path(), QStringLiteral("SCAN1234"));
        connect(&scan, &HydStreamAdapter::eventHeader, &logger, &NvxWavLogger::handleWavEventHdr);
        connect(&scan, &HydStreamAdapter::streamDataReady, &logger, &NvxWavLogger::handleWavData);
        QSignalSpy files(&logger, &NvxWavLogger::newFileCreated);
        QSignalSpy failures(&logger, &NvxWavLogger::loggingFailed);
        int64_t first = -1;
        int64_t expected = -1;
        int64_t samples = 0;
        QString objection;
        connect(
            &scan, &HydStreamAdapter::streamDataReady, this,
            [&](const std::shared_ptr<HydStreamDataPayload>& payload) {
                const HydStreamDataChunk& data = *payload->data();
                const auto bytes = data.bytes();
                for (int i = 0; i < data.numSamples(); ++i, ++samples) {
                    const unsigned char* at = bytes.get() + qsizetype(i) * 3;
                    // Shifted to the top of 32 bits, so that the sign is where it belongs.
                    const uint32_t top = uint32_t(at[2]) << 24 | uint32_t(at[1]) << 16 | uint32_t(at[0]) << 8;
                    const int32_t value = int32_t(top) >> 8;
                    if (expected < 0)
                        first = expected = value;
                    if (value != SignalSource::rampValue(uint64_t(expected++), 0, 24) && objection.isEmpty())
                        objection = QStringLiteral("sample %1 is %2").arg(expected - 1).arg(value);
                }
            });
        // The poll's timer runs since the first reply, and a positive configuration would stop it: intended.
        controller->stopDataCollect();
        controller->startDataCollect(0x20);
        // Into the next second, which begins with a header of its own.
        QTRY_VERIFY(samples > 8000);
        controller->stopDataCollect();
        QCOMPARE(objection, QString());
        QCOMPARE(lost.size(), 0);
        QVERIFY(headers.size() >= 2);

        logger.stopLogging();
        QCOMPARE(failures.size(), 0);
        QCOMPARE(files.size(), 1);
        const QString path = files[0][0].toString();
        QCOMPARE(wholeFileObjection(path), QString());
        const JudgedWav file = judgeWav(path);
        QCOMPARE(file.bits, 24);
        QCOMPARE(file.channels, 1);
        QCOMPARE(file.rate, 8000);
        QCOMPARE(file.isBigEndian, false);
        QCOMPARE(file.frames, samples);
        for (int64_t i = 0; i < samples; ++i)
            QCOMPARE(file.samples[static_cast<size_t>(i)],
                     SignalSource::rampValue(static_cast<uint64_t>(first + i), 0, 24));
    }

    // --- rainy day flows
    void nobodyAnswersWhereNobodyIs()
    {
        RoadRig rig(RoadRig::settingsAt("127.94.0.9"));
        HydMarcoAdapter marco;
        QSignalSpy found(&marco, &HydMarcoAdapter::deviceFound);
        marco.netEnquireUDPIPAddr(rig.recorder.settings().address, false, false);
        QVERIFY(!found.wait(300));
        // The same enquiry finds it once it is there.
        QVERIFY(rig.startRecorder());
        marco.netEnquireUDPIPAddr(rig.recorder.settings().address, false, false);
        QTRY_COMPARE(found.size(), 1);
    }

    void refusedPortsAreReported()
    {
        RecorderSettings settings = RoadRig::settingsAt("127.94.0.10");
        settings.roles = RoleDiscovery;
        RoadRig rig(settings);
        QVERIFY(rig.startRecorder());
        QVERIFY(rig.discover());
        rig.controller = NvxDeviceController::createController(rig.device, ConnTcp);
        QSignalSpy errors(rig.controller.get(), &NvxDeviceController::error);
        rig.controller->openChannel(ChanCommand);
        QTRY_VERIFY(!errors.isEmpty());
        QCOMPARE(errors.first().at(0).value<HydControlError>(), ErrNotConnected);
        QCOMPARE(errors.first().at(1).toInt(), int(QAbstractSocket::ConnectionRefusedError));

        HydStreamAdapter stream(StreamWave, 51001, settings.address.toString(), rig.device->deviceId(), 60000,
                                true);
        QSignalSpy refused(&stream, &HydStreamAdapter::streamDisconnected);
        stream.connectStream();
        QTRY_COMPARE(refused.size(), 1);
        QCOMPARE(refused.first().first().value<QAbstractSocket::SocketError>(),
                 QAbstractSocket::ConnectionRefusedError);
    }

    void vanishedRecorderLeavesWholeFiles()
    {
        RecorderSettings settings = RoadRig::settingsAt("127.94.0.11");
        settings.unpaced = false;
        settings.sampleRate = 32000;
        RoadRig rig(settings);
        QVERIFY(rig.prepare());
        rig.makeStream();
        QSignalSpy closed(rig.controller.get(), &NvxDeviceController::channelClosed);
        QSignalSpy lost(rig.stream.get(), &HydStreamAdapter::socketError);
        QVERIFY(rig.startStream());
        QVERIFY(rig.waitForSamples(3200));
        rig.recorder.stop();
        QTRY_VERIFY(!lost.isEmpty());
        QTRY_COMPARE(closed.size(), 1);
        const uint64_t received = rig.samplesReceived();
        rig.stopRecording();
        QCOMPARE(rig.samplesReceived(), received);
        QCOMPARE(rig.fileObjection(), QString());
    }

    void comingBackRecorderIsRecordedAgain()
    {
        RecorderSettings settings = RoadRig::settingsAt("127.94.0.12");
        settings.unpaced = false;
        settings.sampleRate = 32000;
        // The stream has to come back on the same port.
        settings.wavePort = 51001;
        RoadRig rig(settings);
        QVERIFY(rig.prepare());
        rig.makeStream(3600, 100);
        QVERIFY(rig.startStream());
        QVERIFY(rig.waitForSamples(3200));
        rig.recorder.stop();
        QVERIFY(rig.startRecorder());
        const uint64_t before = rig.samplesReceived();
        QTRY_VERIFY(rig.samplesReceived() >= before + 3200);
        QVERIFY(rig.monitor.total().reconnects >= 1);
        rig.stopRecording();
        QCOMPARE(rig.fileObjection(), QString());
    }
};

QTEST_GUILESS_MAIN(tst_road)
#include "tst_road.moc"
