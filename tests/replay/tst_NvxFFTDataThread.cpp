#include "NvxQtCommon/contract/stream/FftParams.h"
#include "NvxQtCommon/replay/NvxFFTDataThread.h"
#include "NvxQtCommon/replay/NvxFFTFile.h"
#include "NvxQtCommon/settings/CSignalPowerSettings.h"
#include "SpectrumFileText.h"
#include "tests/support/FftParamsGuard.h"
#include "tests/support/NvxTestCase.h"

#include <QEventLoop>
#include <QPointer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTimer>

#include <cmath>
#include <memory>

namespace {

const HydDeviceId kDevice(DevTypeSpecFile, 42);
constexpr uint32_t kTime = 1709210096;

using HeaderPtr = std::shared_ptr<HydStreamEventHeaderPayload>;
using DataPtr = std::shared_ptr<HydStreamDataPayload>;

QByteArray bytesOf(const QList<QVariant>& dataArguments)
{
    const DataPtr payload = dataArguments[0].value<DataPtr>();
    return QByteArray(reinterpret_cast<const char*>(payload->data()->bytes().get()),
                      payload->data()->numSamples());
}

} // namespace

/// The replay of a spectrum file, record by record.
class tst_NvxFFTDataThread : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    // --- happy flows
    void signalsComeInTheirOrder();
    void headersOfEachRecord();
    void devicesOfEachRecord();
    void spectraOfEachRecord();
    void totalPower_data();
    void totalPower();
    void theFirstTickIsLostToTheTitles();
    void powerSettingsOfAReplay();
    void theFileGoesOnWhereItPaused();
    void playsAgainFromTheBeginning();
    void aPeriodOf0LeavesHalfASecond();

    // --- rainy day flows
    void linesThatAreNoRecordsCostATick();
    void aLastLineWithoutItsEndCounts();
    void theFileIsGone_data();
    void theFileIsGone();
    void theFileShrinks();
    void aLineWithoutEndEndsTheReplay();
    void withoutAHeaderNothingIsSent();
    void ticksWithoutAHeader();
    void withoutPreparation();
    void valuesBeyondTheChunks();
    void resumedBeforeTheFileIsOpen();
    void deletedByASlot_data();
    void deletedByASlot();
    void theReaderGoesWhileASlotRunsAnEventLoop();
    void aSlotRunsAnEventLoop();
    void aSlotBeginsAnew();

private:
    bool prepare();
    /// Plays to the end.
    bool play();
    QString path() const { return m_dir->filePath(QStringLiteral("spectra.txt")); }

    FftParamsGuard m_params;
    std::unique_ptr<QTemporaryDir> m_dir;
    SpectrumFileText m_text;
    std::unique_ptr<NvxFFTFile> m_file;
    std::unique_ptr<QSignalSpy> m_headers;
    std::unique_ptr<QSignalSpy> m_powers;
    std::unique_ptr<QSignalSpy> m_data;
    std::unique_ptr<QSignalSpy> m_finished;
};

void tst_NvxFFTDataThread::init()
{
    failOnUnexpectedWarnings();
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_text = SpectrumFileText();
    m_file = std::make_unique<NvxFFTFile>(path(), nullptr);
    m_headers = std::make_unique<QSignalSpy>(m_file.get(), &NvxDataFile::streamHeaderReady);
    m_powers = std::make_unique<QSignalSpy>(m_file.get(), &NvxDataFile::signalTotalPower);
    m_data = std::make_unique<QSignalSpy>(m_file.get(), &NvxDataFile::streamDataReady);
    m_finished = std::make_unique<QSignalSpy>(m_file.get(), &NvxDataFile::threadFinished);
}

void tst_NvxFFTDataThread::cleanup()
{
    const QPointer<NvxFFTDataThread> reader = m_file ? m_file->findChild<NvxFFTDataThread*>() : nullptr;
    m_file.reset();
    QTRY_VERIFY_WITH_TIMEOUT(reader.isNull(), 20000);
    m_params.restore();
}

