#include "NvxQtCommon/contract/job/ZcrConfigFile.h"
#include "tests/support/NvxTestCase.h"

namespace {

using Serials = std::vector<uint16_t>;

/// Settings whose values all differ.
HydJobSettings distinct()
{
    HydJobSettings settings;
    settings.setWavLogStartTime(101);
    settings.setFftRate(SampRate{102});
    settings.setFftRef(-103);
    settings.setFftProcType(HydFftProc{104});
    settings.setFftAccum(105);
    settings.setFftWeight(106);
    settings.setDutyCyclePeriod(107);
    settings.setDutyCycleIgn(108);
    settings.setWavRate(SampRate{109});
    settings.setWavBitDepth(HydWavBitDepth{110});
    settings.setWavGain(111);
    settings.setWavByteOrder(HydByteOrder{112});
    settings.setWavLogMode(HydLogMode{113});
    settings.setWavLogLen(114);
    settings.setAuxFunc(AuxPinFunc{115});
    settings.setFftLogMode(HydLogMode{116});
    settings.setFftLogLen(117);
    return settings;
}

/// What a file without anything becomes with these settings.
const QByteArray kAll =
    "$AUX_PIN=0\n$LOG_START_TIME=101\n$FFT_SAMPLE_RATE=102\n$FFT_REF_LEVEL=-103\n$FFT_TYPE=104\n"
    "$FFT_ACCUM=105\n$FFT_WEIGHT=106\n$FFT_LOG_MODE=0\n$FFT_LOG_LENGTH=1\n$DUTY_CYCLE_TIME=107\n"
    "$DUTY_RUN_TIME=0\n$DUTY_IGNORE_TIME_CHANGE=0\n$WAVE_SAMPLE_RATE=109\n$WAVE_BIT_DEPTH=110\n"
    "$WAVE_GAIN=111\n$WAVE_ENDIAN=112\n$WAVE_LOG_MODE=113\n$WAVE_LOG_LENGTH=114\n$AUX_MSG=115\n"
    "$ARRAY_DEV_TYPE=16\n$ARRAY_CTRL_MODE=1\n$ARRAY_WAVE_LOG_MODE=113\n$ARRAY_FFT_LOG_MODE=116\n"
    "$ARRAY_EPOCH_LOG_MODE=0\n$ARRAY_WAVE_LOG_LENGTH=114\n$ARRAY_FFT_LOG_LENGTH=117\n"
    "$ARRAY_NETMASK=0\n$ARRAY_GATEWAY=0\n$ARRAY_DNS=0\n$ARRAY_CONSERVE_BATT=0\n"
    "$ARRAY_LOG_START_TIME=101\n$ARRAY_DUTY_CYCLE_TIME=107\n$ARRAY_DUTY_RUN_TIME=0\n"
    "$ARRAY_DUTY_DATA_TYPE=0\n$ARRAY_LOG_STOP_TIME=0\n$ARRAY_SERIALS=7,65535\n";

QByteArray edited(const QByteArray& file)
{
    return QByteArray::fromStdString(editedZcrConfig(file.toStdString(), distinct(), {7, 65535}));
}

/// All keys but these, as they are appended.
QByteArray allBut(const QByteArrayList& keys)
{
    QByteArray rest;
    for (const QByteArray& line : kAll.split('\n')) {
        if (!line.isEmpty() && !keys.contains(line.left(line.indexOf('='))))
            rest += line + '\n';
    }
    return rest;
}

} // namespace

/// The configuration file of an array controller.
class tst_ZcrConfigFile : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void readsWhatItWrites();
    void keysHaveNumbers();
    void readsEachKey_data();
    void readsEachKey();
    void serials_data();
    void serials();
    void edits_data();
    void edits();
    // --- rainy day flows
    void writesNoChannels();
    void valuesThatSettersCut();
    void valuesThatAreNone_data();
    void valuesThatAreNone();
    void longFiles();
};

void tst_ZcrConfigFile::readsWhatItWrites()
{
    QCOMPARE(edited({}), kAll);
    HydJobSettings settings;
    readZcrConfig(kAll.toStdString(), settings);
    HydJobSettings expected = distinct();
    // Written as 0 whatever it is.
    expected.setDutyCycleIgn(0);
    QVERIFY(settings == expected);
    QVERIFY(zcrConfigSerials(kAll.toStdString()) == (Serials{7, 65535}));
    // An edited file is edited no further.
    QCOMPARE(edited(kAll), kAll);
    QCOMPARE(edited(kAll + "[x]\nend"), kAll + "[x]\nend");
    QCOMPARE(edited(kAll.chopped(1)), kAll.chopped(1));
}

