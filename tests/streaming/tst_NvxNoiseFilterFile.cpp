// How NvxNoiseFilter reads a spectrum file.
#include "NvxQtCommon/contract/recording/NvxSpecWriter.h"
#include "NvxQtCommon/contract/recording/SpecStreamEvent.h"
#include "NvxQtCommon/streaming/NvxNoiseFilter.h"
#include "tests/streaming/NoiseFile.h"
#include "tests/streaming/StreamFrames.h"
#include "tests/support/NvxTestCase.h"

namespace {

const QString kName = QStringLiteral("F_CAL_7_DEV.txt");

/// A filter over a file of its own.
struct FileFilter
{
    explicit FileFilter(const QByteArray& text) { file.write(kName, text); }

    NoiseFile file;
    NvxNoiseFilter filter{HydDeviceId(DevTypeRecorderA, 7), file.folder(), SampRate{1}};
};

void write(NvxSpecWriter& writer, NvxSpectrumEventData& data)
{
    SpecStreamEvent event(&data);
    while (!event.isConsumed())
        writer.dispatch(&event);
}

std::vector<float> floats(const QList<float>& values)
{
    return {values.begin(), values.end()};
}

} // namespace

class tst_NvxNoiseFilterFile : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void spectraAreSummed();
    void headerIsTakenOver();
    void fileOfTheKindIsTaken();
    void decimalSpectraAreReadAsBytes();
    void filesOfTheWriterAreRead();
    void theMostBinsThereAre_data();
    void theMostBinsThereAre();
    void readingAddsToWhatIsThere();
    void lastLineNeedsNoEnd();
    void emptyLines_data();
    void emptyLines();
    void titles_data();
    void titles();
    // --- rainy day flows
    void noFile_data();
    void noFile();
    void otherRateIsTakenAllTheSame();
    void headerWithoutRecords_data();
    void headerWithoutRecords();
    void badLineEndsTheReading_data();
    void badLineEndsTheReading();
    void otherLengthBeginsAnew();
    void recordsOnlyWithinARead();
    void startBeyondAllDates();
};

void tst_NvxNoiseFilterFile::spectraAreSummed()
{
    FileFilter f(NoiseFile::text(2000, {{10, 20, 255}, {1, 2, 255}, {0, 0, 255}}));
    QVERIFY(f.filter.read(2000));
    QCOMPARE(f.filter.data(), floats({11, 22, 765}));
    QCOMPARE(f.filter.count(), 3);
}

void tst_NvxNoiseFilterFile::headerIsTakenOver()
{
    FileFilter f(NoiseFile::header(96000, 4096) + NoiseFile::titles() + NoiseFile::record({10}));
    QVERIFY(f.filter.read(96000));
    QCOMPARE(f.filter.rate(), SampRate{96000});
    QCOMPARE(f.filter.numPts(), 4096U);
    QCOMPARE(f.filter.dateTime(), QDateTime::fromSecsSinceEpoch(NoiseFile::kStart, Qt::UTC));
    QCOMPARE(f.filter.dateTime().toString(Qt::ISODate), QStringLiteral("2024-02-29T12:34:56Z"));
}

void tst_NvxNoiseFilterFile::fileOfTheKindIsTaken()
{
    FileFilter f(NoiseFile::text(2000, {{10}}));
    f.file.write(QStringLiteral("F_CAL_7_PROG.txt"), NoiseFile::text(2000, {{20}}));
    f.file.write(QStringLiteral("F_CAL_8_DEV.txt"), NoiseFile::text(2000, {{30}}));
    QVERIFY(f.filter.read(2000));
    QCOMPARE(f.filter.data(), floats({10}));
    f.filter.clearData();
    f.filter.setIfDeviceFFT(false);
    QVERIFY(f.filter.read(2000));
    QCOMPARE(f.filter.data(), floats({20}));
    f.filter.clearData();
    f.filter.setIfDeviceFFT(true);
    f.filter.setDevId(HydDeviceId(DevTypeRecorderA, 8));
    QVERIFY(f.filter.read(2000));
    QCOMPARE(f.filter.data(), floats({30}));
}

