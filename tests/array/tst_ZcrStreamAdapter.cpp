#include "NvxQtCommon/array/ZcrStreamAdapter.h"
#include "tests/array/ArrayFrames.h"
#include "tests/support/Buried.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/SpyWait.h"

#include <QPointer>
#include <QSignalSpy>
#include <QThread>

using Frame = CZCRWebSocket::ZCR_STREAM_STR;
using Header = std::shared_ptr<HydStreamEventHeaderPayload>;
using Data = std::shared_ptr<HydStreamDataPayload>;

namespace {

const QString kAddress = QStringLiteral("127.81.2.1");
constexpr int kAlivePeriod = 1;

HydDeviceId arrayId()
{
    HydDeviceId id(DevTypeZcr, 600);
    id.setNetHostInfo(NvxNetHostInfo(0x7F510201));
    return id;
}

/// An adapter of the address above and what it told.
struct Stream
{
    Stream()
    {
        adapter->setClock([this] { return ++seconds; });
    }

    Header header(int i = 0) const { return headers.at(i).first().value<Header>(); }
    Data data(int i = 0) const { return payloads.at(i).first().value<Data>(); }

    int64_t seconds = 1000;
    std::unique_ptr<ZcrStreamAdapter> adapter =
        std::make_unique<ZcrStreamAdapter>(StreamSpectrum, 51675, kAddress, arrayId(), kAlivePeriod);
    QSignalSpy connected{adapter.get(), &HydStreamAdapter::streamConnected};
    QSignalSpy started{adapter.get(), &HydStreamAdapter::streamStarted};
    QSignalSpy stopped{adapter.get(), &HydStreamAdapter::streamStopped};
    QSignalSpy errors{adapter.get(), &HydStreamAdapter::socketError};
    QSignalSpy headers{adapter.get(), &HydStreamAdapter::eventHeader};
    QSignalSpy payloads{adapter.get(), &HydStreamAdapter::streamDataReady};
    QSignalSpy power{adapter.get(), &HydStreamAdapter::signalTotalPower};
};

/// A frame as the web socket emits it.
Frame frameOf(qsizetype bins, uint16_t bandWidth)
{
    Frame frame;
    frame.frameChannel = 3;
    frame.frameSerial = 1234;
    frame.frameTemperature = 215;
    frame.frameSequence = 70000;
    frame.frameBandWidth = bandWidth;
    frame.frameFftRef = -120;
    frame.frameSampleRate = 96000;
    frame.frameSensitivity = -165;
    frame.frameFftAccum = 20;
    frame.frameNumPts = 2048;
    frame.frameBytes.fill('\x10', qsizetype(ZcrFrameHeader::kSize) + bins);
    return frame;
}

QByteArray bytesOf(const Data& payload)
{
    const auto& chunk = *payload->data();
    return {reinterpret_cast<const char*>(chunk.bytes().get()), qsizetype(chunk.byteSize())};
}

} // namespace

/// The stream of an array controller: frames become headers and data of their channels.
class tst_ZcrStreamAdapter : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void beginsUnconnected();
    void headerOfAFrame();
    void setupOfTheDevice();
    void dataOfAFrame();
    void payloadsAreStampedOneByOne();
    void identityOfAChannel();
    void oneAdapterServesAllChannels();
    void streamsFromAServer();
    void connectsWithoutStarting();
    void addressGivenLater();
    void worksOnAnotherThread();
    // --- rainy day flows
    void halvesTowardsZero();
    void bandWidthAndFrame_data();
    void bandWidthAndFrame();
    void fieldsAtTheirLimits_data();
    void fieldsAtTheirLimits();
    void startIsReportedAheadOfTheConnection();
    void refusedStartIsReportedAsStarted();
    void stopsWithoutAConnection();
    void errorsArePassedOn();
    void lostConnectionIsNotMadeAgain();
    void connectionsAreMadeOnce();
    void noSocketOfTheBase();
    void deletedByItsOwnSignal_data();
    void deletedByItsOwnSignal();
};

void tst_ZcrStreamAdapter::beginsUnconnected()
{
    Stream stream;
    QVERIFY(!stream.adapter->isStreaming());
    QCOMPARE(stream.adapter->streamType(), StreamSpectrum);
    QCOMPARE(stream.adapter->deviceId(), arrayId());
    QCOMPARE(stream.adapter->port(), 51675);
    QVERIFY(stream.connected.isEmpty());
    QCOMPARE(stream.adapter->findChild<CZCRWebSocket*>()->hAddress(), QHostAddress(kAddress));
    const ZcrStreamAdapter nameless(StreamSpectrum, 51675, arrayId(), kAlivePeriod);
    QVERIFY(nameless.findChild<CZCRWebSocket*>()->hAddress().isNull());
    QCOMPARE(nameless.findChild<CZCRWebSocket*>()->version(), QWebSocketProtocol::Version13);
    QVERIFY(nameless.findChild<CZCRWebSocket*>()->origin().isEmpty());
}