bool tst_NvxFFTDataThread::prepare()
{
    if (!m_text.write(path()) || !m_file->headerPrepare(true))
        return false;
    m_file->setReplayVel(ReplayMax, 1);
    return true;
}

bool tst_NvxFFTDataThread::play()
{
    const qsizetype before = m_finished->size();
    return m_file->processData() && QTest::qWaitFor([&] { return m_finished->size() > before; }, 20000);
}

void tst_NvxFFTDataThread::signalsComeInTheirOrder()
{
    QVERIFY(prepare());
    QStringList order;
    const auto note = [&order](const QString& text) { order << text; };
    connect(m_file.get(), &NvxDataFile::streamFileStarted, this, [&](const QString& name, qint64 time) {
        QCOMPARE(name, path());
        note(QStringLiteral("started %1").arg(time));
    });
    connect(m_file.get(), &NvxDataFile::streamHeaderReady, this, [&] { note(QStringLiteral("header")); });
    connect(m_file.get(), &NvxDataFile::signalTotalPower, this, [&] { note(QStringLiteral("power")); });
    connect(m_file.get(), &NvxDataFile::streamDataReady, this, [&] { note(QStringLiteral("data")); });
    connect(m_file.get(), &NvxDataFile::streamFileFinished, this,
            [&](qint64 time) { note(QStringLiteral("finished %1").arg(time)); });
    connect(m_file.get(), &NvxDataFile::threadFinished, this, [&] { note(QStringLiteral("thread")); });
    // A spectrum replay sends neither.
    connect(m_file.get(), &NvxDataFile::signalDeviceReady, this, [&] { note(QStringLiteral("device")); });
    connect(m_file.get(), &NvxDataFile::streamNotify, this, [&] { note(QStringLiteral("notify")); });
    QVERIFY(play());
    QCOMPARE(
        order.join(u' '),
        QStringLiteral("started 1709210096 header power data header power data finished 1709210097 thread"));
}

void tst_NvxFFTDataThread::headersOfEachRecord()
{
    m_text.sensitivity = "-170.4";
    QVERIFY(prepare());
    QVERIFY(play());
    QCOMPARE(m_headers->size(), 2);
    for (int record = 0; record < 2; ++record) {
        const HeaderPtr header = m_headers->at(record)[0].value<HeaderPtr>();
        QCOMPARE(m_headers->at(record)[1].value<HydDeviceId>(), kDevice);
        QCOMPARE(header->streamType, StreamSpectrum);
        QCOMPARE(header->eventKey()->time(), kTime + static_cast<uint32_t>(record));
        // The start of the file, in both: intended.
        QCOMPARE(header->eventKey()->sequence(), int64_t{5000000001});
        QCOMPARE(header->deviceInfoChunks().size(), size_t{1});
        const auto device = header->deviceInfoChunks().front();
        QCOMPARE(device->devType(), DevTypeRecorderA);
        QCOMPARE(device->serialNo(), uint16_t{42});
        // -170.4 in single precision lies a little above: intended.
        QCOMPARE(device->sensitivity(), int16_t{-1703});
        const auto setup = header->streamSetupChunk()->fftSetup();
        QVERIFY(setup);
        QCOMPARE(setup->sampleRate(), 48000U);
        QCOMPARE(setup->points(), uint16_t{1024});
        QCOMPARE(setup->pointsBtw(), uint16_t{512});
        QCOMPARE(setup->accum(), uint16_t{20});
        QCOMPARE(setup->procType(), uint16_t{3});
        QCOMPARE(setup->refLevel(), int16_t{-180});
        QCOMPARE(header->streamStatusChunks().size(), size_t{1});
        const auto status = header->streamStatusChunks().front();
        QCOMPARE(status->temperature(), int16_t(record == 0 ? 12 : 0));
        QCOMPARE(status->humidity(), int16_t(record == 0 ? 45 : 46));
        QVERIFY(header->amplScalingChunks().empty());
        QVERIFY(!header->isArray());
        QVERIFY(!header->isAdjacent());
    }
}

