#include "NvxQtCommon/settings/VelaJobDetails.h"
#include "tests/settings/IniFile.h"
#include "tests/support/NvxTestCase.h"

namespace {

const QString kGroup = QStringLiteral("Job");

VelaJobDetails makeDetails()
{
    VelaJobDetails details;
    details.setJobName(QStringLiteral("Whales"));
    details.setClient(QStringLiteral("Höegh & Søn"));
    details.setPersonnel(QStringLiteral("A, B; %2"));
    details.setDescription(QStringLiteral("two\nlines = \"one\""));
    details.setOperatorName(QStringLiteral("C"));
    return details;
}

} // namespace

class tst_VelaJobDetails : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void everyTextIsWrittenAndRead()
    {
        const VelaJobDetails details = makeDetails();
        IniFile file;
        details.save(file.store(), kGroup);
        VelaJobDetails other;
        QVERIFY(!(other == details));
        other.load(file.reopen(), kGroup);
        QVERIFY(other == details);
        QCOMPARE(other.jobName(), QStringLiteral("Whales"));
        QCOMPARE(other.client(), QStringLiteral("Höegh & Søn"));
        QCOMPARE(other.personnel(), QStringLiteral("A, B; %2"));
        QCOMPARE(other.description(), QStringLiteral("two\nlines = \"one\""));
        QCOMPARE(other.operatorName(), QStringLiteral("C"));
        QCOMPARE(file.keys(), (QStringList{"Job/Client", "Job/Description", "Job/JobName", "Job/OperatorName",
                                           "Job/Personnel"}));
    }

    void titles()
    {
        QCOMPARE(makeDetails().getTtitles(),
                 QStringLiteral("Client: Höegh & Søn;  \tJob: Whales;  \tPersonnel: A, B; %2"));
        QCOMPARE(VelaJobDetails().getTtitles(), QStringLiteral("Client: ;  \tJob: ;  \tPersonnel: "));
    }

    // --- rainy day flows
    void withoutTheGroupNothingChanges()
    {
        IniFile file("[Other]\nJobName=x\n");
        VelaJobDetails details = makeDetails();
        details.load(file.store(), kGroup);
        QVERIFY(details == makeDetails());
    }

    void missingAndEmptyTextsBecomeEmpty()
    {
        // "a, b" without quotation marks is a list, and no text.
        IniFile file("[Job]\nClient=\nJobName=new\nPersonnel=a, b\n");
        VelaJobDetails expected;
        expected.setJobName(QStringLiteral("new"));
        VelaJobDetails details = makeDetails();
        details.load(file.store(), kGroup);
        QVERIFY(details == expected);
    }

    void anEmptyTextComesBack()
    {
        VelaJobDetails cleared = makeDetails();
        cleared.setPersonnel(QString());
        IniFile file;
        cleared.save(file.store(), kGroup);
        VelaJobDetails details = makeDetails();
        details.load(file.reopen(), kGroup);
        QVERIFY(details == cleared);
    }

    void groupsThatAreNotFoundAgain_data()
    {
        QTest::addColumn<QString>("group");
        QTest::newRow("empty") << QString();
        QTest::newRow("within another") << QStringLiteral("Survey/Job");
        QTest::newRow("with a sign in front") << QStringLiteral("/Job");
        QTest::newRow("with a sign behind") << QStringLiteral("Job/");
    }
    void groupsThatAreNotFoundAgain()
    {
        QFETCH(QString, group);
        IniFile file;
        makeDetails().save(file.store(), group);
        QCOMPARE(file.store()->allKeys().size(), 5);
        VelaJobDetails details;
        details.load(file.reopen(), group);
        QVERIFY(details == VelaJobDetails());
    }

    void withoutAStoreNothingHappens()
    {
        VelaJobDetails details = makeDetails();
        details.save(nullptr, kGroup);
        details.load(nullptr, kGroup);
        QVERIFY(details == makeDetails());
    }
};

QTEST_APPLESS_MAIN(tst_VelaJobDetails)
#include "tst_VelaJobDetails.moc"