void tst_ZcrStreamAdapter::headerOfAFrame()
{
    Stream stream;
    stream.adapter->readStream(frameOf(4, 4));
    QCOMPARE(stream.headers.count(), 1);
    const Header header = stream.header();
    QCOMPARE(header->streamType, StreamSpectrum);
    QCOMPARE(header->numChannels(), 1);
    QVERIFY(!header->isArray());
    QVERIFY(!header->isAdjacent());
    QVERIFY(header->arrayMasterInfo() == nullptr);
    QCOMPARE(header->eventKey()->time(), 1001U);
    QCOMPARE(header->eventKey()->sequence(), 70000);

    QCOMPARE(header->deviceInfoChunks().size(), size_t(1));
    const auto& device = *header->deviceInfoChunks().front();
    QCOMPARE(device.devType(), DevTypeSkiff);
    QCOMPARE(device.serialNo(), 1234);
    QCOMPARE(device.hostDevNo(), 0);
    QCOMPARE(device.sensitivity(), -1650);

    QCOMPARE(header->streamStatusChunks().size(), size_t(1));
    const auto& status = *header->streamStatusChunks().front();
    QCOMPARE(status.temperature(), 215);
    QCOMPARE(status.humidity(), 200);
    QCOMPARE(status.flags(), 256);
    QCOMPARE(status.statusExtra(), 0);
    QCOMPARE(status.rollover(), 0);

    QVERIFY(header->streamSetupChunk()->wavSetup() == nullptr);
    const auto setup = header->streamSetupChunk()->fftSetup();
    QVERIFY(setup != nullptr);
    QCOMPARE(setup->sampleRate(), 96000U);
    QCOMPARE(setup->points(), 2048);
    QCOMPARE(setup->refLevel(), -120);
    QCOMPARE(setup->accum(), 20);
    // A device without settings: no processing type, no weighting, and the usual points between.
    QCOMPARE(setup->procType(), 0);
    QCOMPARE(setup->weight(), 0);
    QCOMPARE(setup->pointsBtw(), 512);

    QCOMPARE(header->amplScalingChunks().size(), size_t(1));
    const auto& scaling = *header->amplScalingChunks().front();
    QCOMPARE(scaling.bitsPerSample(), 1);
    QCOMPARE(scaling.maxValue(), 255);
    QCOMPARE(scaling.minValue(), 0);
    QCOMPARE(scaling.maxMicrovolts(), 0);
    QCOMPARE(scaling.minMicrovolts(), 0);
    ByteStream body;
    scaling.serialize(body);
    QCOMPARE(body.bytes()[0], 1);
}

void tst_ZcrStreamAdapter::setupOfTheDevice()
{
    Stream stream;
    HydDevice device(600, DevTypeZcr, NvxNetHostInfo(), {});
    HydJobSettings settings;
    settings.setFftProcType(HydFftProc{4});
    settings.setFftPointsBtw(300);
    settings.setFftWeight(2);
    device.mergeJobSettings(settings);
    stream.adapter->updateDeviceInfo(device);
    stream.adapter->readStream(frameOf(4, 4));
    const auto setup = stream.header()->streamSetupChunk()->fftSetup();
    QCOMPARE(setup->procType(), 4);
    QCOMPARE(setup->pointsBtw(), 300);
    QCOMPARE(setup->weight(), 2);
}

void tst_ZcrStreamAdapter::dataOfAFrame()
{
    Stream stream;
    Frame frame = frameOf(3, 3);
    frame.frameBytes.replace(ZcrFrameHeader::kSize, 3, QByteArray::fromHex("04fc63"));
    stream.adapter->readStream(frame);
    QCOMPARE(stream.payloads.count(), 1);
    const Data data = stream.data();
    QCOMPARE(data->streamType, StreamSpectrum);
    QCOMPARE(data->eventKey()->sequence(), 70000);
    QVERIFY(!data->isLastEvent());
    QVERIFY(!data->isNoiseFiltered());
    const auto& chunk = *data->data();
    QCOMPARE(chunk.sampleNum(), 0U);
    QCOMPARE(chunk.numChannels(), 1);
    QCOMPARE(chunk.sampleFormat(), 131);
    QCOMPARE(chunk.numSamples(), 3);
    QCOMPARE(bytesOf(data), QByteArray::fromHex("02fe31"));
    // Bins of an array stream go by what spectra of recorders go through.
    QVERIFY(stream.power.isEmpty());
    QVERIFY(chunk.doubles() == nullptr);
}