void tst_NvxFFTDataThread::devicesOfEachRecord()
{
    QVERIFY(prepare());
    QVERIFY(play());
    const auto first = m_headers->at(0)[2].value<std::shared_ptr<HydDevice>>();
    const auto second = m_headers->at(1)[2].value<std::shared_ptr<HydDevice>>();
    QVERIFY(first != second);
    QCOMPARE(first->serial(), uint16_t{42});
    QCOMPARE(first->devType(), DevTypeRecorderA);
    QCOMPARE(first->firmwareVer(), std::string("Firm 1.2"));
    QCOMPARE(first->firmwareRel(), std::string("Firm 1.2"));
    QCOMPARE(first->sensitivity(), -170.0F);
    QCOMPARE(first->temperature(), 12.9F);
    QCOMPARE(first->humidity(), 45.9F);
    QCOMPARE(second->temperature(), -0.9F);
    const JobTagMap& tags = first->jobSettings().map();
    QCOMPARE(tags.size(), size_t{3});
    QCOMPARE(tags.at(JobTagKey(2))->number(), int64_t{48000});
    QCOMPARE(tags.at(JobTagKey(14))->number(), int64_t{48000});
    QCOMPARE(tags.at(JobTagKey(7))->number(), int64_t{20});
}

void tst_NvxFFTDataThread::spectraOfEachRecord()
{
    m_text.lines << "12:34:58\t\t1\t2\t3\t0.25\t254.5\t-3\n";
    QVERIFY(prepare());
    QVERIFY(play());
    QCOMPARE(m_data->size(), 3);
    QCOMPARE(bytesOf(m_data->at(0)), QByteArray("\x0A\x14\x1E"));
    QCOMPARE(bytesOf(m_data->at(1)), QByteArray("\x28\x32\x3C"));
    QCOMPARE(bytesOf(m_data->at(2)), QByteArray("\0\xFF\0", 3));
    for (int record = 0; record < 3; ++record) {
        const DataPtr data = m_data->at(record)[0].value<DataPtr>();
        QCOMPARE(m_data->at(record)[1].value<HydDeviceId>(), kDevice);
        QCOMPARE(data->streamType, StreamSpectrum);
        QCOMPARE(data->eventKey()->time(), kTime + static_cast<uint32_t>(record));
        QCOMPARE(data->eventKey()->sequence(), int64_t{5000000001});
        QCOMPARE(data->data()->sampleNum(), 0U);
        QCOMPARE(data->data()->numChannels(), uint8_t{1});
        QCOMPARE(data->data()->sampleFormat(), uint8_t{131});
        QVERIFY(!data->isLastEvent());
        QVERIFY(!data->isNoiseFiltered());
    }
    QCOMPARE(m_file->curTime(), qint64{kTime} + 2);
}

void tst_NvxFFTDataThread::totalPower_data()
{
    QTest::addColumn<QByteArray>("refLevel");
    QTest::addColumn<int>("minFreq");
    QTest::addColumn<int>("maxFreq");
    QTest::addColumn<int>("numBins");
    QTest::addColumn<double>("level");

    // Bins of 10, 20 and 30 dB, 46.875 Hz apart, above refLevel + 170 dB.
    const double all = 10 * std::log10(10.0 + 100.0 + 1000.0);
    QTest::newRow("all bins") << QByteArray("-170") << 0 << 24000 << 512 << all;
    QTest::newRow("above a level") << QByteArray("-180") << 0 << 24000 << 512 << all - 10.0;
    QTest::newRow("without the first")
        << QByteArray("-170") << 50 << 24000 << 512 << 10 * std::log10(100.0 + 1000.0);
    QTest::newRow("without the last")
        << QByteArray("-170") << 0 << 50 << 512 << 10 * std::log10(10.0 + 100.0);
    QTest::newRow("two bins of a device")
        << QByteArray("-170") << 0 << 24000 << 2 << 10 * std::log10(10.0 + 100.0);
    QTest::newRow("no bins of a device") << QByteArray("-170") << 0 << 24000 << 0 << 0.0;
    QTest::newRow("behind the last bin") << QByteArray("-170") << 1000 << 24000 << 512 << 0.0;
    QTest::newRow("silence") << QByteArray("-400") << 0 << 24000 << 512 << 0.0;
    QTest::newRow("a little above silence") << QByteArray("-285") << 0 << 24000 << 512 << all - 115.0;
}

