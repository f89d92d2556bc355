#include "AdapterFixture.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/SerialPair.h"

#include "NvxQtCommon/contract/message/HydControlPayloads.h"
#include "NvxQtCommon/contract/message/HydDataCollectCmd.h"
#include "NvxQtCommon/contract/message/HydTrigger.h"

#include <random>

namespace {

const QString kAddress = QStringLiteral("127.21.2.1");
const QString kWrongRequest = QStringLiteral("Incorrect response from device because of wrong request.");

uint16_t serialOf(const std::shared_ptr<const HydControlMsgPayload>& response)
{
    const auto reply = std::dynamic_pointer_cast<const HydEnquireCmd>(response);
    return reply ? reply->report().serial : 0;
}

QByteArray triggerReply(uint16_t errorCode)
{
    HydTrigger_5_6 trigger;
    trigger.setTrigNum(4);
    trigger.setErrorCode(errorCode);
    return frameOf(trigger);
}

/// Counts the calls that a watched object gets by its event queue.
class MetaCallCounter : public QObject
{
public:
    bool eventFilter(QObject*, QEvent* event) override
    {
        count += event->type() == QEvent::MetaCall ? 1 : 0;
        return false;
    }

    int count = 0;
};

} // namespace

/// From bytes to messages outside of the data collect poll: frames, junk, texts, large reads.
class tst_HydCommandAdapterRead : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void everyLetterIsEmitted_data();
    void everyLetterIsEmitted();
    void severalMessagesInOneRead();
    void splitAtAnyByte();
    void byteByByte();
    void acceptedTriggerIsEmittedOnly();
    void largestReply();
    void moreThanOneReadAtOnce();
    void readThatDoesNotFitBehindAnUnfinishedMessage();
    void keepConnectionHoldsTheSocket();
    // --- rainy day flows
    void junkBetweenFrames_data();
    void junkBetweenFrames();
    void badChecksumIsSkipped();
    void unknownLetterIsATextAndNoResponse();
    void unreadablePayloadIsATextAndNoResponse_data();
    void unreadablePayloadIsATextAndNoResponse();
    void refusedTriggerGivesItsTextAndIsEmitted();
    void timeFailureIsAMessageLikeOthers();
    void refusedSetupIsAMessageLikeOthers();
    void withoutKeepConnectionTheSocketIsClosed();
    void withoutKeepConnectionAllOfOneReadIsEmitted();
    void otherTypesReadNothing();
    void closedDeviceIsNotRead();
    void shortReadsAreNotClassified();
    void endlessJunk();
    void receiverWithAnEventLoopOfItsOwn_data();
    void receiverWithAnEventLoopOfItsOwn();
    void receiverWithAnEventLoopOfItsOwnOnASerialLine();
    void fullStagingBufferIsReadOnceMore();
};

void tst_HydCommandAdapterRead::everyLetterIsEmitted_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::newRow("A") << timeReply(1700000000);
    QTest::newRow("D") << frameOf(HydJobSetupCmd({}, JobSetupDefault));
    QTest::newRow("E") << enquireReply(12);
    QTest::newRow("F") << frameOf(HydJobSetupEnq({}, JobSetupDefault));
    QTest::newRow("R") << frameOf(HydEnquireTrigger());
    QTest::newRow("S") << triggerReply(0);
    QTest::newRow("U") << rawFrame('U', {});
    QTest::newRow("V") << rawFrame('V', {});
    QTest::newRow("Y") << rawFrame('Y', {});
    QTest::newRow("[") << frameOf(HydEnquireTimeSync(2, 7, -5, 9));
}

void tst_HydCommandAdapterRead::everyLetterIsEmitted()
{
    QFETCH(QByteArray, frame);
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    QVERIFY(f.deliver(frame));
    QCOMPARE(f.letters, QByteArray(QTest::currentDataTag()));
    QCOMPARE(frameOf(*f.responses[0]), frame);
    QVERIFY(f.texts.isEmpty());
}

void tst_HydCommandAdapterRead::severalMessagesInOneRead()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    QVERIFY(f.deliver(enquireReply(1) + timeReply(2)));
    QCOMPARE(f.letters, QByteArray("EA"));
    QVERIFY(f.deliver(timeReply(2) + enquireReply(3) + rawFrame('Y', {}) + enquireReply(4)));
    QCOMPARE(f.letters, QByteArray("EAAEYE"));
    QCOMPARE(serialOf(f.responses.back()), uint16_t(4));
}