void tst_ZcrStreamAdapter::payloadsAreStampedOneByOne()
{
    Stream stream;
    stream.adapter->readStream(frameOf(1, 1));
    stream.adapter->readStream(frameOf(1, 1));
    QCOMPARE(stream.header(0)->eventKey()->time(), 1001U);
    QCOMPARE(stream.data(0)->eventKey()->time(), 1002U);
    QCOMPARE(stream.header(1)->eventKey()->time(), 1003U);
    QCOMPARE(stream.data(1)->eventKey()->time(), 1004U);
}

void tst_ZcrStreamAdapter::identityOfAChannel()
{
    Stream stream;
    stream.adapter->readStream(frameOf(1, 1));
    for (const QVariant& argument : {stream.headers.first().at(1), stream.payloads.first().at(1)}) {
        const auto id = argument.value<HydDeviceId>();
        QCOMPARE(id.devType(), DevTypeSkiff);
        QCOMPARE(id.serialNo(), 1234);
        QCOMPARE(id.hostDevNo(), 600);
        QCOMPARE(id.netHostInfo(), NvxNetHostInfo(0x7F510201));
    }
    const auto device = stream.headers.first().at(2).value<std::shared_ptr<HydDevice>>();
    QCOMPARE(device->devType(), DevTypeSkiff);
    QCOMPARE(device->serial(), 1234);
    QCOMPARE(device->netHostInfo(), NvxNetHostInfo());
    QVERIFY(device->jobSettings().map().empty());
}

void tst_ZcrStreamAdapter::oneAdapterServesAllChannels()
{
    Stream stream;
    for (uint16_t channel = 0; channel < 64; ++channel) {
        Frame frame = frameOf(2, 2);
        frame.frameSerial = static_cast<uint16_t>(2000 + channel);
        stream.adapter->readStream(frame);
    }
    QCOMPARE(stream.headers.count(), 64);
    QCOMPARE(stream.payloads.count(), 64);
    for (int channel = 0; channel < 64; ++channel) {
        QCOMPARE(stream.headers.at(channel).at(1).value<HydDeviceId>().serialNo(), 2000 + channel);
        QCOMPARE(stream.payloads.at(channel).at(1).value<HydDeviceId>().serialNo(), 2000 + channel);
        QCOMPARE(stream.header(channel)->deviceInfoChunks().front()->serialNo(), 2000 + channel);
    }
}

void tst_ZcrStreamAdapter::streamsFromAServer()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    Stream stream;
    QByteArray order;
    connect(stream.adapter.get(), &HydStreamAdapter::eventHeader, this, [&order] { order += 'h'; });
    connect(stream.adapter.get(), &HydStreamAdapter::streamDataReady, this, [&order] { order += 'd'; });
    stream.adapter->startStream();
    QTRY_COMPARE_WITH_TIMEOUT(stream.connected.count(), 1, 30000);
    QVERIFY(stream.adapter->isStreaming());
    server.command("frame channel=1 serial=11 sequence=5 bandwidth=2 samplerate=48000 bins=0a0b");
    server.command("frame channel=2 serial=12 sequence=5 bandwidth=2 samplerate=48000 bins=f6f5");
    QTRY_COMPARE_WITH_TIMEOUT(stream.payloads.count(), 2, 30000);
    QCOMPARE(order, QByteArray("hdhd"));
    QCOMPARE(stream.payloads.at(0).at(1).value<HydDeviceId>().serialNo(), 11);
    QCOMPARE(bytesOf(stream.data(0)), QByteArray::fromHex("0505"));
    QCOMPARE(stream.payloads.at(1).at(1).value<HydDeviceId>().serialNo(), 12);
    QCOMPARE(bytesOf(stream.data(1)), QByteArray::fromHex("fbfb"));

    stream.adapter->stopStream();
    QCOMPARE(stream.stopped.count(), 1);
    QTRY_VERIFY_WITH_TIMEOUT(!stream.adapter->isStreaming(), 30000);
    QVERIFY(server.waitForLines(QStringLiteral("closed"), 1));
    QCOMPARE(server.lines(QStringLiteral("closed")).first(), QStringList{QStringLiteral("1000")});
    QVERIFY(stream.errors.isEmpty());
}

