// A queued connection by name to an NvxWavLogger, in a process where nothing else makes its types known.
#include "LogStream.h"

#include "NvxQtCommon/logging/NvxWavLogger.h"
#include "tests/support/NvxTestCase.h"

#include <QTemporaryDir>

class NamedReceiver : public QObject
{
    Q_OBJECT

public:
    QList<unsigned> m_serials;

public Q_SLOTS:
    void takeTiming(NvxWavTestInfoData data) { m_serials << data.serialNo; }
};

class tst_NvxWavLoggerByName : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows

    void timingRecordArrivesByName()
    {
        QTemporaryDir dir;
        NvxWavLogger logger(600, dir.path(), QStringLiteral("ABC0042"));
        logger.setWavTimeLog(LogOn);
        NamedReceiver receiver;
        QVERIFY(connect(&logger, SIGNAL(testDataReady(NvxWavTestInfoData)), &receiver,
                        SLOT(takeTiming(NvxWavTestInfoData)), Qt::QueuedConnection));
        const LogStream stream;
        logger.handleWavEventHdr(stream.header(1709210400, 0), HydDeviceId(DevTypeRecorderA, 42), nullptr);
        QVERIFY(receiver.m_serials.isEmpty());
        QTRY_COMPARE(receiver.m_serials, QList<unsigned>{42});
    }
};

QTEST_GUILESS_MAIN(tst_NvxWavLoggerByName)
#include "tst_NvxWavLoggerByName.moc"