void tst_HydCommandAdapterRead::splitAtAnyByte()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    const auto frame = enquireReply(300);
    for (qsizetype at = 1; at < frame.size(); ++at) {
        QVERIFY(f.deliver(frame.first(at)));
        QCOMPARE(f.letters.size(), at - 1);
        QVERIFY(f.deliver(frame.sliced(at)));
        QCOMPARE(f.letters.size(), at);
        QCOMPARE(serialOf(f.responses.back()), uint16_t(300));
    }
}

void tst_HydCommandAdapterRead::byteByByte()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    const auto frames = enquireReply(300) + timeReply(1);
    for (const char byte : frames)
        QVERIFY(f.deliver(QByteArray(1, byte)));
    QCOMPARE(f.letters, QByteArray("EA"));
}

void tst_HydCommandAdapterRead::acceptedTriggerIsEmittedOnly()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    QVERIFY(f.deliver(triggerReply(0)));
    QCOMPARE(f.letters, QByteArray("S"));
    QVERIFY(f.texts.isEmpty());
}

void tst_HydCommandAdapterRead::largestReply()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    // Setup type, count of tags, key and length take eight of the 65535 bytes.
    const auto frame = jobSetupReply(65535 - 8);
    QCOMPARE(frame.size(), 65543);
    QVERIFY(f.deliver(frame + timeReply(1)));
    QCOMPARE(f.letters, QByteArray("FA"));
    QCOMPARE(frameOf(*f.responses[0]), frame);
}

void tst_HydCommandAdapterRead::moreThanOneReadAtOnce()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    // 20 x 30000 bytes lie ready when the first read takes its 262144, and nothing follows them.
    QByteArray all;
    for (int i = 0; i < 20; ++i)
        all += jobSetupReply(30000);
    QVERIFY(f.deliver(all + timeReply(1)));
    QTRY_COMPARE(f.letters, QByteArray(20, 'F') + "A");
}

void tst_HydCommandAdapterRead::readThatDoesNotFitBehindAnUnfinishedMessage()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    const auto first = jobSetupReply(60000);
    QByteArray rest = first.sliced(59000);
    while (rest.size() < 250000)
        rest += jobSetupReply(30000);
    const auto count = (rest.size() - (first.size() - 59000)) / jobSetupReply(30000).size();
    QVERIFY(f.deliver(first.first(59000)));
    QVERIFY(f.letters.isEmpty());
    // Together more than the buffer holds.
    QVERIFY(rest.size() + 59000 > HydCommandAdapter::kResponseBufferSize);
    QVERIFY(f.deliver(rest));
    QTRY_COMPARE(f.letters, QByteArray(1 + count, 'F'));
}

void tst_HydCommandAdapterRead::keepConnectionHoldsTheSocket()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    QVERIFY(f.deliver(timeReply(1)));
    QVERIFY(f.adapter.isConnected());
    QVERIFY(f.deliver(timeReply(2)));
    QCOMPARE(f.letters, QByteArray("AA"));
    QCOMPARE(f.closed.count(), 0);
}

void tst_HydCommandAdapterRead::junkBetweenFrames_data()
{
    QTest::addColumn<QByteArray>("junk");
    QTest::newRow("one byte") << QByteArray(1, 'x');
    QTest::newRow("letters") << QByteArray("no frame at all");
    QTest::newRow("zeros") << QByteArray(5000, '\0');
    QTest::newRow("frame start with a length of 0") << QByteArray("*E\0\0", 4);
    QTest::newRow("cut frame") << enquireReply(9).first(8);
    QTest::newRow("stream frame start") << QByteArray("0*\1\1", 4);
}

