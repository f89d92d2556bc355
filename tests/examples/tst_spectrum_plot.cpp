#include "ExampleRun.h"
#include "shared/SpectrumLevels.h"
#include "tests/support/NvxTestCase.h"

#include <QFile>
#include <QImage>
#include <QTemporaryDir>

#include <cmath>
#include <memory>

// The picture of spectrum files: what is read out of them, and the program as its users run it.

namespace {

/// A header of 32000 Hz, 64 points, a spectrum each quarter of a second, and a reference level of 50 dB re
/// 1 µPa: -120 - -170.
const QByteArray kHeader = QByteArrayLiteral("Nerivox spectrum file\t1\n"
                                             "Type\t0\n"
                                             "Device type\t5\n"
                                             "Serial\t1234\n"
                                             "Start\t2024-02-29 23:59:50\n"
                                             "Sample rate (Hz)\t32000\n"
                                             "Points\t64\n"
                                             "Points between\t32\n"
                                             "Accumulations\t250\n"
                                             "Reference level (dB re 1 V)\t-120\n"
                                             "Sensitivity (dB re 1 V/uPa)\t-170\n");
const QByteArray kTitles =
    QByteArrayLiteral("Time\tComment\tTemperature (C)\tHumidity (%)\tSequence\t0\t500\n");

/// A line of a spectrum of 32 bins of `floor`, but for one of them.
QByteArray lineOf(const QByteArray& time, int loudBin, const QByteArray& loud, const QByteArray& floor = "20")
{
    QByteArray line = "2024-" + time + "\t\t12.3\t25.5\t0";
    for (int bin = 0; bin < 32; ++bin)
        line += '\t' + (bin == loudBin ? loud : floor);
    return line + '\n';
}

/// Forty spectra of ten seconds over midnight, with the loudest bin at 20, and nothing from the third to the
/// fifth second.
QByteArray tenSeconds()
{
    QByteArray text = kHeader + kTitles;
    for (int second = 0; second < 10; ++second) {
        if (second == 3 || second == 4)
            continue;
        const QByteArray time = second < 5 ? "02-29 23:59:5" + QByteArray::number(second + 5)
                                           : "03-01 00:00:0" + QByteArray::number(second - 5);
        for (int i = 0; i < 4; ++i)
            text += lineOf(time, 20, "90");
    }
    return text;
}

} // namespace

class tst_spectrum_plot : public NvxTestCase
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_folder;

    QString pathOf(const char* name) const { return m_folder->filePath(QLatin1String(name)); }
    QString written(const QByteArray& text) const
    {
        QFile file(pathOf("spectra.txt"));
        return file.open(QIODevice::WriteOnly) && file.write(text) == text.size() ? file.fileName()
                                                                                  : QString();
    }

