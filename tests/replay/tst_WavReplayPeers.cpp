#include "WavFiles.h"
#include "WavReplay.h"
#include "WavSignal.h"

#include "NvxQtCommon/contract/stream/FftParams.h"
#include "tests/recording/WavJudge.h"
#include "tests/support/FftParamsGuard.h"
#include "tests/support/NvxTestCase.h"

#include <QProcess>

namespace {

/// What a whole tick holds of each channel.
int tickFrames(int rate)
{
    const auto transforms = (rate + int(FFT_Params_WAV.fftLength()) - 1) / int(FFT_Params_WAV.fftLength());
    if (transforms % 4 == 0)
        return rate / 4;
    return transforms % 2 == 0 ? rate / 2 : rate;
}

const QString kPythonMaker = QStringLiteral(R"(
import sys, wave
source, target, channels, rate, bits = sys.argv[1:]
with wave.open(target, "wb") as out:
    out.setnchannels(int(channels))
    out.setframerate(int(rate))
    out.setsampwidth(int(bits) // 8)
    out.writeframes(open(source, "rb").read())
)");

/// Runs a program of others; what it writes to its standard output goes to `output`, where one is given.
QString run(const QString& program, const QStringList& arguments, const QString& output = {})
{
    QProcess process;
    if (!output.isEmpty())
        process.setStandardOutputFile(output);
    process.start(program, arguments);
    if (!process.waitForStarted() || !process.waitForFinished(60000))
        return program + QStringLiteral(" did not run");
    return process.exitCode() == 0 ? QString() : QString::fromUtf8(process.readAllStandardError());
}

} // namespace

/// Wave files that programs of others made.
class tst_WavReplayPeers : public NvxTestCase
{
    Q_OBJECT

    FftParamsGuard m_fftParams;
    WavFolder m_dir;
    const QString m_raw = m_dir.filePath(QStringLiteral("samples.raw"));
    const QString m_wav = m_dir.filePath(QStringLiteral("made.wav"));

    /// Makes m_wav out of the little-endian samples in m_raw; says what went wrong.
    QString make(const QString& how, int channels, int rate, int bits) const
    {
        const QString c = QString::number(channels);
        const QString r = QString::number(rate);
        const QString b = QString::number(bits);
        if (how.startsWith(QStringLiteral("sox"))) {
            QStringList arguments{QStringLiteral("-D"),
                                  QStringLiteral("-t"),
                                  QStringLiteral("raw"),
                                  QStringLiteral("-L"),
                                  QStringLiteral("-e"),
                                  bits == 8 ? QStringLiteral("unsigned") : QStringLiteral("signed"),
                                  QStringLiteral("-b"),
                                  b,
                                  QStringLiteral("-c"),
                                  c,
                                  QStringLiteral("-r"),
                                  r,
                                  m_raw};
            if (how == QStringLiteral("sox RIFX"))
                arguments << QStringLiteral("-B");
            if (how == QStringLiteral("sox plain tag"))
                arguments << QStringLiteral("-t") << QStringLiteral("wavpcm");
            return run(QStringLiteral("sox"), arguments << m_wav);
        }
        if (how == QStringLiteral("python"))
            return run(QStringLiteral("/usr/bin/python3"),
                       {QStringLiteral("-c"), kPythonMaker, m_raw, m_wav, c, r, b});
        const QString format = (bits == 8 ? QStringLiteral("u8") : QStringLiteral("s%1le").arg(bits));
        QStringList arguments{QStringLiteral("-v"),
                              QStringLiteral("error"),
                              QStringLiteral("-y"),
                              QStringLiteral("-f"),
                              format,
                              QStringLiteral("-ar"),
                              r,
                              QStringLiteral("-ac"),
                              c,
                              QStringLiteral("-i"),
                              m_raw,
                              QStringLiteral("-c:a"),
                              QStringLiteral("pcm_") + format};
        if (how == QStringLiteral("ffmpeg bext"))
            arguments << QStringLiteral("-write_bext") << QStringLiteral("1") << QStringLiteral("-metadata")
                      << QStringLiteral("description=a text of odd size");
        if (how == QStringLiteral("ffmpeg without a list"))
            arguments << QStringLiteral("-fflags") << QStringLiteral("+bitexact");
        if (how == QStringLiteral("ffmpeg pipe"))
            return run(QStringLiteral("ffmpeg"),
                       arguments << QStringLiteral("-f") << QStringLiteral("wav") << QStringLiteral("-"),
                       m_wav);
        return run(QStringLiteral("ffmpeg"), arguments << m_wav);
    }

    bool writeRaw(const QByteArray& bytes) const
    {
        QFile raw(m_raw);
        return raw.open(QIODevice::WriteOnly) && raw.write(bytes) == bytes.size();
    }

private Q_SLOTS:
    void cleanup()
    {
        QFile::remove(m_wav);
        m_fftParams.restore();
    }