void tst_NvxFFTDataThread::totalPower()
{
    QFETCH(QByteArray, refLevel);
    QFETCH(int, minFreq);
    QFETCH(int, maxFreq);
    QFETCH(int, numBins);
    QFETCH(double, level);
    CSignalPowerSettings range;
    range.setRates(48000, 48000, true);
    range.setMinFreqFFT(minFreq);
    range.setMaxFreqFFT(maxFreq);
    FFT_Params_FFT.setNumBins(static_cast<uint32_t>(numBins));
    m_text.refLevel = refLevel;
    QVERIFY(prepare());
    QVERIFY(m_file->processData());
    m_file->setSignalPowerSet(range);
    QTRY_COMPARE_WITH_TIMEOUT(m_finished->size(), 1, 20000);
    QCOMPARE(m_powers->at(0)[0].value<HydDeviceId>(), kDevice);
    const double value = m_powers->at(0)[1].toDouble();
    // Exactly 0, or the level.
    QVERIFY2(level == 0.0 ? value == 0.0 : std::abs(value - level) < 1e-9,
             qPrintable(QString::number(value)));
}

void tst_NvxFFTDataThread::theFirstTickIsLostToTheTitles()
{
    // No tick comes by itself.
    m_text.accums = "4000";
    QVERIFY(prepare());
    m_file->setReplayVel(ReplayNormal, 1);
    QVERIFY(m_file->timerTime() > 20000);
    QVERIFY(m_file->processData());
    auto* const reader = m_file->findChild<NvxFFTDataThread*>();
    QTRY_VERIFY_WITH_TIMEOUT(reader->findChild<QTimer*>()->isActive(), 20000);
    m_file->processPause();
    reader->readRecord();
    QCOMPARE(m_headers->size(), 0);
    reader->readRecord();
    QCOMPARE(m_headers->size(), 1);
    QCOMPARE(reader->fileDate()->dataTime(), uint64_t{kTime});
    QCOMPARE(reader->fileHeader(), m_file->fileHeader());
    reader->readRecord();
    QCOMPARE(m_headers->size(), 2);
    QVERIFY(m_finished->isEmpty());
    reader->readRecord();
    QCOMPARE(m_headers->size(), 2);
    QTRY_COMPARE_WITH_TIMEOUT(m_finished->size(), 1, 20000);
}

void tst_NvxFFTDataThread::powerSettingsOfAReplay()
{
    CSignalPowerSettings range;
    range.setRates(48000, 48000, true);
    range.setMinFreqFFT(20000);
    QVERIFY(prepare());
    // Without a replay they are nobody's.
    m_file->setSignalPowerSet(range);
    QVERIFY(play());
    QVERIFY(m_powers->at(0)[1].toDouble() > 0.0);
    m_powers->clear();
    // A slot may set them for the record whose header it has.
    connect(m_file.get(), &NvxDataFile::streamHeaderReady, this, [&] {
        if (m_headers->size() == 4)
            m_file->setSignalPowerSet(range);
    });
    QVERIFY(play());
    QVERIFY(m_powers->at(0)[1].toDouble() > 0.0);
    QCOMPARE(m_powers->at(1)[1].toDouble(), 0.0);
    // The next replay begins with all bins.
    m_powers->clear();
    QVERIFY(play());
    QVERIFY(m_powers->at(0)[1].toDouble() > 0.0);
    QVERIFY(m_powers->at(1)[1].toDouble() > 0.0);
}

