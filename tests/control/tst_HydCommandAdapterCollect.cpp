#include "AdapterFixture.h"
#include "tests/support/NvxTestCase.h"

#include "NvxQtCommon/contract/message/HydControlPayloads.h"
#include "NvxQtCommon/contract/message/HydDataCollectCmd.h"

namespace {

const QString kAddress = QStringLiteral("127.21.3.1");

uint8_t maskOf(const std::shared_ptr<const HydControlMsgPayload>& response)
{
    const auto reply = std::dynamic_pointer_cast<const HydDataCollectCmd>(response);
    return reply ? reply->scanMask() : 0;
}

} // namespace

/// The two modes of reading: the double buffer of data collect messages while a poll is configured, and the
/// staging buffer without one.
class tst_HydCommandAdapterCollect : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void collectedIsParsedWhenTheNextBegins();
    void collectedInSeveralReads();
    void twoCollectedInOneRead();
    void otherReplyBetweenCollected();
    void otherReplyDoesNotTouchWhatIsStaged();
    void readsThatBeginOtherwiseStayInTheMode();
    void withPollAnyOtherLetterEndsTheCollecting_data();
    void withPollAnyOtherLetterEndsTheCollecting();
    void withoutPollCollectedIsParsedAtOnce();
    void withoutPollRepliesAreParsed();
    // --- rainy day flows
    void unfinishedCollectedIsDropped();
    void collectedWithBadChecksum();
    void stagingOverflowIsLogged();
    void withoutPollStagingFillsForGood();
    void withoutPollStagingTakesTheLastByte();
    void pollAfterwardsEmptiesTheStaging();
    void repliesOfATimeWithoutPollComeAgain();
    void withoutPollLettersEndTheCollecting_data();
    void withoutPollLettersEndTheCollecting();
    void withoutPollCollectingBytesAreStagedTwice();
};

void tst_HydCommandAdapterCollect::collectedIsParsedWhenTheNextBegins()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    QVERIFY(f.deliver(collectReply(1)));
    QVERIFY(f.letters.isEmpty());
    QVERIFY(f.deliver(collectReply(2)));
    QCOMPARE(f.letters, QByteArray("C"));
    QCOMPARE(maskOf(f.responses[0]), uint8_t(1));
    QVERIFY(f.deliver(collectReply(3)));
    QCOMPARE(f.letters, QByteArray("CC"));
    QCOMPARE(maskOf(f.responses[1]), uint8_t(2));
}

void tst_HydCommandAdapterCollect::collectedInSeveralReads()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    const auto reply = collectReply(0x21, 50000);
    QVERIFY(f.deliver(reply.first(10)));
    QVERIFY(f.deliver(reply.sliced(10, 3)));
    QVERIFY(f.deliver(reply.sliced(13, 40000)));
    QVERIFY(f.deliver(reply.sliced(40013)));
    QVERIFY(f.letters.isEmpty());
    QVERIFY(f.deliver(collectReply(2)));
    QCOMPARE(f.letters, QByteArray("C"));
    QCOMPARE(frameOf(*f.responses[0]), reply);
}

void tst_HydCommandAdapterCollect::twoCollectedInOneRead()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    QVERIFY(f.deliver(collectReply(1) + collectReply(2)));
    QVERIFY(f.letters.isEmpty());
    QVERIFY(f.deliver(collectReply(3)));
    QCOMPARE(f.letters, QByteArray("CC"));
    QCOMPARE(maskOf(f.responses[0]), uint8_t(1));
    QCOMPARE(maskOf(f.responses[1]), uint8_t(2));
}

void tst_HydCommandAdapterCollect::otherReplyBetweenCollected()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    QVERIFY(f.deliver(collectReply(1)));
    QVERIFY(f.deliver(timeReply(5)));
    QCOMPARE(f.letters, QByteArray("A"));
    QVERIFY(f.deliver(collectReply(2)));
    QCOMPARE(f.letters, QByteArray("AC"));
    QCOMPARE(maskOf(f.responses[1]), uint8_t(1));
}

void tst_HydCommandAdapterCollect::otherReplyDoesNotTouchWhatIsStaged()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    const auto reply = collectReply(1, 100);
    QVERIFY(f.deliver(reply + QByteArray(3, 'x')));
    QVERIFY(f.deliver(enquireReply(5).first(20)));
    QVERIFY(f.deliver(enquireReply(5).sliced(20)));
    QCOMPARE(f.letters, QByteArray("E"));
    QVERIFY(f.deliver(collectReply(2)));
    QCOMPARE(f.letters, QByteArray("EC"));
    QCOMPARE(frameOf(*f.responses[1]), reply);
}

