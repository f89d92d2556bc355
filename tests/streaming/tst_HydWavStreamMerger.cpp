#include "NvxQtCommon/streaming/HydWavStreamMerger.h"
#include "tests/streaming/StreamFrames.h"
#include "tests/support/NvxTestCase.h"

#include <array>
#include <cstdlib>
#include <new>

namespace {

/// What goes through new[] while it watches; the allocation with the number `failAt` fails.
struct NewWatch
{
    bool isOn = false;
    int failAt = -1;
    int count = 0;
    int living = 0;
    std::array<size_t, 64> sizes{};
};
NewWatch g_watch;

} // namespace

// The library's allocations come here too.
void* operator new[](size_t size)
{
    if (g_watch.isOn) {
        const int number = g_watch.count++;
        g_watch.sizes.at(static_cast<size_t>(number)) = size;
        if (number == g_watch.failAt)
            throw std::bad_alloc();
        ++g_watch.living;
    }
    if (void* memory = std::malloc(size != 0 ? size : 1))
        return memory;
    throw std::bad_alloc();
}

void operator delete[](void* memory) noexcept
{
    if (g_watch.isOn && memory != nullptr)
        --g_watch.living;
    std::free(memory);
}

void operator delete[](void* memory, size_t /*size*/) noexcept
{
    operator delete[](memory);
}

namespace {

JobTagMap deviceList(size_t count)
{
    return {
        {JobTagDeviceList, std::make_shared<TmiDeviceListTag>(std::vector<uint16_t>(count, uint16_t{7}))}};
}

/// True when making a merger fails as it must: it is logged, and the exception comes out.
bool failsToAllocate(const JobTagMap& tags, unsigned rate, int width)
{
    QTest::ignoreMessage(
        QtDebugMsg, "Failed to allocate StoredData. Try reducing data size (channels, rate, resolution)");
    bool failed = false;
    g_watch.isOn = true;
    try {
        const HydWavStreamMerger merger(tags, rate, static_cast<unsigned char>(width), nullptr);
    } catch (const std::bad_alloc&) {
        failed = true;
    }
    g_watch.isOn = false;
    return failed;
}

using Block = HydWavStreamMerger::Block;

bool hasShape(const Block& block, int size, int parts, int width)
{
    return block.data != nullptr && block.size == size && block.parts == parts && block.width == width;
}

} // namespace

class tst_HydWavStreamMerger : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // The first line allocates for the log itself, which would count below.
    void initTestCase() { qDebug("allocations are watched"); }
    void cleanup() { g_watch = {}; }

    // --- happy flows
    void shapes_data();
    void shapes();
    void blocksAreAllocatedInOrder();
    void handlersDoNothing();
    void parentOwnsIt();
    // --- rainy day flows
    void tagsWithoutAList_data();
    void tagsWithoutAList();
    void impossibleSizes_data();
    void impossibleSizes();
    void largestSizeIsAsked();
    void failedAllocationReleasesTheOthers_data();
    void failedAllocationReleasesTheOthers();
};

void tst_HydWavStreamMerger::shapes_data()
{
    QTest::addColumn<int>("devices");
    QTest::addColumn<unsigned>("rate");
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("channels");
    QTest::newRow("one channel") << 1 << 100U << 2 << 1;
    QTest::newRow("four channels") << 4 << 96000U << 3 << 4;
    QTest::newRow("255 channels") << 255 << 10U << 4 << 255;
    QTest::newRow("256 channels are none") << 256 << 100U << 2 << 0;
    QTest::newRow("257 channels are one") << 257 << 100U << 2 << 1;
    QTest::newRow("empty list") << 0 << 100U << 2 << 0;
    QTest::newRow("no samples") << 2 << 0U << 2 << 2;
    QTest::newRow("samples without bytes") << 2 << 100U << 0 << 2;
    QTest::newRow("no channels at the largest rate") << 0 << 0xFFFFFFFFU << 255 << 0;
}

void tst_HydWavStreamMerger::shapes()
{
    QFETCH(int, devices);
    QFETCH(unsigned, rate);
    QFETCH(int, width);
    QFETCH(int, channels);
    const HydWavStreamMerger merger(deviceList(static_cast<size_t>(devices)), rate,
                                    static_cast<unsigned char>(width), nullptr);
    const auto& store = merger.store();
    QCOMPARE(store.position, qint64{0});
    QCOMPARE(static_cast<int>(store.slotCount), 5);
    QCOMPARE(store.firstFlags.size, channels);
    QCOMPARE(store.secondFlags.size, channels);
    QVERIFY(store.firstFlags.data != nullptr && store.secondFlags.data != nullptr);
    QVERIFY(hasShape(store.firstSlots, 5 * channels, 5, 1));
    QVERIFY(hasShape(store.samples, static_cast<int>(rate) * 5 * channels * width, channels, width));
    QVERIFY(hasShape(store.firstWide, 10 * channels, 5, 2));
    QVERIFY(hasShape(store.secondWide, 10 * channels, 5, 2));
    QVERIFY(hasShape(store.secondSlots, 5 * channels, 5, 1));
    QVERIFY(hasShape(store.thirdSlots, 5 * channels, 5, 1));
}

