#pragma once

#include "tests/settings/IniFile.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTest>

#include <functional>
#include <type_traits>

/// One stored value of a settings class: its key with the groups below the class's own, its default, and how
/// it is read and set. Whole numbers, bools, reals and texts, all as texts here.
template <class Settings> struct StoredValue
{
    QString key;
    QString standard;
    /// A value that is neither the default nor that of another key.
    QString other;
    /// What a missing key loads as, where `other` was set: "0" or "false", and `other` for texts.
    QString missing;
    std::function<QString(const Settings&)> get;
    std::function<void(Settings&, const QString&)> set;
};

/// The folder that files go to until somebody says otherwise.
inline QString expectedFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation) + QStringLiteral("/Nerivox/") +
           QFileInfo(QCoreApplication::applicationFilePath()).baseName();
}

template <class Settings, class Get, class Set>
StoredValue<Settings> storedText(const char* key, const QString& standard, Get get, Set set)
{
    const QString other = QStringLiteral("other %1, with = and \u00e4").arg(QLatin1String(key));
    return {QString::fromLatin1(key), standard, other, other, get, set};
}

template <class Settings, class Get, class Set>
StoredValue<Settings> storedNumber(const char* key, double standard, Get get, Set set)
{
    // A number for each key, that all types hold.
    const QString other = QString::number(101 + qHash(QByteArray(key), 0) % 20000);
    return {QString::fromLatin1(key),
            QString::number(standard),
            other,
            QStringLiteral("0"),
            [get](const Settings& settings) { return QString::number(static_cast<double>(get(settings))); },
            [set](Settings& settings, const QString& value) { set(settings, value.toDouble()); }};
}

template <class Settings, class Get, class Set>
StoredValue<Settings> storedBool(const char* key, bool standard, Get get, Set set)
{
    const auto text = [](bool value) { return value ? QStringLiteral("true") : QStringLiteral("false"); };
    return {
        QString::fromLatin1(key),
        text(standard),
        text(!standard),
        text(false),
        [get, text](const Settings& settings) { return text(get(settings)); },
        [set](Settings& settings, const QString& value) { set(settings, value == QLatin1String("true")); }};
}

/// A value of a public field.
template <class Settings, class Base, class Field>
StoredValue<Settings> storedField(const char* key, double standard, Field Base::*field)
{
    if constexpr (std::is_same_v<Field, bool>)
        return storedBool<Settings>(
            key, standard != 0.0, [field](const Settings& settings) { return settings.*field; },
            [field](Settings& settings, bool value) { settings.*field = value; });
    else
        return storedNumber<Settings>(
            key, standard, [field](const Settings& settings) { return settings.*field; },
            [field](Settings& settings, double value) { settings.*field = static_cast<Field>(value); });
}

/// A value with a getter and a setter; texts by default.
template <class Settings, class Got, class Given>
StoredValue<Settings> storedValue(const char* key, const QString& standard, Got (Settings::*getter)() const,
                                  void (Settings::*setter)(Given))
{
    using Value = std::remove_cvref_t<Got>;
    if constexpr (std::is_same_v<Value, QString>)
        return storedText<Settings>(key, standard, std::mem_fn(getter), std::mem_fn(setter));
    else if constexpr (std::is_same_v<Value, bool>)
        return storedBool<Settings>(key, standard == QLatin1String("true"), std::mem_fn(getter),
                                    std::mem_fn(setter));
    else
        return storedNumber<Settings>(key, standard.toDouble(), std::mem_fn(getter),
                                      [setter](Settings& settings, double value) {
                                          (settings.*setter)(static_cast<Value>(static_cast<int>(value)));
                                      });
}

template <class Settings> using StoredValues = QList<StoredValue<Settings>>;

template <class Settings> void checkDefaults(const StoredValues<Settings>& values)
{
    const Settings settings;
    for (const auto& value : values)
        QCOMPARE(value.get(settings), value.standard);
}

template <class Settings> void setAll(Settings& settings, const StoredValues<Settings>& values)
{
    for (const auto& value : values)
        value.set(settings, value.other);
}

/// Each value lands under its key and comes back; nothing else is written.
template <class Settings> void checkRoundTrip(const StoredValues<Settings>& values, const QString& group)
{
    Settings settings;
    setAll(settings, values);
    IniFile file;
    settings.save(file.store(), group);
    QVERIFY(file.store()->group().isEmpty());
    Settings other;
    QVERIFY(!(other == settings));
    other.load(file.reopen(), group);
    QVERIFY(file.store()->group().isEmpty());
    QVERIFY(other == settings);
    QCOMPARE(file.keys().size(), values.size());
    for (const auto& value : values) {
        QCOMPARE(file.value(group + '/' + value.key).toString(), value.other);
        QCOMPARE(value.get(other), value.other);
    }
}

/// Each value alone makes a difference, and copies take it along.
template <class Settings> void checkEachValueCounts(const StoredValues<Settings>& values)
{
    for (const auto& value : values) {
        Settings settings;
        value.set(settings, value.other);
        QVERIFY2(!(settings == Settings()), qPrintable(value.key));
        const Settings copied(settings);
        Settings assigned;
        assigned = settings;
        QVERIFY(copied == settings && assigned == settings);
    }
}

/// What an empty group leaves of the values.
template <class Settings> void checkMissingKeys(const StoredValues<Settings>& values, const QString& group)
{
    Settings settings;
    setAll(settings, values);
    IniFile file;
    settings.load(file.store(), group);
    for (const auto& value : values)
        QCOMPARE(value.get(settings), value.missing);
    Settings untouched;
    untouched.save(nullptr, group);
    untouched.load(nullptr, group);
    QVERIFY(untouched == Settings());
}
