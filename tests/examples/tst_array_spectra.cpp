#include "ExampleRun.h"
#include "NvxQtSimulator/SimulatedArray.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/OwnNetwork.h"

#include <QCoreApplication>
#include <QDir>
#include <QImage>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTemporaryDir>

// The programs array-spectra and array-plot as their users run them.

class tst_array_spectra : public NvxTestCase
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<SimulatedArray> m_array;

    QString out() const { return m_folder->filePath(QStringLiteral("some/where")); }
    QStringList files() const
    {
        QStringList paths;
        for (const QString& name :
             QDir(out()).entryList({QStringLiteral("SPC*.txt")}, QDir::Files, QDir::Name))
            paths << out() + u'/' + name;
        return paths;
    }
    ExampleRun record(const QStringList& arguments)
    {
        return runExample(NVX_ARRAY_SPECTRA, QStringList{QStringLiteral("--out"), out(),
                                                         QStringLiteral("--seconds"), QStringLiteral("1")} +
                                                 arguments);
    }
    ExampleRun recordFrom(const char* address, const QStringList& arguments = {})
    {
        return record(arguments + QStringList{QStringLiteral("--address"), QLatin1String(address)});
    }
    /// An array controller of four channels, which a rule spoils.
    void startArray(const char* address, const QString& fault = {}, uint8_t roles = ArrayRoleAll)
    {
        ArraySettings settings;
        settings.address = QHostAddress(QLatin1String(address));
        settings.channels = ArraySettings::makeChannels(4);
        settings.roles = roles;
        if (!fault.isEmpty()) {
            settings.faults = FaultPlan(1);
            settings.faults.add(FaultRule::fromText(fault).value());
        }
        m_array = std::make_unique<SimulatedArray>(settings);
        QVERIFY2(m_array->start(), qPrintable(m_array->errorString()));
    }

