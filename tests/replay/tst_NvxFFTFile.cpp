#include "NvxQtCommon/replay/NvxFFTFile.h"
#include "SpectrumFileText.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/OrdinaryUser.h"

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <memory>
#include <sys/stat.h>

namespace {

const HydDeviceId kDevice(DevTypeSpecFile, 42);
const QByteArray kRecord = "2024-02-29 12:34:57\t\t1\t2\t3\t4\n";

} // namespace

/// What a spectrum file says ahead of its replay, and which files are refused.
class tst_NvxFFTFile : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    // --- happy flows
    void aFreshFile();
    void readsTheHeaderAndTheFirstRecord();
    void theLengthOfATick_data();
    void theLengthOfATick();
    void theFirstRecordIsLookedFor_data();
    void theFirstRecordIsLookedFor();
    void aFreshEpochLog();
    void anEpochLogThatGoesOn();
    void anotherFileOfTheSameObject();

    // --- rainy day flows
    void noFile_data();
    void noFile();
    void aFileThatMayNotBeRead();
    void refusedFiles_data();
    void refusedFiles();
    void aRefusedFileKeepsNothingOfTheOneBefore();
    void everyTruncation();

private:
    QString path() const { return m_dir->filePath(QStringLiteral("Spectra Ünïcödé.txt")); }

    std::unique_ptr<QTemporaryDir> m_dir;
    SpectrumFileText m_text;
};

void tst_NvxFFTFile::init()
{
    failOnUnexpectedWarnings();
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_text = SpectrumFileText();
}

void tst_NvxFFTFile::aFreshFile()
{
    QObject parent;
    auto* const file = new NvxFFTFile(path(), &parent);
    QCOMPARE(file->parent(), &parent);
    QCOMPARE(file->fileName(), path());
    QCOMPARE(file->fileHeader()->sampleRate(), 0U);
    QCOMPARE(file->fileDate()->numBins(), 0);
    QCOMPARE(*file->devId(), HydDeviceId(DevTypeSpecFile, 0));
    QCOMPARE(file->devId(0), HydDeviceId());
}

void tst_NvxFFTFile::readsTheHeaderAndTheFirstRecord()
{
    QVERIFY(m_text.write(path()));
    NvxFFTFile file(path(), nullptr);
    QVERIFY(file.headerPrepare(true));
    QCOMPARE(file.fileHeader()->sampleRate(), 48000U);
    QCOMPARE(file.fileHeader()->devId(), HydDeviceId(DevTypeRecorderA, 42));
    QCOMPARE(file.fileDate()->numBins(), 3);
    QCOMPARE(int{file.fileDate()->spectrum()[2]}, 30);
    QCOMPARE(file.fileDate()->dataTime(), 1709210096ULL);
    QCOMPARE(file.channelDevices(), QList<HydDeviceId>{kDevice});
    QVERIFY(file.containsDevId(kDevice));
    QCOMPARE(*file.devId(), kDevice);
    QCOMPARE(file.hostDevId(), HydDeviceId());
    QCOMPARE(file.curTime(), 1709210096);
}

void tst_NvxFFTFile::theLengthOfATick_data()
{
    QTest::addColumn<QByteArray>("accums");
    QTest::addColumn<QByteArray>("points");
    QTest::addColumn<QByteArray>("rate");
    QTest::addColumn<qint64>("ms");

    const auto row = [](const char* name, const char* accums, const char* points, const char* rate,
                        qint64 ms) {
        QTest::newRow(name) << QByteArray(accums) << QByteArray(points) << QByteArray(rate) << ms;
    };
    row("0.427 s", "20", "1024", "48000", 200);
    row("0.95 s is in tenths", "19", "1000", "20000", 500);
    row("0.949 s", "949", "1", "1000", 450);
    row("half a tenth counts as one", "5", "1", "100", 50);
    row("0.04 s", "4", "1", "100", 0);
    row("0.951 s is in seconds", "951", "1", "1000", 500);
    row("1.49 s", "149", "1", "100", 500);
    row("1.5 s", "3", "1", "2", 1000);
    row("2.5 s", "5", "1", "2", 1500);
    row("no accumulations", "0", "1024", "48000", 1);
    row("no points", "20", "0", "48000", 1);
    row("no rate", "20", "1024", "0", 1);
    row("beyond 64 bits", "4294967295", "4294967295", "1", qint64(1) << 62);
}

