#include "NvxQtCommon/contract/job/HydJobSettings.h"

#include "NvxQtCommon/contract/base/NvxLog.h"
#include "tests/support/NvxTestCase.h"

#include <QByteArrayList>

#include <functional>

class tst_HydJobSettings : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void setterAndGetterBelongToTheirTag_data();
    void setterAndGetterBelongToTheirTag();
    void realRateIsTheRate();
    void mapIsReplacedAndMerged();
    void tagsAreSharedByCopies();
    void textHasALineForEachTag();
    void updateRate_data();
    void updateRate();
    void setupThatCanRun_data();
    void setupThatCanRun();
    void derivedClassIsHeardThroughTheBase();
    // --- rainy day flows
    void missingTagsReadZero();
    void wideValuesAreCutToTheirWidth_data();
    void wideValuesAreCutToTheirWidth();
    void differenceAboveAWidthIsNone();
    void everyGetterCountsInAComparison_data();
    void everyGetterCountsInAComparison();
    void equalGettersAndOtherTagCountsAreUnequal();
    void tagsWithoutAGetterCountByNumberOnly();
    void realRateTakesNoPart();
    void nullTagsAreIgnored();
    void ownMapMayBeSet();
    void setupThatCannotRun_data();
    void setupThatCannotRun();
    void everyDifferenceIsALine();
    void unknownTagsAreCounted();
    void unknownBytesAreCounted();
    void unknownTagsAreBoundedInEachWay_data();
    void unknownTagsAreBoundedInEachWay();
};

