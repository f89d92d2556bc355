#include "NvxQtCommon/contract/stream/HydStreamType.h"
#include "tests/support/NvxTestCase.h"

class tst_HydStreamType : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void typesHaveTheirTexts_data();
    void typesHaveTheirTexts();
    void sensorBitsHaveTheirTexts_data();
    void sensorBitsHaveTheirTexts();
    // --- rainy day flows
    void everyOtherTypeIsUnknown();
    void onlyThreeTypesAreSpectrumLike();
    void unknownSensorBitsSayNothing();
};

void tst_HydStreamType::typesHaveTheirTexts_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("text");
    QTest::newRow("1") << 1 << "Waveform";
    QTest::newRow("2") << 2 << "Spectrum";
    QTest::newRow("3") << 3 << "Sensor";
    QTest::newRow("4") << 4 << "RawWave";
    QTest::newRow("5") << 5 << "Epoch";
    QTest::newRow("16") << 16 << "WaveformScan";
    QTest::newRow("17") << 17 << "SpectrumScan";
    QTest::newRow("18") << 18 << "SensorScan";
    QTest::newRow("32") << 32 << "WaveformFile";
    QTest::newRow("33") << 33 << "SpectrumFile";
}

void tst_HydStreamType::typesHaveTheirTexts()
{
    QFETCH(int, type);
    QFETCH(QString, text);
    QCOMPARE(QString::fromStdString(streamTypeText(static_cast<HydStreamType>(type))), text);
}

void tst_HydStreamType::sensorBitsHaveTheirTexts_data()
{
    QTest::addColumn<int>("bits");
    QTest::addColumn<QString>("text");
    QTest::newRow("none") << 0 << "";
    QTest::newRow("1") << 1 << "_Temperature_Humidity";
    QTest::newRow("2") << 2 << "_Accelerometer_Magnetometer";
    QTest::newRow("4") << 4 << "_Time_Synchronization";
    QTest::newRow("8") << 8 << "_Time_Battery";
    QTest::newRow("16") << 16 << "_Triggers";
    QTest::newRow("triggers ahead of the clock") << (4 | 16) << "_Triggers_Time_Synchronization";
    QTest::newRow("motion behind the battery") << (2 | 8) << "_Time_Battery_Accelerometer_Magnetometer";
    QTest::newRow("all, in their order") << 31
                                         << "_Temperature_Humidity_Triggers_Time_Synchronization_Time_Battery"
                                            "_Accelerometer_Magnetometer";
}

void tst_HydStreamType::sensorBitsHaveTheirTexts()
{
    QFETCH(int, bits);
    QFETCH(QString, text);
    QCOMPARE(QString::fromStdString(sensStreamText(static_cast<uint16_t>(bits))), text);
}

void tst_HydStreamType::everyOtherTypeIsUnknown()
{
    const QList<int> known{1, 2, 3, 4, 5, 16, 17, 18, 32, 33};
    for (int type = 0; type < 256; ++type) {
        const bool unknown = streamTypeText(static_cast<HydStreamType>(type)) == "Unknown";
        QVERIFY2(unknown != known.contains(type), qPrintable(QString::number(type)));
    }
}

void tst_HydStreamType::onlyThreeTypesAreSpectrumLike()
{
    QList<int> found;
    for (int type = 0; type < 256; ++type) {
        if (isSpectrumLike(static_cast<HydStreamType>(type)))
            found << type;
    }
    QCOMPARE(found, (QList<int>{2, 17, 33}));
}

void tst_HydStreamType::unknownSensorBitsSayNothing()
{
    QCOMPARE(QString::fromStdString(sensStreamText(0xFFE0)), QString());
    QCOMPARE(QString::fromStdString(sensStreamText(0xFFE8)), QStringLiteral("_Time_Battery"));
}

QTEST_APPLESS_MAIN(tst_HydStreamType)
#include "tst_HydStreamType.moc"