void tst_NvxNoiseFilterFile::decimalSpectraAreReadAsBytes()
{
    FileFilter f(NoiseFile::header(2000) + NoiseFile::titles() +
                 "2024-02-29 12:34:57\t\t11.5\t40\t0\t10.4\t-3.5\t300.25\n");
    QVERIFY(f.filter.read(2000));
    QCOMPARE(f.filter.data(), floats({10, 0, 255}));
}

void tst_NvxNoiseFilterFile::filesOfTheWriterAreRead()
{
    FileFilter f("an older file");
    NvxSpectrumFileHeader header;
    header.setFname(f.filter.fileNameForm().toStdWString());
    header.setTypeMode(FftModeNoise);
    header.setStartDt(NoiseFile::kStart);
    header.setSampleRate(96000);
    header.setNumPts(4096);
    NvxSpecWriter writer(1, f.file.folder().toStdWString());
    write(writer, header);
    for (const unsigned char value : {10, 20, 33}) {
        const auto spectrum =
            streamframes::spectrum(std::vector<unsigned char>{value, 255, 0}, NoiseFile::kStart);
        write(writer, *NvxSpectrumFileData::fromStreamData(*spectrum));
    }
    QVERIFY(!f.filter.read(96000));
    writer.finishFile();
    QCOMPARE(writer.errorCode(), SpecErrNone);
    QVERIFY(f.filter.read(96000));
    QCOMPARE(f.filter.data(), floats({63, 765, 0}));
    QCOMPARE(f.filter.count(), 3);
    QCOMPARE(f.filter.numPts(), 4096U);
    QCOMPARE(f.filter.dateTime().toSecsSinceEpoch(), NoiseFile::kStart);
}

void tst_NvxNoiseFilterFile::theMostBinsThereAre_data()
{
    QTest::addColumn<quint32>("rate");
    QTest::addColumn<quint32>("points");
    QTest::addColumn<bool>("isDecimal");
    QTest::newRow("whole frequencies") << 512000U << 256000U << false;
    QTest::newRow("frequencies of many digits") << 511999U << 131070U << false;
    QTest::newRow("frequencies of the most digits") << 1U << 0xFFFFFFFFU << false;
    QTest::newRow("levels of many digits") << 511999U << 131070U << true;
}

void tst_NvxNoiseFilterFile::theMostBinsThereAre()
{
    QFETCH(quint32, rate);
    QFETCH(quint32, points);
    QFETCH(bool, isDecimal);
    constexpr size_t bins = 65535;
    FileFilter f("an older file");
    NvxSpectrumFileHeader header;
    header.setFname(f.filter.fileNameForm().toStdWString());
    header.setTypeMode(FftModeNoise);
    header.setStartDt(NoiseFile::kStart);
    header.setSampleRate(rate);
    header.setNumPts(points);
    std::vector<unsigned char> values(bins);
    for (size_t bin = 0; bin < bins; ++bin)
        values[bin] = static_cast<unsigned char>(bin % 251);
    NvxSpecWriter writer(1, f.file.folder().toStdWString());
    write(writer, header);
    for (int i = 0; i < 2; ++i) {
        const auto spectrum = streamframes::spectrum(values, NoiseFile::kStart);
        if (isDecimal) {
            spectrum->ResetD(bins);
            spectrum->setNoiseFiltered(true);
            // Up to a third above the level, which reading rounds off.
            for (size_t bin = 0; bin < bins; ++bin)
                spectrum->data()->doubles()[static_cast<ptrdiff_t>(bin)] =
                    values[bin] + 1.0 / static_cast<double>(3 + bin);
        }
        write(writer, *NvxSpectrumFileData::fromStreamData(*spectrum));
    }
    writer.finishFile();
    QCOMPARE(writer.errorCode(), SpecErrNone);

    QVERIFY(f.filter.read(static_cast<int>(rate)));
    // The line of titles wasn't taken for a record, nor a record for too long.
    QCOMPARE(f.filter.count(), 2);
    QCOMPARE(f.filter.numPts(), points);
    QCOMPARE(f.filter.data().size(), bins);
    for (size_t bin = 0; bin < bins; ++bin)
        QCOMPARE(f.filter.data()[bin], 2.0F * values[bin]);
}

