#include "NvxQtCommon/contract/base/CopyBytes.h"
#include "tests/support/NvxTestCase.h"

#include <vector>

class tst_CopyBytes : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void copiesEveryByte_data();
    void copiesEveryByte();
    // --- rainy day flows
    void nothingIsCopiedForNothing();
};

void tst_CopyBytes::copiesEveryByte_data()
{
    QTest::addColumn<qulonglong>("size");
    for (qulonglong size :
         {size_t(1), kCopyPiece - 1, kCopyPiece, kCopyPiece + 1, 3 * kCopyPiece, 100 * kCopyPiece + 77})
        QTest::addRow("%llu bytes", size) << size;
}

void tst_CopyBytes::copiesEveryByte()
{
    QFETCH(qulonglong, size);
    std::vector<unsigned char> from(size);
    for (size_t i = 0; i < from.size(); ++i)
        from[i] = static_cast<unsigned char>(1 + i % 251);
    // A byte on either side shows a copy that goes too far.
    std::vector<unsigned char> to(size + 2, 0);
    copyBytes(to.data() + 1, from.data(), from.size());
    QCOMPARE(to.front(), static_cast<unsigned char>(0));
    QCOMPARE(to.back(), static_cast<unsigned char>(0));
    QVERIFY(std::vector<unsigned char>(to.begin() + 1, to.end() - 1) == from);
}

void tst_CopyBytes::nothingIsCopiedForNothing()
{
    unsigned char byte = 9;
    copyBytes(&byte, nullptr, 0);
    copyBytes(nullptr, &byte, 0);
    QCOMPARE(byte, static_cast<unsigned char>(9));
}

QTEST_APPLESS_MAIN(tst_CopyBytes)
#include "tst_CopyBytes.moc"
