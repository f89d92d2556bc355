#include "NvxQtCommon/contract/base/NvxLog.h"
#include "NvxQtCommon/contract/base/Utf8.h"
#include "NvxQtCommon/contract/identity/HydDeviceId.h"
#include "NvxQtCommon/contract/recording/HydUtil.h"
#include "tests/support/NvxTestCase.h"

#include <limits>

namespace {

QByteArray bytesOf(const std::string& text)
{
    return QByteArray::fromStdString(text);
}

} // namespace

class tst_HydUtil : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void stamps_data()
    {
        QTest::addColumn<qint64>("time");
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QByteArray>("date");
        QTest::addColumn<QByteArray>("clock");
        // --- happy flows
        QTest::newRow("epoch") << qint64{0} << QByteArray("19700101_000000") << QByteArray("1970-01-01")
                               << QByteArray("00:00:00");
        QTest::newRow("leap day") << qint64{1709210096} << QByteArray("20240229_123456")
                                  << QByteArray("2024-02-29") << QByteArray("12:34:56");
        QTest::newRow("last second of a year") << qint64{1735689599} << QByteArray("20241231_235959")
                                               << QByteArray("2024-12-31") << QByteArray("23:59:59");
        QTest::newRow("beyond 31 bits") << qint64{4102444800} << QByteArray("21000101_000000")
                                        << QByteArray("2100-01-01") << QByteArray("00:00:00");
        // --- rainy day flows
        QTest::newRow("before the epoch") << qint64{-5} << QByteArray("19700101_000000")
                                          << QByteArray("1970-01-01") << QByteArray("00:00:00");
        QTest::newRow("largest number") << std::numeric_limits<qint64>::max() << QByteArray("99991231_235959")
                                        << QByteArray("9999-12-31") << QByteArray("23:59:59");
    }
    void stamps()
    {
        QFETCH(qint64, time);
        QFETCH(QByteArray, name);
        QFETCH(QByteArray, date);
        QFETCH(QByteArray, clock);
        QCOMPARE(bytesOf(HydUtil::dateTimeFname("ABC_", time)), "ABC_" + name);
        QCOMPARE(QString::fromStdWString(HydUtil::dateTimeFname(L"Test_Time_", time)),
                 "Test_Time_" + QString::fromLatin1(name));
        QCOMPARE(bytesOf(HydUtil::specDateStamp(time)), date);
        QCOMPARE(bytesOf(HydUtil::specTimeStamp(time)), clock);
    }

    void replacesOnlyADateAtTheEnd_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QByteArray>("result");
        // --- happy flows
        QTest::newRow("prefix") << QByteArray("ABC_19700101_000000") << QByteArray("ABC_20240229_123456");
        QTest::newRow("date alone") << QByteArray("19700101_000000") << QByteArray("20240229_123456");
        // --- rainy day flows
        QTest::newRow("no date") << QByteArray("MyRecording") << QByteArray("MyRecording");
        QTest::newRow("empty") << QByteArray() << QByteArray();
        QTest::newRow("date in the middle")
            << QByteArray("19700101_000000_A") << QByteArray("19700101_000000_A");
        QTest::newRow("letter among the digits")
            << QByteArray("ABC_1970x101_000000") << QByteArray("ABC_1970x101_000000");
        QTest::newRow("dash for underscore")
            << QByteArray("ABC_19700101-000000") << QByteArray("ABC_19700101-000000");
    }
    void replacesOnlyADateAtTheEnd()
    {
        QFETCH(QByteArray, name);
        QFETCH(QByteArray, result);
        QCOMPARE(bytesOf(HydUtil::replaceDateTime(name.toStdString(), 1709210096)), result);
    }

    void turnsDeviceTextsBack_data()
    {
        QTest::addColumn<int>("type");
        for (int type : {0, 5, 7, 8, 13, 15, 16, 67, 68})
            QTest::addRow("type %d", type) << type;
    }
    void turnsDeviceTextsBack()
    {
        QFETCH(int, type);
        const auto device = static_cast<HydDeviceType>(type);
        QCOMPARE(HydUtil::deviceType(deviceTypeText(device)), device);
        QCOMPARE(HydUtil::deviceType("nothing of the kind"), DevTypeAny);
    }

    void convertsTexts_data()
    {
        QTest::addColumn<QString>("text");
        // --- happy flows
        QTest::newRow("plain") << QStringLiteral("plain");
        QTest::newRow("two bytes") << QStringLiteral("Mäßig");
        QTest::newRow("three bytes") << QStringLiteral("海の音");
        QTest::newRow("four bytes") << QString::fromUtf8("\xF0\x9F\x90\x8B whale");
        QTest::newRow("empty") << QString();
    }
    void convertsTexts()
    {
        QFETCH(QString, text);
        QCOMPARE(bytesOf(toUtf8(text.toStdWString())), text.toUtf8());
        QCOMPARE(QString::fromStdWString(fromUtf8(text.toStdString())), text);
    }

    void replacesWhatIsNoText_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("text");
        const QString bad(QChar(0xFFFD));
        // --- rainy day flows
        QTest::newRow("lone continuation") << QByteArray("a\x80z") << "a" + bad + "z";
        QTest::newRow("cut off") << QByteArray("a\xE6\xB5") << "a" + bad + bad;
        QTest::newRow("overlong") << QByteArray("\xC0\xAF") << bad + bad;
        QTest::newRow("overlong of three") << QByteArray("\xE0\x80\x80") << bad + bad + bad;
        QTest::newRow("surrogate") << QByteArray("\xED\xA0\x80") << bad + bad + bad;
        QTest::newRow("beyond Unicode") << QByteArray("\xF4\x90\x80\x80") << bad + bad + bad + bad;
        QTest::newRow("no lead byte") << QByteArray("\xFFz") << bad + "z";
        QTest::newRow("wrong continuation") << QByteArray("\xC3z") << bad + "z";
    }
    void replacesWhatIsNoText()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, text);
        QCOMPARE(QString::fromStdWString(fromUtf8(bytes.toStdString())), text);
        const std::wstring lone{L'a', wchar_t(0xD800), L'z'};
        QCOMPARE(bytesOf(toUtf8(lone)), QByteArray("a\xEF\xBF\xBDz"));
    }

    void cutsAtCharacterBorders()
    {
        const QByteArray text = QStringLiteral("aä海").toUtf8(); // 1 + 2 + 3 bytes
        const QList<int> expected{0, 1, 1, 3, 3, 3, 6, 6};
        for (int size = 0; size < expected.size(); ++size)
            QCOMPARE(int(cutUtf8({text.constData(), size_t(text.size())}, size_t(size)).size()),
                     expected[size]);
    }

    void routesTheLogToQt()
    {
        QTest::ignoreMessage(QtWarningMsg, "a warning of the contract room");
        nvxLog(NvxLogLevel::Warning, "a warning of the contract room");
        QTest::ignoreMessage(QtDebugMsg, "a line of the contract room");
        nvxLog(NvxLogLevel::Debug, "a line of the contract room");
    }

    void givesTheSinkBack()
    {
        static QByteArray heard;
        const NvxLogSink before =
            setNvxLogSink([](NvxLogLevel, const std::string& text) { heard = bytesOf(text); });
        nvxLog(NvxLogLevel::Debug, "to the test");
        QVERIFY(setNvxLogSink(before) != before);
        QCOMPARE(heard, QByteArray("to the test"));
    }
};

QTEST_GUILESS_MAIN(tst_HydUtil)
#include "tst_HydUtil.moc"
