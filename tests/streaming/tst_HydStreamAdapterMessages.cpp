// What HydStreamAdapter makes of messages and payloads: sequence checks, end of a second, notifications.
#include "tests/streaming/StreamFixture.h"
#include "tests/streaming/StreamFrames.h"

using namespace streamframes;

namespace {

const QString kAddress = QStringLiteral("127.41.5.1");

struct Stream : StreamFixture
{
    explicit Stream(HydStreamType type = StreamWave) : StreamFixture(kAddress, type) {}

    void feed(std::shared_ptr<HydStreamMessagePayload> payload)
    {
        adapter.handleStreamMessage(std::make_shared<HydStreamMessage>(std::move(payload)));
    }
    /// Feeds a block and tells whether it came out marked as the last of its second.
    bool closesSecond(uint32_t eventId, uint16_t count)
    {
        auto data = block(eventId, 0, 0, count);
        feed(data);
        return data->isLastEvent();
    }
};

HydJobSettings rates(uint32_t waveRate, uint32_t fftRate)
{
    HydJobSettings settings;
    if (waveRate != 0)
        settings.setWavRate(static_cast<SampRate>(waveRate));
    if (fftRate != 0)
        settings.setFftRate(static_cast<SampRate>(fftRate));
    return settings;
}

HydDevice device(uint32_t waveRate, uint32_t fftRate = 0)
{
    return {kDevice.serialNo(), kDevice.devType(), {}, rates(waveRate, fftRate).map()};
}

/// A payload that the adapter knows nothing of.
class StrangePayload : public HydStreamMessagePayload
{
};

} // namespace

