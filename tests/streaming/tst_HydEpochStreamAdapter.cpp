// What HydEpochStreamAdapter makes of the lines that it reads.
#include "tests/streaming/EpochFixture.h"
#include "tests/support/Buried.h"

#include <QApplication>
#include <QEventLoop>
#include <QThread>

#include <functional>

namespace {

const QString kAddress = QStringLiteral("127.41.21.1");
int g_beeps = 0;
QThread* g_beepThread = nullptr;

const QString kStarted = QStringLiteral("3 Started 100");
const QString kEnded = QStringLiteral("3 Ended 0");

HydDeviceId namedDevice()
{
    HydDeviceId id(DevTypeRecorderA, 1234);
    id.setAlias("deep one");
    id.setHostDevNo(77);
    return id;
}

/// A valid line of `size` characters with its line feed.
QByteArray lineOfSize(int size)
{
    return QByteArray(",,Epoch 3,Ended").leftJustified(size, ' ') + '\n';
}

} // namespace

// In place of Qt's own, which nobody hears on a test machine.
void QApplication::beep()
{
    g_beepThread = QThread::currentThread();
    ++g_beeps;
}

class TestHydEpochStreamAdapter : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows

    void startedLine()
    {
        EpochFixture epoch(kAddress, namedDevice());
        QSignalSpy data(&epoch.adapter, &HydStreamAdapter::streamDataReady);
        CONNECT_STREAM(epoch);
        QVERIFY(epoch.deliver(kStartedLine));
        QCOMPARE(epoch.said, QStringList{kStarted});
        const SActiveTrigger& trigger = epoch.occurrences.first();
        QCOMPARE(trigger.type, TrigDevice);
        QCOMPARE(QDateTime::fromSecsSinceEpoch(qint64(trigger.time)),
                 QDateTime(QDate(2021, 3, 4), QTime(5, 6, 7)));
        QCOMPARE(trigger.trigger.threshold(), int16_t{5000});
        // Of this stream's device, with what the line doesn't tell.
        QCOMPARE(trigger.devId, namedDevice());
        QCOMPARE(trigger.devId.alias(), std::string("deep one"));
        QCOMPARE(int(trigger.devId.hostDevNo()), 77);

        QCOMPARE(data.count(), 1);
        QCOMPARE(data[0][1].value<HydDeviceId>().alias(), std::string("deep one"));
        const auto payload = data[0][0].value<std::shared_ptr<HydStreamDataPayload>>();
        QCOMPARE(payload->streamType, StreamEpoch);
        const auto& key = payload->eventKey();
        QVERIFY(key);
        QCOMPARE(key->time(), static_cast<uint32_t>(trigger.time));
        QCOMPARE(key->sequence(), int64_t{100});
        QCOMPARE(int(key->trigNum()), 3);
        QCOMPARE(int(key->trigState()), 2);
        QVERIFY(!key->isLastEvent());
        const auto& chunk = payload->data();
        QVERIFY(chunk);
        QCOMPARE(chunk->sampleNum(), 0U);
        QCOMPARE(int(chunk->numChannels()), 0);
        QCOMPARE(int(chunk->sampleFormat()), 0);
        QCOMPARE(int(chunk->numSamples()), 0);
        QCOMPARE(chunk->byteSize(), size_t{0});
    }

    void endedLine()
    {
        EpochFixture epoch(kAddress);
        QSignalSpy data(&epoch.adapter, &HydStreamAdapter::streamDataReady);
        CONNECT_STREAM(epoch);
        QVERIFY(epoch.deliver(kEndedLine));
        QCOMPARE(epoch.said, QStringList{kEnded});
        const auto key = data[0][0].value<std::shared_ptr<HydStreamDataPayload>>()->eventKey();
        QCOMPARE(int(key->trigState()), 6);
        QCOMPARE(key->sequence(), int64_t{0});
    }

    void longNumbersInTheKey()
    {
        EpochFixture epoch(kAddress);
        QSignalSpy data(&epoch.adapter, &HydStreamAdapter::streamDataReady);
        CONNECT_STREAM(epoch);
        // A sequence and a time of more than 32 bits.
        QVERIFY(epoch.deliver(QByteArray(kStartedLine).replace("Seq 100", "Seq 4886718345")));
        QVERIFY(epoch.deliver(QByteArray(kStartedLine).replace("2021", "2150")));
        QCOMPARE(epoch.occurrences.first().seq, uint64_t{0x123456789});
        const auto keyOf = [&](int i) {
            return data[i][0].value<std::shared_ptr<HydStreamDataPayload>>()->eventKey();
        };
        QCOMPARE(keyOf(0)->sequence(), int64_t{0x123456789});
        QVERIFY(epoch.occurrences[1].time > UINT32_MAX);
        QCOMPARE(keyOf(1)->time(), static_cast<uint32_t>(epoch.occurrences[1].time));
    }

    void linesOfOneReadInTheirOrder()
    {
        EpochFixture epoch(kAddress);
        QStringList order;
        connect(&epoch.adapter, &HydEpochStreamAdapter::signalTrigActive, this,
                [&](const SActiveTrigger& trigger) { order << trigger.mes(false); });
        connect(&epoch.adapter, &HydStreamAdapter::streamDataReady, this, [&] { order << "payload"; });
        CONNECT_STREAM(epoch);
        // The last one without its line feed.
        QVERIFY(epoch.deliver(kStartedLine + kEndedLine + kStartedLine.chopped(1)));
        QCOMPARE(order, (QStringList{"Started", "payload", "Ended", "payload", "Started", "payload"}));
    }

    void linesAreReadAsTheyCome()
    {
        EpochFixture epoch(kAddress);
        CONNECT_STREAM(epoch);
        epoch.adapter.startStream();
        epoch.peer.send(kStartedLine);
        QTRY_COMPARE(epoch.said, QStringList{kStarted});
        epoch.peer.send(kEndedLine);
        QTRY_COMPARE(epoch.said, (QStringList{kStarted, kEnded}));
    }

    void lineOfAnotherDevice()
    {
        EpochFixture epoch(kAddress, namedDevice());
        QSignalSpy data(&epoch.adapter, &HydStreamAdapter::streamDataReady);
        CONNECT_STREAM(epoch);
        QVERIFY(epoch.deliver(QByteArray(kStartedLine).replace("1234", "4321")));
        QCOMPARE(epoch.occurrences.size(), 1);
        const HydDeviceId& id = epoch.occurrences.first().devId;
        QCOMPARE(id, HydDeviceId(DevTypeAny, 4321));
        QVERIFY(id.alias().empty());
        QCOMPARE(data[0][1].value<HydDeviceId>(), id);
    }

    void alarm_data()
    {
        QTest::addColumn<bool>("alarm");
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<int>("beeps");
        QTest::newRow("start") << true << kStartedLine << 1;
        QTest::newRow("two starts") << true << kStartedLine + kStartedLine << 2;
        QTest::newRow("end") << true << kEndedLine << 0;
        QTest::newRow("off") << false << kStartedLine << 0;
        QTest::newRow("no line") << true << QByteArray("2021-03-04 05:06:07, SN 1234\n") << 0;
    }
    void alarm()
    {
        QFETCH(bool, alarm);
        QFETCH(QByteArray, line);
        QFETCH(int, beeps);
        g_beeps = 0;
        EpochFixture epoch(kAddress);
        epoch.adapter.setTrigAlarm(alarm);
        CONNECT_STREAM(epoch);
        QVERIFY(epoch.deliver(line));
        QCoreApplication::sendPostedEvents();
        QCOMPARE(g_beeps, beeps);
    }

    void alarmOfAnotherThread()
    {
        g_beeps = 0;
        g_beepThread = nullptr;
        StreamPeer peer(kAddress);
        auto* adapter =
            new HydEpochStreamAdapter(StreamEpoch, peer.port(), kAddress, kDevice, kLongPeriod, true);
        adapter->setTrigAlarm(true);
        QThread thread;
        adapter->moveToThread(&thread);
        connect(&thread, &QThread::finished, adapter, &QObject::deleteLater);
        thread.start();
        QVERIFY(QMetaObject::invokeMethod(adapter, "startStream", Qt::QueuedConnection));
        QTRY_COMPARE_WITH_TIMEOUT(peer.connections(), qsizetype{1}, 10000);
        peer.send(kStartedLine);
        QTRY_COMPARE_WITH_TIMEOUT(g_beeps, 1, 10000);
        thread.quit();
        QVERIFY(thread.wait());
        QCOMPARE(g_beepThread, qApp->thread());
    }

    void alarmIsOffAtFirst()
    {
        g_beeps = 0;
        EpochFixture epoch(kAddress);
        CONNECT_STREAM(epoch);
        QVERIFY(epoch.deliver(kStartedLine));
        QCoreApplication::sendPostedEvents();
        QCOMPARE(g_beeps, 0);
    }

    // --- rainy day flows

    void shortLinesAreSkipped()
    {
        EpochFixture epoch(kAddress);
        CONNECT_STREAM(epoch);
        // They don't end the read either.
        QVERIFY(epoch.deliver(lineOfSize(19) + "\n" + "no line\n" + kEndedLine));
        QCOMPARE(epoch.said, QStringList{kEnded});
        QVERIFY(epoch.deliver(lineOfSize(20)));
        QCOMPARE(epoch.said, (QStringList{kEnded, kEnded}));
    }

    void lengthCountsCharactersNotBytes()
    {
        EpochFixture epoch(kAddress);
        CONNECT_STREAM(epoch);
        const auto line = [](int size) {
            return (QStringLiteral(",µ,Epoch 3,Ended").leftJustified(size, ' ') + '\n').toUtf8();
        };
        QVERIFY(epoch.deliver(line(19)));
        QVERIFY(epoch.said.isEmpty());
        QVERIFY(epoch.deliver(line(20)));
        QCOMPARE(epoch.said, QStringList{kEnded});
    }

    void leadingZeroCharacterIsRemoved()
    {
        EpochFixture epoch(kAddress);
        CONNECT_STREAM(epoch);
        QVERIFY(epoch.deliver('\0' + kStartedLine));
        QCOMPARE(epoch.said, QStringList{kStarted});
        QVERIFY(epoch.occurrences.first().time > 0);
        // It counts towards the length.
        QVERIFY(epoch.deliver('\0' + lineOfSize(18)));
        QCOMPARE(epoch.said.size(), 1);
        QVERIFY(epoch.deliver('\0' + lineOfSize(19)));
        QCOMPARE(epoch.said, (QStringList{kStarted, kEnded}));
        // Only one goes: what is left is no time.
        QVERIFY(epoch.deliver(QByteArray(2, '\0') + kStartedLine));
        QCOMPARE(epoch.said.size(), 3);
        QCOMPARE(epoch.occurrences.last().time, uint64_t{0});
    }

    void invalidLineDropsTheRestOfTheRead()
    {
        EpochFixture epoch(kAddress);
        CONNECT_STREAM(epoch);
        // Intended.
        QVERIFY(epoch.deliver(kStartedLine + "2021-03-04 05:06:07, SN 1234\n" + kEndedLine));
        QCOMPARE(epoch.said, QStringList{kStarted});
        QVERIFY(epoch.deliver(kEndedLine));
        QCOMPARE(epoch.said, (QStringList{kStarted, kEnded}));
    }

    void lineInTwoReads_data()
    {
        QTest::addColumn<int>("split");
        QTest::addColumn<QStringList>("said");
        const auto row = [](const char* name, const char* ahead, const QStringList& said) {
            QTest::newRow(name) << static_cast<int>(kStartedLine.indexOf(ahead)) << said;
        };
        // Each half is a line for itself.
        row("in the time", " 05:06", {kStarted});
        row("ahead of the last field", " 30s", {kStarted});
        row("in the sequence", "0, 10-", {});
        row("in the last number", "0s", {kStarted});
        row("ahead of the line feed", "\n", {kStarted});
    }
    void lineInTwoReads()
    {
        QFETCH(int, split);
        QFETCH(QStringList, said);
        EpochFixture epoch(kAddress);
        CONNECT_STREAM(epoch);
        QVERIFY(epoch.deliver(kStartedLine.left(split)));
        QVERIFY(epoch.deliver(kStartedLine.mid(split)));
        QCOMPARE(epoch.said, said);
        QVERIFY(epoch.deliver(kEndedLine));
        QCOMPARE(epoch.said, said + QStringList{kEnded});
    }

    void whatALineInTwoReadsLoses()
    {
        EpochFixture epoch(kAddress);
        CONNECT_STREAM(epoch);
        const auto split = kStartedLine.indexOf("0s");
        QVERIFY(epoch.deliver(kStartedLine.left(split)));
        QCOMPARE(int(epoch.occurrences.last().trigger.duration()), 3);
        QVERIFY(epoch.deliver(kStartedLine.mid(kStartedLine.indexOf(" 05:06"))));
        QCOMPARE(epoch.occurrences.last().time, uint64_t{0});
    }

    void hostileReads_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<int>("occurrences");
        constexpr int kMiB = 1024 * 1024;
        const QByteArray digits(40, '9');
        const QByteArray begin("2021-03-04 05:06:07, ");
        QTest::newRow("line feed") << QByteArray("\n") << 0;
        QTest::newRow("NUL") << QByteArray(1, '\0') << 0;
        QTest::newRow("many NUL") << QByteArray(64, '\0') << 0;
        QTest::newRow("1 MiB without a line feed") << QByteArray(kMiB, 'x') << 0;
        QTest::newRow("1 MiB of digits") << QByteArray(kMiB, '7') << 0;
        QTest::newRow("1 MiB of commas") << QByteArray(kMiB, ',') << 0;
        QTest::newRow("1 MiB of line feeds") << QByteArray(kMiB, '\n') << 0;
        QTest::newRow("1 MiB of invalid UTF-8") << QByteArray(kMiB, '\xFF') << 0;
        QTest::newRow("fields of 1 MiB")
            << QByteArray(kMiB, '2') + ", SN " + QByteArray(kMiB, '1') + ", Epoch 3, Ended\n"
            << 1;
        QTest::newRow("1 MiB of blanks in a field")
            << begin + "SN 1, Epoch 3, Seq 1," + QByteArray(kMiB, ' ') + ", 30s\n"
            << 1;
        QTest::newRow("1 MiB of hyphens in a field")
            << begin + "SN 1, Epoch 3, Seq 1, " + QByteArray(kMiB, '-') + " > 5uPa, 30s\n"
            << 1;
        QTest::newRow("cut UTF-8") << begin + "SN 1, Epoch 3, Ended \xE2\x82" << 1;
        QTest::newRow("invalid UTF-8") << begin + "SN \xC0\x80\xFF, Epoch 3, Ended\n" << 1;
        QTest::newRow("40 digits") << begin + "SN " + digits + ", Epoch " + digits + ", Seq " + digits +
                                          ", " + digits + "-" + digits + " > " + digits + "uPa, " + digits +
                                          "s\n"
                                   << 1;
        QTest::newRow("digits of another script")
            << begin + "SN \xD9\xA1, Epoch \xD9\xA1, Seq \xD9\xA1, \xD9\xA1-\xD9\xA2 > \xD9\xA1, \xD9\xA1\n"
            << 1;
        QTest::newRow("no field has a value") << QByteArray(",,Epoch,Seq,,         \n") << 1;
        QTest::newRow("no fields") << QByteArray("2021-03-04 05:06:07, SN 1234\n") << 0;
        QTest::newRow("wrong date") << QByteArray(kEndedLine).replace("03-04", "02-30") << 1;
        QTest::newRow("wrong time") << QByteArray(kEndedLine).replace("05:06", "25:61") << 1;
        QTest::newRow("a binary frame")
            << QByteArray::fromHex("302A0201000000040102030405060708") + QByteArray(30, '\x81') << 0;
    }
    void hostileReads()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(int, occurrences);
        EpochFixture epoch(kAddress);
        CONNECT_STREAM(epoch);
        QVERIFY(epoch.deliver(bytes));
        QCOMPARE(epoch.occurrences.size(), occurrences);
        QCOMPARE(epoch.socket->state(), QAbstractSocket::ConnectedState);
        // Nothing of it is left over.
        QVERIFY(epoch.deliver(kStartedLine));
        QCOMPARE(epoch.said.size(), occurrences + 1);
        QCOMPARE(epoch.said.last(), kStarted);
    }

    void emptyReadSaysNothing()
    {
        EpochFixture epoch(kAddress);
        CONNECT_STREAM(epoch);
        epoch.adapter.readStream();
        QVERIFY(epoch.said.isEmpty());
    }

    void lineThatComesInsideASlot()
    {
        EpochFixture epoch(kAddress);
        CONNECT_STREAM(epoch);
        epoch.adapter.startStream();
        QEventLoop loop;
        connect(
            &epoch.adapter, &HydEpochStreamAdapter::signalTrigActive, this,
            [&] {
                epoch.peer.send(kEndedLine);
                const auto arrived = [&] { return epoch.socket->bytesAvailable() > 0; };
                QVERIFY(QTest::qWaitFor(arrived, 10000));
            },
            Qt::SingleShotConnection);
        epoch.peer.send(kStartedLine);
        QTRY_COMPARE(epoch.said, (QStringList{kStarted, kEnded}));
    }

    void lineThatComesAheadOfTheRest()
    {
        EpochFixture epoch(kAddress);
        CONNECT_STREAM(epoch);
        const QByteArray second = QByteArray(kStartedLine).replace("Seq 100", "Seq 101");
        epoch.peer.send(kStartedLine + second);
        QTRY_COMPARE(epoch.socket->bytesAvailable(), qint64(kStartedLine.size() + second.size()));
        bool arrived = false;
        connect(
            &epoch.adapter, &HydEpochStreamAdapter::signalTrigActive, this,
            [&] {
                epoch.peer.send(kEndedLine);
                // Or is read at once, which would be too early.
                const auto isThere = [&] {
                    return epoch.socket->bytesAvailable() > 0 || epoch.said.size() > 1;
                };
                arrived = QTest::qWaitFor(isThere, 10000);
                epoch.adapter.readStream();
            },
            Qt::SingleShotConnection);
        // What waits is read without a word of the socket, which may speak up meanwhile.
        epoch.adapter.startStream();
        QTRY_COMPARE_WITH_TIMEOUT(epoch.said,
                                  (QStringList{kStarted, QStringLiteral("3 Started 101"), kEnded}), 10000);
        QVERIFY(arrived);
    }

    void deletedByASlot_data()
    {
        QTest::addColumn<bool>("byOccurrence");
        QTest::newRow("occurrence") << true;
        QTest::newRow("payload") << false;
    }
    void deletedByASlot()
    {
        using BuriedAdapter = Buried<HydEpochStreamAdapter>;
        QFETCH(bool, byOccurrence);
        StreamPeer peer(kAddress);
        auto* adapter = new BuriedAdapter(StreamEpoch, peer.port(), kAddress, kDevice, kLongPeriod, true);
        const auto end = [adapter] { delete adapter; };
        if (byOccurrence)
            connect(adapter, &HydEpochStreamAdapter::signalTrigActive, adapter, end);
        else
            connect(adapter, &HydStreamAdapter::streamDataReady, adapter, end);
        adapter->startStream();
        QTRY_COMPARE(peer.connections(), qsizetype{1});
        peer.send(kStartedLine + kEndedLine);
        QTRY_VERIFY(BuriedAdapter::isGone());
        QVERIFY(BuriedAdapter::isUntouched());
    }

    void deletedByTheSensorStart()
    {
        using BuriedAdapter = Buried<HydEpochStreamAdapter>;
        StreamPeer peer(kAddress);
        auto* adapter = new BuriedAdapter(StreamEpoch, peer.port(), kAddress, kDevice, kLongPeriod, true);
        adapter->setDuration(5);
        connect(adapter, &HydStreamAdapter::streamIsContinuous, adapter, [adapter] { delete adapter; });
        adapter->startSensorsStreamDevId(kDevice, 0, 0);
        QVERIFY(BuriedAdapter::isGone());
        QVERIFY(BuriedAdapter::isUntouched());
    }
};

QTEST_MAIN(TestHydEpochStreamAdapter)
#include "tst_HydEpochStreamAdapter.moc"