void tst_HydCommandAdapterRead::junkBetweenFrames()
{
    QFETCH(QByteArray, junk);
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    LogSpy log;
    QVERIFY(f.deliver(timeReply(1)));
    QVERIFY(log.lines().isEmpty());
    QVERIFY(f.deliver(timeReply(1) + junk));
    QCOMPARE(f.letters, QByteArray("AA"));
    // A length in the junk may reach into what follows: the good frames are found behind it all the same.
    QVERIFY(f.deliver(enquireReply(5) + timeReply(2) + junk + enquireReply(6) + QByteArray(1000, '\0')));
    QCOMPARE(f.letters, QByteArray("AAEAE"));
    QCOMPARE(serialOf(f.responses[2]), uint16_t(5));
    QVERIFY(f.texts.isEmpty());
    // Every byte of it is told.
    qsizetype skipped = 0;
    for (const QString& line : log.lines()) {
        const auto text = QStringLiteral("Bytes that belong to no message, skipped: ");
        QVERIFY2(line.startsWith(text), qPrintable(line));
        skipped += line.sliced(text.size()).toInt();
    }
    QCOMPARE(skipped, 2 * junk.size() + 1000);
}

void tst_HydCommandAdapterRead::badChecksumIsSkipped()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    auto bad = enquireReply(1);
    bad.back() = char(bad.back() ^ 1);
    QVERIFY(f.deliver(bad));
    QVERIFY(f.deliver(enquireReply(2)));
    QCOMPARE(f.letters, QByteArray("E"));
    QCOMPARE(serialOf(f.responses[0]), uint16_t(2));
}

void tst_HydCommandAdapterRead::unknownLetterIsATextAndNoResponse()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    LogSpy log;
    qsizetype linesAtTheSignal = -1;
    connect(&f.adapter, &HydCommandAdapter::signalErrorResponse, this,
            [&] { linesAtTheSignal = log.lines().size(); });
    QVERIFY(f.deliver(rawFrame('Q', "anything") + timeReply(1)));
    QCOMPARE(f.textList(), QStringList{kWrongRequest});
    // The signal first, then its line.
    QCOMPARE(linesAtTheSignal, 0);
    QCOMPARE(log.lines(), QStringList{QStringLiteral("nullptr == spPayload: readStream")});
    QCOMPARE(f.letters, QByteArray("A"));
}

void tst_HydCommandAdapterRead::unreadablePayloadIsATextAndNoResponse_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::newRow("short time") << rawFrame('A', "abc");
    QTest::newRow("short enquire reply") << rawFrame('E', "a");
    QTest::newRow("setup with a count of tags that aren't there")
        << rawFrame('F', QByteArray("\0\24\377\377", 4));
    QTest::newRow("trigger without a body") << rawFrame('S', {});
}

void tst_HydCommandAdapterRead::unreadablePayloadIsATextAndNoResponse()
{
    QFETCH(QByteArray, frame);
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    QVERIFY(f.deliver(frame));
    QCOMPARE(f.textList(), QStringList{kWrongRequest});
    QVERIFY(f.letters.isEmpty());
    QVERIFY(f.deliver(timeReply(1)));
    QCOMPARE(f.letters, QByteArray("A"));
}

void tst_HydCommandAdapterRead::refusedTriggerGivesItsTextAndIsEmitted()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    HydTrigger_5_6 trigger;
    trigger.setTrigNum(4);
    trigger.setErrorCode(2);
    QVERIFY(!trigger.errorMes(true).empty());
    QByteArray lettersAtTheText = "none";
    connect(&f.adapter, &HydCommandAdapter::signalErrorResponse, this, [&] { lettersAtTheText = f.letters; });
    QVERIFY(f.deliver(triggerReply(2)));
    // The text first, then the response.
    QCOMPARE(lettersAtTheText, QByteArray());
    QCOMPARE(f.textList(), QStringList{QString::fromStdString(trigger.errorMes(true))});
    QCOMPARE(f.letters, QByteArray("S"));
}

void tst_HydCommandAdapterRead::timeFailureIsAMessageLikeOthers()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    QVERIFY(f.deliver(timeReply(-1)));
    QCOMPARE(f.letters, QByteArray("A"));
    QVERIFY(f.texts.isEmpty());
}

void tst_HydCommandAdapterRead::refusedSetupIsAMessageLikeOthers()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    QVERIFY(f.deliver(frameOf(HydJobSetupCmd({}, JobSetupDefault, 9))));
    QCOMPARE(f.letters, QByteArray("D"));
    const auto reply = std::dynamic_pointer_cast<const HydJobSetupCmd>(f.responses[0]);
    QCOMPARE(reply->error()->errorCode(), uint16_t(9));
    QVERIFY(f.texts.isEmpty());
}

