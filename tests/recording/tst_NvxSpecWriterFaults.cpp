#include "FileSwap.h"
#include "SpecWriterCase.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

/// What a spectrum writer does when something fails.
class tst_NvxSpecWriterFaults : public SpecWriterCase
{
    Q_OBJECT

private Q_SLOTS:
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
        QVERIFY(files().isEmpty());
    }

    void changeEndsANoiseFileWithALine_data()
    {
        QTest::addColumn<int>("field");
        QTest::newRow("rate") << 1;
        QTest::newRow("points") << 2;
        QTest::newRow("accumulations") << 3;
        QTest::newRow("bins") << 4;
    }
    void changeEndsANoiseFileWithALine()
    {
        QFETCH(int, field);
        header(kTime, L"F_CAL_42_DEV", 0, FftModeNoise);
        spectrum(kTime);
        m_stream.rate += field == 1 ? 1U : 0U;
        m_stream.points = static_cast<uint16_t>(m_stream.points + (field == 2 ? 1 : 0));
        m_stream.accum = static_cast<uint16_t>(m_stream.accum + (field == 3 ? 1 : 0));
        header(kTime, L"F_CAL_42_DEV", 0, FftModeNoise);
        QTest::ignoreMessage(
            QtWarningMsg, QRegularExpression("The parameters of the noise spectra changed, the file ends: .*"
                                             "F_CAL_42_DEV.txt"));
        const std::vector<uint8_t> bins(field == 4 ? 5 : 4, uint8_t{9});
        const auto record = NvxSpectrumFileData::fromStreamData(*m_stream.spectrum(kTime, 0, 0, bins));
        process(*record);
        QCOMPARE(SpectrumText::of(path("F_CAL_42_DEV.txt")).records.first().mid(5),
                 (QList<QByteArray>{"1", "2", "3", "4"}));
        m_writer->finishFile();
        QCOMPARE(SpectrumText::of(path("F_CAL_42_DEV.txt")).records.first().value(5), QByteArray("9"));
    }

    void headerDuringAnErrorIsKept()
    {
        m_writer->setlogPath(L"/nowhere/at/all");
        header(kTime, L"Before");
        spectrum(kTime);
        m_stream.rate = 96000;
        header(kTime, L"After");
        m_writer->finishFile();
        m_writer->setlogPath(m_dir->path().toStdWString());
        spectrum(kTime);
        QCOMPARE(m_newFiles, QStringList{path("After.txt")});
        QCOMPARE(SpectrumText::of(path("After.txt")).entry("Sample rate (Hz)"), QByteArray("96000"));
    }

    void directoryThatIsNotThere()
    {
        m_writer->setlogPath(L"/nowhere/at/all");
        header(kTime, L"Spec");
        spectrum(kTime);
        QCOMPARE(m_writer->errorCode(), SpecErrCannotOpen);
        QVERIFY(m_newFiles.isEmpty());
        // The error stays, and everything is taken, until the file is finished.
        m_writer->setlogPath(m_dir->path().toStdWString());
        spectrum(kTime);
        m_writer->closeFile();
        QCOMPARE(m_writer->errorCode(), SpecErrCannotOpen);
        m_writer->finishFile();
        QCOMPARE(m_writer->errorCode(), SpecErrNone);
        spectrum(kTime);
        QCOMPARE(m_newFiles.size(), 1);
    }

    void directoryThatIsRemoved_data()
    {
        QTest::addColumn<int>("mode");
        QTest::newRow("spectra") << int(FftModeSpectrum);
        QTest::newRow("noise") << int(FftModeNoise);
    }
    void directoryThatIsRemoved()
    {
        QFETCH(int, mode);
        QVERIFY(QDir(m_dir->path()).mkdir("below"));
        m_writer->setlogPath(path("below").toStdWString());
        header(kTime, L"F_CAL_42_DEV", 0, FFTMode(mode));
        spectrum(kTime);
        QVERIFY(QDir(path("below")).removeRecursively());
        spectrum(kTime);
        QCOMPARE(m_writer->errorCode(), SpecErrNone);
        QCOMPARE(m_writer->numRecs(), 2);
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression("A file could not be completed: .*F_CAL_42_DEV.*"));
        m_writer->closeFile();
        QCOMPARE(m_writer->errorCode(), SpecErrWriteFailed);
        QCOMPARE(m_writer->numRecs(), 0);
    }

    void fullDiskLeavesWholeLines()
    {
        header(kTime, L"Spec");
        spectrum(kTime);
        const auto before = QFileInfo(m_newFiles.first()).size();
        QVERIFY(underLimit(static_cast<rlim_t>(before) + 10, [this] { spectrum(kTime); }));
        QCOMPARE(m_writer->errorCode(), SpecErrDiskFull);
        QCOMPARE(m_writer->numRecs(), 0);
        QCOMPARE(QFileInfo(m_newFiles.first()).size(), before);
        QCOMPARE(m_newFiles.size(), 1);
    }

    void fullDiskLeavesNoFileWithoutARecord_data()
    {
        QTest::addColumn<int>("room");
        for (int room : {0, 1, 50})
            QTest::addRow("%d bytes", room) << room;
        QTest::newRow("all but the last byte of the first record") << -1;
    }
    void fullDiskLeavesNoFileWithoutARecord()
    {
        QFETCH(int, room);
        header(kTime, L"Spec");
        spectrum(kTime);
        const auto whole = QFileInfo(m_newFiles.first()).size();
        m_writer->finishFile();
        header(kTime, L"Next");
        QVERIFY(underLimit(static_cast<rlim_t>(room < 0 ? whole - 1 : room), [this] { spectrum(kTime); }));
        QCOMPARE(m_writer->errorCode(), SpecErrDiskFull);
        QVERIFY(!m_writer->isNewFile());
        QCOMPARE(m_newFiles.size(), 1);
        QCOMPARE(files(), QStringList{"Spec.txt"});
        QCOMPARE(QFileInfo(m_newFiles.first()).size(), whole);
        // Once there is room again the next record has its file.
        m_writer->finishFile();
        spectrum(kTime);
        QCOMPARE(QFileInfo(path("Next.txt")).size(), whole);
    }

    void fullDiskKeepsTheOldNoiseFile()
    {
        QFile old(path("F_CAL_42_DEV.txt"));
        QVERIFY(old.open(QIODevice::WriteOnly) && old.write("old") == 3);
        old.close();
        header(kTime, L"F_CAL_42_DEV", 0, FftModeNoise);
        spectrum(kTime);
        const auto before = QFileInfo(path("F_CAL_42_DEV.txt.part")).size();
        QVERIFY(before > 0);
        QVERIFY(underLimit(static_cast<rlim_t>(before) + 10, [this] { spectrum(kTime); }));
        m_writer->finishFile();
        QVERIFY(old.open(QIODevice::ReadOnly));
        QCOMPARE(old.readAll(), QByteArray("old"));
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
        header(kTime, L"Spec");
        spectrum(kTime);
        const auto before = QFileInfo(m_newFiles.first()).size();
        const int descriptor = descriptorOf(m_newFiles.first());
        QVERIFY(isOpenDescriptor(descriptor));
        QVERIFY(swapOpenFile(m_newFiles.first(), qPrintable(device), mode));
        spectrum(kTime);
        QCOMPARE(int(m_writer->errorCode()), error);
        QVERIFY(!isOpenDescriptor(descriptor));
        QCOMPARE(QFileInfo(m_newFiles.first()).size(), before);
    }
};

QTEST_GUILESS_MAIN(tst_NvxSpecWriterFaults)
#include "tst_NvxSpecWriterFaults.moc"
