#include "NvxQtCommon/contract/job/HydJobSettingsTag.h"
#include "NvxQtCommon/settings/VelaDeviceSettings.h"
#include "tests/settings/IniFile.h"
#include "tests/support/NvxTestCase.h"

namespace {

const QString kGroup = QStringLiteral("Job");

} // namespace

class tst_VelaDeviceSettings : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void syncIsWrittenIntoTheGroupThatTheStoreIsIn()
    {
        VelaDeviceSettings settings;
        settings.setTimeSyncType(VelaDeviceSettings::SyncDevice);
        settings.setSyncMaster(4711);
        IniFile file;
        file.store()->beginGroup("Device");
        settings.save(file.store());
        file.store()->endGroup();
        QSettings* store = file.reopen();
        QCOMPARE(file.keys(), (QStringList{"Device/SyncMaster", "Device/TimeSyncType"}));
        QCOMPARE(file.value("Device/SyncMaster").toInt(), 4711);
        QCOMPARE(file.value("Device/TimeSyncType").toInt(), 2);
        VelaDeviceSettings other;
        store->beginGroup("Device");
        other.load(store);
        QCOMPARE(other.timeSyncType(), VelaDeviceSettings::SyncDevice);
        QCOMPARE(other.syncMaster(), uint16_t{4711});
    }

    void choicesAreKept()
    {
        VelaDeviceSettings settings;
        QCOMPARE(int(settings.timeSyncType()), 0);
        QCOMPARE(int(settings.regStream()), 0);
        QCOMPARE(int(settings.refType()), 0);
        settings.setStreamReg(VelaDeviceSettings::StreamRegimeWaves);
        settings.setRegFFTMode(FftModeClick);
        settings.setRegWAVEMode(WaveModeLog);
        settings.setRefType(RefVolts);
        QCOMPARE(settings.regStream(), VelaDeviceSettings::StreamRegimeWaves);
        QCOMPARE(settings.regFFTMode(), FftModeClick);
        QCOMPARE(settings.regWAVEMode(), WaveModeLog);
        QCOMPARE(settings.refType(), RefVolts);
        QVERIFY(settings.chartDisp());
        settings.setChartDisp(false);
        QVERIFY(!settings.chartDisp());
    }

    void chartsOfSerialNumbers()
    {
        VelaDeviceSettings settings;
        QVERIFY(settings.chartDisp(7));
        settings.setChartDisp(false, 7);
        QVERIFY(!settings.chartDisp(7));
        QVERIFY(settings.chartDisp(8));
        QVERIFY(settings.chartDisp());
        settings.setChartDisp(true, 7);
        QVERIFY(settings.chartDisp(7));
    }

    void wantedOfTheWaves_data()
    {
        QTest::addColumn<int>("stream");
        QTest::addColumn<int>("wave");
        QTest::addColumn<int>("fft");
        QTest::addColumn<int>("wanted");
        QTest::newRow("no wave stream") << 0 << 0 << 0 << 2;
        QTest::newRow("another stream") << 2 << 1 << 0 << 2;
        QTest::newRow("waves") << 1 << 0 << 3 << 0;
        QTest::newRow("logged waves") << 1 << 1 << 3 << 1;
        for (int fft = 0; fft <= 11; ++fft)
            QTest::addRow("spectra of mode %d", fft)
                << 1 << 2 << fft << (QList<int>{0, 1, 2, 4, 5, 9}.contains(fft) ? 0 : 2);
        QTest::newRow("an unknown mode of waves") << 1 << 255 << 4 << 0;
    }
    void wantedOfTheWaves()
    {
        QFETCH(int, stream);
        QFETCH(int, wave);
        QFETCH(int, fft);
        QFETCH(int, wanted);
        VelaDeviceSettings settings;
        settings.setStreamReg(VelaDeviceSettings::JobDevStreamRegime(stream));
        settings.setRegWAVEMode(WAVEMode(wave));
        settings.setRegFFTMode(FFTMode(fft));
        QCOMPARE(settings.checkWAVEReg(), wanted);
    }

    void jobTagsAreWrittenAndRead()
    {
        VelaDeviceSettings settings;
        settings.setWavRate(SampRate{512000});
        settings.setFftAccum(20);
        settings.setFftRef(-127);
        settings.setWavLogMode(LogOn);
        IniFile file;
        settings.saveJobMap(file.store(), kGroup);
        QSettings* store = file.reopen();
        QCOMPARE(file.keys().size(), 4);
        QCOMPARE(
            file.value("Job/" + QString::fromStdString(HydJobSettingsTag::keyName(JobTagKey(14)))).toString(),
            QStringLiteral("512000"));
        VelaDeviceSettings other;
        other.loadJobMap(store, kGroup);
        QVERIFY(static_cast<const HydJobSettings&>(other) == settings);
        QCOMPARE(other.toString(), settings.toString());
    }

    void loadedTagsReplaceTheirsAndLeaveOthers()
    {
        VelaDeviceSettings stored;
        stored.setFftAccum(20);
        IniFile file;
        stored.saveJobMap(file.store(), kGroup);
        VelaDeviceSettings settings;
        settings.setFftAccum(1);
        settings.setWavRate(SampRate{8000});
        settings.loadJobMap(file.reopen(), kGroup);
        QCOMPARE(settings.fftAccum(), 20U);
        QCOMPARE(settings.wavRate(), SampRate{8000});
    }

    void everyKnownTagSurvives()
    {
        VelaDeviceSettings settings;
        for (int key = 0; key <= 21; ++key)
            settings.setTag(HydJobSettingsTag::fromString(HydJobSettingsTag::keyName(JobTagKey(key)) + "=1"));
        QCOMPARE(settings.map().size(), size_t{22});
        IniFile file;
        settings.saveJobMap(file.store(), kGroup);
        VelaDeviceSettings other;
        other.loadJobMap(file.reopen(), kGroup);
        QCOMPARE(other.toString(), settings.toString());
    }

    void serialNumbersOfAnArraySurvive_data()
    {
        QTest::addColumn<QList<int>>("serials");
        QTest::newRow("some") << QList<int>{1, 70, 65535};
        QTest::newRow("one") << QList<int>{1234};
        QTest::newRow("none") << QList<int>{};
    }
    void serialNumbersOfAnArraySurvive()
    {
        QFETCH(QList<int>, serials);
        const std::vector<uint16_t> devices(serials.begin(), serials.end());
        VelaDeviceSettings settings;
        settings.setTag(std::make_shared<TmiDeviceListTag>(devices));
        IniFile file;
        settings.saveJobMap(file.store(), kGroup);
        VelaDeviceSettings other;
        other.loadJobMap(file.reopen(), kGroup);
        QCOMPARE(file.keys(), QStringList{"Job/ARRAY_SERIALS"});
        const auto tag = other.map().find(JobTagDeviceList);
        QVERIFY(tag != other.map().end());
        const auto* list = dynamic_cast<const TmiDeviceListTag*>(tag->second.get());
        QVERIFY(list != nullptr);
        QVERIFY(list->deviceList() == devices);
    }

    void choicesAreNotCompared()
    {
        // By the job settings alone: intended.
        VelaDeviceSettings settings;
        settings.setFftAccum(3);
        VelaDeviceSettings other(settings);
        other.setTimeSyncType(VelaDeviceSettings::SyncComputer);
        other.setSyncMaster(7);
        other.setStreamReg(VelaDeviceSettings::StreamRegimeNone);
        other.setRegFFTMode(FftModeClick);
        other.setRegWAVEMode(WaveModeLog);
        other.setRefType(RefVolts);
        other.setChartDisp(false);
        other.setChartDisp(false, 7);
        QVERIFY(other == settings);
        other.setFftAccum(4);
        QVERIFY(!(other == settings));
    }

    void jobSettingsCanBeTakenOver()
    {
        HydJobSettings job;
        job.setFftAccum(9);
        const VelaDeviceSettings settings(job);
        QCOMPARE(settings.fftAccum(), 9U);
        const VelaDeviceSettings copy(settings);
        QCOMPARE(copy.fftAccum(), 9U);
    }

    // --- rainy day flows
    void withoutTheGroupTagsStay()
    {
        IniFile file;
        VelaDeviceSettings settings;
        settings.setFftAccum(3);
        settings.loadJobMap(file.store(), kGroup);
        QCOMPARE(settings.fftAccum(), 3U);
    }

    void groupsThatAreNotFoundAgain_data()
    {
        QTest::addColumn<QString>("group");
        QTest::newRow("empty") << QString();
        QTest::newRow("within another") << QStringLiteral("Survey/Job");
    }
    void groupsThatAreNotFoundAgain()
    {
        QFETCH(QString, group);
        VelaDeviceSettings settings;
        settings.setFftAccum(20);
        IniFile file;
        settings.saveJobMap(file.store(), group);
        QCOMPARE(file.store()->allKeys().size(), 1);
        VelaDeviceSettings other;
        other.loadJobMap(file.reopen(), group);
        QVERIFY(other.map().empty());
    }

    void serialNumbersWithoutQuotationMarks()
    {
        // A bare comma makes a list of the store, which is no text.
        IniFile file("[Job]\nARRAY_SERIALS=1, 2\n");
        VelaDeviceSettings settings;
        settings.setTag(std::make_shared<TmiDeviceListTag>(std::vector<uint16_t>{3}));
        settings.loadJobMap(file.store(), kGroup);
        QCOMPARE(QString::fromStdString(settings.toString()), QStringLiteral("ARRAY_SERIALS="));
    }

    void missingSyncLoadsAsNothing()
    {
        IniFile file("[General]\nSyncMaster=70000\n");
        VelaDeviceSettings settings;
        settings.setTimeSyncType(VelaDeviceSettings::SyncComputer);
        settings.setSyncMaster(5);
        settings.load(file.store());
        QCOMPARE(settings.timeSyncType(), VelaDeviceSettings::SyncNone);
        QCOMPARE(settings.syncMaster(), uint16_t{70000 - 65536});
    }

    void onlyWhatStandsBehindTheLastSignIsSaved()
    {
        /// A tag whose text holds more than one sign.
        class TwoSigns : public HydNumberTag
        {
        public:
            TwoSigns() : HydNumberTag(JobTagKey(7), 1) {}
            std::string toString() const override { return "ANY=1=22"; }
        };
        VelaDeviceSettings settings;
        settings.setTag(std::make_shared<TwoSigns>());
        IniFile file;
        settings.saveJobMap(file.store(), kGroup);
        VelaDeviceSettings other;
        other.loadJobMap(file.reopen(), kGroup);
        QCOMPARE(other.fftAccum(), 22U);
    }

    void unknownTagsHaveNoName()
    {
        VelaDeviceSettings settings;
        settings.setTag(HydJobSettingsTag::fromBytes(JobTagKey(0x1234), {}));
        settings.setFftAccum(4);
        QCOMPARE(settings.map().size(), size_t{2});
        IniFile file;
        settings.saveJobMap(file.store(), kGroup);
        file.reopen();
        QCOMPARE(file.keys().size(), 1);
    }

    void foreignKeysArePassedOver()
    {
        const QByteArray key = QByteArray::fromStdString(HydJobSettingsTag::keyName(JobTagKey(7)));
        IniFile file("[Job]\nNobody=1\n" + key + "=many\nlist=1, 2\n$x=y=z\n");
        VelaDeviceSettings settings;
        settings.setFftAccum(3);
        settings.loadJobMap(file.store(), kGroup);
        // What is no number counts as 0, as everywhere in a store.
        QCOMPARE(settings.fftAccum(), 0U);
        QCOMPARE(settings.map().size(), size_t{1});
    }

    void withoutAStoreNothingHappens()
    {
        VelaDeviceSettings settings;
        settings.setSyncMaster(5);
        settings.save(nullptr);
        settings.load(nullptr);
        settings.saveJobMap(nullptr, kGroup);
        settings.loadJobMap(nullptr, kGroup);
        QCOMPARE(settings.syncMaster(), uint16_t{5});
    }
};

QTEST_APPLESS_MAIN(tst_VelaDeviceSettings)
#include "tst_VelaDeviceSettings.moc"