void tst_NvxFFTDataThread::theFileGoesOnWhereItPaused()
{
    QVERIFY(prepare());
    connect(m_file.get(), &NvxDataFile::streamDataReady, this, [&] { m_file->processPause(); });
    QVERIFY(m_file->processData());
    QTRY_COMPARE_WITH_TIMEOUT(m_data->size(), 1, 20000);
    m_file->processResume();
    QTRY_COMPARE_WITH_TIMEOUT(m_data->size(), 2, 20000);
    QCOMPARE(bytesOf(m_data->at(1)), QByteArray("\x28\x32\x3C"));
    m_file->processResume();
    QTRY_COMPARE_WITH_TIMEOUT(m_finished->size(), 1, 20000);
}

void tst_NvxFFTDataThread::playsAgainFromTheBeginning()
{
    QVERIFY(prepare());
    QVERIFY(play());
    QVERIFY(play());
    QCOMPARE(m_data->size(), 4);
    QCOMPARE(bytesOf(m_data->at(2)), bytesOf(m_data->at(0)));
}

void tst_NvxFFTDataThread::aPeriodOf0LeavesHalfASecond()
{
    m_text.accums = "1";
    QVERIFY(prepare());
    m_file->setReplayVel(ReplayNormal, 1);
    QCOMPARE(m_file->timerTime(), 0);
    QVERIFY(m_file->processData());
    // A fresh timer has the interval 0 already: intended.
    QCOMPARE(m_file->findChild<NvxDataThread*>()->timerTime(), 500);
}

void tst_NvxFFTDataThread::linesThatAreNoRecordsCostATick()
{
    m_text.lines = {m_text.lines[0], "\n",           "nothing\n", "2024-02-29 12:34:57\t\t1\t2\t3\tnan\n",
                    m_text.titles,   m_text.lines[1]};
    // No tick comes by itself.
    m_text.accums = "4000";
    QVERIFY(prepare());
    m_file->setReplayVel(ReplayNormal, 1);
    QVERIFY(m_file->timerTime() > 20000);
    QVERIFY(m_file->processData());
    auto* const reader = m_file->findChild<NvxFFTDataThread*>();
    QTRY_VERIFY_WITH_TIMEOUT(reader->findChild<QTimer*>()->isActive(), 20000);
    m_file->processPause();
    QList<qsizetype> sizes;
    for (int tick = 0; tick < 7; ++tick) {
        reader->readRecord();
        sizes << m_data->size();
    }
    QCOMPARE(sizes, (QList<qsizetype>{0, 1, 1, 1, 1, 1, 2}));
}

void tst_NvxFFTDataThread::aLastLineWithoutItsEndCounts()
{
    m_text.lines[1].chop(1);
    QVERIFY(prepare());
    QVERIFY(play());
    QCOMPARE(m_data->size(), 2);
    QCOMPARE(bytesOf(m_data->at(1)), QByteArray("\x28\x32\x3C"));
}

void tst_NvxFFTDataThread::theFileIsGone_data()
{
    QTest::addColumn<bool>("isDirectory");

    QTest::newRow("gone") << false;
    QTest::newRow("a directory in its place") << true;
}

void tst_NvxFFTDataThread::theFileIsGone()
{
    QFETCH(bool, isDirectory);
    QVERIFY(prepare());
    QVERIFY(QFile::remove(path()));
    QVERIFY(!isDirectory || QDir().mkdir(path()));
    QVERIFY(play());
    QVERIFY(m_headers->isEmpty());
    QVERIFY(QFile::exists(path()) == isDirectory);
}

void tst_NvxFFTDataThread::theFileShrinks()
{
    for (int count = 0; count < 2000; ++count)
        m_text.lines << m_text.lines[1];
    QVERIFY(prepare());
    bool isCut = false;
    connect(m_file.get(), &NvxDataFile::streamDataReady, this, [&] {
        if (!isCut)
            isCut = QFile::resize(path(), 100);
    });
    QVERIFY(play());
    QVERIFY(isCut);
    // What the stream had read ahead still comes.
    QVERIFY(m_data->size() < 1000);
}