void tst_NvxFFTFile::theLengthOfATick()
{
    QFETCH(QByteArray, accums);
    QFETCH(QByteArray, points);
    QFETCH(QByteArray, rate);
    m_text.accums = accums;
    m_text.points = points;
    m_text.rate = rate;
    QVERIFY(m_text.write(path()));
    NvxFFTFile file(path(), nullptr);
    QVERIFY(file.headerPrepare(true));
    QTEST(file.timerTime(), "ms");
    file.calcTimerTime(1);
    QTEST(file.timerTime(), "ms");
}

void tst_NvxFFTFile::theFirstRecordIsLookedFor_data()
{
    QTest::addColumn<QByteArray>("titles");
    QTest::addColumn<QByteArray>("lines");
    QTest::addColumn<bool>("isFound");

    const QByteArray titles = m_text.titles;
    QTest::newRow("right behind") << titles << kRecord << true;
    QTest::newRow("in the fourth line") << titles << "\n\n\n" + kRecord << true;
    QTest::newRow("in the fifth line") << titles << "\n\n\n\n" + kRecord << false;
    QTest::newRow("behind a line of something else") << titles << "something\n" + kRecord << false;
    QTest::newRow("behind an empty and another line") << titles << "\nsomething\n" + kRecord << false;
    QTest::newRow("without a line end") << titles << kRecord.chopped(1) << true;
    QTest::newRow("without bins") << titles << QByteArray("2024-02-29 12:34:57\t\t1\t2\t3\n") << false;
    QTest::newRow("no line") << titles << QByteArray() << false;
    QTest::newRow("only empty lines") << titles << QByteArray("\n\n\n\n\n\n") << false;
    QTest::newRow("small title") << QByteArray("time\tx\n") << kRecord << true;
    QTest::newRow("big title") << QByteArray("TIME\tx\n") << kRecord << true;
    QTest::newRow("titles of one column") << QByteArray("Time\n") << kRecord << false;
    QTest::newRow("a longer first title") << QByteArray("Times\tx\n") << kRecord << false;
    QTest::newRow("no titles") << QByteArray() << kRecord << false;
    QTest::newRow("an empty line ahead of the titles") << "\n" + titles << kRecord << false;
}

void tst_NvxFFTFile::theFirstRecordIsLookedFor()
{
    QFETCH(QByteArray, titles);
    QFETCH(QByteArray, lines);
    m_text.titles = titles;
    m_text.lines = {lines};
    QVERIFY(m_text.write(path()));
    NvxFFTFile file(path(), nullptr);
    QTEST(file.headerPrepare(true), "isFound");
}

void tst_NvxFFTFile::aFreshEpochLog()
{
    QVERIFY(m_text.write(path()));
    NvxFFTFile file(path(), nullptr);
    for (int times = 0; times < 2; ++times) {
        QVERIFY(file.headerPrepare(true));
        const NvxDataFile::EpochLog expected{{kDevice, {}}};
        QCOMPARE(file.epochLogLists(), expected);
        file.handleTrigActiveStr(QStringLiteral("forgotten"), kDevice);
    }
    // Nor is anything carried.
    QVERIFY(file.headerPrepare(true));
    file.setAdjacent(true, 1);
    QVERIFY(file.epochLogLists().value(kDevice).isEmpty());
}

