#include "NvxQtCommon/contract/recording/DetectorData.h"
#include "NvxQtCommon/contract/recording/SensorData.h"
#include "SpecWriterCase.h"

#include <QFile>
#include <QFileInfo>

#include <limits>

class tst_NvxSpecWriter : public SpecWriterCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void headerOpensNothing()
    {
        header(kTime, L"Spec_20240229_123456");
        QVERIFY(files().isEmpty());
        QVERIFY(m_newFiles.isEmpty());
        QCOMPARE(m_writer->currHeader()->sampleRate(), 48000U);
        spectrum(kTime);
        QCOMPARE(m_newFiles, QStringList{path("Spec_20240229_123456.txt")});
        QCOMPARE(m_writer->outputFileName(), m_newFiles.first().toStdWString());
    }

    void fileHoldsHeaderTitlesAndRecords()
    {
        header(kTime, L"Spec");
        spectrum(kTime);
        QCOMPARE(m_writer->numRecs(), 1);
        spectrum(kTime + 1);
        QCOMPARE(m_writer->numRecs(), 2);
        const SpectrumText text = SpectrumText::of(path("Spec.txt"));
        QVERIFY(text.complete);
        QCOMPARE(text.signature, QByteArray("Nerivox spectrum file\t1"));
        QCOMPARE(text.entry("Type"), QByteArray("0"));
        QCOMPARE(text.entry("Start"), QByteArray("2024-02-29 12:34:56"));
        QCOMPARE(text.entry("Sample rate (Hz)"), QByteArray("48000"));
        QCOMPARE(text.titles.size(), 5 + 4);
        QCOMPARE(text.records.size(), 2);
        QCOMPARE(text.records[1].first(), QByteArray("2024-02-29 12:34:57"));
        QCOMPARE(text.records[1].mid(5), (QList<QByteArray>{"1", "2", "3", "4"}));
    }

    void recordsAreOnDiskAtOnce()
    {
        header(kTime, L"Spec");
        for (int i = 0; i < 3; ++i) {
            spectrum(kTime);
            QCOMPARE(SpectrumText::of(path("Spec.txt")).records.size(), i + 1);
        }
    }

    void rollsByCount()
    {
        header(kTime, L"Spec_20240229_123456");
        for (uint32_t i = 0; i < 7; ++i)
            spectrum(kTime + i, 1000 * i);
        // Without a header in between, name and start follow from the record.
        QCOMPARE(m_newFiles, (QStringList{path("Spec_20240229_123456.txt"), path("Spec_20240229_123459.txt"),
                                          path("Spec_20240229_123502.txt")}));
        const QList<int> counts{3, 3, 1};
        for (int i = 0; i < 3; ++i)
            QCOMPARE(SpectrumText::of(m_newFiles[i]).records.size(), counts[i]);
        const SpectrumText second = SpectrumText::of(m_newFiles[1]);
        QCOMPARE(second.entry("Start"), QByteArray("2024-02-29 12:34:59"));
        QCOMPARE(second.entry("Start sample"), QByteArray("3000"));
        QCOMPARE(second.entry("Name"), QByteArray("Spec_20240229_123459"));
        QCOMPARE(m_writer->numRecs(), 1);
    }

    void newestHeaderNamesTheNextFile()
    {
        header(kTime, L"Spec_20240229_123456", 77);
        spectrum(kTime);
        header(kTime + 1, L"Spec_20240229_123457", 78);
        spectrum(kTime + 1);
        header(kTime + 2, L"Spec_20240229_123458", 79);
        spectrum(kTime + 2);
        QCOMPARE(m_newFiles.size(), 1);
        header(kTime + 3, L"Spec_20240229_123459", 80);
        header(kTime + 4, L"Spec_20240229_123500", 81);
        spectrum(kTime + 9, 123);
        QCOMPARE(m_newFiles.last(), path("Spec_20240229_123500.txt"));
        const SpectrumText text = SpectrumText::of(m_newFiles.last());
        QCOMPARE(text.entry("Start"), QByteArray("2024-02-29 12:35:00"));
        QCOMPARE(text.entry("Start sample"), QByteArray("81"));
    }

    void noLimitNeverRolls()
    {
        m_writer->setMaxNumRecs(0);
        QCOMPARE(m_writer->maxNumRecs(), 0);
        header(kTime, L"Spec");
        for (uint32_t i = 0; i < 50; ++i)
            spectrum(kTime + i);
        QCOMPARE(m_newFiles.size(), 1);
        QCOMPARE(m_writer->numRecs(), 50);
    }

    void rollsByTime_data()
    {
        QTest::addColumn<float>("rate");
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("seconds");
        // 1709210100 is a multiple of 300, 60 and 20.
        QTest::newRow("ten of six seconds") << 6.0F << 10 << 60;
        QTest::newRow("rounded up to whole seconds") << 1.99F << 10 << 20;
        QTest::newRow("rounded down to whole seconds") << 2.04F << 10 << 20;
        QTest::newRow("a rate of nothing counts as a second") << 0.0F << 20 << 20;
        QTest::newRow("a rate below nothing counts as a second") << -5.0F << 20 << 20;
        QTest::newRow("never less than a second") << 0.01F << 10 << 1;
    }
    void rollsByTime()
    {
        QFETCH(float, rate);
        QFETCH(int, count);
        QFETCH(int, seconds);
        constexpr uint32_t multiple = 1709210100;
        m_writer->setTimeType(true);
        QVERIFY(m_writer->timeType());
        m_writer->setUpdateRate(rate);
        QCOMPARE(m_writer->updateRate(), rate);
        m_writer->setMaxNumRecs(count);
        header(multiple - 1, L"Spec_20240229_123459");
        spectrum(multiple - 1);
        QCOMPARE(m_newFiles.size(), 1);
        spectrum(multiple);
        QCOMPARE(m_newFiles.size(), 2);
        QCOMPARE(m_newFiles.last(), path("Spec_20240229_123500.txt"));
        spectrum(multiple + static_cast<uint32_t>(seconds) - 1);
        QCOMPARE(m_newFiles.size(), 2);
        spectrum(multiple + static_cast<uint32_t>(seconds));
        QCOMPARE(m_newFiles.size(), 3);
    }

    void impossibleRatesEndNothing_data()
    {
        QTest::addColumn<float>("rate");
        QTest::newRow("huge") << 3e38F;
        QTest::newRow("infinite") << std::numeric_limits<float>::infinity();
        QTest::newRow("no number counts as a second") << std::numeric_limits<float>::quiet_NaN();
    }
    void impossibleRatesEndNothing()
    {
        QFETCH(float, rate);
        m_writer->setTimeType(true);
        m_writer->setMaxNumRecs(1000000000);
        m_writer->setUpdateRate(rate);
        header(kTime, L"Spec");
        spectrum(kTime);
        spectrum(kTime + 100);
        QCOMPARE(m_newFiles.size(), 1);
    }

    void updateRateIsAMinuteUntilItIsSet()
    {
        QCOMPARE(m_writer->updateRate(), 60.0F);
        m_writer->setTimeType(true);
        m_writer->setMaxNumRecs(5);
        header(1709210100, L"Spec_20240229_123500");
        spectrum(1709210100);
        spectrum(1709210100 + 299);
        QCOMPARE(m_newFiles.size(), 1);
        spectrum(1709210100 + 300);
        QCOMPARE(m_newFiles.size(), 2);
    }

    void countIsTheDefault() { QVERIFY(!m_writer->timeType()); }

    void timeTypeIgnoresTheCount()
    {
        m_writer->setTimeType(true);
        header(kTime, L"Spec");
        for (int i = 0; i < 10; ++i)
            spectrum(kTime);
        QCOMPARE(m_newFiles.size(), 1);
    }

    void changedParametersRoll_data()
    {
        QTest::addColumn<int>("field");
        QTest::addColumn<bool>("rolls");
        QTest::newRow("nothing") << 0 << false;
        QTest::newRow("rate") << 1 << true;
        QTest::newRow("points") << 2 << true;
        QTest::newRow("accumulations") << 3 << true;
        QTest::newRow("mode") << 4 << true;
        QTest::newRow("device") << 5 << false;
        QTest::newRow("points between") << 6 << false;
        QTest::newRow("reference level") << 7 << false;
    }
    void changedParametersRoll()
    {
        QFETCH(int, field);
        QFETCH(bool, rolls);
        header(kTime, L"Spec_20240229_123456");
        spectrum(kTime);
        FFTMode mode = FftModeSpectrum;
        switch (field) {
        case 1:
            ++m_stream.rate;
            break;
        case 2:
            ++m_stream.points;
            break;
        case 3:
            ++m_stream.accum;
            break;
        case 4:
            mode = FFTMode(1);
            break;
        case 5:
            ++m_stream.serial;
            break;
        case 6:
            ++m_stream.pointsBtw;
            break;
        case 7:
            ++m_stream.refLevel;
            break;
        default:
            break;
        }
        header(kTime + 1, L"Spec_20240229_123457", 0, mode);
        QCOMPARE(files().size(), 1);
        spectrum(kTime + 1);
        QCOMPARE(m_newFiles.size(), rolls ? 2 : 1);
        QCOMPARE(m_writer->numRecs(), rolls ? 1 : 2);
    }

    void sameHeaderAgainIsANewOne()
    {
        header(kTime, L"Spec_20240229_123456", 77);
        spectrum(kTime + 3, 500);
        m_writer->finishFile();
        header(kTime, L"Spec_20240229_123456", 77);
        spectrum(kTime + 3, 500);
        QCOMPARE(m_newFiles.last(), path("Spec_20240229_123456_2.txt"));
        QCOMPARE(SpectrumText::of(m_newFiles.last()).entry("Start"), QByteArray("2024-02-29 12:34:56"));
        QCOMPARE(SpectrumText::of(m_newFiles.last()).entry("Start sample"), QByteArray("77"));
    }

    void headerInPlaceRollsToo()
    {
        header(kTime, L"Spec_20240229_123456");
        spectrum(kTime);
        m_writer->currHeader()->setTypeMode(FFTMode(1));
        spectrum(kTime + 1);
        QCOMPARE(m_newFiles.size(), 2);
        QCOMPARE(SpectrumText::of(m_newFiles.last()).entry("Type"), QByteArray("1"));
    }

    void recordsOfOtherColumnsRoll()
    {
        header(kTime, L"Spec_20240229_123456");
        spectrum(kTime);
        auto record = NvxSpectrumFileData::fromStreamData(*m_stream.spectrum(kTime + 1, 0, 0, {1, 2}));
        process(*record);
        QCOMPARE(m_newFiles.size(), 2);
        record = NvxSpectrumFileData::fromStreamData(*m_stream.filtered(kTime + 2, {1.5, 2.5}));
        process(*record);
        QCOMPARE(m_newFiles.size(), 3);
        NvxSpectrumStatsData statistics(makeStatistics(kTime + 3));
        process(statistics);
        QCOMPARE(m_newFiles.size(), 4);
        for (const QString& file : m_newFiles) {
            const SpectrumText text = SpectrumText::of(file);
            QCOMPARE(text.records.size(), 1);
            QCOMPARE(text.records.first().size(), text.titles.size());
        }
    }

    void kindFollowsFromTheRecord()
    {
        header(kTime, L"Stats", 0, FftModeSpectrum);
        NvxSpectrumStatsData statistics(makeStatistics(kTime));
        process(statistics);
        QCOMPARE(SpectrumText::of(path("Stats.txt")).entry("Type"), QByteArray("2"));
        QCOMPARE(SpectrumText::of(path("Stats.txt")).titles.first(), QByteArray("Time"));
    }

    void unnamedFilesBearKindAndStart_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("name");
        QTest::newRow("spectrum") << int(FftModeSpectrum) << "Spectrum_20240229_123456.txt";
        QTest::newRow("statistics") << int(FftModeWavStats) << "Stats_20240229_123456.txt";
        QTest::newRow("impulse") << int(FftModeImpulse) << "Impulse_20240229_123456.txt";
        QTest::newRow("click") << int(FftModeClick) << "Click_20240229_123456.txt";
        QTest::newRow("sensors") << int(FftModeAccMag) << "AccMag_20240229_123456.txt";
        QTest::newRow("battery") << int(FftModeBattery) << "Battery_20240229_123456.txt";
        QTest::newRow("noise") << int(FftModeNoise) << "Noise_20240229_123456.txt";
    }
    void unnamedFilesBearKindAndStart()
    {
        QFETCH(int, kind);
        QFETCH(QString, name);
        const auto record = recordOf(FFTMode(kind));
        m_writer->currHeader()->setTypeMode(FFTMode(kind));
        record->setDataTime(kTime);
        process(*record);
        QCOMPARE(m_newFiles, QStringList{path(name)});
    }

    void unnamedFileWithAHeaderBearsItsStart()
    {
        header(kTime - 6, L"");
        spectrum(kTime);
        QCOMPARE(m_newFiles, QStringList{path("Spectrum_20240229_123450.txt")});
    }

    void unnamedFilesThatFollowBearTheirFirstRecordsTime()
    {
        header(kTime - 6, L"");
        for (uint32_t i = 0; i < 7; ++i)
            spectrum(kTime + i);
        QCOMPARE(m_newFiles,
                 (QStringList{path("Spectrum_20240229_123450.txt"), path("Spectrum_20240229_123459.txt"),
                              path("Spectrum_20240229_123502.txt")}));
        const QStringList starts{"2024-02-29 12:34:50", "2024-02-29 12:34:59", "2024-02-29 12:35:02"};
        for (int i = 0; i < 3; ++i) {
            const SpectrumText text = SpectrumText::of(m_newFiles[i]);
            QCOMPARE(text.entry("Start"), starts[i].toUtf8());
            QCOMPARE(text.entry("Name"), QFileInfo(m_newFiles[i]).completeBaseName().toUtf8());
        }
    }

    void filesOfOneSecondAreNumbered_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("file");
        QTest::newRow("dated header") << "Spec_20240229_123456"
                                      << "Spec_20240229_123456";
        QTest::newRow("header without a name") << ""
                                               << "Spectrum_20240229_123456";
    }
    void filesOfOneSecondAreNumbered()
    {
        QFETCH(QString, name);
        QFETCH(QString, file);
        header(kTime, name.toStdWString());
        for (int i = 0; i < 7; ++i)
            spectrum(kTime);
        QCOMPARE(m_newFiles,
                 (QStringList{path(file + ".txt"), path(file + "_2.txt"), path(file + "_3.txt")}));
        const QList<int> counts{3, 3, 1};
        for (int i = 0; i < 3; ++i)
            QCOMPARE(SpectrumText::of(m_newFiles[i]).records.size(), counts[i]);
    }

    void nothingIsOverwritten()
    {
        for (int i = 0; i < 3; ++i) {
            header(kTime, L"Spec");
            spectrum(kTime);
            m_writer->finishFile();
        }
        QCOMPARE(m_newFiles, (QStringList{path("Spec.txt"), path("Spec_2.txt"), path("Spec_3.txt")}));
    }

    void noiseFileTakesThePlaceOfTheOldOne()
    {
        QFile old(path("F_CAL_42_DEV.txt"));
        QVERIFY(old.open(QIODevice::WriteOnly) && old.write("old") == 3);
        old.close();
        header(kTime, L"F_CAL_42_DEV", 0, FftModeNoise);
        // Neither count nor time ends it.
        for (uint32_t i = 0; i < 10; ++i)
            spectrum(kTime + 1000 * i);
        QCOMPARE(m_newFiles, QStringList{path("F_CAL_42_DEV.txt")});
        QCOMPARE(m_writer->outputFileName(), path("F_CAL_42_DEV.txt").toStdWString());
        QVERIFY(old.open(QIODevice::ReadOnly));
        QCOMPARE(old.readAll(), QByteArray("old"));
        old.close();
        m_writer->finishFile();
        QCOMPARE(SpectrumText::of(path("F_CAL_42_DEV.txt")).records.size(), 10);
        QCOMPARE(SpectrumText::of(path("F_CAL_42_DEV.txt")).entry("Type"), QByteArray("10"));
        QCOMPARE(files(), QStringList{"F_CAL_42_DEV.txt"});
    }

    void unnamedNoiseFileReplacesNone()
    {
        for (int i = 0; i < 2; ++i) {
            header(kTime, L"", 0, FftModeNoise);
            spectrum(kTime);
            m_writer->finishFile();
        }
        QCOMPARE(files(), (QStringList{"Noise_20240229_123456.txt", "Noise_20240229_123456_2.txt"}));
    }

    void noiseFileIsCompletedByCloseFileAndTheDestructor()
    {
        header(kTime, L"F_CAL_1_DEV", 0, FftModeNoise);
        spectrum(kTime);
        m_writer->closeFile();
        QCOMPARE(files(), QStringList{"F_CAL_1_DEV.txt"});
        header(kTime, L"F_CAL_2_DEV", 0, FftModeNoise);
        spectrum(kTime);
        m_writer.reset();
        QCOMPARE(files(), (QStringList{"F_CAL_1_DEV.txt", "F_CAL_2_DEV.txt"}));
    }

    void finishFileAndCloseFile()
    {
        m_writer->finishFile();
        m_writer->closeFile();
        QCOMPARE(m_writer->errorCode(), SpecErrNone);
        header(kTime, L"Spec");
        spectrum(kTime);
        m_writer->finishFile();
        QCOMPARE(m_writer->numRecs(), 0);
        spectrum(kTime);
        m_writer->closeFile();
        QCOMPARE(m_writer->numRecs(), 0);
        spectrum(kTime);
        QCOMPARE(m_newFiles.size(), 3);
    }

    void pathIsOfTheNextFile()
    {
        QVERIFY(QDir(m_dir->path()).mkdir("below"));
        m_writer->setlogPath(path("below").toStdWString());
        header(kTime, L"Spec");
        spectrum(kTime);
        QCOMPARE(m_newFiles, QStringList{path("below/Spec.txt")});
    }

    void eventKeepsItsLogType()
    {
        SpecStreamEvent event(nullptr);
        event.setLogType(SensorLogBattery);
        QCOMPARE(event.logType(), SensorLogBattery);
    }

    void modesHaveTheirNumbers()
    {
        const QList<int> modes{FftModeSpectrum, FftModeWavStats, FftModeImpulse, FftModeAccMag,
                               FftModeBattery,  FftModeWavTime,  FftModeClick,   FftModeNoise};
        QCOMPARE(modes, (QList<int>{0, 2, 4, 6, 7, 8, 9, 10}));
        QCOMPARE(int(SensorLogAccMag), 0);
        QCOMPARE(int(SensorLogBattery), 1);
    }

private:
    static std::unique_ptr<NvxComSpectrumEventData> recordOf(FFTMode kind)
    {
        switch (kind) {
        case FftModeWavStats:
            return std::make_unique<NvxSpectrumStatsData>(makeStatistics(kTime));
        case FftModeImpulse:
            return std::make_unique<NvxImpulseData>(makeImpulse(kTime));
        case FftModeClick:
            return std::make_unique<NvxClickData>(makeClick(kTime));
        case FftModeAccMag:
            return NvxAccMagData::fromStreamData(makeSensorStatus());
        case FftModeBattery:
            return NvxBatteryData::fromStreamData(makeSensorStatus());
        default:
            return std::make_unique<NvxSpectrumFileData>();
        }
    }
};

QTEST_GUILESS_MAIN(tst_NvxSpecWriter)
#include "tst_NvxSpecWriter.moc"