void tst_HydWavStreamMerger::blocksAreAllocatedInOrder()
{
    const JobTagMap tags = deviceList(3);
    g_watch.isOn = true;
    {
        const HydWavStreamMerger merger(tags, 100, 2, nullptr);
        QCOMPARE(g_watch.living, 8);
    }
    g_watch.isOn = false;
    QCOMPARE(g_watch.living, 0);
    const std::vector<size_t> sizes(g_watch.sizes.begin(), g_watch.sizes.begin() + g_watch.count);
    QCOMPARE(sizes, (std::vector<size_t>{3, 3, 15, 3000, 30, 30, 15, 15}));
}

void tst_HydWavStreamMerger::handlersDoNothing()
{
    HydWavStreamMerger merger(deviceList(1), 100, 2, nullptr);
    const auto* samples = merger.store().samples.data.get();
    const auto payload = streamframes::block(1, 0, 0, 100);
    const auto before = streamframes::valuesOf(*payload);
    merger.handleWavEventHdr(streamframes::header(1, 0));
    merger.handleWavData(payload);
    merger.handleWavEventHdr(nullptr);
    merger.handleWavData(nullptr);
    QCOMPARE(streamframes::valuesOf(*payload), before);
    QCOMPARE(merger.store().position, qint64{0});
    QCOMPARE(merger.store().samples.data.get(), samples);
}

void tst_HydWavStreamMerger::parentOwnsIt()
{
    QObject parent;
    const auto* merger = new HydWavStreamMerger({}, 100, 2, &parent);
    QCOMPARE(parent.children(), QObjectList{const_cast<HydWavStreamMerger*>(merger)});
}

void tst_HydWavStreamMerger::tagsWithoutAList_data()
{
    QTest::addColumn<int>("kind");
    QTest::newRow("no tags") << 0;
    QTest::newRow("other tags") << 1;
    QTest::newRow("null tag") << 2;
    QTest::newRow("tag of another class") << 3;
}

void tst_HydWavStreamMerger::tagsWithoutAList()
{
    QFETCH(int, kind);
    JobTagMap tags;
    if (kind == 1)
        tags[JobTagWavRate] = std::make_shared<HydWavSampleRateTag>(100U);
    else if (kind == 2)
        tags[JobTagDeviceList] = nullptr;
    else if (kind == 3)
        tags[JobTagDeviceList] = std::make_shared<HydRawTag>(JobTagDeviceList, std::vector<uint8_t>{1, 2});
    const HydWavStreamMerger merger(tags, 100, 2, nullptr);
    QCOMPARE(merger.store().firstFlags.size, 0);
    QVERIFY(hasShape(merger.store().samples, 0, 0, 2));
    QVERIFY(hasShape(merger.store().thirdSlots, 0, 5, 1));
}

void tst_HydWavStreamMerger::impossibleSizes_data()
{
    QTest::addColumn<unsigned>("rate");
    QTest::addColumn<int>("devices");
    QTest::addColumn<int>("width");
    QTest::newRow("2^31 + 2 bytes") << 429496730U << 1 << 1;
    QTest::newRow("negative as a signed number") << 0x20000000U << 1 << 1;
    QTest::newRow("0 after the overflow") << 0x80000000U << 2 << 1;
    QTest::newRow("small after the overflow") << 858993460U << 1 << 1; // 2^32 + 4 bytes
    QTest::newRow("largest") << 0xFFFFFFFFU << 255 << 255;
}

void tst_HydWavStreamMerger::impossibleSizes()
{
    QFETCH(unsigned, rate);
    QFETCH(int, devices);
    QFETCH(int, width);
    const JobTagMap tags = deviceList(static_cast<size_t>(devices));
    QVERIFY(failsToAllocate(tags, rate, width));
    QCOMPARE(g_watch.count, 3);
    QCOMPARE(g_watch.living, 0);
}

void tst_HydWavStreamMerger::largestSizeIsAsked()
{
    const JobTagMap tags = deviceList(1);
    g_watch.failAt = 3; // 2 GiB are not to be had everywhere
    QVERIFY(failsToAllocate(tags, 429496729U, 1));
    QCOMPARE(g_watch.sizes[3], size_t{2147483645});
}

void tst_HydWavStreamMerger::failedAllocationReleasesTheOthers_data()
{
    QTest::addColumn<int>("number");
    for (int number = 0; number < 8; ++number)
        QTest::addRow("block %d", number) << number;
}

void tst_HydWavStreamMerger::failedAllocationReleasesTheOthers()
{
    QFETCH(int, number);
    const JobTagMap tags = deviceList(3);
    g_watch.failAt = number;
    QVERIFY(failsToAllocate(tags, 100, 2));
    QCOMPARE(g_watch.count, number + 1);
    QCOMPARE(g_watch.living, 0);
}

QTEST_APPLESS_MAIN(tst_HydWavStreamMerger)
#include "tst_HydWavStreamMerger.moc"
