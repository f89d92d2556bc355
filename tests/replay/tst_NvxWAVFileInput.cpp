#include "WavFiles.h"
#include "WavReplay.h"

#include "tests/support/NvxTestCase.h"
#include "tests/support/OrdinaryUser.h"

#include <QDir>

#include <sys/stat.h>

/// Files that can't be replayed, or only in part.
class tst_NvxWAVFileInput : public NvxTestCase
{
    Q_OBJECT

    /// Offset of the first sample that the file believes in.
    static qint64 firstSample(NvxWAVFile& file)
    {
        if (!file.file().open(QIODevice::ReadOnly) || !file.seekToSec(0))
            return -1;
        const qint64 position = file.file().pos();
        file.file().close();
        return position;
    }

    WavFolder m_dir;

private Q_SLOTS:
    // --- rainy day flows
    void filesThatAreNone_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("nothing there") << m_dir.filePath(QStringLiteral("nothing.wav"));
        QTest::newRow("no name") << QString();
        QTest::newRow("directory") << m_dir.path();
        QTest::newRow("endless zeros") << QStringLiteral("/dev/zero");
        QTest::newRow("endless noise") << QStringLiteral("/dev/urandom");
        QTest::newRow("terminal") << QStringLiteral("/dev/tty");
        const QString pipe = m_dir.filePath(QStringLiteral("pipe"));
        mkfifo(qPrintable(pipe), 0600);
        QTest::newRow("pipe that nobody writes to") << pipe;
    }
    void filesThatAreNone()
    {
        QFETCH(QString, path);
        const Watchdog watchdog;
        WavReplay replay(path);
        QVERIFY(!replay.prepare());
        QVERIFY(!replay.file.header());
        QVERIFY(!replay.file.headerEventPrepare());
        QVERIFY(!replay.file.formDev(0));
        QVERIFY(!replay.file.seekToSec(0));
        // It still begins and ends as any replay does.
        QVERIFY(replay.play());
        QCOMPARE(replay.events, (QStringList{QStringLiteral("started"), QStringLiteral("finished"),
                                             QStringLiteral("thread finished")}));
    }

    void fileThatMayNotBeRead()
    {
        const QString path = m_dir.write(waveFile(*makeInfo(1), {.rate = 1000}, 4000));
        QVERIFY(QFile::setPermissions(m_dir.path(), QFile::Permissions(0x7755)));
        QVERIFY(QFile::setPermissions(path, QFile::Permissions()));
        WavReplay replay(path);
        {
            const OrdinaryUser user;
            if (QFile(path).open(QIODevice::ReadOnly))
                QSKIP("nothing keeps this user from reading any file");
            QVERIFY(!replay.prepare());
            QVERIFY(!replay.file.header());
            QVERIFY(replay.play());
            QCOMPARE(replay.events, (QStringList{QStringLiteral("started"), QStringLiteral("finished"),
                                                 QStringLiteral("thread finished")}));
        }
        QVERIFY(QFile::setPermissions(path, QFile::ReadOwner));
        QVERIFY(replay.prepare());
        // One that loses its readers behind its header has nothing to play.
        QVERIFY(QFile::setPermissions(path, QFile::Permissions()));
        const OrdinaryUser user;
        QVERIFY(replay.play());
        QVERIFY(replay.blocks.empty());
        QCOMPARE(replay.headers.size(), size_t{1});
    }

    void truncatedAnywhere_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<int>("header");
        const QByteArray ahead = waveFile(*makeInfo(1), {.rate = 100}, 400);
        QTest::newRow("list ahead") << ahead << int(ahead.indexOf("data") + 8);
        QTest::newRow("list behind") << WavBytes()
                                            .head()
                                            .format({.rate = 100})
                                            .data(QByteArray(1000, 's'))
                                            .list(bytesOf(makeInfo(1)->fileBytes()))
                                            .bytes
                                     << 44;
    }
    void truncatedAnywhere()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(int, header);
        const Watchdog watchdog;
        for (qsizetype size = 0; size < bytes.size(); ++size) {
            NvxWAVFile file(m_dir.write(bytes.left(size)));
            QCOMPARE(file.headerPrepare(true), size >= header);
            if (size >= header)
                QVERIFY(qint64{file.header()->dataSize()} <= size);
            QFile::remove(file.fileName());
        }
    }

    void filesThatCannotBePlayed_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        const auto info = makeInfo(1);
        const auto format = [&](const char* name, const WavBytes::Format& fmt) {
            QTest::newRow(name) << waveFile(*info, fmt, 2000);
        };
        format("no channels", {.channels = 0});
        format("65535 channels", {.channels = 65535, .bits = 8});
        format("no rate", {.rate = 0});
        format("no bits", {.bits = 0});
        format("64 bits", {.bits = 64});
        format("floating point", {.tag = 3, .bits = 32});
        format("block align", {.blockAlign = 1});
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("text") << QByteArray(2000, 't');
        for (const char* name : {"fmt ", "LIST", "junk"}) {
            for (qint64 claimed : {qint64(0xFFFFFFFF), qint64(20000)})
                QTest::addRow("%s that claims %lld", name, static_cast<long long>(claimed))
                    << WavBytes().head().chunk(name, QByteArray(2000, 'x'), claimed).bytes;
        }
    }
    void filesThatCannotBePlayed()
    {
        QFETCH(QByteArray, bytes);
        const Watchdog watchdog;
        WavReplay replay(m_dir.write(bytes));
        QVERIFY(!replay.prepare());
        QVERIFY(!replay.file.header());
        QVERIFY(replay.file.channelDevices().isEmpty());
        // Played all the same it ends at once.
        QVERIFY(replay.play());
        QVERIFY(replay.blocks.empty() && replay.headers.empty());
    }

    void failureForgetsTheHeaderBefore()
    {
        NvxWAVFile file(m_dir.write(waveFile(*makeInfo(1), {}, 100)));
        QVERIFY(file.headerPrepare(true));
        file.setFileName(m_dir.filePath(QStringLiteral("nothing.wav")));
        QVERIFY(!file.headerPrepare(true));
        QVERIFY(!file.header());
        QCOMPARE(file.sampleRate(), 0U);
    }

    void listsAtTheTailThatAreNone_data()
    {
        QTest::addColumn<QByteArray>("tail");
        QTest::newRow("claims more") << WavBytes().chunk("LIST", "INFO", 5000).bytes;
        QTest::newRow("2^32 - 1") << WavBytes().chunk("LIST", "INFO", 0xFFFFFFFF).bytes;
        QTest::newRow("samples") << QByteArray("LISTLISTLISTLIST");
        QTest::newRow("too large for the scan")
            << WavBytes().chunk("LIST", "INFO" + WavBytes().chunk("ICMT", QByteArray(1100, 'c')).bytes).bytes;
    }
    void listsAtTheTailThatAreNone()
    {
        QFETCH(QByteArray, tail);
        const Watchdog watchdog;
        NvxWAVFile file(
            m_dir.write(WavBytes().head().format({}).data(QByteArray(2000, 's')).raw(tail).bytes));
        QVERIFY(file.headerPrepare(true));
        QCOMPARE(firstSample(file), qint64{44});
        QCOMPARE(file.header()->dataSize(), 2000U);
        QCOMPARE(file.headerSize(), 44U);
        QCOMPARE(file.channelDevices(), QList<HydDeviceId>{HydDeviceId(DevTypeWavFile, 0)});
    }

    void smallFileBeginsWhereTheOneBeforeDid()
    {
        // What a small file leaves out stays as the object has it: intended.
        NvxWAVFile file(m_dir.write(waveFile(*makeInfo(1), {}, 100)));
        QVERIFY(file.headerPrepare(true));
        const qint64 before = firstSample(file);
        QVERIFY(before > 44);
        file.setFileName(m_dir.write(WavBytes().head().format({}).data(QByteArray(1000, 's')).bytes));
        QVERIFY(file.headerPrepare(true));
        QCOMPARE(file.headerSize(), 44U);
        QCOMPARE(firstSample(file), before);
    }

    void promisesThatAreTooLarge_data()
    {
        QTest::addColumn<int>("samples");
        QTest::addColumn<int>("filling");
        QTest::addColumn<int>("listsTakenOff");
        QTest::newRow("small file") << 400 << 0 << 0;
        // Where the list would be taken off twice the more there is of it the fewer samples would be left.
        QTest::newRow("as many samples as list") << 1016 << 1016 << 1;
        QTest::newRow("one sample less than list") << 1014 << 1016 << 0;
        QTest::newRow("short recording, long list") << 300 << 1016 << 0;
    }
    void promisesThatAreTooLarge()
    {
        QFETCH(int, samples);
        QFETCH(int, filling);
        QFETCH(int, listsTakenOff);
        WavBytes list;
        QByteArray content = list.listContent(bytesOf(makeInfo(1)->fileBytes()));
        if (filling > 0)
            content += WavBytes().chunk("ICMT", QByteArray(filling - 16 - content.size(), 'c')).bytes;
        list.chunk("LIST", content);
        const WavBytes file =
            WavBytes().head().format({}).data(QByteArray(samples, 's'), 0xFFFFFFFF).raw(list.bytes);
        QCOMPARE(file.bytes.size() < 1276, filling == 0);
        NvxWAVFile replay(m_dir.write(file.bytes));
        QVERIFY(replay.headerPrepare(true));
        // A small file's list counts as samples.
        const qsizetype left = filling == 0 ? samples + list.bytes.size() : samples;
        QCOMPARE(qsizetype(replay.header()->dataSize()), left - listsTakenOff * list.bytes.size());
        QCOMPARE(replay.channelDevices()[0].serialNo(), uint16_t(filling == 0 ? 0 : 101));
    }

    void deviceOfAChannelThatIsNotThere_data()
    {
        QTest::addColumn<int>("channels");
        QTest::addColumn<int>("serial");
        QTest::addColumn<int>("index");
        for (int index : {2, 254, 1000, -1})
            QTest::addRow("two channels, %d", index) << 2 << 0 << index;
        // The only channel's number is given whatever the index: intended.
        for (int index : {1, 254, 1000, -1})
            QTest::addRow("one channel, %d", index) << 1 << 101 << index;
    }
    void deviceOfAChannelThatIsNotThere()
    {
        QFETCH(int, channels);
        QFETCH(int, serial);
        QFETCH(int, index);
        WavReplay replay(
            m_dir.write(waveFile(*makeInfo(channels), {.channels = static_cast<quint16>(channels)}, 100)));
        QVERIFY(replay.prepare());
        const auto device = replay.file.formDev(index);
        QVERIFY(device);
        QCOMPARE(int(device->serial()), serial);
        QCOMPARE(device->devType(), DevTypeWavFile);
    }

    void depthBetweenWholeBytesInTheHeader()
    {
        WavReplay replay(m_dir.write(waveFile(*makeInfo(1), {.bits = 12}, 100)));
        QVERIFY(replay.prepare());
        QVERIFY(replay.file.headerEventPrepare());
        const HydStreamEventHeaderPayload& header = *replay.headers.front().payload;
        // One byte a sample, and the largest number of twelve bits: intended.
        QCOMPARE(int(header.streamSetupChunk()->wavSetup()->bitDepth()), 8);
        QCOMPARE(int(header.amplScalingChunks().front()->bitsPerSample()), 12);
        QCOMPARE(header.amplScalingChunks().front()->maxValue(), 2047);
        QCOMPARE(header.amplScalingChunks().front()->minValue(), -2048);
    }

    void listInAChunkAheadOfTheSamples_data()
    {
        QTest::addColumn<int>("lists"); // so many lists' size of samples,
        QTest::addColumn<int>("more");  // and so many bytes
        QTest::addColumn<int>("listsLeft");
        QTest::addColumn<int>("moreLeft");
        // Where the scan reaches it, it is taken for one behind the samples, and its size off theirs:
        // intended.
        QTest::newRow("more samples than two lists") << 2 << 2 << 0 << 2;
        QTest::newRow("as many") << 2 << 0 << 0 << 0;
        QTest::newRow("fewer than two") << 2 << -2 << 1 << -2;
        QTest::newRow("a little more than one") << 1 << 2 << 0 << 2;
        QTest::newRow("fewer than one") << 1 << -2 << 0 << 0;
    }
    void listInAChunkAheadOfTheSamples()
    {
        QFETCH(int, lists);
        QFETCH(int, more);
        QFETCH(int, listsLeft);
        QFETCH(int, moreLeft);
        const QByteArray list = WavBytes().list(bytesOf(makeInfo(1)->fileBytes())).bytes;
        const qsizetype samples = lists * list.size() + more;
        const QByteArray bytes = WavBytes()
                                     .head()
                                     .format({.rate = 100})
                                     .chunk("JUNK", QByteArray(1300, 'j') + list)
                                     .data(QByteArray(samples, 's'))
                                     .bytes;
        WavReplay replay(m_dir.write(bytes));
        QVERIFY(replay.prepare());
        QCOMPARE(replay.file.channelDevices()[0].serialNo(), uint16_t{101});
        QCOMPARE(firstSample(replay.file), bytes.size() - samples);
        QCOMPARE(qsizetype(replay.file.header()->dataSize()), listsLeft * list.size() + moreLeft);
    }

    void fileThatChangesBetweenItsTwoScans_data()
    {
        QTest::addColumn<bool>("isDirectory");
        QTest::newRow("gone") << false;
        QTest::newRow("a directory in its place") << true;
    }
    void fileThatChangesBetweenItsTwoScans()
    {
        QFETCH(bool, isDirectory);
        NvxWAVFile file(m_dir.write(WavBytes().head().format({}).data(QByteArray(4000, 's')).bytes));
        QVERIFY(file.headerPrepare(true));
        int scans = 0;
        connect(&file.file(), &QFile::aboutToClose, this, [&] {
            ++scans;
            QVERIFY(QFile::remove(file.fileName()));
            QVERIFY(!isDirectory || QDir().mkdir(file.fileName()));
        });
        QVERIFY(!file.headerPrepare(true));
        QCOMPARE(scans, 1);
        QVERIFY(!file.header());
    }

    void listAtTheVeryStartOfTheScan_data()
    {
        QTest::addColumn<int>("behind");
        QTest::addColumn<bool>("found");
        QTest::newRow("the first byte that is looked at") << 1026 << true;
        QTest::newRow("one byte ahead of it") << 1027 << false;
    }
    void listAtTheVeryStartOfTheScan()
    {
        QFETCH(int, behind);
        QFETCH(bool, found);
        const QByteArray record = bytesOf(makeInfo(1)->fileBytes());
        const QByteArray list = WavBytes().list(record).bytes;
        WavBytes bytes;
        bytes.head().format({}).data(QByteArray(2000, 's')).raw(list);
        bytes.raw(QByteArray(behind - list.size(), '\0'));
        NvxWAVFile file(m_dir.write(bytes.bytes));
        QVERIFY(file.headerPrepare(true));
        QCOMPARE(file.channelDevices()[0].serialNo(), uint16_t(found ? 101 : 0));
    }
};

QTEST_GUILESS_MAIN(tst_NvxWAVFileInput)
#include "tst_NvxWAVFileInput.moc"
