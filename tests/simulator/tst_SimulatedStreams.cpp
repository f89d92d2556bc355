#include "NvxQtSimulator/SimulatedRecorder.h"
#include "RawPeer.h"
#include "tests/support/NvxTestCase.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <QThread>

#include <memory>

// The stream ports, seen from raw sockets.

namespace {

constexpr uint8_t kHeader = 1;
constexpr uint8_t kData = 2;
constexpr uint8_t kNotification = 3;

RecorderSettings rampSettings(const char* address)
{
    RecorderSettings settings;
    settings.address = QHostAddress(QLatin1String(address));
    settings.wavePort = settings.spectrumPort = settings.sensorPort = settings.epochPort = 0;
    settings.roles = RoleWave | RoleSpectrum | RoleSensor | RoleEpoch;
    settings.sampleRate = 8000;
    settings.signal.kind = SignalSettings::Ramp;
    return settings;
}

int32_t sampleAt(const QByteArray& bytes, qsizetype index, unsigned width, bool bigEndian)
{
    uint32_t value = 0;
    for (unsigned b = 0; b < width; ++b) {
        const unsigned from = bigEndian ? b : width - 1 - b;
        value = (value << 8) | uchar(bytes.at(index * width + from));
    }
    return int32_t(value << (32 - 8 * width)) >> (32 - 8 * width);
}

} // namespace

class tst_SimulatedStreams : public NvxTestCase
{
    Q_OBJECT

private:
    std::unique_ptr<SimulatedRecorder> m_recorder;
    std::unique_ptr<RawPeer> m_peer;

    bool openStream(const RecorderSettings& settings, HydStreamType type)
    {
        m_recorder = std::make_unique<SimulatedRecorder>(settings);
        m_peer = std::make_unique<RawPeer>();
        return m_recorder->start() && m_peer->open(settings.address, m_recorder->streamPort(type));
    }

private Q_SLOTS:
    void cleanup()
    {
        m_peer.reset();
        m_recorder.reset();
    }

