#include "LogStream.h"
#include "WavJudge.h"

#include "NvxQtCommon/logging/NvxWavLogger.h"
#include "tests/support/Buried.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QTemporaryDir>

#include <functional>

namespace {

constexpr uint32_t kTime = 1709210400; // 2024-02-29 12:40:00 UTC
const HydDeviceId kDeviceId(DevTypeRecorderA, 42);

using BuriedLogger = Buried<NvxWavLogger>;
using Connect = std::function<void(NvxWavLogger*, const std::function<void()>&)>;

template <class Signal> Connect under(Signal signal)
{
    return [signal](NvxWavLogger* logger, const std::function<void()>& slot) {
        QObject::connect(logger, signal, logger, [slot] { slot(); });
    };
}

} // namespace

Q_DECLARE_METATYPE(Connect)

/// A slot may delete the logger directly, under any of its signals.
class tst_NvxWavLoggerDeletion : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- rainy day flows
    void deletedByASlot_data()
    {
        QTest::addColumn<Connect>("connectSlot");
        QTest::addColumn<int>("channels");
        QTest::addColumn<bool>("timing");
        QTest::addColumn<bool>("badFormat"); // of the block behind the header
        QTest::addColumn<QStringList>("files");
        const QStringList none;
        const QStringList wave{QStringLiteral("ABC0042_20240229_124000.wav")};
        const QStringList times{QStringLiteral("Time_20240229_124000.txt")};
        const auto newFile = under(&NvxWavLogger::newFileCreated);
        const auto dataTime = under(&NvxWavLogger::dataTime);
        const auto progress = under(&NvxWavLogger::logProgress);
        const auto failed = under(&NvxWavLogger::loggingFailed);
        const auto stopped = under(&NvxWavLogger::loggingStopped);
        QTest::newRow("dataTime of a recorder") << dataTime << 1 << false << false << none;
        QTest::newRow("dataTime of an array") << dataTime << 2 << false << false << none;
        QTest::newRow("newFileCreated of a recorder") << newFile << 1 << false << false << wave;
        QTest::newRow("newFileCreated of an array") << newFile << 2 << false << false << wave;
        QTest::newRow("newFileCreated in timing mode") << newFile << 1 << true << false << times;
        QTest::newRow("testDataReady") << under(&NvxWavLogger::testDataReady) << 1 << true << false << none;
        QTest::newRow("logProgress") << progress << 1 << false << false << wave;
        QTest::newRow("loggingFailed") << failed << 1 << false << true << wave;
        QTest::newRow("loggingStopped after a failure") << stopped << 1 << false << true << wave;
    }
    void deletedByASlot()
    {
        QFETCH(Connect, connectSlot);
        QFETCH(int, channels);
        QFETCH(bool, timing);
        QFETCH(bool, badFormat);
        QFETCH(QStringList, files);
        QTemporaryDir dir;
        LogStream stream;
        stream.channels = static_cast<uint8_t>(channels);
        auto* logger = new BuriedLogger(600, dir.path(), QStringLiteral("ABC0042"));
        logger->setWavTimeLog(timing ? LogOn : LogOff);
        const LogSpy log;
        int calls = 0;
        connectSlot(logger, [logger, &calls] {
            ++calls;
            delete logger;
        });

        logger->handleWavEventHdr(stream.header(kTime, 0), kDeviceId, makeLogDevice());
        if (!BuriedLogger::isGone()) {
            if (badFormat)
                stream.bits = 24;
            logger->handleWavData(stream.block(kTime, 0, 0, 100));
        }
        QVERIFY(BuriedLogger::isGone());
        QVERIFY(BuriedLogger::isUntouched());
        QCOMPARE(log.lines(), QStringList());
        QCOMPARE(calls, 1);
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files), files);
        if (files.contains(QStringLiteral("ABC0042_20240229_124000.wav")))
            QCOMPARE(wholeFileObjection(dir.filePath(files.first())), QString());
    }

    void deletedAtAHeaderThatFails()
    {
        // The info event opens nothing, the setup event fails: the error comes in the header's second half.
        auto* logger = new BuriedLogger(600, QStringLiteral("/nowhere/at/all"), QStringLiteral("ABC0042"));
        connect(logger, &NvxWavLogger::loggingFailed, logger, [logger] { delete logger; });
        LogStream stream;
        logger->handleWavEventHdr(stream.header(kTime, 0), kDeviceId, makeLogDevice());
        QVERIFY(BuriedLogger::isGone());
        QVERIFY(BuriedLogger::isUntouched());
    }

    void deletedWhenARollFails()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("gone"));
        QVERIFY(QDir().mkdir(path));
        auto* logger = new BuriedLogger(600, path, QStringLiteral("ABC0042"));
        connect(logger, &NvxWavLogger::loggingFailed, logger, [logger] { delete logger; });
        LogStream stream;
        logger->handleWavEventHdr(stream.header(kTime, 0), kDeviceId, makeLogDevice());
        logger->handleWavData(stream.block(kTime, 0, 0, 100));
        QVERIFY(QDir(path).removeRecursively());
        logger->handleWavData(stream.block(kTime + 600, 0, 0, 100));
        QVERIFY(BuriedLogger::isGone());
        QVERIFY(BuriedLogger::isUntouched());
    }

    void deletedByStopLogging()
    {
        QTemporaryDir dir;
        auto* logger = new BuriedLogger(600, dir.path(), QStringLiteral("ABC0042"));
        connect(logger, &NvxWavLogger::loggingStopped, logger, [logger] { delete logger; });
        logger->stopLogging();
        QVERIFY(BuriedLogger::isGone());
        QVERIFY(BuriedLogger::isUntouched());
    }
};

QTEST_GUILESS_MAIN(tst_NvxWavLoggerDeletion)
#include "tst_NvxWavLoggerDeletion.moc"