namespace {

/// One getter and setter pair: its tag, the width of its value and the two functions through plain numbers.
struct Access
{
    const char* name;
    JobTagKey key;
    int bits;
    std::function<int64_t(const HydJobSettings&)> get;
    std::function<void(HydJobSettings&, uint32_t)> set;
};

template <class T>
Access access(const char* name, JobTagKey key, T (HydJobSettings::*get)() const,
              void (HydJobSettings::*set)(T))
{
    return {name, key, int{sizeof(T)} * 8,
            [get](const HydJobSettings& settings) { return static_cast<int64_t>((settings.*get)()); },
            [set](HydJobSettings& settings, uint32_t value) { (settings.*set)(static_cast<T>(value)); }};
}

const std::vector<Access>& allAccess()
{
    using S = HydJobSettings;
    static const std::vector<Access> all{
        access("auxFunc", JobTagAuxFunc, &S::auxFunc, &S::setAuxFunc),
        access("auxMsg", JobTagAuxMsg, &S::auxMsg, &S::setAuxMsg),
        access("wavLogStartTime", JobTagWavLogStartTime, &S::wavLogStartTime, &S::setWavLogStartTime),
        access("fftRate", JobTagFftRate, &S::fftRate, &S::setFftRate),
        access("fftRef", JobTagFftRef, &S::fftRef, &S::setFftRef),
        access("fftPoints", JobTagFftPoints, &S::fftPoints, &S::setFftPoints),
        access("fftPointsBtw", JobTagFftPointsBtw, &S::fftPointsBtw, &S::setFftPointsBtw),
        access("fftProcType", JobTagFftProcType, &S::fftProcType, &S::setFftProcType),
        access("fftAccum", JobTagFftAccum, &S::fftAccum, &S::setFftAccum),
        access("fftWeight", JobTagFftWeight, &S::fftWeight, &S::setFftWeight),
        access("fftLogMode", JobTagFftLogMode, &S::fftLogMode, &S::setFftLogMode),
        access("fftLogLen", JobTagFftLogLen, &S::fftLogLen, &S::setFftLogLen),
        access("dutyCyclePeriod", JobTagDutyCyclePeriod, &S::dutyCyclePeriod, &S::setDutyCyclePeriod),
        access("dutyCycleActive", JobTagDutyCycleActive, &S::dutyCycleActive, &S::setDutyCycleActive),
        access("dutyCycleIgn", JobTagDutyCycleIgn, &S::dutyCycleIgn, &S::setDutyCycleIgn),
        access("wavRate", JobTagWavRate, &S::wavRate, &S::setWavRate),
        access("wavDataFormat", JobTagWavDataFormat, &S::wavDataFormat, &S::setWavDataFormat),
        access("wavBitDepth", JobTagWavBitDepth, &S::wavBitDepth, &S::setWavBitDepth),
        access("wavByteOrder", JobTagWavByteOrder, &S::wavByteOrder, &S::setWavByteOrder),
        access("wavGain", JobTagWavGain, &S::wavGain, &S::setWavGain),
        access("wavLogMode", JobTagWavLogMode, &S::wavLogMode, &S::setWavLogMode),
        access("wavLogLen", JobTagWavLogLen, &S::wavLogLen, &S::setWavLogLen),
    };
    return all;
}

void addAccessRows()
{
    QTest::addColumn<int>("index");
    for (size_t index = 0; index < allAccess().size(); ++index)
        QTest::newRow(allAccess()[index].name) << static_cast<int>(index);
}

std::shared_ptr<HydJobSettingsTag> numberTag(JobTagKey key, uint32_t value)
{
    return std::make_shared<HydNumberTag>(key, value);
}

HydJobSettings settingsOf(std::initializer_list<std::pair<JobTagKey, uint32_t>> tags)
{
    HydJobSettings settings;
    for (const auto& [key, value] : tags)
        settings.setTag(numberTag(key, value));
    return settings;
}

using TakeTags = std::function<void(HydJobSettings&, const JobTagMap&)>;

std::shared_ptr<HydJobSettingsTag> unknownTag(uint16_t key, size_t size)
{
    return std::make_shared<HydRawTag>(static_cast<JobTagKey>(key), std::vector<uint8_t>(size, 1));
}

JobTagMap unknownTags(uint16_t count, size_t size)
{
    JobTagMap map;
    for (uint16_t i = 0; i < count; ++i) {
        const auto key = static_cast<uint16_t>(0x1000 + i);
        map[static_cast<JobTagKey>(key)] = unknownTag(key, size);
    }
    return map;
}

/// Every getter holds a value of its own.
HydJobSettings fullSettings()
{
    HydJobSettings settings;
    uint32_t value = 100;
    for (const auto& access : allAccess())
        access.set(settings, value++);
    return settings;
}

constexpr auto kForeignKey = static_cast<JobTagKey>(500);

/// Collects the log lines as long as it lives.
class LogCapture
{
public:
    LogCapture() : m_before(setNvxLogSink(collect)) { lines.clear(); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    ~LogCapture() { setNvxLogSink(m_before); }

    static inline QByteArrayList lines;

private:
    static void collect(NvxLogLevel level, const std::string& text)
    {
        lines.append((level == NvxLogLevel::Debug ? "debug: " : "warning: ") +
                     QByteArray::fromStdString(text));
    }

    NvxLogSink m_before;
};

} // namespace

Q_DECLARE_METATYPE(HydJobSettings)

void tst_HydJobSettings::setterAndGetterBelongToTheirTag_data()
{
    addAccessRows();
    QCOMPARE(allAccess().size(), size_t{22});
}

void tst_HydJobSettings::setterAndGetterBelongToTheirTag()
{
    QFETCH(int, index);
    const auto& tested = allAccess()[static_cast<size_t>(index)];
    HydJobSettings settings;
    tested.set(settings, 77);
    QCOMPARE(tested.get(settings), int64_t{77});
    QCOMPARE(settings.map().size(), size_t{1});
    QCOMPARE(settings.map().begin()->first, tested.key);
    QCOMPARE(settings.map().begin()->second->number(), int64_t{77});
    for (const auto& other : allAccess()) {
        if (&other != &tested)
            QCOMPARE(other.get(settings), int64_t{0});
    }
    tested.set(settings, 78);
    QCOMPARE(tested.get(settings), int64_t{78});
    QCOMPARE(settings.map().size(), size_t{1});
}

void tst_HydJobSettings::realRateIsTheRate()
{
    HydJobSettings settings;
    settings.setWavRate(static_cast<SampRate>(512000));
    QCOMPARE(static_cast<unsigned>(settings.realWavRate()), 512000U);
}

void tst_HydJobSettings::mapIsReplacedAndMerged()
{
    auto settings = settingsOf({{JobTagWavRate, 1}, {JobTagWavGain, 2}});
    settings.mergeMap(
        {{JobTagWavGain, numberTag(JobTagWavGain, 3)}, {JobTagAuxMsg, numberTag(JobTagAuxMsg, 4)}});
    QCOMPARE(static_cast<unsigned>(settings.wavRate()), 1U);
    QCOMPARE(settings.wavGain(), 3U);
    QCOMPARE(static_cast<unsigned>(settings.auxMsg()), 4U);
    settings.setMap({{JobTagFftAccum, numberTag(JobTagFftAccum, 5)}});
    QCOMPARE(settings.map().size(), size_t{1});
    QCOMPARE(settings.fftAccum(), 5U);
    QCOMPARE(settings.wavGain(), 0U);
}

void tst_HydJobSettings::tagsAreSharedByCopies()
{
    const auto tag = numberTag(JobTagWavGain, 3);
    HydJobSettings settings(JobTagMap{{JobTagWavGain, tag}});
    const HydJobSettings copy(settings);
    QCOMPARE(copy.map().at(JobTagWavGain), tag);
    // A setter puts a new tag in the place of the shared one.
    settings.setWavGain(9);
    QCOMPARE(copy.wavGain(), 3U);
    QCOMPARE(tag->number(), int64_t{3});
}

void tst_HydJobSettings::textHasALineForEachTag()
{
    QCOMPARE(HydJobSettings().toString(), std::string());
    auto settings = settingsOf({{JobTagWavRate, 96000}, {JobTagAuxFunc, 2}});
    settings.setFftRef(-12);
    QCOMPARE(settings.toString(), std::string("AUX_PIN=2\nFFT_REF_LEVEL=-12\nWAVE_SAMPLE_RATE=96000"));
}

void tst_HydJobSettings::updateRate_data()
{
    QTest::addColumn<float>("accum");
    QTest::addColumn<float>("rate");
    QTest::addColumn<float>("overlap");
    QTest::addColumn<float>("seconds");
    QTest::newRow("plain") << 10.0F << 64000.0F << 512.0F << 0.08F;
    QTest::newRow("each factor once") << 3.0F << 7.0F << 5.0F << 15.0F / 7.0F;
    QTest::newRow("no accumulation") << 0.0F << 64000.0F << 512.0F << 0.0F;
    QTest::newRow("rate 0") << 10.0F << 0.0F << 512.0F << 0.0F;
    QTest::newRow("negative rate") << 10.0F << -64000.0F << 512.0F << 0.0F;
    QTest::newRow("rate that is no number")
        << 10.0F << std::numeric_limits<float>::quiet_NaN() << 512.0F << 0.0F;
}

void tst_HydJobSettings::updateRate()
{
    QFETCH(float, accum);
    QFETCH(float, rate);
    QFETCH(float, overlap);
    QFETCH(float, seconds);
    QCOMPARE(HydJobSettings::calcFftUpdateRate(accum, rate, overlap), seconds);
}

void tst_HydJobSettings::setupThatCanRun_data()
{
    QTest::addColumn<HydJobSettings>("asked");
    QTest::addColumn<HydJobSettings>("limits");
    QTest::addColumn<bool>("strict");
    QTest::newRow("nothing asked") << HydJobSettings() << fullSettings() << false;
    QTest::newRow("nothing asked of nothing, strictly") << HydJobSettings() << HydJobSettings() << true;
    const auto limits = settingsOf({{JobTagWavRate, 96000}, {JobTagFftRate, 48000}, {JobTagWavBitDepth, 24}});
    QTest::newRow("same") << limits << limits << false;
    QTest::newRow("same, strictly") << limits << limits << true;
    QTest::newRow("lower rates and depth")
        << settingsOf({{JobTagWavRate, 8000}, {JobTagFftRate, 1}, {JobTagWavBitDepth, 16}}) << limits
        << false;
    QTest::newRow("a missing tag is no limit")
        << settingsOf({{JobTagWavRate, 512000}, {JobTagWavBitDepth, 32}, {JobTagWavLogMode, 1}})
        << HydJobSettings() << false;
    QTest::newRow("other tags are free")
        << settingsOf({{JobTagWavGain, 60}}) << settingsOf({{JobTagWavGain, 6}}) << false;
    QTest::newRow("modes known") << settingsOf({{JobTagWavLogMode, 1},
                                                {JobTagFftLogMode, 0},
                                                {JobTagWavByteOrder, 1}})
                                 << HydJobSettings() << false;
    QTest::newRow("limits are not asked for themselves")
        << settingsOf({{JobTagWavRate, 8000}})
        << settingsOf({{JobTagWavRate, 96000}, {JobTagFftRate, 0}, {JobTagWavLogMode, 7}}) << false;
}

void tst_HydJobSettings::setupThatCanRun()
{
    QFETCH(HydJobSettings, asked);
    QFETCH(HydJobSettings, limits);
    QFETCH(bool, strict);
    std::vector<std::string> differences;
    QVERIFY(asked.checkSetupMap(limits, strict, differences));
    QVERIFY(differences.empty());
    const LogCapture log;
    QVERIFY(asked.checkSetupMap(limits, strict));
    QVERIFY(LogCapture::lines.empty());
}

void tst_HydJobSettings::derivedClassIsHeardThroughTheBase()
{
    class Halved : public HydJobSettings
    {
    public:
        unsigned wavGain() const override { return HydJobSettings::wavGain() / 2; }
    };
    Halved settings;
    settings.setWavGain(10);
    const HydJobSettings& base = settings;
    QCOMPARE(base.wavGain(), 5U);
}

void tst_HydJobSettings::missingTagsReadZero()
{
    const HydJobSettings settings;
    for (const auto& access : allAccess())
        QCOMPARE(access.get(settings), int64_t{0});
    QCOMPARE(static_cast<unsigned>(settings.realWavRate()), 0U);
}

void tst_HydJobSettings::wideValuesAreCutToTheirWidth_data()
{
    addAccessRows();
}

void tst_HydJobSettings::wideValuesAreCutToTheirWidth()
{
    QFETCH(int, index);
    const auto& tested = allAccess()[static_cast<size_t>(index)];
    const auto settings = settingsOf({{tested.key, 0x81828384U}});
    const bool isSigned = tested.key == JobTagFftRef || tested.key == JobTagWavLogStartTime;
    const int64_t expected = tested.bits == 8    ? 0x84
                             : tested.bits == 16 ? 0x8384
                             : isSigned          ? int64_t{static_cast<int32_t>(0x81828384U)}
                                                 : int64_t{0x81828384U};
    QCOMPARE(tested.get(settings), expected);
}

void tst_HydJobSettings::differenceAboveAWidthIsNone()
{
    QVERIFY(settingsOf({{JobTagWavBitDepth, 0x118}}) == settingsOf({{JobTagWavBitDepth, 0x18}}));
    QVERIFY(settingsOf({{JobTagFftLogMode, 0x10001}}) == settingsOf({{JobTagFftLogMode, 1}}));
    QVERIFY(settingsOf({{JobTagAuxMsg, 0x10001}}) != settingsOf({{JobTagAuxMsg, 1}}));
}

void tst_HydJobSettings::everyGetterCountsInAComparison_data()
{
    addAccessRows();
}

void tst_HydJobSettings::everyGetterCountsInAComparison()
{
    QFETCH(int, index);
    const auto& tested = allAccess()[static_cast<size_t>(index)];
    const auto settings = fullSettings();
    auto other = fullSettings();
    QVERIFY(settings == other);
    tested.set(other, 99);
    QCOMPARE(other.map().size(), settings.map().size());
    QVERIFY(!(settings == other));
    QVERIFY(settings != other);
}

void tst_HydJobSettings::equalGettersAndOtherTagCountsAreUnequal()
{
    // A tag of 0 and no tag read the same.
    const auto settings = settingsOf({{JobTagWavRate, 8000}});
    const auto longer = settingsOf({{JobTagWavRate, 8000}, {JobTagWavGain, 0}});
    QVERIFY(settings != longer);
    QVERIFY(longer != settings);
}

void tst_HydJobSettings::tagsWithoutAGetterCountByNumberOnly()
{
    HydJobSettings a;
    a.setTag(std::make_shared<HydRawTag>(kForeignKey, std::vector<uint8_t>{1}));
    HydJobSettings b;
    b.setTag(std::make_shared<HydRawTag>(kForeignKey, std::vector<uint8_t>{2, 3}));
    QVERIFY(a == b);
    HydJobSettings serials;
    serials.setTag(std::make_shared<TmiDeviceListTag>(std::vector<uint16_t>{5}));
    QVERIFY(a == serials);
    serials.setTag(std::make_shared<HydRawTag>(kForeignKey));
    QVERIFY(a != serials);
}

void tst_HydJobSettings::realRateTakesNoPart()
{
    class Slower : public HydJobSettings
    {
    public:
        SampRate realWavRate() const override { return static_cast<SampRate>(1); }
    };
    Slower slower;
    slower.setWavRate(static_cast<SampRate>(8000));
    const HydJobSettings& a = slower;
    const auto b = settingsOf({{JobTagWavRate, 8000}});
    QVERIFY(a.realWavRate() != b.realWavRate());
    QVERIFY(a == b);
}

void tst_HydJobSettings::nullTagsAreIgnored()
{
    const JobTagMap withHole{{JobTagWavGain, nullptr}, {JobTagWavRate, numberTag(JobTagWavRate, 8000)}};
    HydJobSettings settings(withHole);
    QCOMPARE(settings.map().size(), size_t{1});
    settings.setWavGain(3);
    settings.mergeMap(withHole);
    QCOMPARE(settings.wavGain(), 3U);
    settings.setTag(nullptr);
    QCOMPARE(settings.map().size(), size_t{2});
    settings.setMap(withHole);
    QCOMPARE(settings.map().size(), size_t{1});
}

void tst_HydJobSettings::ownMapMayBeSet()
{
    auto settings = fullSettings();
    settings.setMap(settings.map());
    QCOMPARE(settings.map().size(), size_t{22});
    QVERIFY(settings == fullSettings());
}

void tst_HydJobSettings::setupThatCannotRun_data()
{
    QTest::addColumn<HydJobSettings>("asked");
    QTest::addColumn<HydJobSettings>("limits");
    QTest::addColumn<bool>("strict");
    QTest::addColumn<QByteArray>("difference");
    const auto row = [](const char* name, const HydJobSettings& asked, const HydJobSettings& limits,
                        bool strict, const char* difference) {
        QTest::newRow(name) << asked << limits << strict << QByteArray(difference);
    };
    const HydJobSettings none;
    row("rate too high", settingsOf({{JobTagWavRate, 96001}}), settingsOf({{JobTagWavRate, 96000}}), false,
        "WAVE_SAMPLE_RATE=96001 exceeds WAVE_SAMPLE_RATE=96000");
    row("spectrum rate too high", settingsOf({{JobTagFftRate, 2}}), settingsOf({{JobTagFftRate, 1}}), false,
        "FFT_SAMPLE_RATE=2 exceeds FFT_SAMPLE_RATE=1");
    row("rate 0", settingsOf({{JobTagWavRate, 0}}), none, false, "WAVE_SAMPLE_RATE=0 is no rate");
    row("depth too high", settingsOf({{JobTagWavBitDepth, 24}}), settingsOf({{JobTagWavBitDepth, 16}}), false,
        "WAVE_BIT_DEPTH=24 exceeds WAVE_BIT_DEPTH=16");
    row("odd depth", settingsOf({{JobTagWavBitDepth, 12}}), none, false, "WAVE_BIT_DEPTH=12 is no bit depth");
    row("unknown logging mode", settingsOf({{JobTagWavLogMode, 2}}), none, false,
        "WAVE_LOG_MODE=2 is no known mode");
    row("unknown spectrum logging mode", settingsOf({{JobTagFftLogMode, 9}}), none, false,
        "FFT_LOG_MODE=9 is no known mode");
    row("unknown byte order", settingsOf({{JobTagWavByteOrder, 2}}), none, false,
        "WAVE_ENDIAN=2 is no known mode");
    row("strict: lower", settingsOf({{JobTagWavRate, 8000}}), settingsOf({{JobTagWavRate, 96000}}), true,
        "WAVE_SAMPLE_RATE=8000 differs from WAVE_SAMPLE_RATE=96000");
    row("strict: missing", settingsOf({{JobTagWavGain, 6}}), none, true, "WAVE_GAIN=6 is missing");
    row("strict: more than asked", none, settingsOf({{JobTagWavGain, 6}}), true,
        "WAVE_GAIN=6 is not asked for");
}

void tst_HydJobSettings::setupThatCannotRun()
{
    QFETCH(HydJobSettings, asked);
    QFETCH(HydJobSettings, limits);
    QFETCH(bool, strict);
    QFETCH(QByteArray, difference);
    std::vector<std::string> differences;
    QVERIFY(!asked.checkSetupMap(limits, strict, differences));
    QCOMPARE(differences.size(), size_t{1});
    QCOMPARE(QByteArray::fromStdString(differences[0]), difference);
    const LogCapture log;
    QVERIFY(!asked.checkSetupMap(limits, strict));
    QCOMPARE(LogCapture::lines, (QByteArrayList{"debug: " + difference}));
}

void tst_HydJobSettings::everyDifferenceIsALine()
{
    const auto asked = settingsOf({{JobTagWavRate, 0}, {JobTagWavBitDepth, 12}, {JobTagWavGain, 5}});
    const auto limits = settingsOf({{JobTagWavGain, 6}, {JobTagAuxMsg, 1}});
    std::vector<std::string> differences;
    QVERIFY(!asked.checkSetupMap(limits, false, differences));
    QCOMPARE(differences.size(), size_t{2});
    // Lines of an earlier check stay and don't count.
    QVERIFY(settingsOf({{JobTagWavRate, 1}}).checkSetupMap(limits, false, differences));
    QVERIFY(!asked.checkSetupMap(limits, true, differences));
    QCOMPARE(differences.size(), size_t{6});
    const LogCapture log;
    QVERIFY(!asked.checkSetupMap(limits, true));
    QCOMPARE(
        LogCapture::lines,
        (QByteArrayList{"debug: WAVE_SAMPLE_RATE=0 is missing", "debug: WAVE_BIT_DEPTH=12 is missing",
                        "debug: WAVE_GAIN=5 differs from WAVE_GAIN=6", "debug: AUX_MSG=1 is not asked for"}));
}

void tst_HydJobSettings::unknownTagsAreCounted()
{
    HydJobSettings settings(unknownTags(1023, 1));
    {
        const LogCapture log;
        settings.setTag(unknownTag(2000, 1));
        QVERIFY(LogCapture::lines.isEmpty());
    }
    QCOMPARE(settings.map().size(), size_t{1024});
    {
        const LogCapture log;
        settings.mergeMap({{JobTagKey(2001), unknownTag(2001, 1)}, {JobTagKey(2002), unknownTag(2002, 0)}});
        QCOMPARE(LogCapture::lines,
                 QByteArrayList{"debug: A job setup takes no more unknown tags, dropped: 2"});
    }
    QCOMPARE(settings.map().size(), size_t{1024});
    // Known tags need no room, and what is there can still change.
    const LogCapture log;
    settings.setWavRate(static_cast<SampRate>(8000));
    settings.setTag(numberTag(JobTagWavGain, 3));
    settings.setTag(unknownTag(2000, 5));
    QCOMPARE(settings.map().size(), size_t{1026});
    QCOMPARE(settings.map().at(JobTagKey(2000))->toString(), unknownTag(2000, 5)->toString());
    // A tag that becomes a known one makes room for another.
    settings.setTag(numberTag(JobTagKey(2000), 4));
    settings.setTag(unknownTag(2003, 1));
    QVERIFY(settings.map().contains(JobTagKey(2003)));
    QVERIFY(LogCapture::lines.isEmpty());
    settings.setTag(unknownTag(2004, 1));
    QCOMPARE(LogCapture::lines.size(), 1);
    QVERIFY(!settings.map().contains(JobTagKey(2004)));
}

void tst_HydJobSettings::unknownBytesAreCounted()
{
    constexpr size_t most = 262144;
    HydJobSettings settings;
    for (uint16_t i = 0; i < 4; ++i)
        settings.setTag(unknownTag(uint16_t(1000 + i), most / 4 - 1));
    {
        const LogCapture log;
        settings.setTag(unknownTag(2000, 5));
        QCOMPARE(LogCapture::lines,
                 QByteArrayList{"debug: A job setup takes no more unknown tags, dropped: 1"});
        QVERIFY(!settings.map().contains(JobTagKey(2000)));
    }
    const LogCapture log;
    settings.setTag(unknownTag(2000, 4));
    QVERIFY(settings.map().contains(JobTagKey(2000)));
    QVERIFY(LogCapture::lines.isEmpty());
    // One that doesn't fit leaves what there was of its key.
    settings.setTag(unknownTag(2000, 5));
    QCOMPARE(settings.map().at(JobTagKey(2000))->toString(), unknownTag(2000, 4)->toString());
    settings.setTag(unknownTag(1000, 10));
    settings.setTag(unknownTag(2000, 1000));
    QCOMPARE(settings.map().at(JobTagKey(2000))->toString(), unknownTag(2000, 1000)->toString());
    QCOMPARE(LogCapture::lines.size(), 1);
}

void tst_HydJobSettings::unknownTagsAreBoundedInEachWay_data()
{
    QTest::addColumn<TakeTags>("take");
    QTest::newRow("constructor") << TakeTags(
        [](auto& settings, const auto& map) { settings = HydJobSettings(map); });
    QTest::newRow("setMap") << TakeTags([](auto& settings, const auto& map) {
        // What was there before takes no room.
        settings.setMap(map);
        settings.setMap(map);
    });
    QTest::newRow("mergeMap") << TakeTags([](auto& settings, const auto& map) { settings.mergeMap(map); });
}

void tst_HydJobSettings::unknownTagsAreBoundedInEachWay()
{
    QFETCH(TakeTags, take);
    HydJobSettings settings;
    take(settings, unknownTags(1024, 256));
    QCOMPARE(settings.map().size(), size_t{1024});
    HydJobSettings tooMany;
    take(tooMany, unknownTags(1025, 0));
    QCOMPARE(tooMany.map().size(), size_t{1024});
    HydJobSettings tooLong;
    take(tooLong, unknownTags(1024, 257));
    QCOMPARE(tooLong.map().size(), size_t{262144 / 257});
}

QTEST_APPLESS_MAIN(tst_HydJobSettings)
#include "tst_HydJobSettings.moc"