    // --- happy flows
    void waveStreamIsWhole_data()
    {
        QTest::addColumn<unsigned>("bits");
        QTest::addColumn<bool>("bigEndian");
        QTest::addColumn<unsigned>("channels");
        for (const unsigned bits : {16U, 24U, 32U})
            for (const bool bigEndian : {false, true})
                for (const unsigned channels : {1U, 3U, 8U})
                    QTest::addRow("%u bit, %s, %u channels", bits, bigEndian ? "big" : "little", channels)
                        << bits << bigEndian << channels;
    }
    void waveStreamIsWhole()
    {
        QFETCH(unsigned, bits);
        QFETCH(bool, bigEndian);
        QFETCH(unsigned, channels);
        RecorderSettings settings = rampSettings("127.92.0.1");
        settings.bitDepth = bits;
        settings.byteOrder = bigEndian ? OrderBigEndian : OrderLittleEndian;
        settings.channels = channels;
        settings.unpaced = true;
        settings.sampleRate = 2000;
        settings.streamSeconds = 3;
        settings.firstSequence = (int64_t{1} << 32) - 2000;
        QVERIFY(openStream(settings, StreamWave));
        const auto now = QDateTime::currentSecsSinceEpoch();
        m_peer->startStream();
        QVERIFY(m_peer->waitFor([this] { return m_recorder->counters().samplesSent >= 6000; }));
        QVERIFY(m_peer->waitForBytes(qsizetype(m_recorder->counters().bytesSent)));

        int64_t sequence = -1;
        uint32_t time = 0;
        uint32_t position = 2000;
        int headers = 0;
        for (const RawStreamFrame& frame : m_peer->streamFrames()) {
            QVERIFY(frame.checksumFits);
            if (frame.kind == kHeader) {
                // The event before is whole, and this one goes on from it.
                QCOMPARE(position, 2000U);
                QCOMPARE(frame.waveRate(), 2000U);
                QCOMPARE(uchar(frame.chunk(4).at(6)), uchar(bits / 8 + (bigEndian ? 0x80 : 0)));
                QCOMPARE(int(frame.chunk(11).at(0)), int(channels));
                QCOMPARE(frame.count(2), int(channels));
                QCOMPARE(frame.count(3), int(channels));
                QCOMPARE(frame.count(6), int(channels));
                QCOMPARE(frame.count(8), channels > 1 ? 1 : 0);
                QCOMPARE(RawStreamFrame::word<qint32>(frame.chunk(6), 4),
                         int((quint64{1} << (bits - 1)) - 1));
                QCOMPARE(RawStreamFrame::word<qint32>(frame.chunk(6), 12), 3000000);
                if (sequence >= 0) {
                    QCOMPARE(frame.sequence(), sequence + 2000);
                    QCOMPARE(frame.time(), time + 1);
                } else {
                    QVERIFY(frame.sequence() >= settings.firstSequence);
                    QVERIFY(int64_t(frame.time()) >= now - 1 &&
                            int64_t(frame.time()) <= QDateTime::currentSecsSinceEpoch() + 1);
                }
                sequence = frame.sequence();
                time = frame.time();
                position = 0;
                ++headers;
                continue;
            }
            QCOMPARE(frame.kind, kData);
            QCOMPARE(frame.sequence(), sequence);
            QCOMPARE(frame.time(), time);
            QCOMPARE(frame.position(), position);
            QCOMPARE(int(frame.chunk(9).at(4)), int(channels));
            QCOMPARE(uchar(frame.chunk(9).at(5)), uchar(bits / 8 + (bigEndian ? 0 : 0x80)));
            const QByteArray samples = frame.sampleBytes();
            QCOMPARE(samples.size(), qsizetype(frame.samples() * channels * bits / 8));
            for (int i = 0; i < frame.samples(); ++i)
                for (unsigned c = 0; c < channels; ++c)
                    QCOMPARE(sampleAt(samples, i * qsizetype(channels) + c, bits / 8, bigEndian),
                             SignalSource::rampValue(uint64_t(sequence + position + i), c, bits));
            position += frame.samples();
            QCOMPARE(frame.isLast(), position == 2000);
        }
        QCOMPARE(headers, 3);
        QCOMPARE(position, 2000U);
    }

    void masterAndChannelsHaveTheirSerials()
    {
        RecorderSettings settings = rampSettings("127.92.0.2");
        settings.channels = 2;
        QVERIFY(openStream(settings, StreamWave));
        m_peer->startStream();
        QVERIFY(m_peer->waitForFrames(kHeader, 1));
        const RawStreamFrame header = m_peer->streamFrames(kHeader).front();
        QCOMPARE(RawStreamFrame::word<quint16>(header.chunk(8), 4), quint16{1234});
        QCOMPARE(RawStreamFrame::word<quint16>(header.chunk(2), 4), quint16{1235});
        QCOMPARE(RawStreamFrame::word<quint16>(header.chunk(2), 2), quint16{1234});
        QCOMPARE(RawStreamFrame::word<qint16>(header.chunk(2), 6), qint16{-1700});
    }

    void pacedStreamFollowsTheClock()
    {
        RecorderSettings settings = rampSettings("127.92.0.3");
        settings.sampleRate = 64000;
        QVERIFY(openStream(settings, StreamWave));
        QElapsedTimer clock;
        clock.start();
        qint64 begun = 0;
        connect(m_recorder.get(), &SimulatedRecorder::streamStarted, this, [&] { begun = clock.elapsed(); });
        const auto samplesSent = [this] { return qint64(m_recorder->counters().samplesSent); };
        m_peer->startStream();
        QVERIFY(m_peer->waitFor([&] { return samplesSent() >= 32000; }));
        // However late the machine is: never ahead of the clock, and once the stream had its turn, not far
        // behind the time at which it came to it.
        const qint64 reached = clock.elapsed();
        const qint64 sent = samplesSent();
        QVERIFY2(sent <= 64 * (reached + 1), qPrintable(QString::number(sent)));
        QVERIFY(m_peer->waitFor([&] { return samplesSent() > sent; }));
        QVERIFY2(samplesSent() >= 32 * (reached - begun), qPrintable(QString::number(reached)));
        QCOMPARE(m_recorder->counters().samplesDropped, 0U);
    }