void tst_HydCommandAdapterRead::withoutKeepConnectionTheSocketIsClosed()
{
    AdapterFixture f(kAddress);
    f.adapter.setKeepConnection(false);
    QVERIFY(!f.adapter.keepConnection());
    QVERIFY(f.open());
    QSignalSpy peerClosed(&f.peer, &ControlPeer::disconnected);
    auto stateAtTheMessage = QAbstractSocket::UnconnectedState;
    connect(&f.adapter, &HydCommandAdapter::commandResponse, this,
            [&] { stateAtTheMessage = f.socket->state(); });
    // An unfinished message doesn't close.
    const auto frame = timeReply(1);
    QVERIFY(f.deliver(frame.first(8)));
    QCOMPARE(f.closed.count(), 0);
    QVERIFY(f.deliver(frame.sliced(8)));
    QCOMPARE(f.letters, QByteArray("A"));
    // Its receivers may still send.
    QCOMPARE(stateAtTheMessage, QAbstractSocket::ConnectedState);
    QTRY_COMPARE(f.closed.count(), 1);
    QTRY_COMPARE(peerClosed.count(), 1);
    QVERIFY(!f.scanTimer->isActive());
}

void tst_HydCommandAdapterRead::withoutKeepConnectionAllOfOneReadIsEmitted()
{
    AdapterFixture f(kAddress);
    f.adapter.setKeepConnection(false);
    QVERIFY(f.open());
    QVERIFY(f.deliver(timeReply(1) + rawFrame('Q', {}) + enquireReply(2)));
    QCOMPARE(f.letters, QByteArray("AE"));
    QCOMPARE(f.textList(), QStringList{kWrongRequest});
    QTRY_COMPARE(f.closed.count(), 1);
}

void tst_HydCommandAdapterRead::otherTypesReadNothing()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.adapter.setConnType(HydConnectionType(2));
    QVERIFY(f.deliver(timeReply(1)));
    QVERIFY(f.letters.isEmpty());
    QCOMPARE(f.socket->bytesAvailable(), timeReply(1).size());
    f.adapter.setConnType(ConnTcp);
    QVERIFY(f.deliver(enquireReply(1)));
    QCOMPARE(f.letters, QByteArray("AE"));
}

void tst_HydCommandAdapterRead::closedDeviceIsNotRead()
{
    AdapterFixture f(kAddress);
    // Qt warns of reads from a closed device, which would fail this test.
    QVERIFY(QMetaObject::invokeMethod(&f.adapter, "readStream", Qt::DirectConnection));
    f.adapter.setConnType(ConnSerial);
    QVERIFY(QMetaObject::invokeMethod(&f.adapter, "readStream", Qt::DirectConnection));
    QVERIFY(f.letters.isEmpty());
    QVERIFY(!f.scanTimer->isActive());
    QVERIFY(f.errors.isEmpty());
}

void tst_HydCommandAdapterRead::shortReadsAreNotClassified()
{
    const auto collected = collectReply(0x20, 100);
    {
        AdapterFixture f(kAddress);
        QVERIFY(f.open());
        // Six bytes stay in the mode that there is, so that the message is parsed when it is whole.
        QVERIFY(f.deliver(collected.first(6)));
        QVERIFY(f.deliver(collected.sliced(6)));
        QCOMPARE(f.letters, QByteArray("C"));
    }
    {
        AdapterFixture f(kAddress);
        QVERIFY(f.open());
        // With seven it is one of the poll, which is parsed when the next one begins.
        QVERIFY(f.deliver(collected.first(7)));
        QVERIFY(f.deliver(collected.sliced(7)));
        QVERIFY(f.letters.isEmpty());
        QVERIFY(f.deliver(collected));
        QCOMPARE(f.letters, QByteArray("C"));
    }
    {
        // The same the other way round: a short read can't end the mode of the poll.
        AdapterFixture f(kAddress);
        QVERIFY(f.open());
        QVERIFY(f.deliver(collected));
        const auto time = timeReply(1);
        QVERIFY(f.deliver(time.first(6)));
        QVERIFY(f.deliver(time.sliced(6)));
        QVERIFY(f.letters.isEmpty());
        QVERIFY(f.deliver(collected));
        QCOMPARE(f.letters, QByteArray("CA"));
    }
}

