#include "NvxQtCommon/logging/NvxSensorsLogger.h"
#include "SpecLoggerCase.h"

namespace {

const HydDeviceId kDevice(DevTypeRecorderA, 42);

HydDevice deviceAt(int time, uint16_t serial = 42)
{
    HydDevice device(DevTypeRecorderA);
    device.setSerial(serial);
    device.setModelString("Model X");
    device.setFirmwareRel("Release 2");
    device.setTimeUtc(time);
    return device;
}

} // namespace

class tst_NvxSensorsLogger : public SpecLoggerCase<NvxSensorsLogger>
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        makeLogger(QStringLiteral("Sens"));
        m_logger->setDevId(kDevice);
    }
    void cleanup() { dropLogger(); }

    // --- happy flows
    void stateAfterConstruction()
    {
        QVERIFY(!m_logger->isReady());
        QCOMPARE(m_logger->logType(), SensorLogAccMag);
        QVERIFY(m_logger->timeType());
        QCOMPARE(m_logger->fileHeader()->typeMode(), FftModeAccMag);
    }

    void readingsBearTheDevicesClock()
    {
        m_logger->fileHeader()->setComputerName("computer");
        m_logger->fileHeader()->setUserName("user");
        m_logger->fileHeader()->setClientName("client");
        m_logger->fileHeader()->setJobName("job");
        m_logger->fileHeader()->setPersonnel("people");
        m_logger->setDevice(deviceAt(kTime));
        m_logger->setComment(QStringLiteral("deep"));
        m_logger->readyToLogging();
        QVERIFY(m_logger->isReady());
        reading();
        QCOMPARE(newFile(0), path("Sens_20240229_123456.txt"));
        const SpectrumText text = SpectrumText::of(newFile(0));
        QCOMPARE(text.entry("Type"), QByteArray("6"));
        QCOMPARE(text.entry("Computer"), QByteArray("computer"));
        QCOMPARE(text.entry("User"), QByteArray("user"));
        QCOMPARE(text.entry("Client"), QByteArray("client"));
        QCOMPARE(text.entry("Job"), QByteArray("job"));
        QCOMPARE(text.entry("Personnel"), QByteArray("people"));
        QCOMPARE(text.entry("Serial"), QByteArray("42"));
        QCOMPARE(text.entry("Firmware"), QByteArray("Release 2"));
        QCOMPARE(text.entry("Model"), QByteArray("Model X"));
        QCOMPARE(text.entry("Start"), QByteArray("2024-02-29 12:34:56"));
        QCOMPARE(text.records.size(), 1);
        QCOMPARE(text.records[0][0], QByteArray("2024-02-29 12:34:56"));
        QCOMPARE(text.records[0][1], QByteArray("deep"));
        QCOMPARE(text.records[0][3], QByteArray("42"));
        QCOMPARE(text.records[0][6], QByteArray("1.001"));
        QCOMPARE(m_progress->size(), 1);
        // No event header ever told how long a record lasts.
        QCOMPARE(progress(), 0U);
    }

    void clockFollowsItsDeviceAlone()
    {
        m_logger->setReady(true);
        m_logger->devTimeUpdated(deviceAt(kTime, 43));
        reading();
        QCOMPARE(m_newFiles->size(), 0);
        m_logger->devTimeUpdated(deviceAt(kTime));
        reading();
        m_logger->devTimeUpdated(deviceAt(kTime + 5));
        reading();
        const SpectrumText text = SpectrumText::of(newFile(0));
        QCOMPARE(text.records.size(), 2);
        QCOMPARE(text.records[1][0], QByteArray("2024-02-29 12:35:01"));
    }

    void clockBeyondTheYear2038()
    {
        m_logger->setReady(true);
        m_logger->setDevice(deviceAt(static_cast<int>(2147483648U)));
        reading();
        QCOMPARE(newFile(0), path("Sens_20380119_031408.txt"));
    }

    void filesEndByTime()
    {
        // Three records of 60 s, until somebody sets another rate: multiples of 180 s.
        m_logger->setReady(true);
        m_logger->setDevice(deviceAt(1709210160));
        reading();
        m_logger->setDevice(deviceAt(1709210160 + 179));
        reading();
        QCOMPARE(m_newFiles->size(), 1);
        m_logger->setDevice(deviceAt(1709210160 + 180));
        reading();
        QCOMPARE(m_newFiles->size(), 2);
        QCOMPARE(newFile(1), path("Sens_20240229_123900.txt"));
    }

    void batteryNeedsNoReady()
    {
        QVERIFY(QDir(m_dir->path()).mkdir("below"));
        m_logger->setLogParams(SensorLogBattery, 2, path("below"));
        QCOMPARE(m_logger->logType(), SensorLogBattery);
        QVERIFY(!m_logger->timeType());
        QCOMPARE(m_logger->typeMode(), FftModeBattery);
        QCOMPARE(m_logger->fileHeader()->typeMode(), FftModeBattery);
        m_logger->setDevice(deviceAt(kTime));
        for (int i = 0; i < 3; ++i)
            reading();
        QCOMPARE(m_newFiles->size(), 2);
        const SpectrumText text = SpectrumText::of(newFile(0));
        QCOMPARE(newFile(0), path("below/Sens_20240229_123456.txt"));
        QCOMPARE(text.entry("Type"), QByteArray("7"));
        QCOMPARE(text.records.size(), 2);
        QCOMPARE(text.records[0][4], QByteArray("12.345"));
    }

    void parametersOfTheFirstKind()
    {
        m_logger->setLogParams(SensorLogBattery, 2, m_dir->path());
        m_logger->setLogParams(SensorLogAccMag, 2, m_dir->path());
        QVERIFY(m_logger->timeType());
        QCOMPARE(m_logger->typeMode(), FftModeAccMag);
        m_logger->setTimeType(false);
        QVERIFY(!m_logger->timeType());
    }

    void kindAloneCanBeSet()
    {
        m_logger->setLogType(SensorLogBattery);
        m_logger->setDevice(deviceAt(kTime));
        reading();
        QCOMPARE(SpectrumText::of(newFile(0)).entry("Type"), QByteArray("7"));
    }

    // --- rainy day flows
    void nothingBeforeReady()
    {
        m_logger->setDevice(deviceAt(kTime));
        reading();
        QVERIFY(files().isEmpty());
        QCOMPARE(m_progress->size(), 0);
    }

    void nothingBeforeTheClock()
    {
        m_logger->setReady(true);
        m_logger->setDevice(deviceAt(0));
        reading();
        QVERIFY(files().isEmpty());
        QCOMPARE(m_progress->size(), 0);
    }

    void otherDevicesAreIgnored()
    {
        m_logger->setReady(true);
        m_logger->setDevice(deviceAt(kTime));
        m_logger->handleDataReady(makeSensorStatus(), HydDeviceId(DevTypeRecorderA, 43));
        QVERIFY(files().isEmpty());
        m_logger->setDevId(HydDeviceId());
        m_logger->handleDataReady(makeSensorStatus(), HydDeviceId(DevTypeRecorderA, 43));
        QCOMPARE(files().size(), 1);
    }

    void unknownKindsAreIgnored()
    {
        m_logger->setReady(true);
        m_logger->setDevice(deviceAt(kTime));
        m_logger->setLogType(SENSOR_LOG_TYPE(2));
        reading();
        m_logger->handleDataReady(nullptr, kDevice);
        QVERIFY(files().isEmpty());
    }

private:
    void reading() { m_logger->handleDataReady(makeSensorStatus(), kDevice); }
};

QTEST_GUILESS_MAIN(tst_NvxSensorsLogger)
#include "tst_NvxSensorsLogger.moc"