    void stopEndsTheStreamAndStartGoesOn()
    {
        QVERIFY(openStream(rampSettings("127.92.0.4"), StreamWave));
        QSignalSpy started(m_recorder.get(), &SimulatedRecorder::streamStarted);
        QSignalSpy stopped(m_recorder.get(), &SimulatedRecorder::streamStopped);
        m_peer->startStream();
        QVERIFY(m_peer->waitForFrames(kData, 3));
        m_peer->stopStream();
        QTRY_COMPARE(stopped.size(), 1);
        QVERIFY(m_peer->waitForBytes(qsizetype(m_recorder->counters().bytesSent)));
        const RawStreamFrame last = m_peer->streamFrames(kData).back();
        const int64_t end = last.sequence() + last.position() + last.samples();
        m_peer->received.clear();
        m_peer->startStream();
        QVERIFY(m_peer->waitForFrames(kHeader, 1));
        QCOMPARE(started.size(), 2);
        QVERIFY(m_peer->streamFrames(kHeader).front().sequence() >= end);
        QCOMPARE(m_recorder->counters().streamStarts, 2U);
    }

    void startAfterAnUnpacedStreamGoesOnBehindIt()
    {
        RecorderSettings settings = rampSettings("127.92.0.22");
        settings.unpaced = true;
        settings.streamSeconds = 20;
        QVERIFY(openStream(settings, StreamWave));
        m_peer->startStream();
        QVERIFY(m_peer->waitFor([this] { return m_recorder->counters().samplesSent == 160000; }));
        QVERIFY(m_peer->waitForBytes(qsizetype(m_recorder->counters().bytesSent)));
        const int64_t end = m_peer->streamFrames(kHeader).back().sequence() + 8000;
        m_peer->stopStream();
        m_peer->received.clear();
        m_peer->startStream();
        QVERIFY(m_peer->waitForFrames(kHeader, 1));
        // The stream ran ahead of the clock; its numbers are not given twice.
        QCOMPARE(m_peer->streamFrames(kHeader).front().sequence(), end);
    }

    void secondStartChangesNothing()
    {
        RecorderSettings settings = rampSettings("127.92.0.5");
        settings.unpaced = true;
        settings.streamSeconds = 2;
        QVERIFY(openStream(settings, StreamWave));
        m_peer->startStream();
        m_peer->startStream();
        QVERIFY(m_peer->waitFor([this] { return m_recorder->counters().samplesSent >= 16000; }));
        QVERIFY(m_peer->waitForBytes(qsizetype(m_recorder->counters().bytesSent)));
        QCOMPARE(m_peer->streamFrames(kHeader).size(), size_t{2});
    }

    void messagesMayComeInPieces()
    {
        QVERIFY(openStream(rampSettings("127.92.0.6"), StreamWave));
        QSignalSpy started(m_recorder.get(), &SimulatedRecorder::streamStarted);
        for (const char byte : QByteArrayLiteral("xx33*\0\4\0\0\0\0")) {
            m_peer->socket.write(&byte, 1);
            QVERIFY(m_peer->waitFor([this] { return m_peer->socket.bytesToWrite() == 0; }));
        }
        QTRY_COMPARE(started.size(), 1);
    }

    void writtenSetupTakesEffectWithTheNextSecond()
    {
        RecorderSettings settings = rampSettings("127.92.0.7");
        settings.roles |= RoleControl;
        QVERIFY(openStream(settings, StreamWave));
        m_peer->startStream();
        QVERIFY(m_peer->waitForFrames(kHeader, 1));
        RawPeer control;
        QVERIFY(control.open(settings.address, 50000));
        const QByteArray request = QByteArray::fromHex("001400000003"
                                                       "000e000400003e80"
                                                       "0010000400000010"
                                                       "0012000400000001");
        QCOMPARE(control.ask('D', request).letter, 'D');
        const qint64 answered = m_recorder->deviceTime();
        std::vector<RawStreamFrame> headers;
        QVERIFY(m_peer->waitFor([&] {
            headers = m_peer->streamFrames(kHeader);
            return headers.back().waveRate() == 16000;
        }));
        const auto first = std::find_if(headers.begin(), headers.end(), [](const RawStreamFrame& header) {
            return header.waveRate() != 8000;
        });
        QCOMPARE(first->waveRate(), 16000U);
        QVERIFY(first->time() <= answered + 1);
        QCOMPARE(uchar(first->chunk(4).at(6)), uchar{0x82});
        QCOMPARE(first->sequence(), std::prev(first)->sequence() + 8000);
        QVERIFY(m_peer->waitFor(
            [this] { return m_peer->streamFrames().back().sampleBytes().size() == 2 * 640; }));
    }