class TestHydStreamAdapterMessages : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows

    void headerIsPassedOnWithACopyOfTheDevice()
    {
        Stream stream;
        HydDevice dev = device(100);
        dev.setFirmwareVer("4.2");
        stream.adapter.updateDeviceInfo(dev);
        QSignalSpy headers(&stream.adapter, &HydStreamAdapter::eventHeader);
        const auto payload = header(1, 1000);
        stream.feed(payload);
        stream.feed(header(2, 1100));
        QCOMPARE(headers.size(), 2);
        QCOMPARE(headers[0][0].value<std::shared_ptr<HydStreamEventHeaderPayload>>(), payload);
        QVERIFY(headers[0][1].value<HydDeviceId>() == kDevice);
        const auto first = headers[0][2].value<std::shared_ptr<HydDevice>>();
        const auto second = headers[1][2].value<std::shared_ptr<HydDevice>>();
        QVERIFY(first != nullptr && second != nullptr && first != second);
        QCOMPARE(first->firmwareVer(), std::string("4.2"));
        first->setFirmwareVer("changed");
        QCOMPARE(second->firmwareVer(), std::string("4.2"));
    }

    void sequenceChecks_data()
    {
        using Sequences = QList<qint64>;
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("waveRate");
        QTest::addColumn<int>("fftRate");
        QTest::addColumn<Sequences>("sequences");
        QTest::addColumn<QList<uint>>("deltas");
        QTest::addColumn<uint>("rate");
        const auto row = [](const char* name, int type, int waveRate, int fftRate, const Sequences& sequences,
                            const QList<uint>& deltas, uint rate) {
            QTest::newRow(name) << type << waveRate << fftRate << sequences << deltas << rate;
        };
        row("first header", 1, 100, 40, {5000}, {}, 100);
        row("in step", 1, 100, 40, {1000, 1100, 1200}, {}, 100);
        // A jump forwards reports in both checks: intended.
        row("forward jump", 1, 100, 40, {1000, 1300, 1400}, {300, 300}, 100);
        row("one too many", 1, 100, 40, {1000, 1101}, {101, 101}, 100);
        row("smaller step", 1, 100, 40, {1000, 1050, 1150}, {50}, 100);
        row("same again", 1, 100, 40, {1000, 1000}, {0}, 100);
        row("backward jump is cut to unsigned", 1, 100, 40, {1000, 500}, {4294966796U}, 100);
        row("restart at 0", 1, 100, 40, {1000, 0, 100, 200}, {}, 100);
        row("beyond 32 bits", 1, 100, 40, {1000, 4294967301LL + 1000}, {5, 5}, 100);
        row("large numbers in step", 1, 100, 40, {1LL << 40, (1LL << 40) + 100}, {}, 100);
        row("largest step wraps", 1, 100, 40, {-100, 0x7FFFFFFFFFFFFFFFLL}, {99}, 100);
        // The rate counts as a signed number, which any step exceeds. Intended.
        row("rate of 2^31", 1, static_cast<int>(0x80000000U), 40, {1000, 1100}, {100, 100}, 0x80000000U);
        row("rate tag is missing", 1, 0, 40, {1000, 5000, 1}, {}, 0);
        row("scan waves use the spectrum rate", 16, 100, 40, {1000, 1040, 1140}, {100, 100}, 40);
        row("scan waves without wave rate tag", 16, 0, 40, {1000, 5000}, {}, 40);
        row("spectra", 2, 100, 40, {1000, 5000}, {}, 40);
        row("sensors", 3, 100, 40, {1000, 5000}, {}, 40);
        row("raw waves", 4, 100, 40, {1000, 5000}, {}, 40);
    }

    void sequenceChecks()
    {
        QFETCH(int, type);
        QFETCH(int, waveRate);
        QFETCH(int, fftRate);
        QFETCH(QList<qint64>, sequences);
        QFETCH(QList<uint>, deltas);
        QFETCH(uint, rate);
        Stream stream(static_cast<HydStreamType>(type));
        stream.adapter.updateDeviceInfo(
            device(static_cast<uint32_t>(waveRate), static_cast<uint32_t>(fftRate)));
        QSignalSpy errors(&stream.adapter, &HydStreamAdapter::headerError);
        QSignalSpy headers(&stream.adapter, &HydStreamAdapter::eventHeader);
        uint32_t eventId = 1;
        for (const qint64 sequence : sequences)
            stream.feed(header(eventId++, sequence));
        QCOMPARE(headers.size(), sequences.size());
        QList<uint> reported;
        for (const auto& error : errors) {
            QCOMPARE(error[0].toString(), QStringLiteral("Sequence delta is not equal the sample rate!"));
            QVERIFY(error[1].value<HydDeviceId>() == kDevice);
            QCOMPARE(error[2].toUInt(), rate);
            reported.append(error[3].toUInt());
        }
        QCOMPARE(reported, deltas);
    }

    void onlyTheGapCheckKnowsHeadersFromBeforeTheRate()
    {
        Stream stream;
        QSignalSpy errors(&stream.adapter, &HydStreamAdapter::headerError);
        stream.feed(header(1, 1000));
        stream.adapter.updateDeviceInfo(device(100));
        stream.feed(header(2, 1300));
        QCOMPARE(errors.size(), 1);
        QCOMPARE(errors[0][3].toUInt(), 300U);
        stream.feed(header(3, 1600));
        QCOMPARE(errors.size(), 3);
    }

    void reportComesAheadOfTheHeader()
    {
        Stream stream;
        stream.adapter.updateDeviceInfo(device(100));
        stream.feed(header(1, 1000));
        QStringList order;
        connect(&stream.adapter, &HydStreamAdapter::headerError, this,
                [&] { order += QStringLiteral("error"); });
        connect(&stream.adapter, &HydStreamAdapter::eventHeader, this,
                [&] { order += QStringLiteral("header"); });
        stream.feed(header(2, 1050));
        QCOMPARE(order, QStringList({QStringLiteral("error"), QStringLiteral("header")}));
    }

    void headerBringsRateUpToDate()
    {
        Stream stream;
        stream.adapter.updateDeviceInfo(device(100));
        stream.feed(header(1, 1000));
        stream.adapter.setSampleRate(rates(50, 0));
        QSignalSpy errors(&stream.adapter, &HydStreamAdapter::headerError);
        stream.feed(header(2, 1100));
        QCOMPARE(errors.size(), 0);
        QVERIFY(!stream.closesSecond(2, 60));
    }

    void headerWithoutKeyIsNotChecked()
    {
        Stream stream;
        stream.adapter.updateDeviceInfo(device(100));
        QSignalSpy errors(&stream.adapter, &HydStreamAdapter::headerError);
        QSignalSpy headers(&stream.adapter, &HydStreamAdapter::eventHeader);
        stream.feed(header(1, 1000));
        stream.feed(headerWith(nullptr, waveSetup(100)));
        stream.feed(header(2, 1100));
        QCOMPARE(headers.size(), 3);
        QCOMPARE(errors.size(), 0);
    }

    void lastBlockOfASecondIsMarked()
    {
        Stream stream;
        stream.adapter.updateDeviceInfo(device(100));
        stream.feed(header(7, 1000));
        QVERIFY(!stream.closesSecond(7, 50));
        QVERIFY(!stream.closesSecond(7, 49));
        QVERIFY(stream.closesSecond(7, 1));
        // What comes on top is marked too.
        QVERIFY(stream.closesSecond(7, 1));
        stream.feed(header(8, 1100));
        QVERIFY(!stream.closesSecond(8, 99));
        QVERIFY(stream.closesSecond(8, 1));
    }

    void sameEventGoesOnCountingOverAHeader()
    {
        Stream stream;
        stream.adapter.updateDeviceInfo(device(100));
        stream.feed(header(7, 0));
        QVERIFY(!stream.closesSecond(7, 60));
        stream.feed(header(7, 0));
        QVERIFY(stream.closesSecond(7, 40));
    }

    void blockOfAnotherEventCountsAnew()
    {
        Stream stream;
        stream.adapter.updateDeviceInfo(device(100));
        stream.feed(header(7, 1000));
        QVERIFY(!stream.closesSecond(7, 60));
        // Only headers change the event: each of these begins at 0.
        QVERIFY(!stream.closesSecond(8, 60));
        QVERIFY(!stream.closesSecond(8, 60));
        QVERIFY(stream.closesSecond(8, 100));
    }

    void endOfSecondBeyond31And32Bits_data()
    {
        QTest::addColumn<quint32>("rate");
        QTest::addColumn<int>("blocks"); // of 65535 samples, ahead of the last one
        QTest::addColumn<int>("last");
        QTest::addColumn<bool>("marked");
        QTest::newRow("rate of 2^31, few samples") << 0x80000000U << 0 << 100 << false;
        QTest::newRow("rate of 2^31, one sample less") << 0x80000000U << 32768 << 32767 << false;
        QTest::newRow("rate of 2^31 reached") << 0x80000000U << 32768 << 32768 << true;
        // Only the low 32 bits of the count are compared, and that is intended.
        QTest::newRow("2^32 - 1 samples") << 1000U << 65536 << 0xFFFF << true;
        QTest::newRow("2^32 samples") << 1000U << 65537 << 1 << false;
    }

    void endOfSecondBeyond31And32Bits()
    {
        QFETCH(quint32, rate);
        QFETCH(int, blocks);
        QFETCH(int, last);
        QFETCH(bool, marked);
        Stream stream;
        stream.adapter.updateDeviceInfo(device(rate));
        stream.feed(header(7, 1000));
        const auto whole = block(7, 1000, 0, 0xFFFF);
        for (int i = 0; i < blocks; ++i)
            stream.feed(whole);
        QCOMPARE(stream.closesSecond(7, static_cast<uint16_t>(last)), marked);
    }

    void endOfSecondByType_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<bool>("marks");
        QTest::newRow("wave") << 1 << true;
        QTest::newRow("spectrum") << 2 << false;
        QTest::newRow("sensor") << 3 << false;
        QTest::newRow("raw wave") << 4 << false;
        QTest::newRow("scan wave") << 16 << true;
        QTest::newRow("scan spectrum") << 17 << false;
        QTest::newRow("wave file") << 32 << false;
        QTest::newRow("spectrum file") << 33 << false;
    }

    void endOfSecondByType()
    {
        QFETCH(int, type);
        QFETCH(bool, marks);
        Stream stream(static_cast<HydStreamType>(type));
        stream.adapter.updateDeviceInfo(device(100, 100));
        QSignalSpy data(&stream.adapter, &HydStreamAdapter::streamDataReady);
        stream.feed(header(7, 0));
        QCOMPARE(stream.closesSecond(7, 100), marks);
        QCOMPARE(data.size(), 1);
        QVERIFY(data[0][1].value<HydDeviceId>() == kDevice);
    }

    void blockWithoutKeyIsPassedOn()
    {
        Stream stream;
        QSignalSpy data(&stream.adapter, &HydStreamAdapter::streamDataReady);
        const auto payload = std::make_shared<HydStreamDataPayload>(nullptr, samples(0, 10));
        stream.feed(payload);
        QCOMPARE(data.size(), 1);
        QCOMPARE(data[0][0].value<std::shared_ptr<HydStreamDataPayload>>(), payload);
        QVERIFY(!payload->isLastEvent());
    }

    void statusIsPassedOn()
    {
        Stream stream(StreamSensor);
        QSignalSpy statuses(&stream.adapter, &HydStreamAdapter::streamStatusData);
        stream.feed(status(217));
        stream.adapter.handleStreamMessagePayload(status(218));
        QCOMPARE(statuses.size(), 2);
        const auto payload = statuses[0][0].value<std::shared_ptr<HydStatusDataPayload>>();
        QCOMPARE(payload->statusChunk()->temperature(), qint16{217});
        QVERIFY(statuses[0][1].value<HydDeviceId>() == kDevice);
        QVERIFY(statuses[1][1].value<HydDeviceId>() == kDevice);
    }

    void payloadsFromElsewhereAreNotChecked()
    {
        Stream stream;
        stream.adapter.updateDeviceInfo(device(100));
        QSignalSpy headers(&stream.adapter, &HydStreamAdapter::eventHeader);
        QSignalSpy errors(&stream.adapter, &HydStreamAdapter::headerError);
        QSignalSpy data(&stream.adapter, &HydStreamAdapter::streamDataReady);
        stream.adapter.handleStreamMessagePayload(header(1, 1000));
        stream.adapter.handleStreamMessagePayload(header(2, 9000));
        const auto payload = block(2, 9000, 0, 200);
        stream.adapter.handleStreamMessagePayload(payload);
        QCOMPARE(headers.size(), 2);
        QVERIFY(headers[0][2].value<std::shared_ptr<HydDevice>>() !=
                headers[1][2].value<std::shared_ptr<HydDevice>>());
        QCOMPARE(errors.size(), 0);
        QCOMPARE(data.size(), 1);
        QVERIFY(!payload->isLastEvent());
        // Nothing of it was remembered either.
        stream.feed(header(3, 5000));
        QCOMPARE(errors.size(), 0);
    }

    void dataFromElsewhereByType_data()
    {
        QTest::addColumn<int>("type");
        for (const int type : {1, 2, 3, 17, 33})
            QTest::addRow("type %d", type) << type;
    }

    void dataFromElsewhereByType()
    {
        QFETCH(int, type);
        Stream stream(static_cast<HydStreamType>(type));
        QSignalSpy data(&stream.adapter, &HydStreamAdapter::streamDataReady);
        const auto payload = block(1, 0, 0, 8);
        stream.adapter.handleStreamMessagePayload(payload);
        QCOMPARE(data.size(), 1);
        QCOMPARE(data[0][0].value<std::shared_ptr<HydStreamDataPayload>>(), payload);
    }

    void notifications_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<bool>("stops");
        QTest::addColumn<bool>("drops");
        QTest::newRow("0") << 0 << true << true;
        QTest::newRow("1") << 1 << true << true;
        QTest::newRow("2") << 2 << false << false;
        QTest::newRow("3") << 3 << false << true;
        QTest::newRow("4") << 4 << false << false;
        QTest::newRow("5") << 5 << true << true;
        QTest::newRow("65535") << 65535 << true << true;
    }

    void notifications()
    {
        QFETCH(int, code);
        QFETCH(bool, stops);
        QFETCH(bool, drops);
        for (const bool byMessage : {true, false}) {
            Stream stream;
            START_STREAM(stream);
            QSignalSpy notes(&stream.adapter, &HydStreamAdapter::streamNotify);
            QSignalSpy stopped(&stream.adapter, &HydStreamAdapter::streamStopped);
            const auto payload =
                std::make_shared<HydStreamNotifyPayload>(static_cast<uint16_t>(code), "note");
            if (byMessage)
                stream.feed(payload);
            else
                stream.adapter.handleStreamMessagePayload(payload);
            QCOMPARE(notes.size(), 1);
            QCOMPARE(notes[0][0].value<std::shared_ptr<HydStreamNotifyPayload>>(), payload);
            QVERIFY(notes[0][1].value<HydDeviceId>() == kDevice);
            QCOMPARE(stopped.size(), stops ? 1 : 0);
            QCOMPARE(stream.adapter.isStreaming(), !drops);
            QCOMPARE(stream.socket->state(),
                     drops ? QAbstractSocket::UnconnectedState : QAbstractSocket::ConnectedState);
            QTRY_COMPARE(stream.peer.isConnected(), !drops);
            QCOMPARE(stream.peer.received(), QByteArray());
        }
    }

    void deviceIsTakenOverFieldByField()
    {
        Stream stream;
        HydDevice dev = device(96000);
        dev.setNetHostInfo(NvxNetHostInfo(0x7F290501));
        dev.setAlias("deep one");
        dev.setTimeUtc(1234567);
        dev.setFirmwareVer("4.2");
        dev.setSensitivity(-169.5F);
        dev.setBattPercent(77);
        dev.setBattStat(BattCharging);
        dev.setModelString("model");
        dev.setFirmwareRel("release");
        stream.adapter.updateDeviceInfo(dev);
        QSignalSpy headers(&stream.adapter, &HydStreamAdapter::eventHeader);
        stream.feed(header(1, 0));
        const auto copy = headers.at(0)[2].value<std::shared_ptr<HydDevice>>();
        QCOMPARE(copy->serial(), kDevice.serialNo());
        QCOMPARE(copy->devType(), kDevice.devType());
        QCOMPARE(copy->firmwareVer(), std::string("4.2"));
        QCOMPARE(copy->sensitivity(), -169.5F);
        QCOMPARE(copy->battPercent(), quint8{77});
        QCOMPARE(copy->battStat(), BattCharging);
        QCOMPARE(copy->netHostInfo().ipAddress().toInt(), 0x7F290501U);
        QCOMPARE(copy->deviceId().alias(), std::string("deep one"));
        QCOMPARE(copy->timeUtc(), 1234567);
        QCOMPARE(copy->jobSettings().wavRate(), static_cast<SampRate>(96000));
        QCOMPARE(copy->modelString(), std::string("model"));
        QCOMPARE(copy->firmwareRel(), std::string("release"));
    }

    void deviceInfoSetsTheRate()
    {
        Stream stream;
        stream.adapter.updateDeviceInfo(device(50, 100));
        // No header yet: the rate can only come from the device's settings.
        QVERIFY(!stream.closesSecond(0, 49));
        QVERIFY(stream.closesSecond(0, 1));
    }

    // --- rainy day flows

    void unknownMessagesAreIgnored()
    {
        Stream stream;
        QSignalSpy headers(&stream.adapter, &HydStreamAdapter::eventHeader);
        QSignalSpy data(&stream.adapter, &HydStreamAdapter::streamDataReady);
        stream.adapter.handleStreamMessage(nullptr);
        stream.feed(nullptr);
        stream.feed(std::make_shared<StrangePayload>());
        QCOMPARE(headers.size(), 0);
        QCOMPARE(data.size(), 0);
        stream.feed(header(1, 0));
        QCOMPARE(headers.size(), 1);
    }

    void unknownPayloadsAreLogged_data()
    {
        QTest::addColumn<bool>("isNull");
        QTest::newRow("null") << true;
        QTest::newRow("unknown") << false;
    }

    void unknownPayloadsAreLogged()
    {
        QFETCH(bool, isNull);
        Stream stream;
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression(QStringLiteral(
                                             "handleStreamMessagePayload.*Got an unknown payload type\\.")));
        stream.adapter.handleStreamMessagePayload(isNull ? nullptr : std::make_shared<StrangePayload>());
        QSignalSpy headers(&stream.adapter, &HydStreamAdapter::eventHeader);
        stream.adapter.handleStreamMessagePayload(header(1, 0));
        QCOMPARE(headers.size(), 1);
    }

    void blockWithoutDataIsPassedOn()
    {
        Stream stream;
        stream.adapter.updateDeviceInfo(device(100));
        QSignalSpy data(&stream.adapter, &HydStreamAdapter::streamDataReady);
        stream.feed(std::make_shared<HydStreamDataPayload>(key(1, 0), nullptr));
        QCOMPARE(data.size(), 1);
    }

    void nullNotificationIsIgnored()
    {
        Stream stream;
        QSignalSpy notes(&stream.adapter, &HydStreamAdapter::streamNotify);
        stream.adapter.notifyProc(nullptr);
        QCOMPARE(notes.size(), 0);
    }

    void notificationWithoutSocketOnlyReports()
    {
        HydStreamAdapter adapter(StreamWave, 1, kDevice, kLongPeriod, false);
        QSignalSpy notes(&adapter, &HydStreamAdapter::streamNotify);
        QSignalSpy stopped(&adapter, &HydStreamAdapter::streamStopped);
        adapter.notifyProc(std::make_shared<HydStreamNotifyPayload>(uint16_t{1}));
        QCOMPARE(notes.size(), 1);
        QCOMPARE(stopped.size(), 1);
    }

    void otherDeviceIsNotTakenOver()
    {
        Stream stream;
        HydDevice other(7, DevTypeRecorderA, {}, rates(100, 0).map());
        other.setFirmwareVer("4.2");
        stream.adapter.updateDeviceInfo(other);
        QSignalSpy headers(&stream.adapter, &HydStreamAdapter::eventHeader);
        stream.feed(header(1, 0));
        QCOMPARE(headers.at(0)[2].value<std::shared_ptr<HydDevice>>()->firmwareVer(), std::string());
    }

    void withoutSettingsEveryBlockClosesASecond()
    {
        Stream stream;
        stream.feed(header(7, 0));
        QVERIFY(stream.closesSecond(7, 1));
    }
};

QTEST_GUILESS_MAIN(TestHydStreamAdapterMessages)
#include "tst_HydStreamAdapterMessages.moc"