    // --- happy flows
    void replaysWhatTheyMade_data()
    {
        QTest::addColumn<QString>("how");
        QTest::addColumn<int>("channels");
        QTest::addColumn<int>("rate");
        QTest::addColumn<int>("bits");
        const auto row = [](const char* how, int channels, int rate, int bits) {
            QTest::addRow("%s, %d channels, %d Hz, %d bits", how, channels, rate, bits)
                << QString::fromLatin1(how) << channels << rate << bits;
        };
        for (const char* how : {"sox", "sox RIFX", "ffmpeg", "python"}) {
            for (int bits : {8, 16, 24, 32}) {
                for (int channels : {1, 2})
                    row(how, channels, 8000, bits);
            }
        }
        for (int channels = 3; channels <= 8; ++channels)
            row(channels % 2 == 0 ? "sox" : "ffmpeg", channels, 16000, 24);
        for (int rate : {11025, 22050, 44100, 48000, 96000, 192000, 256000, 512000})
            row("sox", 1, rate, 24);
        row("ffmpeg", 2, 512000, 32);
        row("python", 8, 48000, 16);
        for (const char* how : {"sox plain tag", "ffmpeg bext", "ffmpeg without a list", "ffmpeg pipe"})
            row(how, 2, 8000, 24);
    }
    void replaysWhatTheyMade()
    {
        QFETCH(QString, how);
        QFETCH(int, channels);
        QFETCH(int, rate);
        QFETCH(int, bits);
        const int frames = rate + rate / 3;
        const WavSignal signal = makeSignal(frames, channels, bits, false);
        QVERIFY(writeRaw(signal.bytes));
        QCOMPARE(make(how, channels, rate, bits), QString());
        WavReplay replay(m_wav);
        QVERIFY(replay.prepare());
        QCOMPARE(int(replay.file.sampleRate()), rate);
        QCOMPARE(replay.file.length(), 1U);
        QCOMPARE(replay.file.channelDevices(), QList<HydDeviceId>(channels, HydDeviceId(DevTypeWavFile, 0)));
        QVERIFY(replay.play());
        const int played = frames / tickFrames(rate) * tickFrames(rate);
        for (int channel = 0; channel < channels; ++channel) {
            const auto& source = signal.channels[size_t(channel)];
            QVERIFY(replay.samples(channel) == std::vector<int32_t>(source.begin(), source.begin() + played));
        }
        QCOMPARE(replay.blocks.front().data().isBigEndian(), how == QStringLiteral("sox RIFX"));
    }

    void replaysWhatTheyHear_data()
    {
        QTest::addColumn<QStringList>("sound");
        QTest::addColumn<int>("bits");
        for (int bits : {16, 24, 32}) {
            QTest::addRow("tone, %d bits", bits)
                << QStringList{QStringLiteral("sine"), QStringLiteral("1000")} << bits;
            QTest::addRow("noise, %d bits", bits) << QStringList{QStringLiteral("whitenoise")} << bits;
        }
    }
    void replaysWhatTheyHear()
    {
        QFETCH(QStringList, sound);
        QFETCH(int, bits);
        const QStringList arguments{
            QStringLiteral("-R"),    QStringLiteral("-D"), QStringLiteral("-n"),  QStringLiteral("-r"),
            QStringLiteral("32000"), QStringLiteral("-b"), QString::number(bits), m_wav,
            QStringLiteral("synth"), QStringLiteral("1.6")};
        QCOMPARE(run(QStringLiteral("sox"), arguments + sound), QString());
        const JudgedWav judged = judgeWav(m_wav);
        QCOMPARE(judged.error, QString());
        WavReplay replay(m_wav);
        QVERIFY(replay.prepare());
        QVERIFY(replay.play());
        const auto played = replay.samples(0);
        QCOMPARE(played.size(), size_t{48000});
        QVERIFY(std::equal(played.begin(), played.end(), judged.samples.begin()));
        QVERIFY(*std::max_element(played.begin(), played.end()) > 1 << (bits - 4));
    }

    // --- rainy day flows
    void refusesWhatIsNoSample_data()
    {
        QTest::addColumn<QStringList>("format");
        const auto row = [](const char* name, const char* codec) {
            QTest::newRow(name) << QStringList{QStringLiteral("-c:a"), QString::fromLatin1(codec)};
        };
        row("single precision", "pcm_f32le");
        row("double precision", "pcm_f64le");
        row("64 bits", "pcm_s64le");
        row("A-law", "pcm_alaw");
        row("ADPCM", "adpcm_ms");
        QTest::newRow("RF64") << QStringList{QStringLiteral("-rf64"), QStringLiteral("always")};
        QTest::newRow("other container") << QStringList{QStringLiteral("-f"), QStringLiteral("w64")};
        QTest::newRow("no sound at all") << QStringList{QStringLiteral("-f"), QStringLiteral("avi")};
    }
    void refusesWhatIsNoSample()
    {
        QFETCH(QStringList, format);
        QVERIFY(writeRaw(makeSignal(8000, 1, 16, false).bytes));
        const QStringList input{
            QStringLiteral("-v"),  QStringLiteral("error"), QStringLiteral("-f"), QStringLiteral("s16le"),
            QStringLiteral("-ar"), QStringLiteral("8000"),  QStringLiteral("-i"), m_raw};
        QCOMPARE(run(QStringLiteral("ffmpeg"), input + format + QStringList{m_wav}), QString());
        WavReplay replay(m_wav);
        QVERIFY(!replay.prepare());
        QVERIFY(!replay.file.header());
    }
};

QTEST_GUILESS_MAIN(tst_WavReplayPeers)
#include "tst_WavReplayPeers.moc"
