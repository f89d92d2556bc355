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

    void missingAndEmptyTextsStay()
    {
        IniFile file("[Job]\nClient=\nJobName=new\n");
        VelaJobDetails details = makeDetails();
        details.load(file.store(), kGroup);
        QCOMPARE(details.jobName(), QStringLiteral("new"));
        QCOMPARE(details.client(), QStringLiteral("Höegh & Søn"));
        QCOMPARE(details.operatorName(), QStringLiteral("C"));
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