void tst_NvxFFTFile::anEpochLogThatGoesOn()
{
    QVERIFY(m_text.write(path()));
    NvxFFTFile file(path(), nullptr);
    QVERIFY(file.headerPrepare(true));
    const QList<QString> lines{QStringLiteral("one"), QStringLiteral("two")};
    file.addEpochMessg(kDevice, lines);
    QVERIFY(file.headerPrepare(false));
    NvxDataFile::EpochLog expected{{kDevice, {}}};
    QCOMPARE(file.epochLogLists(), expected);
    // The carried ones come first.
    file.handleTrigActiveStr(QStringLiteral("three"), kDevice);
    QVERIFY(file.headerPrepare(false));
    QCOMPARE(file.epochLogLists(), expected);
    file.setAdjacent(true, 1);
    expected[kDevice] = lines + QList<QString>{QStringLiteral("three")};
    QCOMPARE(file.epochLogLists(), expected);
}

void tst_NvxFFTFile::anotherFileOfTheSameObject()
{
    QVERIFY(m_text.write(path()));
    NvxFFTFile file(path(), nullptr);
    const auto header = file.fileHeader();
    QVERIFY(file.headerPrepare(true));
    m_text.serial = "43";
    m_text.start = "2024-03-01 00:00:00";
    const QString other = m_dir->filePath(QStringLiteral("other.txt"));
    QVERIFY(m_text.write(other));
    file.setFileName(other);
    QCOMPARE(file.fileName(), other);
    QVERIFY(file.headerPrepare(true));
    QCOMPARE(file.channelDevices(), (QList<HydDeviceId>{HydDeviceId(DevTypeSpecFile, 43)}));
    QCOMPARE(file.curTime(), 1709251200);
    QCOMPARE(header->devId().serialNo(), uint16_t{43});
}

void tst_NvxFFTFile::noFile_data()
{
    QTest::addColumn<QString>("name");

    QTest::newRow("no name") << QString();
    QTest::newRow("missing") << QStringLiteral("missing.txt");
    QTest::newRow("a directory") << QStringLiteral(".");
    QTest::newRow("a pipe that nobody writes") << QStringLiteral("pipe");
    QTest::newRow("a device without end") << QStringLiteral("/dev/zero");
    QTest::newRow("a device without content") << QStringLiteral("/dev/null");
}

void tst_NvxFFTFile::noFile()
{
    QFETCH(QString, name);
    QCOMPARE(mkfifo(qPrintable(m_dir->filePath(QStringLiteral("pipe"))), 0600), 0);
    NvxFFTFile file(name.isEmpty() ? name : QDir(m_dir->path()).absoluteFilePath(name), nullptr);
    QVERIFY(!file.headerPrepare(true));
    QVERIFY(file.channelDevices().isEmpty());
    // Played all the same it ends at once; opening a pipe would wait for its writer.
    QSignalSpy finished(&file, &NvxDataFile::streamFileFinished);
    file.processData();
    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 20000);
}

void tst_NvxFFTFile::aFileThatMayNotBeRead()
{
    QVERIFY(m_text.write(path()));
    QVERIFY(QFile::setPermissions(m_dir->path(), QFile::Permissions(0x7755)));
    QVERIFY(QFile::setPermissions(path(), QFile::Permissions()));
    NvxFFTFile file(path(), nullptr);
    {
        const OrdinaryUser user;
        if (QFile(path()).open(QIODevice::ReadOnly))
            QSKIP("nothing keeps this user from reading any file");
        QVERIFY(!file.headerPrepare(true));
        QSignalSpy finished(&file, &NvxDataFile::streamFileFinished);
        QSignalSpy headers(&file, &NvxDataFile::streamHeaderReady);
        file.processData();
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 20000);
        QVERIFY(headers.isEmpty());
    }
    QVERIFY(QFile::setPermissions(path(), QFile::ReadOwner));
    QVERIFY(file.headerPrepare(true));
}