    void writtenTimeMovesTheEvents()
    {
        RecorderSettings settings = rampSettings("127.92.0.8");
        settings.roles |= RoleControl;
        QVERIFY(openStream(settings, StreamWave));
        m_peer->startStream();
        QVERIFY(m_peer->waitForFrames(kHeader, 1));
        RawPeer control;
        QVERIFY(control.open(settings.address, 50000));
        const qint64 before = m_recorder->deviceTime();
        QByteArray time(4, 0);
        qToBigEndian(quint32(before - 3600), time.data());
        QCOMPARE(control.ask('A', time).letter, 'A');
        const qint64 shift = m_peer->backwardStep();
        // A busy machine lets time pass between the reading of the clock and its writing.
        QVERIFY2(shift >= -3660 && shift <= -3598, qPrintable(QString::number(shift)));
    }

    void severalReadersHaveTheirOwnStreams()
    {
        QVERIFY(openStream(rampSettings("127.92.0.9"), StreamWave));
        RawPeer second;
        QVERIFY(second.open(m_recorder->settings().address, m_recorder->streamPort(StreamWave)));
        m_peer->startStream();
        second.startStream();
        QVERIFY(m_peer->waitForFrames(kData, 5));
        QVERIFY(second.waitForFrames(kData, 5));
        m_peer->socket.abort();
        const size_t sofar = second.streamFrames(kData).size();
        QVERIFY(second.waitForFrames(kData, sofar + 5));
    }

    void severalRecordersStreamAtOnce()
    {
        std::vector<std::unique_ptr<SimulatedRecorder>> recorders;
        std::vector<std::unique_ptr<RawPeer>> peers;
        for (unsigned i = 0; i < 16; ++i) {
            RecorderSettings settings = rampSettings("127.92.1.0");
            settings.address = QHostAddress(settings.address.toIPv4Address() + 1 + i);
            settings.wavePort = RecorderSettings::kWavePort;
            settings.identity.serial = uint16_t(200 + i);
            recorders.push_back(std::make_unique<SimulatedRecorder>(settings));
            QVERIFY2(recorders.back()->start(), qPrintable(recorders.back()->errorString()));
            QCOMPARE(recorders.back()->streamPort(StreamWave), quint16{51001});
            peers.push_back(std::make_unique<RawPeer>());
            QVERIFY(peers.back()->open(settings.address, 51001));
            peers.back()->startStream();
        }
        for (unsigned i = 0; i < 16; ++i) {
            QVERIFY(peers[i]->waitForFrames(kData, 3));
            QCOMPARE(RawStreamFrame::word<quint16>(peers[i]->streamFrames(kHeader).front().chunk(2), 4),
                     quint16(200 + i));
        }
    }

    void runsOnAThreadOfItsOwn()
    {
        QThread thread;
        auto* recorder = new SimulatedRecorder(rampSettings("127.92.0.10"));
        recorder->moveToThread(&thread);
        connect(&thread, &QThread::finished, recorder, &QObject::deleteLater);
        thread.start();
        quint16 port = 0;
        QMetaObject::invokeMethod(
            recorder,
            [&] {
                if (recorder->start())
                    port = recorder->streamPort(StreamWave);
            },
            Qt::BlockingQueuedConnection);
        QVERIFY(port != 0);
        RawPeer peer;
        QVERIFY(peer.open(QHostAddress(QStringLiteral("127.92.0.10")), port));
        peer.startStream();
        const bool came = peer.waitForFrames(kData, 3);
        thread.quit();
        QVERIFY(thread.wait());
        QVERIFY(came);
    }