void tst_ZcrStreamAdapter::connectsWithoutStarting()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    Stream stream;
    stream.adapter->connectStream();
    QTRY_COMPARE_WITH_TIMEOUT(stream.connected.count(), 1, 30000);
    // Who is connected streams: this is intended.
    QVERIFY(stream.adapter->isStreaming());
    server.command("frame bandwidth=1 bins=01");
    QTRY_COMPARE_WITH_TIMEOUT(stream.payloads.count(), 1, 30000);
    stream.adapter->disconnectStream();
    QTRY_VERIFY_WITH_TIMEOUT(!stream.adapter->isStreaming(), 30000);
    QVERIFY(stream.started.isEmpty());
    QVERIFY(stream.stopped.isEmpty());
}

void tst_ZcrStreamAdapter::addressGivenLater()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    ZcrStreamAdapter adapter(StreamSpectrum, 51675, arrayId(), kAlivePeriod);
    QSignalSpy connected(&adapter, &HydStreamAdapter::streamConnected);
    adapter.setIpAddr(kAddress);
    QCOMPARE(adapter.hostAddress(), QHostAddress(kAddress));
    adapter.connectStream();
    QTRY_COMPARE_WITH_TIMEOUT(connected.count(), 1, 30000);
    // The base's way leads there, too.
    adapter.setHostAddress(QHostAddress(QStringLiteral("127.81.2.99")));
    QSignalSpy errors(&adapter, &HydStreamAdapter::socketError);
    adapter.connectStream();
    QTRY_COMPARE(errors.count(), 1);
    adapter.setHostAddress(QHostAddress(kAddress));
    adapter.startStream();
    QTRY_COMPARE(connected.count(), 2);
}

void tst_ZcrStreamAdapter::worksOnAnotherThread()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    QThread thread;
    thread.start();
    auto* adapter = new ZcrStreamAdapter(StreamSpectrum, 51675, kAddress, arrayId(), kAlivePeriod);
    adapter->moveToThread(&thread);
    QSignalSpy connected(adapter, &HydStreamAdapter::streamConnected);
    std::atomic<QThread*> emitter = nullptr;
    std::atomic<int> count = 0;
    connect(
        adapter, &HydStreamAdapter::streamDataReady, adapter,
        [&] {
            emitter = QThread::currentThread();
            ++count;
        },
        Qt::DirectConnection);
    QMetaObject::invokeMethod(adapter, [adapter] { adapter->startStream(); });
    QVERIFY(server.waitForLines(QStringLiteral("open"), 1));
    server.command("frame bandwidth=1 bins=01");
    QTRY_COMPARE_WITH_TIMEOUT(count.load(), 1, 30000);
    QCOMPARE(emitter.load(), &thread);
    adapter->deleteLater();
    thread.quit();
    QVERIFY(thread.wait(10000));
    QVERIFY(server.waitForLines(QStringLiteral("closed"), 1));
}

void tst_ZcrStreamAdapter::halvesTowardsZero()
{
    Stream stream;
    Frame frame = frameOf(256, 256);
    QByteArray expected;
    for (int value = 0; value < 256; ++value) {
        frame.frameBytes[qsizetype(ZcrFrameHeader::kSize) + value] = static_cast<char>(value);
        const int bin = value < 128 ? value : value - 256;
        expected += static_cast<char>(bin < 0 ? -((-bin) / 2) : bin / 2);
    }
    stream.adapter->readStream(frame);
    const QByteArray bytes = bytesOf(stream.data());
    QCOMPARE(bytes, expected);
    QCOMPARE(bytes.at(0xFF), char(0));
    QCOMPARE(bytes.at(0xFE), char(0xFF));
    QCOMPARE(bytes.at(0x7F), char(0x3F));
    QCOMPARE(bytes.at(0x80), char(0xC0));
    QCOMPARE(bytes.at(0xFD), char(-1));
    QCOMPARE(bytes.at(0x03), char(1));
}