private Q_SLOTS:
    void init()
    {
        m_folder = std::make_unique<QTemporaryDir>();
        QVERIFY(m_folder->isValid());
    }
    void cleanup() { m_folder.reset(); }

    // --- happy flows
    void levelsAreThoseOfTheFile()
    {
        const SpectrumLevels levels = readSpectrumLevels(written(tenSeconds()), 1000);
        QCOMPARE(levels.error, QString());
        QCOMPARE(levels.oddLines, 0);
        QCOMPARE(levels.grid.bins, 32);
        QCOMPARE(levels.grid.columns.size(), size_t{1000});
        QVERIFY(std::abs(levels.grid.seconds - 10.0) < 1e-9);
        QVERIFY(std::abs(levels.grid.kilohertz - 16.0) < 1e-9);
        QCOMPARE(levels.grid.unit, QStringLiteral("dB re 1 µPa"));
        for (int column = 0; column < 1000; ++column) {
            const std::vector<float>& bins = levels.grid.columns[size_t(column)];
            if (column >= 300 && column < 500) {
                QVERIFY2(bins.empty(), qPrintable(QString::number(column)));
                continue;
            }
            QCOMPARE(bins.size(), size_t{32});
            for (int bin = 0; bin < 32; ++bin)
                QVERIFY(std::abs(bins[size_t(bin)] - (bin == 20 ? 140.0F : 70.0F)) < 0.01F);
        }
        for (const char* text : {"spectra.txt", "32 spectra", "64 points", "32000 Hz", "device 1234"})
            QVERIFY2(levels.title.contains(QLatin1String(text)), qPrintable(levels.title));
    }

    void spectraOfASecondFollowEachOther()
    {
        QByteArray text = kHeader + kTitles;
        for (int i = 0; i < 8; ++i)
            text += lineOf(i < 4 ? "02-29 23:59:50" : "02-29 23:59:51", i, "90");
        const SpectrumLevels levels = readSpectrumLevels(written(text), 16);
        QCOMPARE(levels.error, QString());
        QVERIFY(std::abs(levels.grid.seconds - 2.0) < 1e-9);
        for (int column = 0; column < 16; ++column)
            for (int bin = 0; bin < 8; ++bin)
                QVERIFY(std::abs(levels.grid.columns[size_t(column)][size_t(bin)] -
                                 (bin == column / 2 ? 140.0F : 70.0F)) < 0.01F);
    }

    void columnsAreMeansOfPower()
    {
        // 90 dB and silence: half of the power is 3 dB less.
        const QByteArray text = kHeader + kTitles + lineOf("02-29 23:59:50", 5, "90", "0") +
                                lineOf("02-29 23:59:50", 6, "80", "0");
        const SpectrumLevels levels = readSpectrumLevels(written(text), 1);
        QVERIFY(std::abs(levels.grid.columns[0][5] - 136.99F) < 0.01F);
        QVERIFY(std::abs(levels.grid.columns[0][6] - 126.99F) < 0.01F);
        QVERIFY(std::abs(levels.grid.columns[0][7] - 50.0F) < 0.01F);
    }

    void filteredSpectraAreAboveTheNoise()
    {
        const QByteArray text = kHeader + kTitles + lineOf("02-29 23:59:50", 5, "31.25", "-0.5");
        const SpectrumLevels levels = readSpectrumLevels(written(text), 1);
        QCOMPARE(levels.grid.unit, QStringLiteral("dB above noise"));
        QVERIFY(std::abs(levels.grid.columns[0][5] - 31.25F) < 0.01F);
        QVERIFY(std::abs(levels.grid.columns[0][6] + 0.5F) < 0.01F);
    }

    void pictureShowsTheBinAndTheGap()
    {
        const QString source = written(tenSeconds());
        const ExampleRun drawn = runExample(NVX_SPECTRUM_PLOT, {source, pathOf("some.png")});
        QVERIFY2(drawn.code == 0, qPrintable(drawn.errors));
        const QImage image(pathOf("some.png"));
        QCOMPARE(image.size(), QSize(1181, 579));
        // The plot is 1000 x 480 at 70, 40; each of the 32 bins is 15 rows high, the lowest at the bottom.
        const int middle = 40 + 480 - 20 * 15 - 8;
        const auto brightness = [&](int x, int y) { return qGray(image.pixel(x, y)); };
        for (const int x : {75, 200, 365, 575, 1065}) {
            for (int y = 42; y < 518; ++y) {
                const bool isLoud = std::abs(y - middle) <= 7;
                if (isLoud)
                    QVERIFY2(brightness(x, y) > 200, qPrintable(QStringLiteral("%1, %2").arg(x).arg(y)));
                else if (std::abs(y - middle) > 9)
                    QVERIFY2(brightness(x, y) < 80, qPrintable(QStringLiteral("%1, %2").arg(x).arg(y)));
            }
        }
        for (const int y : {50, middle, 500})
            for (const int x : {375, 470, 565})
                QCOMPARE(image.pixel(x, y), qRgb(225, 225, 225));
        // Texts: title, unit, and the labels of the three axes.
        const auto isDark = [&](const QRect& area) {
            for (int y = area.top(); y <= area.bottom(); ++y)
                for (int x = area.left(); x <= area.right(); ++x)
                    if (brightness(x, y) < 100)
                        return true;
            return false;
        };
        for (const QRect& area : {QRect(70, 5, 400, 30), QRect(1060, 5, 110, 30), QRect(0, 200, 20, 150),
                                  QRect(30, 40, 30, 480), QRect(70, 528, 1000, 20), QRect(1118, 40, 50, 480)})
            QVERIFY(isDark(area));
    }

    void pictureStandsBesideTheFile()
    {
        const ExampleRun drawn = runExample(NVX_SPECTRUM_PLOT, {written(tenSeconds())});
        QVERIFY2(drawn.code == 0, qPrintable(drawn.errors));
        QCOMPARE(QImage(pathOf("spectra.png")).width(), 1181);
    }

    void helpNamesFilesAndExitCodes()
    {
        const ExampleRun help = runExample(NVX_SPECTRUM_PLOT, {QStringLiteral("--help")});
        QCOMPARE(help.code, 0);
        QVERIFY(help.output.contains(QStringLiteral("FILE.txt [OUT.png]")));
        QVERIFY(help.output.contains(QStringLiteral("Exit codes: 0 done")));
    }

    // --- rainy day flows
    void oddLinesAreToldAndPassedOver()
    {
        const QByteArray text = tenSeconds() + "what is this\n" + lineOf("03-01 00:00:05", 20, "90").left(70);
        const ExampleRun drawn = runExample(NVX_SPECTRUM_PLOT, {written(text)});
        QCOMPARE(drawn.code, 0);
        QVERIFY2(drawn.errors.contains(QStringLiteral("2 lines hold no spectrum like the others.")),
                 qPrintable(drawn.errors));
        QVERIFY(QFile::exists(pathOf("spectra.png")));
    }

    void clockThatWentBackKeepsTheOrder()
    {
        const QByteArray text = kHeader + kTitles + lineOf("02-29 23:59:55", 1, "90") +
                                lineOf("02-29 23:59:50", 2, "90") + lineOf("02-29 23:59:56", 3, "90");
        const SpectrumLevels levels = readSpectrumLevels(written(text), 100);
        QCOMPARE(levels.error, QString());
        QVERIFY(std::abs(levels.grid.seconds - 1.25) < 1e-9);
        QVERIFY(levels.grid.columns[0][1] > 139.0F && levels.grid.columns[30][2] > 139.0F);
    }

    void levelsBeyondAllSoundAreHeld()
    {
        const QByteArray text = kHeader + kTitles + lineOf("02-29 23:59:50", 5, "1e300", "-1e300");
        const SpectrumLevels levels = readSpectrumLevels(written(text), 1);
        QVERIFY(std::abs(levels.grid.columns[0][5] - 300.0F) < 0.1F);
        QVERIFY(std::abs(levels.grid.columns[0][6] + 300.0F) < 0.1F);
        QCOMPARE(runExample(NVX_SPECTRUM_PLOT, {written(text)}).code, 0);
    }

    void wrongFiles_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("complaint");
        const QString none = QStringLiteral("there are no spectra in it.");
        QTest::newRow("empty") << QByteArray() << "this is no spectrum file.";
        QTest::newRow("another text") << QByteArray("Hello\n") << "this is no spectrum file.";
        QTest::newRow("wave file") << QByteArray("RIFF\0\0\0\0WAVE", 12) << "this is no spectrum file.";
        QTest::newRow("another version")
            << QByteArray(kHeader).replace("file\t1", "file\t2") << "this is no spectrum file.";
        QTest::newRow("header alone") << kHeader << none;
        QTest::newRow("no records") << kHeader + kTitles << none;
        QTest::newRow("battery readings")
            << kHeader + "Time\tComment\tDevice\tSerial\n2024-02-29 23:59:50\t\tRecorder A\t1234\t7.4\t0.12\n"
            << none;
        QTest::newRow("line without bins") << kHeader + kTitles + "2024-02-29 23:59:50\t\t1\t2\t3\n" << none;
        QTest::newRow("no rate") << QByteArray(kHeader).replace("(Hz)\t32000", "(Hz)\t0") + kTitles
                                 << "its header tells no sample rate or no points, as that of spectra does.";
        QTest::newRow("no points")
            << QByteArray(kHeader).replace("Points\t64", "Points\t0") + kTitles
            << "its header tells no sample rate or no points, as that of spectra does.";
    }
    void wrongFiles()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, complaint);
        const QString path = written(text);
        const ExampleRun drawn = runExample(NVX_SPECTRUM_PLOT, {path});
        QCOMPARE(drawn.code, 1);
        QVERIFY2(drawn.errors.contains(QStringLiteral("spectrum-plot: %1: %2").arg(path, complaint)),
                 qPrintable(drawn.errors));
        QVERIFY(!QFile::exists(pathOf("spectra.png")));
    }

    void wrongUse_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("complaint");
        QTest::newRow("nothing") << QStringList{} << "spectrum-plot: give a spectrum file";
        QTest::newRow("too much") << QStringList{QStringLiteral("a"), QStringLiteral("b"),
                                                 QStringLiteral("c")}
                                  << "spectrum-plot: give a spectrum file";
        QTest::newRow("unknown option") << QStringList{QStringLiteral("--loud")} << "loud";
        QTest::newRow("no such file")
            << QStringList{QStringLiteral("/nowhere/at/all.txt")} << "spectrum-plot: /nowhere/at/all.txt: ";
        QTest::newRow("directory") << QStringList{QStringLiteral("/")}
                                   << "spectrum-plot: /: this is a directory.";
    }
    void wrongUse()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, complaint);
        const ExampleRun drawn = runExample(NVX_SPECTRUM_PLOT, arguments);
        QCOMPARE(drawn.code, 1);
        QVERIFY2(drawn.errors.contains(complaint), qPrintable(drawn.errors));
    }

    void pictureThatCannotBeWritten()
    {
        const ExampleRun drawn =
            runExample(NVX_SPECTRUM_PLOT, {written(tenSeconds()), pathOf("no/such/folder.png")});
        QCOMPARE(drawn.code, 1);
        QVERIFY2(drawn.errors.contains(QStringLiteral("folder.png: the picture can't be written.")),
                 qPrintable(drawn.errors));
    }
};

QTEST_GUILESS_MAIN(tst_spectrum_plot)
#include "tst_spectrum_plot.moc"