void tst_HydCommandAdapterCollect::readsThatBeginOtherwiseStayInTheMode()
{
    const auto junkAndTime = "junk in front" + timeReply(5);
    {
        AdapterFixture f(kAddress);
        QVERIFY(f.open());
        QVERIFY(f.deliver(junkAndTime));
        QCOMPARE(f.letters, QByteArray("A"));
    }
    {
        AdapterFixture f(kAddress);
        QVERIFY(f.open());
        QVERIFY(f.deliver(collectReply(1)));
        QVERIFY(f.deliver(junkAndTime));
        QVERIFY(f.letters.isEmpty());
        QVERIFY(f.deliver(collectReply(2)));
        QCOMPARE(f.letters, QByteArray("CA"));
    }
}

void tst_HydCommandAdapterCollect::withPollAnyOtherLetterEndsTheCollecting_data()
{
    QTest::addColumn<char>("letter");
    // Unlike without a poll, any letter does.
    for (const char letter : {'\0', '*', '7', '8', 'B', 'D', ']', '^', 'a', '\xff'})
        QTest::addRow("%d", static_cast<unsigned char>(letter)) << letter;
}

void tst_HydCommandAdapterCollect::withPollAnyOtherLetterEndsTheCollecting()
{
    QFETCH(char, letter);
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    QVERIFY(f.deliver(collectReply(1)));
    QVERIFY(f.deliver(rawFrame(letter, "abc") + timeReply(1)));
    QCOMPARE(f.texts.count(), 1);
    QCOMPARE(f.letters, QByteArray("A"));
}

void tst_HydCommandAdapterCollect::withoutPollCollectedIsParsedAtOnce()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.adapter.setDataScanConf(0, 0x20);
    QVERIFY(f.deliver(collectReply(0xA0)));
    QCOMPARE(f.letters, QByteArray("C"));
    // Without a poll nothing more is asked for, whatever the top bit says.
    QVERIFY(!f.scanTimer->isActive());
    QVERIFY(f.adapter.sendCommand(std::make_shared<HydEnquireCmd>()));
    QTRY_COMPARE(f.peer.letters(), QByteArray("E"));
}

void tst_HydCommandAdapterCollect::withoutPollRepliesAreParsed()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.adapter.setDataScanConf(0, 0);
    const auto reply = enquireReply(9);
    QVERIFY(f.deliver(reply.first(5)));
    QVERIFY(f.deliver(reply.sliced(5) + timeReply(1)));
    QVERIFY(f.deliver(timeReply(2)));
    QCOMPARE(f.letters, QByteArray("EAA"));
    QVERIFY(!f.scanTimer->isActive());
}

void tst_HydCommandAdapterCollect::unfinishedCollectedIsDropped()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    LogSpy log;
    QVERIFY(f.deliver(collectReply(1, 200).first(100)));
    QVERIFY(log.lines().isEmpty());
    QVERIFY(f.deliver(collectReply(2)));
    QVERIFY(f.letters.isEmpty());
    QCOMPARE(log.lines(),
             QStringList{QStringLiteral("An unfinished data collect message is dropped, bytes: 100")});
    // What was left of it is gone: it can't swallow what comes next.
    QVERIFY(f.deliver(collectReply(3)));
    QVERIFY(f.deliver(collectReply(4)));
    QCOMPARE(f.letters, QByteArray("CC"));
    QCOMPARE(maskOf(f.responses[0]), uint8_t(2));
    QCOMPARE(maskOf(f.responses[1]), uint8_t(3));
}

void tst_HydCommandAdapterCollect::collectedWithBadChecksum()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    auto bad = collectReply(1, 200);
    bad[50] = char(bad[50] ^ 0x40);
    LogSpy log;
    QVERIFY(f.deliver(bad));
    QVERIFY(f.deliver(collectReply(2)));
    QVERIFY(f.letters.isEmpty());
    QCOMPARE(log.lines(),
             QStringList{QStringLiteral("Bytes that belong to no message, skipped: %1").arg(bad.size())});
    QVERIFY(f.deliver(collectReply(3)));
    QCOMPARE(f.letters, QByteArray("C"));
    QCOMPARE(maskOf(f.responses[0]), uint8_t(2));
}

void tst_HydCommandAdapterCollect::stagingOverflowIsLogged()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    LogSpy log;
    const auto reply = collectReply(1, 60000);
    QVERIFY(f.deliver(reply + QByteArray(10000, '\0')));
    const auto dropped = reply.size() + 10000 - HydCommandAdapter::kStagingBufferSize;
    QVERIFY(dropped > 0);
    QCOMPARE(log.count(QStringLiteral("The staging buffer is full, bytes dropped: %1").arg(dropped)), 1);
    QVERIFY(f.deliver(collectReply(2)));
    QVERIFY(f.deliver(collectReply(3)));
    QCOMPARE(f.letters, QByteArray("CC"));
    QCOMPARE(frameOf(*f.responses[0]), reply);
}

