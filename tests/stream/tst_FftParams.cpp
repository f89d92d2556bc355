#include "NvxQtCommon/contract/stream/FftParams.h"
#include "tests/support/NvxTestCase.h"

#include <cstring>
#include <stdexcept>

class tst_FftParams : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void bothRecordsStartWithTheDefaults();
    void wordsLieAtTheirPositions_data();
    void wordsLieAtTheirPositions();
    void doublesLieOverTwoWords_data();
    void doublesLieOverTwoWords();
    void theTwoRecordsAreApart();
    // --- rainy day flows
    void positionsBehindTheRecordAreRefused();
};

void tst_FftParams::bothRecordsStartWithTheDefaults()
{
    for (const FftParams* params : {&FFT_Params_WAV, &FFT_Params_FFT}) {
        QCOMPARE(params->fftLength(), 1024U);
        QCOMPARE(params->numAccum(), 1U);
        QCOMPARE(params->overlapRatio(), 0.5);
        QCOMPARE(params->overlapTotal(), 512U);
        QCOMPARE(params->overlapLength(), 512U);
        QCOMPARE(params->overlapLength2(), 512U);
        QCOMPARE(params->overlapLength3(), 512U);
        QCOMPARE(params->freshLength(), 512U);
        QCOMPARE(params->binDivisor(), 2.0);
        QCOMPARE(params->fraction(), 0.5);
        QCOMPARE(params->numBins(), 512U);
    }
}

using GetWord = uint32_t (FftParams::*)() const;
using SetWord = void (FftParams::*)(uint32_t);

void tst_FftParams::wordsLieAtTheirPositions_data()
{
    QTest::addColumn<int>("position");
    QTest::addColumn<GetWord>("get");
    QTest::addColumn<SetWord>("set");
    const auto row = [](const char* name, int position, GetWord get, SetWord set) {
        QTest::newRow(name) << position << get << set;
    };
    row("fftLength", 9, &FftParams::fftLength, &FftParams::setFftLength);
    row("numAccum", 10, &FftParams::numAccum, &FftParams::setNumAccum);
    row("overlapTotal", 11, &FftParams::overlapTotal, &FftParams::setOverlapTotal);
    row("overlapLength", 12, &FftParams::overlapLength, &FftParams::setOverlapLength);
    row("overlapLength2", 13, &FftParams::overlapLength2, &FftParams::setOverlapLength2);
    row("freshLength", 14, &FftParams::freshLength, &FftParams::setFreshLength);
    row("overlapLength3", 15, &FftParams::overlapLength3, &FftParams::setOverlapLength3);
    row("numBins", 16, &FftParams::numBins, &FftParams::setNumBins);
}

void tst_FftParams::wordsLieAtTheirPositions()
{
    QFETCH(int, position);
    QFETCH(GetWord, get);
    QFETCH(SetWord, set);
    const auto index = static_cast<size_t>(position);
    FftParams params;
    (params.*set)(0xFEDCBA98U);
    QCOMPARE(params.word(index), 0xFEDCBA98U);
    params.setWord(index, 77);
    QCOMPARE((params.*get)(), 77U);
    const FftParams fresh;
    for (size_t other = 0; other < FftParams::kWordCount; ++other)
        QVERIFY(other == index || params.word(other) == fresh.word(other));
}

using GetReal = double (FftParams::*)() const;
using SetReal = void (FftParams::*)(double);

void tst_FftParams::doublesLieOverTwoWords_data()
{
    QTest::addColumn<int>("position");
    QTest::addColumn<GetReal>("get");
    QTest::addColumn<SetReal>("set");
    const auto row = [](const char* name, int position, GetReal get, SetReal set) {
        QTest::newRow(name) << position << get << set;
    };
    row("binDivisor", 2, &FftParams::binDivisor, &FftParams::setBinDivisor);
    row("fraction", 4, &FftParams::fraction, &FftParams::setFraction);
    row("overlapRatio", 6, &FftParams::overlapRatio, &FftParams::setOverlapRatio);
}

void tst_FftParams::doublesLieOverTwoWords()
{
    QFETCH(int, position);
    QFETCH(GetReal, get);
    QFETCH(SetReal, set);
    const auto index = static_cast<size_t>(position);
    const double value = -0.7853981633974483;
    uint32_t words[2];
    std::memcpy(words, &value, sizeof words);
    FftParams params;
    (params.*set)(value);
    QCOMPARE(params.word(index), words[0]);
    QCOMPARE(params.word(index + 1), words[1]);
    FftParams other;
    other.setWord(index, words[0]);
    other.setWord(index + 1, words[1]);
    QVERIFY((other.*get)() == value);
}

void tst_FftParams::theTwoRecordsAreApart()
{
    const FftParams before = FFT_Params_WAV;
    FFT_Params_WAV.setFftLength(256);
    const uint32_t other = FFT_Params_FFT.fftLength();
    FFT_Params_WAV = before;
    QCOMPARE(other, 1024U);
}

void tst_FftParams::positionsBehindTheRecordAreRefused()
{
    FftParams params;
    QCOMPARE(FftParams::kWordCount, size_t(17));
    QVERIFY_EXCEPTION_THROWN(params.setWord(FftParams::kWordCount, 1), std::out_of_range);
    QVERIFY_EXCEPTION_THROWN(static_cast<void>(params.word(FftParams::kWordCount)), std::out_of_range);
}

QTEST_APPLESS_MAIN(tst_FftParams)
#include "tst_FftParams.moc"