void tst_NvxFFTDataThread::aLineWithoutEndEndsTheReplay()
{
    const QByteArray last = m_text.lines[1];
    m_text.lines[1] = "2024-02-29 12:34:57\t" + QByteArray(3000000, 'x') + "\t1\t2\t3\t4\n";
    m_text.lines << last;
    QVERIFY(prepare());
    QVERIFY(play());
    QCOMPARE(m_data->size(), 1);
}

void tst_NvxFFTDataThread::withoutAHeaderNothingIsSent()
{
    QVERIFY(prepare());
    NvxFFTDataThread reader(path(), 0, nullptr);
    QSignalSpy headers(&reader, &NvxDataThread::streamHeaderReady);
    QVERIFY(reader.fileHeader() == nullptr);
    QVERIFY(reader.fileDate() != nullptr);
    reader.formSignalReady();
    QVERIFY(headers.isEmpty());
    reader.setFileHeader(m_file->fileHeader());
    reader.formSignalReady();
    QCOMPARE(headers.size(), 1);
}

void tst_NvxFFTDataThread::ticksWithoutAHeader()
{
    QVERIFY(prepare());
    const auto reader = std::make_unique<NvxFFTDataThread>(path(), m_text.header().size(), nullptr);
    QSignalSpy headers(reader.get(), &NvxDataThread::streamHeaderReady);
    QSignalSpy data(reader.get(), &NvxDataThread::streamDataReady);
    QSignalSpy ticks(reader->findChild<QTimer*>(), &QTimer::timeout);
    reader->setTimerTime(1);
    reader->start();
    QTRY_VERIFY_WITH_TIMEOUT(reader->isFinished(), 20000);
    // The titles, two records and the end.
    QVERIFY(ticks.size() >= 4);
    QVERIFY(headers.isEmpty() && data.isEmpty());
    QCOMPARE(reader->fileDate()->numBins(), 0);
}

void tst_NvxFFTDataThread::withoutPreparation()
{
    m_file->setReplayVel(ReplayMax, 1);
    QVERIFY(play());
    QVERIFY(m_headers->isEmpty());
    // A position that headerPrepare() gave for a file that it refused.
    QVERIFY(SpectrumFileText::writeBytes(path(), "nothing"));
    QVERIFY(!m_file->headerPrepare(true));
    QVERIFY(play());
    QVERIFY(m_headers->isEmpty());
}

void tst_NvxFFTDataThread::valuesBeyondTheChunks()
{
    m_text.sensitivity = "3e38";
    m_text.points = "65537";
    m_text.accums = "4294967295";
    m_text.lines = {"9999-12-31 23:59:59\t\t-3e38\t3e38\t3\t1\n"};
    QVERIFY(prepare());
    QVERIFY(play());
    QCOMPARE(m_headers->size(), 1);
    const HeaderPtr header = m_headers->at(0)[0].value<HeaderPtr>();
    QCOMPARE(header->streamSetupChunk()->fftSetup()->points(), uint16_t{1});
    QCOMPARE(header->streamSetupChunk()->fftSetup()->accum(), uint16_t{65535});
    QCOMPARE(m_powers->at(0)[1].toDouble(), 0.0);
}

void tst_NvxFFTDataThread::resumedBeforeTheFileIsOpen()
{
    for (int times = 0; times < 20; ++times) {
        QVERIFY(prepare());
        QVERIFY(m_file->processData());
        m_file->processResume();
        auto* const reader = m_file->findChild<NvxFFTDataThread*>();
        reader->readRecord();
        QTRY_COMPARE_WITH_TIMEOUT(m_finished->size(), times + 1, 20000);
        QCOMPARE(m_data->size(), 2 * (times + 1));
    }
}