void tst_ZcrConfigFile::keysHaveNumbers()
{
    const ZcrConfigKeys& keys = zcrConfigKeys();
    QCOMPARE(keys.size(), size_t(36));
    // In the order of the file.
    int number = 0;
    for (const QByteArray& line : kAll.split('\n')) {
        if (!line.isEmpty())
            QCOMPARE(QByteArray::fromStdString(keys.at(number++)), line.left(line.indexOf('=')));
    }
    QCOMPARE(number, 36);
    // Other texts, and one number that nobody knows.
    const ZcrConfigKeys others{{5, "A"}, {35, "LIST"}, {36, "B"}, {-1, "C"}};
    HydJobSettings settings;
    readZcrConfig("A=7\nB=8\nC=9\n$FFT_WEIGHT=1\nLIST=3\n", settings, others);
    QCOMPARE(settings.map().size(), size_t(1));
    QCOMPARE(settings.fftAccum(), 7U);
    QVERIFY(zcrConfigSerials("LIST=3\n$ARRAY_SERIALS=4\n", others) == (Serials{3}));
    QVERIFY(zcrConfigSerials("$ARRAY_SERIALS=4\n", {{5, "A"}}).empty());
    QCOMPARE(editedZcrConfig("B=1\n", settings, {3, 4}, others), std::string("B=1\nA=7\nLIST=3,4\n"));
}

void tst_ZcrConfigFile::readsEachKey_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<int>("tag");
    const auto row = [](const char* key, int tag) { QTest::newRow(key) << QByteArray(key) << tag; };
    row("$LOG_START_TIME", JobTagWavLogStartTime);
    row("$FFT_SAMPLE_RATE", JobTagFftRate);
    row("$FFT_REF_LEVEL", JobTagFftRef);
    row("$FFT_TYPE", JobTagFftProcType);
    row("$FFT_ACCUM", JobTagFftAccum);
    row("$FFT_WEIGHT", JobTagFftWeight);
    row("$DUTY_CYCLE_TIME", JobTagDutyCyclePeriod);
    row("$DUTY_IGNORE_TIME_CHANGE", JobTagDutyCycleIgn);
    row("$WAVE_SAMPLE_RATE", JobTagWavRate);
    row("$WAVE_BIT_DEPTH", JobTagWavBitDepth);
    row("$WAVE_GAIN", JobTagWavGain);
    row("$WAVE_ENDIAN", JobTagWavByteOrder);
    row("$AUX_MSG", JobTagAuxFunc);
    row("$ARRAY_WAVE_LOG_MODE", JobTagWavLogMode);
    row("$ARRAY_FFT_LOG_MODE", JobTagFftLogMode);
    row("$ARRAY_WAVE_LOG_LENGTH", JobTagWavLogLen);
    row("$ARRAY_FFT_LOG_LENGTH", JobTagFftLogLen);
    row("$ARRAY_LOG_START_TIME", JobTagWavLogStartTime);
    row("$ARRAY_DUTY_CYCLE_TIME", JobTagDutyCyclePeriod);
    for (const char* ignored : {"$AUX_PIN",
                                "$FFT_LOG_MODE",
                                "$FFT_LOG_LENGTH",
                                "$DUTY_RUN_TIME",
                                "$WAVE_LOG_MODE",
                                "$WAVE_LOG_LENGTH",
                                "$ARRAY_DEV_TYPE",
                                "$ARRAY_CTRL_MODE",
                                "$ARRAY_EPOCH_LOG_MODE",
                                "$ARRAY_NETMASK",
                                "$ARRAY_GATEWAY",
                                "$ARRAY_DNS",
                                "$ARRAY_CONSERVE_BATT",
                                "$ARRAY_DUTY_RUN_TIME",
                                "$ARRAY_DUTY_DATA_TYPE",
                                "$ARRAY_LOG_STOP_TIME",
                                "$ARRAY_SERIALS",
                                "$UNKNOWN",
                                "$fft_accum",
                                "FFT_ACCUM",
                                "$FFT_ACCUM ",
                                " $FFT_ACCUM",
                                ";$FFT_ACCUM",
                                ""})
        row(ignored, -1);
}

