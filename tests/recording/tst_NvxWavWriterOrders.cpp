#include "WavFeeder.h"
#include "WavJudge.h"

#include "NvxQtCommon/contract/recording/NvxWavTestInfoData.h"
#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <algorithm>

namespace {

constexpr uint32_t kTime = 1709210400;
constexpr uint32_t kSpan = 10;
constexpr int kEvents = 120;

quint32 seed()
{
    bool given = false;
    const uint value = qEnvironmentVariable("NVX_SEED").toUInt(&given);
    return given ? value : QRandomGenerator::global()->generate();
}

/// A stream that comes in any order whatever.
class Storm
{
public:
    Storm(quint32 seed, bool withBadFormats)
        : m_random(seed), m_withBadFormats(withBadFormats), m_writer(kSpan, m_dir.path().toStdWString()),
          m_feeder(m_writer)
    {
    }

    /// False when an event wasn't taken at its second dispatch at the latest.
    bool step()
    {
        const uint32_t time = m_random.bounded(8) == 0 ? 0 : m_time;
        const uint64_t start = time == 0 ? 0 : m_start;
        switch (m_random.bounded(9)) {
        case 0:
            m_time += m_random.bounded(3) == 0 ? kSpan : 1;
            m_start = m_random.bounded(3) == 0 ? m_random.generate() : m_start + m_inSecond;
            m_inSecond = 0;
            if (m_random.bounded(4) == 0)
                changeFormat();
            [[fallthrough]];
        case 1:
            m_takesData = true;
            return taken(m_feeder.info(m_time, m_start)) && taken(m_feeder.setup(m_time, m_start));
        case 2:
            // Alone or without a key, both tell of the same format, so blocks go on fitting.
            return taken(m_feeder.info(time, start));
        case 3:
            return taken(m_feeder.setup(time, start));
        case 4:
            return taken(m_feeder.process(m_nothing, time, start));
        case 5:
            return m_random.bounded(6) != 0 || finish();
        default:
            return !m_takesData || block(time, start);
        }
    }

    void end() { m_writer.finishFile(); }

    QString objection() const
    {
        const QDir dir(m_dir.path());
        QStringList files;
        for (const QString& name : dir.entryList(QDir::Files))
            files.append(dir.filePath(name));
        QStringList told = m_feeder.newFiles;
        std::sort(told.begin(), told.end());
        std::sort(files.begin(), files.end());
        if (told != files)
            return QStringLiteral("%1 files were told, %2 are there").arg(told.size()).arg(files.size());
        qint64 frames = 0;
        for (const QString& file : files) {
            const JudgedWav wav = judgeWav(file);
            const RiffView view = viewRiff(file);
            if (!wav.error.isEmpty() || qint64{view.riffSize} + 8 != view.fileSize || view.fileSize % 2 != 0)
                return file + QStringLiteral(" is not whole: ") + wav.error;
            frames += wav.frames;
        }
        if (!m_withBadFormats && frames != m_given)
            return QStringLiteral("%1 of %2 samples are there").arg(frames).arg(m_given);
        return {};
    }

private:
    bool taken(bool consumed) const { return consumed && m_feeder.dispatches <= 2; }

    bool block(uint32_t time, uint64_t start)
    {
        const auto count = static_cast<unsigned short>(m_random.bounded(700));
        m_given += count;
        m_inSecond += count;
        return taken(m_feeder.block(time, start, count));
    }

    void changeFormat()
    {
        m_feeder.channels = 1 + m_random.bounded(3U);
        m_feeder.bits = static_cast<unsigned char>(16 + 8 * m_random.bounded(3));
        m_feeder.rate = 1000 + m_random.bounded(3U);
        if (m_withBadFormats && m_random.bounded(3) == 0)
            m_feeder.bits = 8;
        // Nothing of what is told twice may differ, or it would be a repetition that no file follows.
        m_start += 1;
    }

    bool finish()
    {
        const bool stops = m_random.bounded(2) == 0;
        m_writer.setStopLogging(stops);
        m_writer.finishFile();
        const bool consumed = !stops || taken(m_feeder.info(m_time, m_start));
        m_writer.setStopLogging(false);
        m_takesData = false;
        return consumed;
    }

    QRandomGenerator m_random;
    bool m_withBadFormats;
    QTemporaryDir m_dir;
    NvxWavWriter m_writer;
    WavFeeder m_feeder;
    NvxWavTestInfoData m_nothing;
    uint32_t m_time = kTime;
    uint64_t m_start = 1;
    uint64_t m_inSecond = 0;
    bool m_takesData = false;
    qint64 m_given = 0;
};

} // namespace

/// Events in any order: each one is taken, no sample is lost, all files are whole.
class tst_NvxWavWriterOrders : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- rainy day flows
    void anyOrder_data()
    {
        QTest::addColumn<bool>("withBadFormats");
        QTest::newRow("formats that files hold") << false;
        QTest::newRow("other formats as well") << true;
    }
    void anyOrder()
    {
        QFETCH(bool, withBadFormats);
        const quint32 first = seed();
        qInfo("seed %u (NVX_SEED repeats it)", first);
        for (quint32 run = 0; run < 150; ++run) {
            Storm storm(first + run, withBadFormats);
            for (int event = 0; event < kEvents; ++event)
                QVERIFY2(storm.step(), qPrintable(QStringLiteral("run %1, event %2").arg(run).arg(event)));
            storm.end();
            const QString objection = storm.objection();
            QVERIFY2(objection.isEmpty(), qPrintable(QStringLiteral("run %1: ").arg(run) + objection));
        }
    }
};

QTEST_GUILESS_MAIN(tst_NvxWavWriterOrders)
#include "tst_NvxWavWriterOrders.moc"
