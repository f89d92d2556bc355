#include "NvxQtCommon/contract/base/Interleave.h"
#include "tests/support/NvxTestCase.h"

#include <memory>
#include <vector>

namespace {

/// Byte `index` of a channel.
unsigned char byteOf(size_t channel, size_t index)
{
    return static_cast<unsigned char>(1 + (channel * 101 + index * 7) % 255);
}

} // namespace

class tst_Interleave : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void weavesEveryByte_data();
    void weavesEveryByte();
    // --- rainy day flows
    void nothingIsWrittenForNothing();
    void widthsThatNoSampleHas_data();
    void widthsThatNoSampleHas();
};

void tst_Interleave::weavesEveryByte_data()
{
    QTest::addColumn<unsigned>("width");
    QTest::addColumn<int>("channels");
    QTest::addColumn<int>("samples");
    for (unsigned width : {1U, 2U, 3U, 4U}) {
        for (int channels : {1, 2, 3, 4, 5, 6, 7, 8, 9, 16, 255}) {
            for (int samples : {1, 2, 3, 4, 5, 7, 8, 9, 63, 64, 65, 100})
                QTest::addRow("%u bytes, %d channels, %d samples", width, channels, samples)
                    << width << channels << samples;
        }
    }
}

void tst_Interleave::weavesEveryByte()
{
    QFETCH(unsigned, width);
    QFETCH(int, channels);
    QFETCH(int, samples);
    const size_t blockSize = size_t(samples) * width;
    // Each block in an allocation of its own, exactly as large as it must be: a sanitizer sees every byte
    // that is read behind one.
    std::vector<std::unique_ptr<unsigned char[]>> blocks;
    std::vector<const unsigned char*> pointers;
    for (size_t channel = 0; channel < size_t(channels); ++channel) {
        auto block = std::make_unique<unsigned char[]>(blockSize);
        for (size_t i = 0; i < blockSize; ++i)
            block[i] = byteOf(channel, i);
        pointers.push_back(block.get());
        blocks.push_back(std::move(block));
    }
    std::vector<unsigned char> expected;
    for (size_t sample = 0; sample < size_t(samples); ++sample) {
        for (size_t channel = 0; channel < size_t(channels); ++channel) {
            for (size_t k = 0; k < width; ++k)
                expected.push_back(byteOf(channel, sample * width + k));
        }
    }
    // A byte on either side shows a store that goes too far.
    std::vector<unsigned char> out(expected.size() + 2, 0);
    interleaveSamples(pointers, size_t(samples), width, out.data() + 1);
    QCOMPARE(out.front(), static_cast<unsigned char>(0));
    QCOMPARE(out.back(), static_cast<unsigned char>(0));
    QVERIFY(std::vector<unsigned char>(out.begin() + 1, out.end() - 1) == expected);
}

void tst_Interleave::nothingIsWrittenForNothing()
{
    const unsigned char sample[4] = {1, 2, 3, 4};
    const unsigned char* const channel = sample;
    unsigned char out = 9;
    for (unsigned width : {1U, 2U, 3U, 4U}) {
        interleaveSamples({&channel, 1}, 0, width, &out);
        interleaveSamples({}, 5, width, &out);
    }
    QCOMPARE(out, static_cast<unsigned char>(9));
}

void tst_Interleave::widthsThatNoSampleHas_data()
{
    QTest::addColumn<unsigned>("width");
    for (unsigned width : {0U, 5U, 8U, 4294967295U})
        QTest::addRow("%u bytes", width) << width;
}

void tst_Interleave::widthsThatNoSampleHas()
{
    QFETCH(unsigned, width);
    const unsigned char sample[8] = {};
    const unsigned char* const channel = sample;
    unsigned char out = 9;
    interleaveSamples({&channel, 1}, 1, width, &out);
    QCOMPARE(out, static_cast<unsigned char>(9));
}

QTEST_APPLESS_MAIN(tst_Interleave)
#include "tst_Interleave.moc"