void tst_NvxNoiseFilterFile::readingAddsToWhatIsThere()
{
    FileFilter f(NoiseFile::text(2000, {{10, 20}}));
    QVERIFY(f.filter.read(2000));
    QVERIFY(f.filter.read(2000));
    QCOMPARE(f.filter.data(), floats({20, 40}));
    QCOMPARE(f.filter.count(), 2);
}

void tst_NvxNoiseFilterFile::lastLineNeedsNoEnd()
{
    FileFilter f(NoiseFile::text(2000, {{10, 20}}) + NoiseFile::record({1, 2}));
    QVERIFY(f.filter.read(2000));
    QCOMPARE(f.filter.data(), floats({11, 22}));
}

void tst_NvxNoiseFilterFile::emptyLines_data()
{
    QTest::addColumn<int>("lines");
    QTest::addColumn<int>("count");
    QTest::newRow("none") << 0 << 1;
    QTest::newRow("one") << 1 << 1;
    QTest::newRow("four") << 4 << 1;
    // The fifth is where reading goes on, and is no record.
    QTest::newRow("five") << 5 << 0;
    QTest::newRow("six") << 6 << 0;
}

void tst_NvxNoiseFilterFile::emptyLines()
{
    QFETCH(int, lines);
    QFETCH(int, count);
    FileFilter f(NoiseFile::header(2000) + NoiseFile::titles() + QByteArray(lines, '\n') +
                 NoiseFile::record({10}) + '\n');
    QVERIFY(f.filter.read(2000));
    QCOMPARE(f.filter.count(), count);
}

void tst_NvxNoiseFilterFile::titles_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<int>("count");
    QTest::newRow("as written") << NoiseFile::titles() << 1;
    QTest::newRow("upper case") << QByteArray("TIME\tX\n") << 1;
    QTest::newRow("mixed case") << QByteArray("tImE\t\n") << 1;
    QTest::newRow("none") << QByteArray() << 1;
    // What isn't the line of titles must be a record.
    QTest::newRow("no tab") << QByteArray("Time\n") << 0;
    QTest::newRow("longer word") << QByteArray("Times\tX\tY\n") << 0;
    QTest::newRow("empty line") << QByteArray("\n") << 0;
}

void tst_NvxNoiseFilterFile::titles()
{
    QFETCH(QByteArray, line);
    QFETCH(int, count);
    FileFilter f(NoiseFile::header(2000) + line + NoiseFile::record({10}) + '\n');
    QVERIFY(f.filter.read(2000));
    QCOMPARE(f.filter.count(), count);
}

void tst_NvxNoiseFilterFile::noFile_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("other text") << QByteArray("Time\tComment\n");
    QTest::newRow("other version") << NoiseFile::text(2000, {{10}}).replace("file\t1", "file\t2");
    QTest::newRow("rate that is none") << NoiseFile::text(2000, {{10}}).replace("\t2000", "\tfast");
    QTest::newRow("one endless line") << QByteArray(5000000, 'x');
    QTest::newRow("zeros") << QByteArray(1000, '\0');
}

void tst_NvxNoiseFilterFile::noFile()
{
    QFETCH(QByteArray, text);
    FileFilter f(text);
    QVERIFY(!f.filter.read(2000));
    QCOMPARE(f.filter.rate(), SampRate{1});
    QVERIFY(f.filter.data().empty());
    QVERIFY(!f.filter.dateTime().isValid());

    f.filter.setFolderName(f.file.folder() + QStringLiteral("/none"));
    QVERIFY(!f.filter.read(2000));
    QVERIFY(!f.filter.readHeader());
}