void tst_NvxFFTFile::refusedFiles_data()
{
    QTest::addColumn<QByteArray>("bytes");

    const auto with = [](QByteArray SpectrumFileText::*part, const QByteArray& value) {
        SpectrumFileText text;
        text.*part = value;
        return text.text();
    };
    SpectrumFileText text;
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("zeros") << QByteArray(100000, '\0');
    QTest::newRow("no signature") << with(&SpectrumFileText::signature, "");
    QTest::newRow("another version") << with(&SpectrumFileText::signature, "Nerivox spectrum file\t2\n");
    QTest::newRow("a rate that is none") << with(&SpectrumFileText::rate, "many");
    QTest::newRow("a level that is none") << with(&SpectrumFileText::refLevel, "nan");
    QTest::newRow("a sensitivity without end") << with(&SpectrumFileText::sensitivity, "inf");
    QTest::newRow("a line without end in the header")
        << text.header() + QByteArray(3000000, 'x') + text.titles;
    text.lines = {"2024-02-29 12:34:57\t\t1\t2\t3\tnan\t4\n"};
    QTest::newRow("a bin that is no number") << text.text();
    text.lines = {"2024-02-29 12:34:57\t\tnan\t2\t3\t5\t4\n"};
    QTest::newRow("a temperature that is no number") << text.text();
    text.lines = {"2024-02-29 12:34:57\t\t1\t2\t3" + QByteArray("\t7").repeated(65536) + '\n'};
    QTest::newRow("too many bins") << text.text();
    text.lines = {"2024-02-29 12:34:57\t\t1\t2\t3" + QByteArray("\t7").repeated(1500000) + '\n'};
    QTest::newRow("a record without end") << text.text();
    text = SpectrumFileText();
    text.titles.chop(1);
    text.titles += QByteArray("\t7").repeated(1500000) + '\n';
    QTest::newRow("titles without end") << text.text();
}

void tst_NvxFFTFile::refusedFiles()
{
    QFETCH(QByteArray, bytes);
    QVERIFY(SpectrumFileText::writeBytes(path(), bytes));
    NvxFFTFile file(path(), nullptr);
    QVERIFY(!file.headerPrepare(true));
    QVERIFY(file.channelDevices().isEmpty());
}

void tst_NvxFFTFile::aRefusedFileKeepsNothingOfTheOneBefore()
{
    QVERIFY(m_text.write(path()));
    NvxFFTFile file(path(), nullptr);
    QVERIFY(file.headerPrepare(true));
    m_text.lines = {"nothing\n"};
    QVERIFY(m_text.write(path()));
    QVERIFY(!file.headerPrepare(true));
    QCOMPARE(file.fileDate()->numBins(), 0);
    m_text = SpectrumFileText();
    QVERIFY(m_text.write(path()));
    QVERIFY(file.headerPrepare(true));
    QVERIFY(file.fileDate()->numBins() > 0);
    QFile other(path());
    QVERIFY(other.open(QIODevice::WriteOnly) && other.write("of another kind\n") > 0);
    other.close();
    QVERIFY(!file.headerPrepare(true));
    QCOMPARE(file.fileDate()->numBins(), 0);
}

void tst_NvxFFTFile::everyTruncation()
{
    const QByteArray whole = m_text.text();
    // From the first bin of the first record on there is a spectrum.
    const qsizetype firstBin = whole.indexOf("\t1\t10\t") + 4;
    const qsizetype lastBin = whole.indexOf("\t30\n");
    for (qsizetype size = 0; size < whole.size(); ++size) {
        QVERIFY(SpectrumFileText::writeBytes(path(), whole.left(size)));
        NvxFFTFile file(path(), nullptr);
        // A tab at the end begins a bin that isn't there.
        const bool isRecord = size >= firstBin && (size > lastBin + 1 || whole[size - 1] != '\t');
        QVERIFY2(file.headerPrepare(true) == isRecord, qPrintable(QString::number(size)));
        if (!isRecord)
            continue;
        file.setReplayVel(ReplayMax, 1);
        QSignalSpy finished(&file, &NvxFFTFile::threadFinished);
        QVERIFY(file.processData());
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 20000);
    }
}

QTEST_GUILESS_MAIN(tst_NvxFFTFile)
#include "tst_NvxFFTFile.moc"