    void spectrumHasTheToneInItsBin()
    {
        RecorderSettings settings = rampSettings("127.92.0.11");
        settings.sampleRate = 64000;
        settings.signal.kind = SignalSettings::Tone;
        // 100 bins of 64000 / 1024 Hz.
        settings.signal.frequency = 6250.0;
        settings.signal.levelDb = -20.0;
        QVERIFY(openStream(settings, StreamSpectrum));
        m_peer->startStream();
        QVERIFY(m_peer->waitForFrames(kData, 3));
        const RawStreamFrame header = m_peer->streamFrames(kHeader).front();
        QCOMPARE(RawStreamFrame::word<quint32>(header.chunk(5), 0), 64000U);
        QCOMPARE(RawStreamFrame::word<quint16>(header.chunk(5), 4), quint16{1024});
        QCOMPARE(RawStreamFrame::word<qint16>(header.chunk(5), 6), qint16{-120});
        for (const RawStreamFrame& frame : m_peer->streamFrames(kData)) {
            QVERIFY(frame.checksumFits);
            const QByteArray bins = frame.sampleBytes();
            QCOMPARE(bins.size(), 512);
            // Half dB above the reference level: -20 dBFS of 3 V are -13.5 dB re 1 V.
            QCOMPARE(int(uchar(bins.at(100))), 2 * 120 - 27);
            QVERIFY(uchar(bins.at(110)) < 2 * (120 - 74));
        }
    }

    void notificationsGoToAllRunningStreams()
    {
        QVERIFY(openStream(rampSettings("127.92.0.14"), StreamWave));
        m_peer->startStream();
        QVERIFY(m_peer->waitForFrames(kData, 1));
        m_recorder->notify(4, QStringLiteral("battery is low"));
        QVERIFY(m_peer->waitForFrames(kNotification, 1));
        const QByteArray body = m_peer->streamFrames(kNotification).front().chunk(10);
        QCOMPARE(body, QByteArray::fromHex("0004") + char(14) + "battery is low");
        const size_t sofar = m_peer->streamFrames(kData).size();
        QVERIFY(m_peer->waitForFrames(kData, sofar + 2));

        QSignalSpy stopped(m_recorder.get(), &SimulatedRecorder::streamStopped);
        m_recorder->notify(3);
        QTRY_COMPARE(stopped.size(), 1);
    }

    void rolloverByteIsInTheStatus()
    {
        RecorderSettings settings = rampSettings("127.92.0.15");
        settings.rollover = 7;
        settings.unpaced = true;
        settings.streamSeconds = 2;
        QVERIFY(openStream(settings, StreamWave));
        // Behind the first header, ahead of the first block.
        connect(m_recorder.get(), &SimulatedRecorder::streamStarted, this,
                [this] { m_recorder->setRollover(9); });
        m_peer->startStream();
        QVERIFY(m_peer->waitForFrames(kHeader, 2));
        QCOMPARE(int(m_peer->streamFrames(kHeader)[0].rollover()), 7);
        QCOMPARE(int(m_peer->streamFrames(kHeader)[1].rollover()), 9);
    }

    void restartStartsTheSampleNumberOver()
    {
        RecorderSettings settings = rampSettings("127.92.0.16");
        settings.unpaced = true;
        settings.streamSeconds = 20;
        settings.firstSequence = 500;
        QVERIFY(openStream(settings, StreamWave));
        m_peer->startStream();
        QVERIFY(m_peer->waitFor([this] { return m_recorder->counters().samplesSent == 160000; }));
        m_recorder->restart();
        QVERIFY(m_peer->waitForEnd());
        RawPeer again;
        QVERIFY(again.open(settings.address, m_recorder->streamPort(StreamWave)));
        again.startStream();
        QVERIFY(again.waitForFrames(kHeader, 1));
        const int64_t sequence = again.streamFrames(kHeader).front().sequence();
        QVERIFY2(sequence >= 500 && sequence < 160000, qPrintable(QString::number(sequence)));
    }

