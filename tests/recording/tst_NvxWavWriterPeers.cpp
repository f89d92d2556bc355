#include "WavFeeder.h"
#include "WavJudge.h"

#include "tests/support/NvxTestCase.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtEndian>

namespace {

constexpr uint32_t kTime = 1709210400;

/// The samples as sox decodes them.
std::vector<int32_t> soxSamples(const QString& path, int bits)
{
    QProcess sox;
    sox.start(QStringLiteral("sox"), {QStringLiteral("-D"), path, QStringLiteral("-t"), QStringLiteral("s32"),
                                      QStringLiteral("-L"), QStringLiteral("-")});
    if (!sox.waitForFinished(30000))
        return {};
    const QByteArray bytes = sox.readAllStandardOutput();
    std::vector<int32_t> samples(static_cast<size_t>(bytes.size()) / 4);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = qFromLittleEndian<int32_t>(bytes.constData() + 4 * i) >> (32 - bits);
    return samples;
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
        QTest::addColumn<bool>("allPeers");
        for (int bits : {16, 24, 32}) {
            for (int channels = 1; channels <= 8; ++channels) {
                for (bool bigEndian : {false, true})
                    QTest::addRow("%d bits, %d channels, %s", bits, channels, bigEndian ? "RIFX" : "RIFF")
                        << bits << channels << bigEndian << (channels % 2 == 0 ? 48000U : 512000U)
                        << (channels == 1 || channels == 3 || channels == 8);
            }
        }
    }
    void peersReadEveryFormat()
    {
        QFETCH(int, bits);
        QFETCH(int, channels);
        QFETCH(bool, bigEndian);
        QFETCH(quint32, rate);
        QFETCH(bool, allPeers);
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
        const JudgedWav wav = judgeWav(path);
        QCOMPARE(wav.channels, channels);
        QCOMPARE(wav.bits, bits);
        QCOMPARE(wav.rate, int(rate));
        QCOMPARE(wav.frames, 8969);
        QCOMPARE(viewRiff(path).isBigEndian, bigEndian);
        std::vector<int32_t> expected;
        for (uint64_t frame = 0; frame < 8969; ++frame) {
            for (unsigned channel = 0; channel < unsigned(channels); ++channel)
                expected.push_back(feeder.rampValue(frame, channel));
        }
        QVERIFY(wav.samples == expected);
        if (!allPeers)
            return;
        QCOMPARE(ffprobeObjection(path), QString());
        QVERIFY(soxSamples(path, bits) == expected);
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
        if (blocks.size() == 3)
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
