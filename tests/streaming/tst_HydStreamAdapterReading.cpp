// From the socket to the messages: short reads, split and broken frames, peers that misbehave.
#include "tests/streaming/StreamFixture.h"
#include "tests/streaming/StreamFrames.h"

using namespace streamframes;

namespace {

const QString kAddress = QStringLiteral("127.41.6.1");

struct Stream : StreamFixture
{
    explicit Stream(HydStreamType type = StreamWave)
        : StreamFixture(kAddress, type), headers(&adapter, &HydStreamAdapter::eventHeader),
          data(&adapter, &HydStreamAdapter::streamDataReady),
          statuses(&adapter, &HydStreamAdapter::streamStatusData), reads(socket, &QTcpSocket::readyRead)
    {
        adapter.setClock([this] {
            ++clockReads;
            return int64_t{1000000};
        });
    }

    QSignalSpy headers;
    QSignalSpy data;
    QSignalSpy statuses;
    QSignalSpy reads;
    int clockReads = 0;
};

/// A frame of `size` bytes in all that is correct but for the byte at `badByte`, if that isn't negative.
QByteArray largeFrame(qsizetype badByte = -1)
{
    QByteArray bytes = frame(block(1, 0, 0, 30000));
    if (badByte >= 0)
        bytes[badByte] = static_cast<char>(bytes[badByte] ^ 0x55);
    return bytes;
}

QByteArray withLength(QByteArray bytes, uint32_t length)
{
    for (int i = 0; i < 4; ++i)
        bytes[4 + i] = static_cast<char>(length >> (24 - 8 * i));
    return bytes;
}

} // namespace

/// Sends a piece and waits until the adapter has read it by itself.
#define SEND_PIECE(stream, bytes)                                                                            \
    do {                                                                                                     \
        const auto before = (stream).reads.size();                                                           \
        (stream).peer.send(bytes);                                                                           \
        QTRY_VERIFY((stream).reads.size() > before);                                                         \
        QCOMPARE((stream).socket->bytesAvailable(), qint64{0});                                              \
    } while (false)