void tst_ZcrConfigFile::readsEachKey()
{
    QFETCH(QByteArray, key);
    QFETCH(int, tag);
    HydJobSettings settings;
    readZcrConfig(("no value\n" + key + "=5\nmore\n" + key + "=77").toStdString(), settings);
    QCOMPARE(settings.map().size(), size_t(tag < 0 ? 0 : 1));
    if (tag >= 0)
        QCOMPARE(settings.map().at(static_cast<JobTagKey>(tag))->number(), 77);
}

void tst_ZcrConfigFile::serials_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QList<int>>("serials");
    QTest::newRow("three") << QByteArray("$ARRAY_SERIALS=1,2,3\n") << QList<int>{1, 2, 3};
    QTest::newRow("comma at the end") << QByteArray("$ARRAY_SERIALS=1,2,") << QList<int>{1, 2};
    QTest::newRow("twice") << QByteArray("$ARRAY_SERIALS=1,1") << QList<int>{1};
    QTest::newRow("empty") << QByteArray("$ARRAY_SERIALS=") << QList<int>{};
    QTest::newRow("short line") << QByteArray("$ARRAY_SERIALS") << QList<int>{};
    QTest::newRow("carriage return") << QByteArray("$ARRAY_SERIALS=1,2\r\n") << QList<int>{1, 2};
    // This is intended: a line end of two bytes leaves one of them, and that is a piece that is no number.
    QTest::newRow("empty with a carriage return") << QByteArray("$ARRAY_SERIALS=\r\n") << QList<int>{0};
    QTest::newRow("comma at the end with a carriage return")
        << QByteArray("$ARRAY_SERIALS=1,2,\r\n") << QList<int>{1, 2, 0};
    QTest::newRow("empty piece") << QByteArray("$ARRAY_SERIALS=1,,2") << QList<int>{1, 0, 2};
    QTest::newRow("no number") << QByteArray("$ARRAY_SERIALS=x,2") << QList<int>{0, 2};
    QTest::newRow("below 0") << QByteArray("$ARRAY_SERIALS=-1") << QList<int>{0};
    QTest::newRow("33 bits") << QByteArray("$ARRAY_SERIALS=4294967296") << QList<int>{0};
    QTest::newRow("17 bits") << QByteArray("$ARRAY_SERIALS=65543") << QList<int>{7};
    QTest::newRow("two lines") << QByteArray("$ARRAY_SERIALS=1\n$ARRAY_SERIALS=2,1\n") << QList<int>{1, 2};
    // The value begins at a fixed place wherever the key stands: here the line's last character.
    QTest::newRow("key further on") << QByteArray("#$ARRAY_SERIALS=9") << QList<int>{0};
    QTest::newRow("no such line") << QByteArray("$ARRAY_DNS=0\n") << QList<int>{};
    QTest::newRow("nothing") << QByteArray() << QList<int>{};
}

void tst_ZcrConfigFile::serials()
{
    QFETCH(QByteArray, file);
    QFETCH(QList<int>, serials);
    QVERIFY(zcrConfigSerials(file.toStdString()) == Serials(serials.begin(), serials.end()));
}

