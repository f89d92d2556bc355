#include "FileSwap.h"

#include "NvxQtCommon/contract/recording/NvxSpecWriter.h"
#include "NvxQtCommon/contract/recording/NvxWavTimeData.h"
#include "NvxQtCommon/contract/recording/SpecStreamEvent.h"
#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <csignal>
#include <memory>
#include <sys/resource.h>
#include <type_traits>

namespace {

constexpr uint32_t kTime = 1709210096; // 2024-02-29 12:34:56 UTC

std::shared_ptr<NvxWavTestInfoData> makeTiming(uint32_t time, uint64_t sequence)
{
    auto info = std::make_shared<NvxWavTestInfoData>();
    info->time = time;
    info->curTime = int64_t{time} * 1000 + 123;
    info->seqNum = sequence;
    info->filename = L"Test_Time_ä";
    info->deviceType = DevTypeRecorderA;
    info->serialNo = 4711;
    return info;
}

QList<QByteArray> linesOf(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QList<QByteArray> lines = file.readAll().split('\n');
    if (lines.isEmpty() || !lines.takeLast().isEmpty())
        lines.append("the last line has no end");
    return lines;
}

qsizetype titleIndex(const QList<QByteArray>& lines)
{
    for (qsizetype i = 0; i < lines.size(); ++i) {
        if (lines[i].split('\t').first().toUpper() == "TIME")
            return i;
    }
    return -1;
}

} // namespace