void tst_HydCommandAdapterRead::endlessJunk()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    std::mt19937 random(20240517);
    QByteArray junk(8 * 1048576, Qt::Uninitialized);
    for (auto& byte : junk)
        byte = char(random());
    // No read begins the mode of the poll, and the good message comes behind more than the longest frame that
    // junk can promise.
    junk.replace("*C", "*D");
    f.peer.send(junk + QByteArray(70000, '\0') + enquireReply(77));
    QTRY_COMPARE(f.letters, QByteArray("E"));
    QCOMPARE(serialOf(f.responses[0]), uint16_t(77));
    QVERIFY(f.adapter.isConnected());
}

void tst_HydCommandAdapterRead::receiverWithAnEventLoopOfItsOwn_data()
{
    QTest::addColumn<int>("scanWait");
    QTest::newRow("with a poll") << 1000;
    QTest::newRow("without a poll") << 0;
}

void tst_HydCommandAdapterRead::receiverWithAnEventLoopOfItsOwn()
{
    QFETCH(int, scanWait);
    AdapterFixture f(kAddress);
    f.adapter.setDataScanConf(scanWait, 0);
    QVERIFY(f.open());
    int depth = 0;
    int deepest = 0;
    bool isMoreThere = false;
    connect(&f.adapter, &HydCommandAdapter::commandResponse, this, [&] {
        deepest = std::max(deepest, ++depth);
        // What arrives meanwhile must neither be lost nor be read into what is being parsed.
        if (f.letters.size() == 1) {
            f.peer.send(enquireReply(5));
            isMoreThere = QTest::qWaitFor([&] { return f.socket->bytesAvailable() > 0; }, kPatienceMs);
        }
        QMetaObject::invokeMethod(&f.adapter, "readStream", Qt::DirectConnection);
        --depth;
    });
    QVERIFY(f.deliver(timeReply(1) + timeReply(2)));
    QTRY_COMPARE(f.letters, QByteArray("AAE"));
    QCOMPARE(deepest, 1);
    QVERIFY(isMoreThere);
}

void tst_HydCommandAdapterRead::receiverWithAnEventLoopOfItsOwnOnASerialLine()
{
    SerialPair line;
    QVERIFY(line.isValid());
    AdapterFixture f(kAddress, ConnSerial);
    f.adapter.setSerialPortName(line.portName());
    f.adapter.setBaudRate(115200);
    f.adapter.openConnection();
    QVERIFY(f.adapter.isConnected());
    bool isMoreThere = false;
    connect(
        &f.adapter, &HydCommandAdapter::commandResponse, this,
        [&] {
            // The port takes the bytes in and says nothing of them while its own signal is on its way.
            line.write(enquireReply(5));
            isMoreThere = QTest::qWaitFor([&] { return f.port->bytesAvailable() > 0; }, kPatienceMs);
        },
        Qt::SingleShotConnection);
    QVERIFY(line.write(timeReply(1)));
    QTRY_COMPARE(f.letters, QByteArray("AE"));
    QVERIFY(isMoreThere);
}

void tst_HydCommandAdapterRead::fullStagingBufferIsReadOnceMore()
{
    AdapterFixture f(kAddress);
    f.adapter.setDataScanConf(0, 0);
    QVERIFY(f.open());
    QVERIFY(f.deliver(QByteArray(HydCommandAdapter::kStagingBufferSize + 100, 'x')));
    QCOMPARE(f.socket->bytesAvailable(), 100);
    MetaCallCounter counter;
    f.adapter.installEventFilter(&counter);
    for (int rounds = 0; rounds < 5; ++rounds)
        QCoreApplication::sendPostedEvents(&f.adapter, QEvent::MetaCall);
    QCOMPARE(counter.count, 1);
    QCOMPARE(f.socket->bytesAvailable(), 100);
}

QTEST_GUILESS_MAIN(tst_HydCommandAdapterRead)
#include "tst_HydCommandAdapterRead.moc"