void tst_ZcrConfigFile::edits_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("result");
    const QByteArray rest = allBut({"$WAVE_GAIN"});
    QTest::newRow("in place") << QByteArray("a\n$WAVE_GAIN=1\nb=2\n") << "a\n$WAVE_GAIN=111\nb=2\n" + rest;
    QTest::newRow("first of two") << QByteArray("$WAVE_GAIN=1\n$WAVE_GAIN=2\n")
                                  << "$WAVE_GAIN=111\n$WAVE_GAIN=2\n" + rest;
    QTest::newRow("no line end") << QByteArray("$WAVE_GAIN=1") << "$WAVE_GAIN=111\n" + rest;
    QTest::newRow("comments stay") << QByteArray(";$WAVE_GAIN=1\n# x\n\n") << ";$WAVE_GAIN=1\n# x\n\n" + kAll;
    QTest::newRow("carriage returns")
        << QByteArray("$WAVE_GAIN=1\r\n") << "$WAVE_GAIN=111\r\n" + QByteArray(rest).replace("\n", "\r\n");
    QTest::newRow("other section behind") << QByteArray("$WAVE_GAIN=1\n[x]\n$WAVE_GAIN=2\n")
                                          << "$WAVE_GAIN=111\n" + rest + "[x]\n$WAVE_GAIN=2\n";
    QTest::newRow("literal section") << QByteArray("$WAVE_GAIN=1\n[*]\n$WAVE_GAIN=2\n[y]\nz")
                                     << "$WAVE_GAIN=1\n[*]\n$WAVE_GAIN=111\n" + rest + "[y]\nz";
    QTest::newRow("literal section with blanks around")
        << QByteArray("$WAVE_GAIN=1\r\n [*]\t\r\n$WAVE_GAIN=2\r\n")
        << "$WAVE_GAIN=1\r\n [*]\t\r\n$WAVE_GAIN=111\r\n" + QByteArray(rest).replace("\n", "\r\n");
    // More behind it makes it another section.
    QTest::newRow("section of another name") << QByteArray("$WAVE_GAIN=1\n[*] x\n$WAVE_GAIN=2\n")
                                             << "$WAVE_GAIN=111\n" + rest + "[*] x\n$WAVE_GAIN=2\n";
    QTest::newRow("literal section twice")
        << QByteArray("[*]\n[*]\n$WAVE_GAIN=2\n") << "[*]\n" + kAll + "[*]\n$WAVE_GAIN=2\n";
    QTest::newRow("literal section without a line end") << QByteArray("a=1\n[*]") << "a=1\n[*]\n" + kAll;
    QTest::newRow("literal section twice, another between")
        << QByteArray("[*]\n$WAVE_GAIN=1\n[x]\ny\n[*]\n$FFT_TYPE=2\n")
        << "[*]\n$WAVE_GAIN=111\n" + rest + "[x]\ny\n[*]\n$FFT_TYPE=2\n";
    QTest::newRow("blank ahead of the equals sign")
        << QByteArray("$WAVE_GAIN =2\n") << "$WAVE_GAIN =2\n" + kAll;
    QTest::newRow("NUL bytes") << QByteArray("\0\n$WAVE_GAIN=\0\n", 15)
                               << QByteArray("\0\n$WAVE_GAIN=111\n", 17) + rest;
    QTest::newRow("other section alone") << QByteArray("[x]\n") << kAll + "[x]\n";
}

void tst_ZcrConfigFile::edits()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, result);
    QCOMPARE(edited(file), result);
}

void tst_ZcrConfigFile::writesNoChannels()
{
    const std::string file = editedZcrConfig("$ARRAY_SERIALS=1,2\n", distinct(), {});
    QVERIFY(file.starts_with("$ARRAY_SERIALS=\n"));
    QVERIFY(zcrConfigSerials(file).empty());
}

void tst_ZcrConfigFile::valuesThatSettersCut()
{
    // A setter of eight bits takes the lowest ones.
    HydJobSettings settings;
    readZcrConfig("$WAVE_BIT_DEPTH=257\n", settings);
    QCOMPARE(settings.wavBitDepth(), HydWavBitDepth{1});
}

void tst_ZcrConfigFile::valuesThatAreNone_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<int>("number");
    QTest::newRow("text") << QByteArray("x") << 0;
    QTest::newRow("empty") << QByteArray() << 0;
    QTest::newRow("too large") << QByteArray("2147483648") << 0;
    QTest::newRow("largest") << QByteArray("2147483647") << 2147483647;
    QTest::newRow("second equals sign") << QByteArray("=5") << 0;
    QTest::newRow("carriage return behind") << QByteArray("5\r") << 5;
    QTest::newRow("below 0") << QByteArray("-5") << -5;
}

void tst_ZcrConfigFile::valuesThatAreNone()
{
    QFETCH(QByteArray, value);
    QFETCH(int, number);
    HydJobSettings settings;
    settings.setFftRef(9);
    readZcrConfig(("$FFT_REF_LEVEL=" + value + '\n').toStdString(), settings);
    QCOMPARE(settings.fftRef(), number);
}

void tst_ZcrConfigFile::longFiles()
{
    constexpr qsizetype kSize = 16 * 1024 * 1024;
    for (const char fill : {'\n', ',', '\0'}) {
        const QByteArray file(kSize, fill);
        HydJobSettings settings;
        readZcrConfig(file.toStdString(), settings);
        QVERIFY(settings.map().empty());
        QVERIFY(zcrConfigSerials("$ARRAY_SERIALS=" + file.toStdString()).size() <= 1);
        QCOMPARE(edited(file).size(), kSize + kAll.size() + (fill == '\n' ? 0 : 1));
    }
}

QTEST_GUILESS_MAIN(tst_ZcrConfigFile)
#include "tst_ZcrConfigFile.moc"