class tst_NvxSpecWriter : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY(std::signal(SIGXFSZ, SIG_IGN) != SIG_ERR); }
    void init()
    {
        failOnUnexpectedWarnings();
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_writer = std::make_unique<NvxSpecWriter>(3, m_dir->path().toStdWString());
        m_writer->currHeader()->setTypeMode(FftModeWavTime);
        m_newFiles.clear();
    }
    void cleanup()
    {
        m_writer.reset();
        m_dir.reset();
    }

    // --- happy flows
    void firstRecordOpensTheFileFromTheHeaderInPlace()
    {
        QVERIFY(m_writer->currHeader() != nullptr);
        m_writer->currHeader()->setStartDt(kTime);
        m_writer->currHeader()->setDeviceId(HydDeviceId(DevTypeRecorderA, 4711));
        QVERIFY(QDir(m_dir->path()).entryList(QDir::Files).isEmpty());
        QVERIFY(record(kTime, 100));
        QCOMPARE(m_newFiles, QStringList{m_dir->filePath(QStringLiteral("Test_Time_20240229_123456.txt"))});
        QCOMPARE(m_writer->numRecs(), 1);
        const QList<QByteArray> lines = linesOf(m_newFiles.first());
        QVERIFY(lines.contains("File type:\t8"));
        QVERIFY(lines.contains("Serial:\t4711"));
        QVERIFY(lines.contains("Start date:\t2024-02-29"));
        QVERIFY(lines.contains("Start time:\t12:34:56"));
        const qsizetype title = titleIndex(lines);
        QCOMPARE(title, lines.size() - 2);
        QCOMPARE(lines.last().split('\t').size(), lines[title].split('\t').size());
        QVERIFY(lines.last().startsWith("12:34:56\t2024-02-29\t1709210096123\t100\t\t\t"));
        QVERIFY(lines.last().contains("\t4711\tTest_Time_\xC3\xA4"));
    }

    void recordCarriesItsDifferences()
    {
        const auto data = NvxWavTimeData::fromWavTestData(makeTiming(kTime, 5));
        QVERIFY(!data->sizeData() && !data->procTime());
        data->setSizeData(-7);
        data->setProcTime(1001);
        data->setComment("quiet");
        QCOMPARE(data->seqNum(), 5ULL);
        QCOMPARE(data->dataTime(), static_cast<unsigned long long>(kTime));
        QVERIFY(QByteArray::fromStdString(data->line()).contains("\t5\t-7\t1001\t"));
        QVERIFY(QByteArray::fromStdString(data->line()).endsWith("\tquiet"));
    }

    void rollsByItsRecords()
    {
        m_writer->currHeader()->setFname(L"roll");
        for (uint32_t i = 0; i < 7; ++i)
            QVERIFY(record(kTime + i, i));
        QCOMPARE(m_newFiles, (QStringList{m_dir->filePath("roll.txt"), m_dir->filePath("roll_2.txt"),
                                          m_dir->filePath("roll_3.txt")}));
        QCOMPARE(m_writer->numRecs(), 1);
        const QList<int> counts{3, 3, 1};
        for (int i = 0; i < 3; ++i) {
            const QList<QByteArray> lines = linesOf(m_newFiles[i]);
            QCOMPARE(lines.size() - titleIndex(lines) - 1, counts[i]);
        }
    }

    void noLimitNeverRolls()
    {
        m_writer->setMaxNumRecs(0);
        for (uint32_t i = 0; i < 50; ++i)
            QVERIFY(record(kTime + i, i));
        QCOMPARE(m_newFiles.size(), 1);
        QCOMPARE(m_writer->numRecs(), 50);
    }

    void dispatchedHeaderIsThatOfWhatFollows()
    {
        QVERIFY(record(kTime, 0));
        NvxSpectrumFileHeader header;
        header.setFname(L"Other ä");
        header.setClientName("Client\nwith a line break");
        header.setTypeMode(FftModeWavTime);
        QVERIFY(process(header));
        QCOMPARE(m_newFiles.size(), 1);
        QCOMPARE(m_writer->currHeader()->clientName(), header.clientName());
        QVERIFY(record(kTime, 1));
        QCOMPARE(m_newFiles.size(), 2);
        QCOMPARE(m_newFiles.last(), m_dir->filePath(QStringLiteral("Other ä.txt")));
        QVERIFY(linesOf(m_newFiles.last()).contains("Client:\tClient with a line break"));
    }

    void finishFileAndCloseFile()
    {
        m_writer->finishFile();
        m_writer->closeFile();
        QCOMPARE(m_writer->errorCode(), SpecErrNone);
        QVERIFY(record(kTime, 0));
        m_writer->finishFile();
        QCOMPARE(m_writer->numRecs(), 0);
        QVERIFY(record(kTime, 1));
        m_writer->closeFile();
        QVERIFY(record(kTime, 2));
        QCOMPARE(m_newFiles.size(), 3);
    }

    void settersAreKept()
    {
        QVERIFY(!m_writer->timeType());
        m_writer->setTimeType(true);
        QVERIFY(m_writer->timeType());
        m_writer->setUpdateRate(0.5F);
        QCOMPARE(m_writer->updateRate(), 0.5F);
        QVERIFY(QDir(m_dir->path()).mkdir("below"));
        m_writer->setlogPath(m_dir->filePath("below").toStdWString());
        QVERIFY(record(kTime, 0));
        QCOMPARE(QFileInfo(m_newFiles.first()).path(), m_dir->filePath("below"));
        SpecStreamEvent event(nullptr);
        event.setLogType(SensorLogBattery);
        QCOMPARE(event.logType(), SensorLogBattery);
    }

    void headerKeepsItsTexts()
    {
        NvxSpectrumFileHeader header;
        header.setComputerName("computer");
        header.setUserName("user");
        header.setJobName("job");
        header.setPersonnel("people");
        header.setFirmware("2.1");
        header.setDevModel("model");
        const QByteArray text = QByteArray::fromStdString(header.text());
        for (const char* line : {"Computer:\tcomputer\n", "User:\tuser\n", "Job:\tjob\n",
                                 "Personnel:\tpeople\n", "Firmware:\t2.1\n", "Model:\tmodel\n"})
            QVERIFY2(text.contains(line), line);
        QVERIFY((std::is_base_of_v<NvxSpectrumEventData, NvxSpectrumFileHeader>));
        QVERIFY((std::is_base_of_v<NvxComSpectrumEventData, NvxWavTimeData>));
        QVERIFY((std::is_base_of_v<NvxSpectrumEventData, NvxComSpectrumEventData>));
    }

    void modesHaveTheirNumbers()
    {
        const QList<int> modes{FftModeSpectrum, FftModeWavStats, FftModeImpulse, FftModeAccMag,
                               FftModeBattery,  FftModeWavTime,  FftModeClick,   FftModeNoise};
        QCOMPARE(modes, (QList<int>{0, 2, 4, 6, 7, 8, 9, 10}));
        QCOMPARE(int(SensorLogAccMag), 0);
        QCOMPARE(int(SensorLogBattery), 1);
    }

    // --- rainy day flows
    void foreignEventsAreTaken()
    {
        SpecStreamEvent empty(nullptr);
        m_writer->dispatch(&empty);
        QVERIFY(empty.isConsumed());
        class Other : public StateEvent
        {
        } other;
        m_writer->dispatch(&other);
        QCOMPARE(m_writer->errorCode(), SpecErrNone);
        QVERIFY(NvxWavTimeData::fromWavTestData(nullptr) == nullptr);
    }

    void directoryThatIsNotThere()
    {
        m_writer->setlogPath(L"/nowhere/at/all");
        QVERIFY(record(kTime, 0));
        QCOMPARE(m_writer->errorCode(), SpecErrCannotOpen);
        QVERIFY(m_newFiles.isEmpty());
        // The error stays, and everything is taken, until the file is finished.
        m_writer->setlogPath(m_dir->path().toStdWString());
        QVERIFY(record(kTime, 1));
        QCOMPARE(m_writer->errorCode(), SpecErrCannotOpen);
        m_writer->finishFile();
        QCOMPARE(m_writer->errorCode(), SpecErrNone);
        QVERIFY(record(kTime, 2));
        QCOMPARE(m_newFiles.size(), 1);
    }

    void fullDiskInTheHeaderLeavesNoFile_data()
    {
        QTest::addColumn<int>("room");
        for (int room : {0, 1, 50})
            QTest::addRow("%d bytes", room) << room;
        QTest::newRow("all but the last byte of the first record") << -1;
    }
    void fullDiskInTheHeaderLeavesNoFile()
    {
        QFETCH(int, room);
        QVERIFY(record(kTime, 0));
        const auto whole = QFileInfo(m_newFiles.first()).size();
        m_writer->finishFile();
        rlimit limits{};
        QCOMPARE(getrlimit(RLIMIT_FSIZE, &limits), 0);
        const rlimit full{rlim_t(room < 0 ? whole - 1 : room), limits.rlim_max};
        QCOMPARE(setrlimit(RLIMIT_FSIZE, &full), 0);
        const bool consumed = record(kTime + 1, 0);
        QCOMPARE(setrlimit(RLIMIT_FSIZE, &limits), 0);
        QVERIFY(consumed);
        QCOMPARE(m_writer->errorCode(), SpecErrDiskFull);
        QVERIFY(!m_writer->isNewFile());
        QCOMPARE(m_newFiles.size(), 1);
        QCOMPARE(QDir(m_dir->path()).entryList(QDir::Files).size(), 1);
        QCOMPARE(QFileInfo(m_newFiles.first()).size(), whole);
        // Once there is room again the next record has its file.
        m_writer->finishFile();
        QVERIFY(record(kTime + 2, 0));
        QCOMPARE(m_newFiles.size(), 2);
        QCOMPARE(QFileInfo(m_newFiles.last()).size(), whole);
    }

    void fullDiskLeavesWholeLines()
    {
        QVERIFY(record(kTime, 0));
        const auto before = QFileInfo(m_newFiles.first()).size();
        rlimit limits{};
        QCOMPARE(getrlimit(RLIMIT_FSIZE, &limits), 0);
        const rlimit full{rlim_t(before) + 10, limits.rlim_max};
        QCOMPARE(setrlimit(RLIMIT_FSIZE, &full), 0);
        const bool consumed = record(kTime, 1);
        QCOMPARE(setrlimit(RLIMIT_FSIZE, &limits), 0);
        QVERIFY(consumed);
        QCOMPARE(m_writer->errorCode(), SpecErrDiskFull);
        QCOMPARE(QFileInfo(m_newFiles.first()).size(), before);
    }

    void failedWrite_data()
    {
        QTest::addColumn<QString>("device");
        QTest::addColumn<int>("mode");
        QTest::addColumn<int>("error");
        // A file that may only be read refuses each write.
        QTest::newRow("of a disk that answers no more")
            << QStringLiteral("/dev/null") << int(O_RDONLY) << int(SpecErrWriteFailed);
        QTest::newRow("on a full disk")
            << QStringLiteral("/dev/full") << int(O_WRONLY) << int(SpecErrDiskFull);
    }
    void failedWrite()
    {
        QFETCH(QString, device);
        QFETCH(int, mode);
        QFETCH(int, error);
        QVERIFY(record(kTime, 0));
        const auto before = QFileInfo(m_newFiles.first()).size();
        QVERIFY(swapOpenFile(m_newFiles.first(), qPrintable(device), mode));
        QVERIFY(record(kTime, 1));
        QCOMPARE(int(m_writer->errorCode()), error);
        QCOMPARE(descriptorOf(m_newFiles.first()), -1);
        QCOMPARE(QFileInfo(m_newFiles.first()).size(), before);
    }

private:
    bool process(NvxSpectrumEventData& data)
    {
        SpecStreamEvent event(&data);
        for (int i = 0; i < 10 && !event.isConsumed(); ++i) {
            m_writer->dispatch(&event);
            if (m_writer->isNewFile())
                m_newFiles.append(QString::fromStdWString(m_writer->outputFileName()));
        }
        return event.isConsumed();
    }
    bool record(uint32_t time, uint64_t sequence)
    {
        const auto data = NvxWavTimeData::fromWavTestData(makeTiming(time, sequence));
        return process(*data);
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<NvxSpecWriter> m_writer;
    QStringList m_newFiles;
};

QTEST_GUILESS_MAIN(tst_NvxSpecWriter)
#include "tst_NvxSpecWriter.moc"
