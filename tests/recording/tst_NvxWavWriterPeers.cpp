#include "WavFeeder.h"
#include "WavJudge.h"

#include "tests/support/NvxTestCase.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

namespace {

constexpr uint32_t kTime = 1709210400;

/// The samples as sox decodes them, 32 bits each.
QByteArray soxSamples(const QString& path)
{
    QProcess sox;
    sox.start(QStringLiteral("sox"), {QStringLiteral("-D"), path, QStringLiteral("-t"), QStringLiteral("s32"),
                                      QStringLiteral("-L"), QStringLiteral("-")});
    sox.waitForFinished(30000);
    return sox.readAllStandardOutput();
}

} // namespace

/// Every kind of file that the writer makes, before programs that others wrote.
class tst_NvxWavWriterPeers : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void peersReadEveryFormat_data()
    {
        QTest::addColumn<int>("bits");
        QTest::addColumn<int>("channels");
        QTest::addColumn<bool>("bigEndian");
        QTest::addColumn<quint32>("rate");
        for (int bits : {16, 24, 32}) {
            for (int channels = 1; channels <= 8; ++channels) {
                for (bool bigEndian : {false, true})
                    QTest::addRow("%d bits, %d channels, %s", bits, channels, bigEndian ? "RIFX" : "RIFF")
                        << bits << channels << bigEndian << (channels % 2 == 0 ? 48000U : 512000U);
            }
        }
    }
    void peersReadEveryFormat()
    {
        QFETCH(int, bits);
        QFETCH(int, channels);
        QFETCH(bool, bigEndian);
        QFETCH(quint32, rate);
        QTemporaryDir dir;
        NvxWavWriter writer(600, dir.path().toStdWString());
        writer.setBigEndian(bigEndian);
        WavFeeder feeder(writer);
        feeder.bits = static_cast<unsigned char>(bits);
        feeder.channels = static_cast<unsigned>(channels);
        feeder.rate = rate;
        feeder.blocksBigEndian = bigEndian;
        QVERIFY(feeder.header(kTime, 0));
        for (unsigned short count : {4096, 4095, 1, 777})
            QVERIFY(feeder.block(kTime, 0, count));
        writer.finishFile();
        QCOMPARE(writer.errorCode(), WavErrNone);

        const QString path = feeder.newFiles.first();
        QCOMPARE(wholeFileObjection(path), QString());
        QCOMPARE(ffprobeObjection(path), QString());
        const JudgedWav wav = judgeWav(path);
        QCOMPARE(wav.channels, channels);
        QCOMPARE(wav.bits, bits);
        QCOMPARE(wav.rate, int(rate));
        QCOMPARE(wav.frames, 8969);
        QCOMPARE(viewRiff(path).isBigEndian, bigEndian);
        const QByteArray sox = soxSamples(path);
        QCOMPARE(sox.size(), qsizetype(wav.samples.size() * 4));
        const auto* soxSample = reinterpret_cast<const int32_t*>(sox.constData());
        for (size_t i = 0; i < wav.samples.size(); ++i) {
            const unsigned channel = unsigned(i) % unsigned(channels);
            const int32_t expected = feeder.rampValue(i / unsigned(channels), channel);
            if (wav.samples[i] != expected || soxSample[i] >> (32 - bits) != expected)
                QFAIL(qPrintable(QStringLiteral("sample %1: %2, by libsndfile %3, by sox %4")
                                     .arg(i)
                                     .arg(expected)
                                     .arg(wav.samples[i])
                                     .arg(soxSample[i] >> (32 - bits))));
        }
    }

    void peersSeeTheComment()
    {
        QTemporaryDir dir;
        NvxWavWriter writer(600, dir.path().toStdWString());
        WavFeeder feeder(writer);
        QVERIFY(feeder.second(kTime, 0));
        writer.finishFile();
        QProcess probe;
        probe.start(QStringLiteral("ffprobe"),
                    {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-show_entries"),
                     QStringLiteral("format_tags"), feeder.newFiles.first()});
        QVERIFY(probe.waitForFinished(30000));
        const QString tags = QString::fromUtf8(probe.readAllStandardOutput());
        QVERIFY2(tags.contains(QStringLiteral("title=ABC0042_20240229_124000")), qPrintable(tags));
        QVERIFY2(tags.contains(QStringLiteral("gain 12 dB")), qPrintable(tags));
        QVERIFY2(tags.contains(QStringLiteral("date=2024-02-29T12:40:00Z")), qPrintable(tags));
    }

    // --- rainy day flows
    void peersReadWhatAKilledProgramLeaves_data()
    {
        QTest::addColumn<int>("bits");
        QTest::addColumn<bool>("bigEndian");
        QTest::addColumn<QList<int>>("blocks");
        for (int bits : {16, 24, 32}) {
            for (bool bigEndian : {false, true}) {
                const auto name = [&](const char* what) {
                    return QStringLiteral("%1 bits, %2, %3")
                        .arg(bits)
                        .arg(bigEndian ? QStringLiteral("RIFX") : QStringLiteral("RIFF"))
                        .arg(QLatin1String(what))
                        .toUtf8();
                };
                QTest::newRow(name("no block yet")) << bits << bigEndian << QList<int>{};
                QTest::newRow(name("one block")) << bits << bigEndian << QList<int>{333};
                QTest::newRow(name("sizes behind")) << bits << bigEndian << QList<int>{333, 400, 599};
                QTest::newRow(name("sizes just renewed")) << bits << bigEndian << QList<int>{333, 1000};
                QTest::newRow(name("several seconds"))
                    << bits << bigEndian << QList<int>{100, 900, 900, 900, 900, 555};
            }
        }
    }
    void peersReadWhatAKilledProgramLeaves()
    {
        QFETCH(int, bits);
        QFETCH(bool, bigEndian);
        QFETCH(QList<int>, blocks);
        QTemporaryDir dir;
        NvxWavWriter writer(600, dir.path().toStdWString());
        writer.setBigEndian(bigEndian);
        WavFeeder feeder(writer);
        feeder.bits = static_cast<unsigned char>(bits);
        feeder.blocksBigEndian = bigEndian;
        QVERIFY(feeder.header(kTime, 0));
        qint64 given = 0;
        for (int count : blocks) {
            QVERIFY(feeder.block(kTime, 0, static_cast<unsigned short>(count)));
            given += count;
        }
        // A copy of the file as it stands is what a kill at this moment would leave.
        const QString left = dir.filePath(QStringLiteral("left.wav"));
        QVERIFY(QFile::copy(feeder.newFiles.first(), left));
        QCOMPARE(soxObjection(left), QString());
        QCOMPARE(ffprobeObjection(left), QString());
        const JudgedWav wav = judgeWav(left);
        QCOMPARE(wav.error, QString());
        QCOMPARE(wav.bits, bits);
        QVERIFY2(given - wav.frames < 1000, qPrintable(QString::number(wav.frames)));
        for (size_t i = 0; i < wav.samples.size(); ++i)
            QCOMPARE(wav.samples[i], feeder.rampValue(i, 0));
    }
};

QTEST_GUILESS_MAIN(tst_NvxWavWriterPeers)
#include "tst_NvxWavWriterPeers.moc"