void tst_NvxNoiseFilterFile::otherRateIsTakenAllTheSame()
{
    FileFilter f(NoiseFile::text(2000, {{10}}));
    QVERIFY(!f.filter.read(2001));
    QCOMPARE(f.filter.rate(), SampRate{2000});
    QCOMPARE(f.filter.numPts(), 1024U);
    QVERIFY(f.filter.dateTime().isValid());
    QVERIFY(f.filter.data().empty());
    QVERIFY(f.filter.read(2000));
    QVERIFY(f.filter.readHeader());
}

void tst_NvxNoiseFilterFile::headerWithoutRecords_data()
{
    QTest::addColumn<QByteArray>("behind");
    QTest::addColumn<bool>("isRead");
    QTest::newRow("nothing") << QByteArray() << false;
    QTest::newRow("titles") << NoiseFile::titles() << true;
    QTest::newRow("titles without an end") << NoiseFile::titles().chopped(1) << true;
    QTest::newRow("titles and empty lines") << NoiseFile::titles() + "\n\n" << true;
}

void tst_NvxNoiseFilterFile::headerWithoutRecords()
{
    QFETCH(QByteArray, behind);
    QFETCH(bool, isRead);
    FileFilter f(NoiseFile::header(2000) + behind);
    QCOMPARE(f.filter.read(2000), isRead);
    QVERIFY(f.filter.data().empty());
    QCOMPARE(f.filter.count(), 0);
}

void tst_NvxNoiseFilterFile::badLineEndsTheReading_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("titles again") << NoiseFile::titles().chopped(1);
    QTest::newRow("cut") << QByteArray("2024-02-29 12:34:57\t\t11.5");
    QTest::newRow("bin that is none") << QByteArray("2024-02-29 12:34:57\t\t11.5\t40\t0\tnan");
    QTest::newRow("longer than any") << NoiseFile::record({1, 1}) + QByteArray(5000000, '1');
}

void tst_NvxNoiseFilterFile::badLineEndsTheReading()
{
    QFETCH(QByteArray, line);
    FileFilter f(NoiseFile::text(2000, {{10, 20}, {1, 2}}) + line + '\n' + NoiseFile::record({3, 3}) + '\n');
    QVERIFY(f.filter.read(2000));
    QCOMPARE(f.filter.data(), floats({11, 22}));
    // The file isn't held open: what stands behind the line is out of reach.
    QVERIFY(!f.filter.readRecord());
    QCOMPARE(f.filter.count(), 2);
}

void tst_NvxNoiseFilterFile::otherLengthBeginsAnew()
{
    FileFilter f(NoiseFile::text(2000, {{10, 20}, {1, 2}, {7, 8, 9}, {1, 1, 1}}));
    QVERIFY(f.filter.read(2000));
    QCOMPARE(f.filter.data(), floats({8, 9, 10}));
    QCOMPARE(f.filter.count(), 2);
}

void tst_NvxNoiseFilterFile::recordsOnlyWithinARead()
{
    FileFilter f(NoiseFile::text(2000, {{10}}));
    QVERIFY(!f.filter.readRecord());
    QVERIFY(f.filter.read(2000));
    QVERIFY(!f.filter.readRecord());
    QCOMPARE(f.filter.count(), 1);
    // A new file is read anew.
    f.file.write(kName, NoiseFile::text(2000, {{30}}));
    f.filter.clearData();
    QVERIFY(f.filter.read(2000));
    QCOMPARE(f.filter.data(), floats({30}));
}

void tst_NvxNoiseFilterFile::startBeyondAllDates()
{
    FileFilter f(NoiseFile::text(2000, {{10}}).replace("2024-02-29 12:34:56", "9999-12-31 23:59:59"));
    QVERIFY(f.filter.read(2000));
    QCOMPARE(f.filter.dateTime().date(), QDate(9999, 12, 31));
}

QTEST_APPLESS_MAIN(tst_NvxNoiseFilterFile)
#include "tst_NvxNoiseFilterFile.moc"
