// The order in which the settings classes write their keys. The files of this system don't show it, since a
// store sorts its keys here; those of other systems keep it.
#include "tests/settings/AllSettings.h"
#include "tests/settings/IniFile.h"
#include "tests/support/NvxTestCase.h"

namespace {

QStringList& writtenKeys()
{
    static QStringList keys;
    return keys;
}

} // namespace

/// Takes the place of the store's own function: the library, which is loaded dynamically, finds this one
/// first.
void QSettings::setValue(QAnyStringView key, const QVariant& /*value*/)
{
    writtenKeys() << group() + u'/' + key.toString();
}

class tst_settings_order : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void keysInTheOrderOfWriting_data();
    void keysInTheOrderOfWriting();
};

void tst_settings_order::keysInTheOrderOfWriting_data()
{
    QTest::addColumn<QString>("group");
    QTest::addColumn<QString>("keys");
    for (const auto& [group, keys] : keysOfGroups())
        QTest::newRow(group) << QString::fromLatin1(group) << QString::fromLatin1(keys);
}
void tst_settings_order::keysInTheOrderOfWriting()
{
    QFETCH(QString, group);
    QFETCH(QString, keys);
    AllSettings settings;
    settings.setTagsAndTriggers();
    writtenKeys().clear();
    const IniFile file;
    settings.save(file.store());
    const QString begin = group + u'/';
    QStringList written;
    for (const QString& key : std::as_const(writtenKeys())) {
        if (key.startsWith(begin))
            written << key.mid(begin.size());
    }
    QCOMPARE(written, keys.split(u' '));
}

QTEST_GUILESS_MAIN(tst_settings_order)
#include "tst_settings_order.moc"