void tst_NvxFFTDataThread::deletedByASlot_data()
{
    QTest::addColumn<int>("signal");

    QTest::newRow("started") << 0;
    QTest::newRow("header") << 1;
    QTest::newRow("power") << 2;
    QTest::newRow("data") << 3;
    QTest::newRow("finished") << 4;
}

void tst_NvxFFTDataThread::deletedByASlot()
{
    QFETCH(int, signal);
    QVERIFY(prepare());
    const auto drop = [this] { m_file.reset(); };
    if (signal == 0)
        connect(m_file.get(), &NvxDataFile::streamFileStarted, this, drop);
    else if (signal == 1)
        connect(m_file.get(), &NvxDataFile::streamHeaderReady, this, drop);
    else if (signal == 2)
        connect(m_file.get(), &NvxDataFile::signalTotalPower, this, drop);
    else if (signal == 3)
        connect(m_file.get(), &NvxDataFile::streamDataReady, this, drop);
    else
        connect(m_file.get(), &NvxDataFile::streamFileFinished, this, drop);
    m_file->processData();
    QTRY_VERIFY_WITH_TIMEOUT(m_file == nullptr, 20000);
    QCOMPARE(m_headers->size(), std::min(signal, 1) + (signal == 4 ? 1 : 0));
    QCOMPARE(m_data->size(), signal == 4 ? 2 : signal == 3 ? 1 : 0);
    QVERIFY(m_finished->isEmpty());
}

void tst_NvxFFTDataThread::theReaderGoesWhileASlotRunsAnEventLoop()
{
    QVERIFY(prepare());
    connect(m_file.get(), &NvxDataFile::streamHeaderReady, this, [&] {
        QEventLoop loop;
        connect(m_file->findChild<NvxFFTDataThread*>(), &QObject::destroyed, &loop, &QEventLoop::quit);
        m_file->processStop();
        loop.exec();
    });
    QVERIFY(play());
    QCOMPARE(m_headers->size(), 1);
    QVERIFY(m_powers->isEmpty());
    QVERIFY(m_data->isEmpty());
}

void tst_NvxFFTDataThread::aSlotRunsAnEventLoop()
{
    QVERIFY(prepare());
    QStringList order;
    connect(m_file.get(), &NvxDataFile::streamHeaderReady, this, [&] {
        order << QStringLiteral("header");
        // A timer that is set anew ticks in the loop, too; those ticks are nobody's.
        m_file->processPause();
        m_file->processResume();
        QEventLoop loop;
        int ticks = 0;
        connect(m_file->findChild<NvxFFTDataThread*>()->findChild<QTimer*>(), &QTimer::timeout, &loop, [&] {
            if (++ticks == 3)
                loop.quit();
        });
        loop.exec();
    });
    connect(m_file.get(), &NvxDataFile::signalTotalPower, this, [&] { order << QStringLiteral("power"); });
    connect(m_file.get(), &NvxDataFile::streamDataReady, this, [&] { order << QStringLiteral("data"); });
    QVERIFY(play());
    QCOMPARE(order.join(u' '), QStringLiteral("header power data header power data"));
    QCOMPARE(bytesOf(m_data->at(1)), QByteArray("\x28\x32\x3C"));
}

void tst_NvxFFTDataThread::aSlotBeginsAnew()
{
    QVERIFY(prepare());
    bool again = true;
    connect(m_file.get(), &NvxDataFile::streamHeaderReady, this, [&] {
        if (std::exchange(again, false))
            m_file->processData();
    });
    QVERIFY(m_file->processData());
    QTRY_COMPARE_WITH_TIMEOUT(m_finished->size(), 1, 20000);
    // Nothing more of the first one.
    QCOMPARE(m_headers->size(), 3);
    QCOMPARE(m_data->size(), 2);
}

QTEST_GUILESS_MAIN(tst_NvxFFTDataThread)
#include "tst_NvxFFTDataThread.moc"
