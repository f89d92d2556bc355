#include "KillPage.h"
#include "WavJudge.h"

#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTimer>

#include <memory>
#include <vector>

namespace {

constexpr int kTogether = 10;
constexpr int kLongestLifeMs = 2500;

int killCount()
{
    return qMax(1, qEnvironmentVariableIntValue("NVX_KILLS"));
}

quint32 seed()
{
    bool given = false;
    const uint value = qEnvironmentVariable("NVX_SEED").toUInt(&given);
    return given ? value : QRandomGenerator::global()->generate();
}

/// A recording program that is to be killed.
struct Victim
{
    uint32_t rate = 0;
    int bits = 0;
    bool bigEndian = false;
    int lifeMs = 0;
    QTemporaryDir dir;
    QProcess program;
    QTimer death;

    QString describe() const
    {
        return QStringLiteral("%1 Hz, %2 bits, %3, killed after %4 ms")
            .arg(rate)
            .arg(bits)
            .arg(bigEndian ? QStringLiteral("RIFX") : QStringLiteral("RIFF"))
            .arg(lifeMs);
    }
    QString pagePath() const { return dir.filePath(QStringLiteral("page")); }
};

/// What is wrong with the files that a victim left; empty when nothing is.
QString objectionTo(const Victim& victim, int& files)
{
    const KillPage page(QFile::encodeName(victim.pagePath()).constData());
    const auto handedOver = static_cast<qint64>(page.load());
    const QDir dir(victim.dir.path());
    const QStringList names = dir.entryList({QStringLiteral("*.wav")}, QDir::Files, QDir::Name);
    qint64 frames = 0;
    for (const QString& name : names) {
        const QString path = dir.filePath(name);
        // Killed between the making of a file and its header: there is nothing in it that could be lost.
        if (name == names.last() && QFileInfo(path).size() == 0)
            continue;
        const JudgedWav wav = judgeWav(path);
        if (!wav.error.isEmpty())
            return name + QStringLiteral(": ") + wav.error;
        const QString sox = soxObjection(path);
        if (!sox.isEmpty())
            return sox;
        if (wav.bits != victim.bits || wav.rate != int(victim.rate) || wav.channels != 1)
            return name + QStringLiteral(" has another format");
        for (const int32_t sample : wav.samples) {
            const auto expected = static_cast<int32_t>(static_cast<uint32_t>(frames) << (32 - victim.bits));
            if (sample != expected >> (32 - victim.bits))
                return QStringLiteral("%1: sample %2 is %3").arg(name).arg(frames).arg(sample);
            ++frames;
        }
        ++files;
    }
    const qint64 behind = handedOver - frames;
    if (behind >= victim.rate)
        return QStringLiteral("%1 of %2 samples are missing").arg(behind).arg(handedOver);
    if (behind < -qint64{victim.rate} / 50)
        return QStringLiteral("there are more samples than were handed over");
    return {};
}

} // namespace

class tst_WavLoggerKill : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- rainy day flows
    void killedProgramsLeaveReadableFiles()
    {
        const int kills = killCount();
        const quint32 usedSeed = seed();
        qInfo("%d kills, seed %u (NVX_SEED repeats it)", kills, usedSeed);
        QRandomGenerator random(usedSeed);
        int readable = 0;
        int files = 0;
        while (readable < kills) {
            std::vector<std::unique_ptr<Victim>> victims;
            for (int i = 0; i < qMin(kTogether, kills - readable); ++i) {
                victims.push_back(makeVictim(random));
                start(*victims.back());
            }
            for (const auto& victim : victims) {
                QTRY_COMPARE_WITH_TIMEOUT(victim->program.state(), QProcess::NotRunning, 30000);
                QCOMPARE(victim->program.exitStatus(), QProcess::CrashExit);
                const QString objection = objectionTo(*victim, files);
                QVERIFY2(objection.isEmpty(),
                         qPrintable(victim->describe() + QStringLiteral(": ") + objection));
                ++readable;
            }
        }
        QCOMPARE(readable, kills);
        QVERIFY(files >= kills);
    }

private:
    static std::unique_ptr<Victim> makeVictim(QRandomGenerator& random)
    {
        static const uint32_t kRates[] = {8000, 48000, 96000, 256000};
        static const int kBits[] = {16, 24, 32};
        auto victim = std::make_unique<Victim>();
        victim->rate = kRates[random.bounded(4)];
        victim->bits = kBits[random.bounded(3)];
        victim->bigEndian = random.bounded(2) == 1;
        victim->lifeMs = random.bounded(kLongestLifeMs);
        return victim;
    }

    void start(Victim& victim)
    {
        victim.death.setSingleShot(true);
        connect(&victim.death, &QTimer::timeout, &victim.program, &QProcess::kill);
        // Its life counts from its first words.
        connect(&victim.program, &QProcess::readyReadStandardOutput, &victim.death,
                [&victim] { victim.death.start(victim.lifeMs); });
        victim.program.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        victim.program.start(QStringLiteral(WAV_KILL_TARGET),
                             {victim.dir.path(), victim.pagePath(), QString::number(victim.rate),
                              QString::number(victim.bits), QString::number(victim.bigEndian ? 1 : 0)});
    }
};

QTEST_GUILESS_MAIN(tst_WavLoggerKill)
#include "tst_WavLoggerKill.moc"