class TestHydStreamAdapterReading : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows

    void everyKindOfMessageArrives()
    {
        Stream stream;
        START_STREAM(stream);
        QSignalSpy notes(&stream.adapter, &HydStreamAdapter::streamNotify);
        stream.peer.send(frame(header(5, 4800)) + frame(block(5, 4800, 0, 100)) + frame(status(217)) +
                         frame(std::make_shared<HydStreamNotifyPayload>(uint16_t{2}, "low battery")));
        QTRY_COMPARE(notes.size(), 1);
        QCOMPARE(stream.headers.size(), 1);
        QCOMPARE(stream.data.size(), 1);
        QCOMPARE(stream.statuses.size(), 1);
        const auto head = stream.headers[0][0].value<std::shared_ptr<HydStreamEventHeaderPayload>>();
        QCOMPARE(head->eventKey()->eventId(), quint64{5});
        QCOMPARE(head->eventKey()->sequence(), qint64{4800});
        const auto chunk = stream.data[0][0].value<std::shared_ptr<HydStreamDataPayload>>()->data();
        QCOMPARE(chunk->numSamples(), quint16{100});
        const auto sent = samples(0, 100);
        QCOMPARE(std::memcmp(chunk->bytes().get(), sent->bytes().get(), 200), 0);
        QCOMPARE(stream.adapter.droppedReads(), quint64{0});
        QCOMPARE(stream.adapter.skippedBytes(), quint64{0});
    }

    void manyMessagesKeepTheirOrder()
    {
        Stream stream;
        START_STREAM(stream);
        constexpr int kBlocks = 1000;
        QByteArray bytes;
        for (int i = 0; i < kBlocks; ++i)
            bytes += frame(block(1, 0, static_cast<uint32_t>(i), 4096));
        QVERIFY(bytes.size() > 2 * qint64{3145728});
        stream.peer.send(bytes);
        QTRY_COMPARE(stream.data.size(), kBlocks);
        for (int i = 0; i < kBlocks; ++i) {
            const auto payload = stream.data[i][0].value<std::shared_ptr<HydStreamDataPayload>>();
            QCOMPARE(payload->data()->sampleNum(), static_cast<uint32_t>(i));
        }
        QCOMPARE(stream.adapter.skippedBytes(), quint64{0});
    }

    void splitFrameArrives_data()
    {
        QTest::addColumn<int>("first");
        const auto size = static_cast<int>(largeFrame().size());
        QTest::newRow("two bytes") << 2;
        QTest::newRow("six bytes") << 6;
        QTest::newRow("header") << 8;
        QTest::newRow("nine bytes") << 9;
        QTest::newRow("half") << size / 2;
        QTest::newRow("all but nine") << size - 9;
    }

    void splitFrameArrives()
    {
        QFETCH(int, first);
        Stream stream;
        START_STREAM(stream);
        const QByteArray bytes = largeFrame();
        SEND_PIECE(stream, bytes.first(first));
        QCOMPARE(stream.data.size(), 0);
        stream.peer.send(bytes.mid(first));
        QTRY_COMPARE(stream.data.size(), 1);
        QCOMPARE(stream.adapter.droppedReads(), quint64{0});
        QCOMPARE(stream.adapter.skippedBytes(), quint64{0});
    }

    void shortReads_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("passes");
        for (int size = 2; size <= 9; ++size)
            QTest::addRow("%d bytes that begin a message", size)
                << QByteArray("0*\1\1\0\0\0\0\0", 9).first(size) << true;
        for (int size = 1; size <= 9; ++size)
            QTest::addRow("%d other bytes", size) << QByteArray("123456789").first(size) << (size == 9);
        QTest::newRow("only the first is right") << QByteArray("01****") << false;
        QTest::newRow("only the second is right") << QByteArray("**0*0*") << false;
        QTest::newRow("one byte that might begin one") << QByteArray("0") << false;
    }

    void shortReads()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, passes);
        Stream stream;
        START_STREAM(stream);
        if (!passes)
            QTest::ignoreMessage(
                QtDebugMsg,
                QRegularExpression(QStringLiteral("Dropped a short stream read of %1 bytes.*Waveform"
                                                  ".*1234")
                                       .arg(bytes.size())));
        SEND_PIECE(stream, bytes);
        QCOMPARE(stream.adapter.droppedReads(), passes ? quint64{0} : quint64{1});
        QCOMPARE(stream.clockReads, passes ? 1 : 0);
        // What was dropped counts as a sign of death: the next round of the alive timer starts again.
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.streamAliveTimeOut();
        QCOMPARE(started.size(), passes ? 0 : 1);
    }

    void readsOfEightBytesMayEndAMessage()
    {
        // A first byte "0" and a rest behind it, as an unlucky split of the network makes them.
        Stream stream;
        START_STREAM(stream);
        const QByteArray bytes = frame(status(1));
        SEND_PIECE(stream, bytes.first(bytes.size() - 9));
        SEND_PIECE(stream, bytes.last(9));
        QTRY_COMPARE(stream.statuses.size(), 1);
    }

    void spectraAreEmitted()
    {
        Stream stream(StreamSpectrum);
        START_STREAM(stream);
        auto bins = std::make_shared<HydStreamDataChunkV0>(
            0U, static_cast<unsigned char>(1), static_cast<unsigned char>(1), static_cast<unsigned short>(3),
            new unsigned char[3]{255, 254, 1}, false);
        stream.peer.send(frame(std::make_shared<HydStreamDataPayload>(key(1, 0), bins)));
        QTRY_COMPARE(stream.data.size(), 1);
        const auto payload = stream.data[0][0].value<std::shared_ptr<HydStreamDataPayload>>();
        QCOMPARE(valuesOf(*payload), (std::vector<unsigned char>{0, 127, 1}));
        QCOMPARE(payload->streamType, StreamSpectrum);
    }

    void aNewConnectionBeginsWithAWholeMessage()
    {
        Stream stream;
        START_STREAM(stream);
        const QByteArray large = largeFrame();
        SEND_PIECE(stream, large.first(large.size() / 2));
        const auto half = static_cast<quint64>(large.size() / 2);
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression(QStringLiteral("Skipped %1 bytes").arg(half)));
        stream.peer.socket()->disconnectFromHost();
        QTRY_COMPARE(stream.peer.connections(), qsizetype{2});
        stream.peer.send(frame(status(1)));
        QTRY_COMPARE(stream.statuses.size(), 1);
        QCOMPARE(stream.adapter.skippedBytes(), half);
    }

    void bytesThatComeWhileASlotRunsAnEventLoopAreRead()
    {
        Stream stream;
        START_STREAM(stream);
        QObject context;
        int inner = 0;
        QObject::connect(&stream.adapter, &HydStreamAdapter::streamStatusData, &context, [&] {
            if (inner++ != 0)
                return;
            // As a message box does it: the socket takes bytes in and says nothing of them.
            stream.peer.send(frame(status(2)));
            QTRY_VERIFY(stream.socket->bytesAvailable() > 0);
        });
        stream.peer.send(frame(status(1)));
        QTRY_COMPARE(inner, 2);
    }

    void bytesThatAnotherReadTookAreNoSignOfDeath()
    {
        Stream stream;
        START_STREAM(stream);
        QObject context;
        QObject::connect(
            &stream.adapter, &HydStreamAdapter::streamStatusData, &context,
            [&] {
                // A read of nothing would look at these bytes, which begin no message.
                stream.peer.send("something else" + frame(status(2)));
                QTRY_VERIFY(stream.socket->bytesAvailable() > 0);
                // Comes ahead of the read that the adapter asks for itself, which then finds nothing.
                QMetaObject::invokeMethod(&stream.adapter, &HydStreamAdapter::readStream,
                                          Qt::QueuedConnection);
            },
            static_cast<Qt::ConnectionType>(Qt::DirectConnection | Qt::SingleShotConnection));
        stream.peer.send(frame(status(1)));
        QTRY_COMPARE(stream.statuses.size(), 2);
        QCoreApplication::sendPostedEvents(&stream.adapter, QEvent::MetaCall);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.streamAliveTimeOut();
        QCOMPARE(started.size(), 0);
    }

    void messagesBehindAClosingNotificationStillCome_data()
    {
        QTest::addColumn<int>("code");
        QTest::newRow("stopped") << 0;
        QTest::newRow("closing") << 3;
    }

    void messagesBehindAClosingNotificationStillCome()
    {
        QFETCH(int, code);
        Stream stream;
        START_STREAM(stream);
        stream.peer.send(frame(status(1)) +
                         frame(std::make_shared<HydStreamNotifyPayload>(static_cast<uint16_t>(code))) +
                         frame(status(2)) + frame(status(3)));
        QTRY_COMPARE(stream.socket->state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(stream.statuses.size(), 3);
        QCOMPARE(stream.adapter.skippedBytes(), quint64{0});
    }

    // --- rainy day flows

    void aNewConnectionOutOfASlotForgetsWhatWasReadBefore()
    {
        Stream stream;
        START_STREAM(stream);
        const QByteArray two = frame(status(1)) + frame(status(2));
        QObject context;
        QObject::connect(
            &stream.adapter, &HydStreamAdapter::streamStatusData, &context,
            [&] {
                stream.adapter.disconnectStream();
                stream.adapter.connectStream();
            },
            static_cast<Qt::ConnectionType>(Qt::DirectConnection | Qt::SingleShotConnection));
        const auto lost = static_cast<qulonglong>(frame(status(2)).size());
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression(QStringLiteral("Skipped %1 bytes").arg(lost)));
        stream.peer.send(two);
        QTRY_COMPARE(stream.peer.connections(), qsizetype{2});
        stream.peer.send(frame(status(3)));
        QTRY_COMPARE(stream.statuses.size(), 2);
        QCOMPARE(stream.adapter.skippedBytes(), quint64{lost});
    }

    void shortRestOfAFrameIsLostAndTheNextFrameFound()
    {
        Stream stream;
        START_STREAM(stream);
        const QByteArray bytes = frame(status(1));
        SEND_PIECE(stream, bytes.chopped(8));
        QTest::ignoreMessage(QtDebugMsg,
                             QRegularExpression(QStringLiteral("Dropped a short stream read of 8 bytes")));
        SEND_PIECE(stream, bytes.last(8));
        QCOMPARE(stream.statuses.size(), 0);
        QTest::ignoreMessage(
            QtDebugMsg,
            QRegularExpression(
                QStringLiteral("Skipped %1 bytes that belong to no stream message.*Waveform.*1234")
                    .arg(bytes.size() - 8)));
        stream.peer.send(frame(status(2)) + frame(status(3)));
        QTRY_COMPARE(stream.statuses.size(), 2);
        const auto next = stream.statuses[0][0].value<std::shared_ptr<HydStatusDataPayload>>();
        QCOMPARE(next->statusChunk()->temperature(), qint16{2});
        QCOMPARE(stream.adapter.droppedReads(), quint64{1});
    }

    void failedReadChangesNothing()
    {
        Stream stream;
        START_STREAM(stream);
        SEND_PIECE(stream, frame(status(1)));
        QCOMPARE(stream.clockReads, 1);
        stream.socket->abort();
        QTest::ignoreMessage(QtWarningMsg, "QIODevice::read (QTcpSocket): device not open");
        stream.adapter.readStream();
        QCOMPARE(stream.clockReads, 1);
        QCOMPARE(stream.adapter.droppedReads(), quint64{0});
        // Neither was the mark of good data cleared: a limited stream is left alone.
        stream.adapter.setDuration(120);
        QSignalSpy connected(&stream.adapter, &HydStreamAdapter::streamConnected);
        stream.adapter.streamAliveTimeOut();
        QVERIFY(spyStaysEmpty(connected, 30));
    }

    void readOfNothingCountsAsShort()
    {
        Stream stream;
        START_STREAM(stream);
        stream.adapter.readStream();
        QCOMPARE(stream.clockReads, 0);
        QCOMPARE(stream.adapter.droppedReads(), quint64{0});
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.streamAliveTimeOut();
        QCOMPARE(started.size(), 1);
    }

    void badInput_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        const QByteArray good = largeFrame();
        QByteArray endless(8 << 20, '\0');
        for (qsizetype i = 0; i < endless.size(); ++i)
            endless[i] = static_cast<char>((i * 2654435761U) >> 13);
        QTest::newRow("junk") << QByteArray(1000, 'x');
        QTest::newRow("endless junk") << endless;
        QTest::newRow("beginnings only") << QByteArray("0*").repeated(20000);
        QTest::newRow("wrong kind") << largeFrame(2);
        QTest::newRow("wrong version") << largeFrame(3);
        QTest::newRow("wrong byte inside") << largeFrame(1000);
        QTest::newRow("wrong checksum") << largeFrame(good.size() - 1);
        QTest::newRow("cut") << good.chopped(20);
        QTest::newRow("length 0") << withLength(good, 0);
        QTest::newRow("length 1") << withLength(good, 1);
        QTest::newRow("limit - 1") << withLength(good, HydStreamMessage::kMaxChunkBytes - 1);
        QTest::newRow("limit") << withLength(good, HydStreamMessage::kMaxChunkBytes);
        QTest::newRow("limit + 1") << withLength(good, HydStreamMessage::kMaxChunkBytes + 1);
        QTest::newRow("largest length") << withLength(good, 0xFFFFFFFFU);
    }

    void badInput()
    {
        QFETCH(QByteArray, bytes);
        Stream stream;
        START_STREAM(stream);
        stream.peer.send(bytes);
        // A length that is wrong but allowed is believed until that many bytes came: these make sure of that.
        QByteArray goods;
        int count = 0;
        while (goods.size() < static_cast<qsizetype>(HydStreamMessage::kMaxFrameSize)) {
            goods += frame(block(2, 0, static_cast<uint32_t>(count++), 30000));
        }
        stream.peer.send(goods);
        const auto lastNumber = [&] {
            return stream.data.isEmpty() ? uint32_t{0}
                                         : stream.data.last()[0]
                                               .value<std::shared_ptr<HydStreamDataPayload>>()
                                               ->data()
                                               ->sampleNum();
        };
        QTRY_COMPARE(lastNumber(), static_cast<uint32_t>(count - 1));
        // Each good one came, once and in order.
        QList<uint32_t> numbers;
        QList<uint32_t> expected;
        for (const auto& arguments : stream.data) {
            const auto payload = arguments[0].value<std::shared_ptr<HydStreamDataPayload>>();
            if (payload->eventKey()->eventId() == 2)
                numbers.append(payload->data()->sampleNum());
        }
        for (int i = 0; i < count; ++i)
            expected.append(static_cast<uint32_t>(i));
        QCOMPARE(numbers, expected);
        QVERIFY(stream.adapter.skippedBytes() > 0);
        QVERIFY(stream.adapter.isStreaming());
    }

    void peerThatGoesInMidFrame_data()
    {
        QTest::addColumn<bool>("resets");
        QTest::newRow("closes") << false;
        QTest::newRow("resets") << true;
    }

    void peerThatGoesInMidFrame()
    {
        QFETCH(bool, resets);
        Stream stream;
        START_STREAM(stream);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        const QByteArray large = largeFrame();
        SEND_PIECE(stream, large.first(large.size() / 2));
        if (resets)
            stream.peer.socket()->abort();
        else
            stream.peer.socket()->disconnectFromHost();
        QTRY_COMPARE(started.size(), 1);
        QTRY_COMPARE(stream.peer.connections(), qsizetype{2});
        stream.peer.send(large);
        QTRY_COMPARE(stream.data.size(), 1);
    }

    void peerThatFallsSilentInMidFrameIsStartedAgain()
    {
        Stream stream;
        int64_t now = 1000000;
        stream.adapter.setClock([&now] { return now; });
        START_STREAM(stream);
        const QByteArray large = largeFrame();
        SEND_PIECE(stream, large.first(large.size() / 2));
        now += 3;
        stream.adapter.streamAliveTimeOut();
        QTRY_COMPARE(stream.peer.received(), kStart);
        stream.peer.send(large.mid(large.size() / 2));
        QTRY_COMPARE(stream.data.size(), 1);
    }
};

QTEST_GUILESS_MAIN(TestHydStreamAdapterReading)
#include "tst_HydStreamAdapterReading.moc"