void tst_ZcrStreamAdapter::bandWidthAndFrame_data()
{
    QTest::addColumn<int>("bins");
    QTest::addColumn<int>("bandWidth");
    QTest::addColumn<int>("bytes");
    QTest::newRow("as many") << 4 << 4 << 4;
    QTest::newRow("no bins, none said") << 0 << 0 << 0;
    QTest::newRow("no bins, some said") << 0 << 5 << 5;
    QTest::newRow("one bin too few") << 3 << 4 << 4;
    QTest::newRow("one bin too many") << 5 << 4 << 5;
    QTest::newRow("none said") << 5 << 0 << 5;
    QTest::newRow("the widest band of a short frame") << 1 << 65535 << 65535;
    QTest::newRow("a frame longer than any band") << 70000 << 65535 << 70000;
    QTest::newRow("the longest frame") << 1048544 << 1024 << 1048544;
}

void tst_ZcrStreamAdapter::bandWidthAndFrame()
{
    QFETCH(int, bins);
    QFETCH(int, bandWidth);
    QFETCH(int, bytes);
    Stream stream;
    stream.adapter->readStream(frameOf(bins, static_cast<uint16_t>(bandWidth)));
    QCOMPARE(stream.data()->data()->numSamples(), bandWidth);
    QCOMPARE(stream.data()->data()->byteSize(), size_t(bytes));
    QCOMPARE(bytesOf(stream.data()), QByteArray(bins, '\x08') + QByteArray(bytes - bins, '\0'));
}

void tst_ZcrStreamAdapter::fieldsAtTheirLimits_data()
{
    QTest::addColumn<Frame>("frame");
    QTest::addColumn<int>("sensitivity");
    QTest::addColumn<int>("temperature");
    QTest::addColumn<int>("refLevel");
    QTest::addColumn<qint64>("sequence");
    Frame frame = frameOf(1, 1);
    frame.frameSensitivity = 32767;
    frame.frameTemperature = 65535;
    frame.frameFftRef = 2147483647;
    frame.frameSequence = 4294967295;
    // What doesn't fit a chunk loses its high bits.
    QTest::newRow("largest") << frame << -10 << -1 << -1 << qint64(4294967295);
    frame.frameSensitivity = -32768;
    frame.frameTemperature = 32768;
    frame.frameFftRef = -2147483647 - 1;
    frame.frameSequence = 0;
    QTest::newRow("smallest") << frame << 0 << -32768 << 0 << qint64(0);
    frame.frameFftRef = -32769;
    QTest::newRow("reference below a chunk's") << frame << 0 << -32768 << 32767 << qint64(0);
}

void tst_ZcrStreamAdapter::fieldsAtTheirLimits()
{
    QFETCH(Frame, frame);
    QFETCH(int, sensitivity);
    QFETCH(int, temperature);
    QFETCH(int, refLevel);
    QFETCH(qint64, sequence);
    Stream stream;
    stream.adapter->readStream(frame);
    QCOMPARE(stream.header()->deviceInfoChunks().front()->sensitivity(), sensitivity);
    QCOMPARE(stream.header()->streamStatusChunks().front()->temperature(), temperature);
    QCOMPARE(stream.header()->streamSetupChunk()->fftSetup()->refLevel(), refLevel);
    QCOMPARE(stream.header()->eventKey()->sequence(), sequence);
    QCOMPARE(stream.data()->eventKey()->sequence(), sequence);
}

void tst_ZcrStreamAdapter::startIsReportedAheadOfTheConnection()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    Stream stream;
    stream.adapter->startStream();
    // This is intended.
    QCOMPARE(stream.started.count(), 1);
    QCOMPARE(stream.started.first().first().toBool(), false);
    QVERIFY(stream.connected.isEmpty());
    QVERIFY(!stream.adapter->isStreaming());
    QTRY_COMPARE_WITH_TIMEOUT(stream.connected.count(), 1, 30000);
    QCOMPARE(stream.started.count(), 1);
}

void tst_ZcrStreamAdapter::refusedStartIsReportedAsStarted()
{
    Stream stream;
    stream.adapter->setIpAddr(QStringLiteral("127.81.2.99"));
    stream.adapter->startStream();
    QCOMPARE(stream.started.count(), 1);
    QTRY_COMPARE_WITH_TIMEOUT(stream.errors.count(), 1, 30000);
    QCOMPARE(stream.errors.first().first().value<QAbstractSocket::SocketError>(),
             QAbstractSocket::ConnectionRefusedError);
}

void tst_ZcrStreamAdapter::stopsWithoutAConnection()
{
    Stream stream;
    stream.adapter->stopStream();
    QCOMPARE(stream.stopped.count(), 1);
    stream.adapter->disconnectStream();
    QCOMPARE(stream.stopped.count(), 1);
    // The base has no socket to stop.
    stream.adapter->HydStreamAdapter::stopStream();
    QCOMPARE(stream.stopped.count(), 1);
}

