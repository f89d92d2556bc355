#include "NvxQtSimulator/FaultPlan.h"
#include "tests/support/NvxTestCase.h"

namespace {

FaultPlan planOf(uint64_t seed, const FaultRule& rule)
{
    FaultPlan plan(seed);
    plan.add(rule);
    return plan;
}

/// Occasions, from 0, at which the fault struck.
QList<int> strikes(FaultDice& dice, Fault fault, int occasions)
{
    QList<int> list;
    for (int i = 0; i < occasions; ++i)
        if (dice.strike(fault))
            list << i;
    return list;
}

} // namespace

class tst_FaultPlan : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void ruleReadsFromText()
    {
        const auto rule =
            FaultRule::fromText(QStringLiteral("notify:value=3,after=20,times=1,chance=0.5,on=wave"));
        QVERIFY(rule);
        QCOMPARE(rule->fault, Fault::Notify);
        QCOMPARE(rule->value, 3);
        QCOMPARE(rule->after, 20U);
        QCOMPARE(rule->times, 1U);
        QCOMPARE(rule->chance, 0.5);
        QCOMPARE(rule->on, uint16_t{FaultOnWave});
    }

    void everyNameReadsBack()
    {
        const QStringList names = FaultRule::names();
        QCOMPARE(names.size(), int(Fault::BandWidth) + 1);
        for (int i = 0; i < names.size(); ++i) {
            const auto rule = FaultRule::fromText(names[i]);
            QVERIFY2(rule, qPrintable(names[i]));
            QCOMPARE(rule->fault, Fault(i));
            QCOMPARE(FaultRule::name(rule->fault), names[i]);
            QCOMPARE(rule->on, uint16_t{FaultOnAll});
        }
    }

    void strikesAfterAndSoOften()
    {
        FaultDice dice(planOf(1, {Fault::Loss, 7, 3, 2}), FaultOnWave);
        QCOMPARE(strikes(dice, Fault::Loss, 10), (QList<int>{3, 4}));
    }

    void valueComesWithTheStrike()
    {
        FaultDice dice(planOf(1, {Fault::Junk, 17}), FaultOnControl);
        QCOMPARE(dice.strike(Fault::Junk), std::optional<int64_t>(17));
    }

    void chanceIsKept()
    {
        FaultRule rule{Fault::Loss};
        rule.chance = 0.25;
        FaultDice dice(planOf(99, rule), FaultOnWave);
        const auto count = strikes(dice, Fault::Loss, 10000).size();
        QVERIFY2(count > 2300 && count < 2700, qPrintable(QString::number(count)));
    }

    void sameSeedStrikesAlike()
    {
        FaultRule rule{Fault::Loss};
        rule.chance = 0.1;
        FaultDice first(planOf(42, rule), FaultOnWave);
        FaultDice second(planOf(42, rule), FaultOnWave);
        FaultDice other(planOf(43, rule), FaultOnWave);
        const QList<int> struck = strikes(first, Fault::Loss, 1000);
        QCOMPARE(strikes(second, Fault::Loss, 1000), struck);
        QVERIFY(strikes(other, Fault::Loss, 1000) != struck);
    }

    void seedOfTheMomentIsTold()
    {
        const FaultPlan plan;
        QVERIFY(plan.seed() != 0);
        FaultRule rule{Fault::Loss};
        rule.chance = 0.5;
        FaultPlan first = plan;
        first.add(rule);
        FaultDice dice(first, FaultOnWave);
        FaultDice again(planOf(plan.seed(), rule), FaultOnWave);
        QCOMPARE(strikes(again, Fault::Loss, 200), strikes(dice, Fault::Loss, 200));
    }

    void channelsCountForThemselves()
    {
        const FaultPlan plan = planOf(1, {Fault::Loss, 0, 1, 1});
        FaultDice wave(plan, FaultOnWave);
        FaultDice control(plan, FaultOnControl);
        QCOMPARE(strikes(wave, Fault::Loss, 3), QList<int>{1});
        QCOMPARE(strikes(control, Fault::Loss, 3), QList<int>{1});
    }

    void secondRuleOfAFaultTakesItsTurn()
    {
        FaultPlan plan(1);
        plan.add({Fault::Notify, 2, 0, 1});
        plan.add({Fault::Notify, 4, 0, 1});
        FaultDice dice(plan, FaultOnWave);
        QCOMPARE(dice.strike(Fault::Notify), std::optional<int64_t>(2));
        QCOMPARE(dice.strike(Fault::Notify), std::optional<int64_t>(4));
        QVERIFY(!dice.strike(Fault::Notify));
    }

    // --- rainy day flows
    void otherFaultsAndChannelsAreLeftAlone()
    {
        FaultRule rule{Fault::Loss};
        rule.on = FaultOnControl;
        FaultDice wave(planOf(1, rule), FaultOnWave);
        QVERIFY(wave.isEmpty());
        QVERIFY(!wave.strike(Fault::Loss));
        FaultDice control(planOf(1, rule), FaultOnControl);
        QVERIFY(!control.isEmpty());
        QVERIFY(!control.strike(Fault::Junk));
    }

    void wrongTextsAreRefused_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("error");
        QTest::newRow("unknown") << "thunder"
                                 << "There is no fault \"thunder\".";
        QTest::newRow("empty") << ""
                               << "There is no fault \"\".";
        QTest::newRow("key") << "loss:often=3"
                             << "\"often=3\" does not fit the fault \"loss\".";
        QTest::newRow("no number") << "loss:after=soon"
                                   << "\"after=soon\" does not fit the fault \"loss\".";
        QTest::newRow("chance above 1") << "loss:chance=2"
                                        << "\"chance=2\" does not fit the fault \"loss\".";
        QTest::newRow("negative count") << "loss:times=-1"
                                        << "\"times=-1\" does not fit the fault \"loss\".";
        QTest::newRow("channel") << "loss:on=paper"
                                 << "\"on=paper\" does not fit the fault \"loss\".";
    }
    void wrongTextsAreRefused()
    {
        QFETCH(QString, text);
        QFETCH(QString, error);
        QString told;
        QVERIFY(!FaultRule::fromText(text, &told));
        QCOMPARE(told, error);
        QVERIFY(!FaultRule::fromText(text));
    }

    void emptyDiceNeverStrike()
    {
        FaultDice dice;
        QVERIFY(dice.isEmpty());
        QVERIFY(!dice.strike(Fault::Loss));
        QCOMPARE(dice.random(0), 0U);
    }
};

QTEST_GUILESS_MAIN(tst_FaultPlan)
#include "tst_FaultPlan.moc"