private Q_SLOTS:
    void init()
    {
        failOnUnexpectedWarnings();
        if (QTcpServer probe; !probe.listen(QHostAddress(QStringLiteral("127.99.4.1")), 80))
            QSKIP("neither port 80 nor a network namespace can be had here");
        m_folder = std::make_unique<QTemporaryDir>();
        QVERIFY(m_folder->isValid());
    }
    void cleanup()
    {
        m_array.reset();
        m_folder.reset();
    }

    // --- happy flows
    void recordsAndDrawsEveryChannel()
    {
        const ExampleRun ended = record({QStringLiteral("--channels"), QStringLiteral("16")});
        QVERIFY2(ended.code == 0, qPrintable(ended.errors));
        for (const char* line :
             {"Array       serial number 600, 16 channels\n",
              "  1016  channel 16, 512 bins, 12\\.3 °C, sensitivity -170 dB re 1 V/µPa\n",
              "Setup       48000 Hz, 24 bit, spectra of 1024 points, -100 dB re 1 V\n",
              "Clock       20\\d\\d-", "  16 channels +[1-9]\\d+ spectra  0 lost\n",
              "  SPC1001_\\S+\\.txt  [1-9]\\d* spectra  512 bins of 46\\.875 Hz  at most 12\\d"
              "\\S* dB re 1 µPa, at (984|1031)"})
            QVERIFY2(ended.output.contains(QRegularExpression(QString::fromUtf8(line))),
                     qPrintable(ended.output));
        QCOMPARE(files().size(), 16);

        const QString picture = out() + QStringLiteral("/all.png");
        const ExampleRun drawn = runExample(NVX_ARRAY_PLOT, files() + QStringList{picture});
        QVERIFY2(drawn.code == 0, qPrintable(drawn.errors));
        const QImage image(picture);
        QCOMPARE(image.size(), QSize(90 + 1000 + 120, 40 + 16 * 48 + 50));
        // The tone of a channel is a bright line in its strip, higher up from one to the next.
        int before = -1;
        for (const int strip : {1, 6, 11, 15}) {
            int brightest = 0;
            for (int row = 0; row < 47; ++row)
                if (brightness(image, strip, row) > brightness(image, strip, brightest))
                    brightest = row;
            const int fromBelow = 46 - brightest;
            QVERIFY2(fromBelow > before, qPrintable(QString::number(fromBelow)));
            before = fromBelow;
        }
    }

    void recordsFromAnAddress()
    {
        startArray("127.99.4.2");
        const ExampleRun ended = recordFrom("127.99.4.2");
        QVERIFY2(ended.code == 0, qPrintable(ended.errors));
        QCOMPARE(files().size(), 4);
        QVERIFY(!ended.output.contains(QStringLiteral("Simulating")));
        QCOMPARE(m_array->counters().frameClients, 2U);
        QCOMPARE(m_array->targets().front(), QByteArray("/cgi-bin/DataCollection.cgi?"));
    }

    // --- rainy day flows
    void faults_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<int>("roles");
        QTest::addColumn<int>("patience");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("text");
        const auto row = [](const char* name, const char* fault, int roles, int patience, int code,
                            const char* text) {
            QTest::newRow(name) << QString::fromLatin1(fault) << roles << patience << code
                                << QString::fromUtf8(text);
        };
        constexpr const char* kNoList = "no array controller gives its list of channels at 127.99.4.3";
        constexpr const char* kNoSettings = "doesn't tell its settings by HTTP";
        row("no file", "status:on=ftp", ArrayRoleAll, 1, 2, kNoList);
        row("empty file", "empty:on=ftp", ArrayRoleAll, 1, 2, kNoList);
        row("no FTP", "", ArrayRoleHttp | ArrayRoleFrames, 1, 2, kNoList);
        row("no HTTP", "", ArrayRoleFtp | ArrayRoleFrames, 30, 3, kNoSettings);
        row("HTTP 500", "status:on=http", ArrayRoleAll, 30, 3, kNoSettings);
        row("empty reply", "empty:on=http", ArrayRoleAll, 10, 3, kNoSettings);
        row("no frames", "", ArrayRoleFtp | ArrayRoleHttp, 30, 3, "connection for spectra is refused");
        row("silent frames", "silence:on=frames", ArrayRoleAll, 10, 4, "no spectra came for 10 s");
        row("missing channel", "missing-channel:value=2,on=frames", ArrayRoleAll, 30, 0,
            "Not all channels send spectra");
        row("lost frames", "loss:on=frames,after=30,times=3", ArrayRoleAll, 30, 0, "spectra  3 lost");
    }
    void faults()
    {
        QFETCH(const QString, fault);
        QFETCH(const int, roles);
        QFETCH(const int, patience);
        QFETCH(const int, code);
        QFETCH(const QString, text);
        startArray("127.99.4.3", fault, static_cast<uint8_t>(roles));
        const bool isShort = patience < 30;
        const ExampleRun ended =
            recordFrom("127.99.4.3", {QStringLiteral("--patience"), QString::number(patience),
                                      QStringLiteral("--seconds"), QString::number(isShort ? 60 : 2)});
        QVERIFY2(ended.code == code, qPrintable(ended.output + ended.errors));
        QVERIFY2((ended.output + ended.errors).contains(text), qPrintable(ended.output + ended.errors));
    }

    void channelsBeyondTheListGetNoFile()
    {
        startArray("127.99.4.4", QStringLiteral("foreign-serial:on=frames,after=30,times=3"));
        const ExampleRun ended = recordFrom("127.99.4.4", {QStringLiteral("--seconds"), QStringLiteral("2")});
        QVERIFY2(ended.code == 0, qPrintable(ended.errors));
        QVERIFY2(ended.output.contains(QStringLiteral("  4 channels ")), qPrintable(ended.output));
        QVERIFY2(ended.output.contains(QStringLiteral("Left out 3 spectra of channels that")),
                 qPrintable(ended.output));
        QCOMPARE(files().size(), 4);
        QVERIFY(files().filter(QStringLiteral("65000")).isEmpty());
    }

    void takenPortIsNamed()
    {
        QTcpServer taken;
        QVERIFY(taken.listen(QHostAddress(QStringLiteral("127.0.0.60")), 80));
        const ExampleRun ended = record({});
        QCOMPARE(ended.code, 6);
        QVERIFY2(ended.errors.startsWith(QStringLiteral("array-spectra: TCP port 80 of 127.0.0.60: ")),
                 qPrintable(ended.errors));
    }

    void wrongUse_data()
    {
        QTest::addColumn<QString>("option");
        QTest::addColumn<QString>("value");
        for (const char* value : {"0", "x", "-1"})
            for (const char* name : {"--seconds", "--patience", "--serial", "--channels"})
                QTest::addRow("%s %s", name, value)
                    << QString::fromLatin1(name) << QString::fromLatin1(value);
        QTest::newRow("channels") << QStringLiteral("--channels") << QStringLiteral("65");
        QTest::newRow("serial") << QStringLiteral("--serial") << QStringLiteral("65536");
        QTest::newRow("address") << QStringLiteral("--address") << QStringLiteral("x");
        QTest::newRow("IPv6") << QStringLiteral("--address") << QStringLiteral("::1");
    }
    void wrongUse()
    {
        QFETCH(const QString, option);
        QFETCH(const QString, value);
        const ExampleRun ended = record({option, value});
        QCOMPARE(ended.code, 1);
        QVERIFY2(ended.errors.startsWith(QStringLiteral("array-spectra: ") + option),
                 qPrintable(ended.errors));
    }

    void demoTakesNoFolder()
    {
        for (const char* option : {"--out", "--out=x"}) {
            const ExampleRun ended =
                runExample(NVX_DEMO, {QStringLiteral("--array"), QLatin1String(option), QStringLiteral("x")});
            QCOMPARE(ended.code, 1);
            QVERIFY(ended.output.isEmpty());
            QVERIFY2(ended.errors.startsWith(QStringLiteral("demo: the folder is always")),
                     qPrintable(ended.errors));
        }
    }

    void nothingToDraw()
    {
        QCOMPARE(runExample(NVX_ARRAY_PLOT, {}).code, 1);
        QCOMPARE(runExample(NVX_ARRAY_PLOT, {QStringLiteral("one.png")}).code, 1);
        const ExampleRun ended = runExample(NVX_ARRAY_PLOT, {out(), QStringLiteral("x.png")});
        QCOMPARE(ended.code, 1);
        QVERIFY2(ended.errors.contains(QStringLiteral("array-plot: ") + out()), qPrintable(ended.errors));
    }

private:
    /// Sum of a row of a strip's picture.
    static qint64 brightness(const QImage& image, int strip, int row)
    {
        qint64 sum = 0;
        for (int x = 100; x < 1080; ++x)
            sum += qGray(image.pixel(x, 40 + strip * 48 + row));
        return sum;
    }
};

int main(int argc, char* argv[])
{
    enterOwnNetwork(argc, argv);
    QCoreApplication app(argc, argv);
    tst_array_spectra test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_array_spectra.moc"