void tst_HydCommandAdapterCollect::withoutPollStagingFillsForGood()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.adapter.setDataScanConf(0, 0);
    const auto reply = jobSetupReply(30000);
    QVERIFY(f.deliver(reply));
    QVERIFY(f.deliver(reply));
    QCOMPARE(f.letters, QByteArray("FF"));
    // Only what fits into the rest of the staging buffer is read; everything after that stays unread.
    QVERIFY(f.deliver(reply));
    QCOMPARE(f.letters, QByteArray("FF"));
    const auto unread = 3 * reply.size() - HydCommandAdapter::kStagingBufferSize;
    QCOMPARE(f.socket->bytesAvailable(), unread);
    QVERIFY(f.deliver(timeReply(1)));
    f.adapter.setDataScanConf(0, 0);
    f.adapter.openConnection();
    QVERIFY(f.deliver(timeReply(2)));
    QCOMPARE(f.letters, QByteArray("FF"));
    QCOMPARE(f.socket->bytesAvailable(), unread + 2 * timeReply(1).size());
}

void tst_HydCommandAdapterCollect::withoutPollStagingTakesTheLastByte()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.adapter.setDataScanConf(0, 0);
    const auto overhead = jobSetupReply(0).size();
    const auto last = timeReply(1);
    QVERIFY(f.deliver(jobSetupReply(30000)));
    const auto used = 30000 + overhead + last.size();
    QVERIFY(f.deliver(jobSetupReply(int(HydCommandAdapter::kStagingBufferSize - used - overhead))));
    QVERIFY(f.deliver(last));
    QCOMPARE(f.letters, QByteArray("FFA"));
    QVERIFY(f.deliver(last));
    QCOMPARE(f.letters, QByteArray("FFA"));
    QCOMPARE(f.socket->bytesAvailable(), last.size());
}

void tst_HydCommandAdapterCollect::pollAfterwardsEmptiesTheStaging()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.adapter.setDataScanConf(0, 0);
    QVERIFY(f.deliver(QByteArray(70000, '\0')));
    // The read that was asked for finds the staging buffer full.
    QCoreApplication::sendPostedEvents(&f.adapter, QEvent::MetaCall);
    QCOMPARE(f.socket->bytesAvailable(), 70000 - 65536);
    f.adapter.setDataScanConf(10000, 0);
    // The rest is read with what comes next; a collected message then clears the staging buffer.
    QVERIFY(f.deliver(timeReply(1)));
    QCOMPARE(f.letters, QByteArray("A"));
    QVERIFY(f.deliver(collectReply(1)));
    f.adapter.setDataScanConf(0, 0);
    QVERIFY(f.deliver(timeReply(2)));
    QCOMPARE(f.letters, QByteArray("AA"));
}

void tst_HydCommandAdapterCollect::repliesOfATimeWithoutPollComeAgain()
{
    // They lie in the staging buffer too, from where they are parsed with the next collected message.
    // Intended.
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.adapter.setDataScanConf(0, 0);
    QVERIFY(f.deliver(timeReply(1)));
    QVERIFY(f.deliver(enquireReply(2)));
    QCOMPARE(f.letters, QByteArray("AE"));
    f.adapter.setDataScanConf(10000, 0);
    QVERIFY(f.deliver(collectReply(1)));
    QCOMPARE(f.letters, QByteArray("AEAE"));
    QVERIFY(f.deliver(collectReply(2)));
    QCOMPARE(f.letters, QByteArray("AEAEC"));
}

void tst_HydCommandAdapterCollect::withoutPollLettersEndTheCollecting_data()
{
    QTest::addColumn<char>("letter");
    QTest::addColumn<bool>("ends");
    QTest::newRow("7") << '7' << false;
    QTest::newRow("8") << '8' << true;
    QTest::newRow("C") << 'C' << true;
    QTest::newRow("]") << ']' << true;
    QTest::newRow("^") << '^' << false;
    QTest::newRow("a") << 'a' << false;
}

void tst_HydCommandAdapterCollect::withoutPollLettersEndTheCollecting()
{
    QFETCH(char, letter);
    QFETCH(bool, ends);
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    QVERIFY(f.deliver(collectReply(1)));
    f.adapter.setDataScanConf(0, 0);
    // A letter without a payload class shows itself by a text; "C" has one.
    QVERIFY(f.deliver(rawFrame(letter, letter == 'C' ? QByteArray(1, '\5') : QByteArray("abc"))));
    QCOMPARE(f.texts.count() + f.letters.size(), ends ? 1 : 0);
    QVERIFY(f.deliver(timeReply(1)));
    QVERIFY(f.letters.endsWith('A'));
}

void tst_HydCommandAdapterCollect::withoutPollCollectingBytesAreStagedTwice()
{
    // A poll that ends in the middle of a collected message: its rest goes in twice. Intended.
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    QVERIFY(f.deliver(collectReply(1)));
    f.adapter.setDataScanConf(0, 0);
    QVERIFY(f.deliver("junk in front" + enquireReply(3)));
    QVERIFY(f.letters.isEmpty());
    f.adapter.setDataScanConf(10000, 0);
    QVERIFY(f.deliver(collectReply(2)));
    QCOMPARE(f.letters, QByteArray("CEE"));
}

QTEST_GUILESS_MAIN(tst_HydCommandAdapterCollect)
#include "tst_HydCommandAdapterCollect.moc"