    // --- rainy day flows
    void slowReaderOfAPacedStreamLosesBlocks()
    {
        RecorderSettings settings = rampSettings("127.92.0.17");
        settings.sampleRate = 512000;
        settings.bitDepth = 32;
        settings.channels = 8;
        settings.backlogLimit = 64 * 1024;
        QVERIFY(openStream(settings, StreamWave));
        // The peer takes nothing: what is not read stays in the kernel, the rest waits in the simulator.
        m_peer->socket.setReadBufferSize(1);
        m_peer->socket.disconnect(m_peer.get());
        m_peer->startStream();
        QVERIFY(m_peer->waitFor([this] { return m_recorder->counters().samplesDropped > 51200; }));
        QVERIFY(m_recorder->counters().framesDropped > 0);
        // What left the simulator fits what the sockets and the backlog hold.
        QVERIFY(m_recorder->counters().bytesSent < 32U * 1024 * 1024);
    }

    void slowReaderOfAnUnpacedStreamStopsIt()
    {
        RecorderSettings settings = rampSettings("127.92.0.18");
        settings.sampleRate = 512000;
        settings.bitDepth = 32;
        settings.channels = 8;
        settings.unpaced = true;
        settings.streamSeconds = 2;
        settings.backlogLimit = 256 * 1024;
        QVERIFY(openStream(settings, StreamWave));
        m_peer->socket.setReadBufferSize(1);
        m_peer->socket.disconnect(m_peer.get());
        m_peer->startStream();
        uint64_t before = 0;
        QVERIFY(m_peer->waitFor([&] {
            const uint64_t sent = m_recorder->counters().bytesSent;
            return sent > 0 && sent == std::exchange(before, sent);
        }));
        QVERIFY(before < 24U * 1024 * 1024);
        // Once the reader reads, all of it comes.
        qint64 total = 0;
        QByteArray piece(1024 * 1024, 0);
        m_peer->socket.setReadBufferSize(0);
        QVERIFY(m_peer->waitFor([&] {
            qint64 count = 0;
            while ((count = m_peer->socket.read(piece.data(), piece.size())) > 0)
                total += count;
            return m_recorder->counters().samplesSent == 1024000 &&
                   total == qint64(m_recorder->counters().bytesSent);
        }));
        QCOMPARE(m_recorder->counters().samplesDropped, 0U);
    }

    void vanishedReaderEndsItsStream()
    {
        QVERIFY(openStream(rampSettings("127.92.0.19"), StreamWave));
        QSignalSpy stopped(m_recorder.get(), &SimulatedRecorder::streamStopped);
        m_peer->startStream();
        QVERIFY(m_peer->waitForFrames(kData, 1));
        m_peer->socket.abort();
        QVERIFY(stopped.wait(kPatienceMs));
        QCOMPARE(stopped.first().first().value<HydStreamType>(), StreamWave);
    }

    void stoppedRecorderLeavesNothingBehind()
    {
        QVERIFY(openStream(rampSettings("127.92.0.20"), StreamWave));
        m_peer->startStream();
        QVERIFY(m_peer->waitForFrames(kData, 1));
        m_recorder->stop();
        QVERIFY(m_peer->waitForEnd());
        QVERIFY(m_recorder->start());
        QVERIFY(m_peer->open(m_recorder->settings().address, m_recorder->streamPort(StreamWave)));
        m_peer->received.clear();
        m_peer->startStream();
        QVERIFY(m_peer->waitForFrames(kData, 1));
    }

    void junkAheadOfAStartIsPassedOver()
    {
        QVERIFY(openStream(rampSettings("127.92.0.21"), StreamWave));
        m_peer->socket.write(QByteArray(100000, '3'));
        m_peer->socket.write(QByteArrayLiteral("3*\0\5....4*\0\1"));
        m_peer->startStream();
        QVERIFY(m_peer->waitForFrames(kData, 1));
    }
};

QTEST_GUILESS_MAIN(tst_SimulatedStreams)
#include "tst_SimulatedStreams.moc"