void tst_ZcrStreamAdapter::errorsArePassedOn()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress, {QStringLiteral("--status"), QStringLiteral("404")}),
             qPrintable(server.errorText()));
    Stream stream;
    QSignalSpy lost(stream.adapter.get(), &HydStreamAdapter::streamConnectionLost);
    QSignalSpy disconnected(stream.adapter.get(), &HydStreamAdapter::streamDisconnected);
    stream.adapter->startStream();
    QTRY_COMPARE_WITH_TIMEOUT(stream.errors.count(), 1, 30000);
    QVERIFY(!stream.adapter->isStreaming());
    QVERIFY(lost.isEmpty());
    QVERIFY(disconnected.isEmpty());
}

void tst_ZcrStreamAdapter::lostConnectionIsNotMadeAgain()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    Stream stream;
    stream.adapter->startStream();
    QTRY_COMPARE_WITH_TIMEOUT(stream.connected.count(), 1, 30000);
    server.command("close 1001");
    QTRY_VERIFY_WITH_TIMEOUT(!stream.adapter->isStreaming(), 30000);
    stream.connected.clear();
    // Two hundred periods of the alive timer that a recorder's stream has.
    QVERIFY(spyStaysEmpty(stream.connected, 200 * kAlivePeriod));
    QCOMPARE(stream.started.count(), 1);
}

void tst_ZcrStreamAdapter::connectionsAreMadeOnce()
{
    Stream stream;
    stream.adapter->createConnections();
    Q_EMIT stream.adapter->findChild<CZCRWebSocket*>()->signalWebSocBinMesReceived(frameOf(1, 1));
    Q_EMIT stream.adapter->findChild<CZCRWebSocket*>()->signalWebSocketConnected();
    QCOMPARE(stream.headers.count(), 1);
    QCOMPARE(stream.payloads.count(), 1);
    QCOMPARE(stream.connected.count(), 1);
}

void tst_ZcrStreamAdapter::noSocketOfTheBase()
{
    Stream stream;
    QVERIFY(stream.adapter->findChild<QTcpSocket*>() == nullptr);
}

void tst_ZcrStreamAdapter::deletedByItsOwnSignal_data()
{
    QTest::addColumn<QString>("signal");
    for (const char* signal : {"streamConnected", "streamStarted", "streamStopped", "socketError",
                               "eventHeader", "streamDataReady"})
        QTest::newRow(signal) << QString::fromLatin1(signal);
}

void tst_ZcrStreamAdapter::deletedByItsOwnSignal()
{
    QFETCH(QString, signal);
    ArrayFrames server;
    const bool refuse = signal == QStringLiteral("socketError");
    QVERIFY2(server.listen(kAddress, refuse ? QStringList{QStringLiteral("--status"), QStringLiteral("404")}
                                            : QStringList()),
             qPrintable(server.errorText()));
    using Grave = Buried<ZcrStreamAdapter>;
    QObject context;
    auto* adapter = new Grave(StreamSpectrum, 51675, kAddress, arrayId(), kAlivePeriod);
    const auto end = [adapter] { delete adapter; };
    if (signal == QStringLiteral("streamConnected"))
        connect(adapter, &HydStreamAdapter::streamConnected, &context, end);
    else if (signal == QStringLiteral("streamStarted"))
        connect(adapter, &HydStreamAdapter::streamStarted, &context, end);
    else if (signal == QStringLiteral("streamStopped"))
        connect(adapter, &HydStreamAdapter::streamStopped, &context, end);
    else if (signal == QStringLiteral("socketError"))
        connect(adapter, &HydStreamAdapter::socketError, &context, end);
    else if (signal == QStringLiteral("eventHeader"))
        connect(adapter, &HydStreamAdapter::eventHeader, &context, end);
    else
        connect(adapter, &HydStreamAdapter::streamDataReady, &context, end);
    const auto onceOpen = [&server, adapter, signal] {
        if (signal == QStringLiteral("streamStopped"))
            adapter->stopStream();
        else
            server.command("frame bandwidth=1 bins=01");
    };
    if (signal != QStringLiteral("streamConnected"))
        connect(adapter, &HydStreamAdapter::streamConnected, &context, onceOpen);
    adapter->startStream();
    QTRY_VERIFY_WITH_TIMEOUT(Grave::isGone(), 30000);
    QVERIFY(Grave::isUntouched());
}

QTEST_GUILESS_MAIN(tst_ZcrStreamAdapter)
#include "tst_ZcrStreamAdapter.moc"
