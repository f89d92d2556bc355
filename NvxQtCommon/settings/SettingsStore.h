#pragma once

#include <QMap>
#include <QSettings>
#include <QString>
#include <QVariant>

#include <cmath>
#include <string>
#include <type_traits>

/// Names of the stored values of a settings class by their numbers.
using SettingsKeys = QMap<int, QString>;

/// Keeps a group of a store entered while it lives; an empty name is the group that the store is in already.
/// The store stays the caller's and must outlive this; a null store is no store, and nothing happens.
class SettingsGroup
{
public:
    SettingsGroup(QSettings* store, const QString& group) : m_store(store)
    {
        if (m_store != nullptr)
            m_store->beginGroup(group);
    }
    ~SettingsGroup()
    {
        if (m_store != nullptr)
            m_store->endGroup();
    }
    SettingsGroup(const SettingsGroup&) = delete;
    SettingsGroup& operator=(const SettingsGroup&) = delete;

protected:
    QSettings* m_store;
};

/// Writes values into a group, each under the name of its number. A settings class shows its values, in the
/// order of the file, to whoever asks with (number, value): this one, or the reader below.
class SettingsWriter : public SettingsGroup
{
public:
    SettingsWriter(QSettings* store, const QString& group, const SettingsKeys& keys)
        : SettingsGroup(store, group), m_keys(keys)
    {
    }

    template <class T> void operator()(int number, const T& value) const
    {
        if (m_store != nullptr)
            m_store->setValue(m_keys.value(number), stored(value));
    }

private:
    template <class T> static QVariant stored(const T& value)
    {
        if constexpr (std::is_same_v<T, std::string>)
            return QString::fromStdString(value);
        else if constexpr (std::is_enum_v<T>)
            return static_cast<int>(value);
        else if constexpr (std::is_floating_point_v<T>)
            return static_cast<double>(value);
        else
            return value;
    }

    SettingsKeys m_keys;
};

/// Reads what SettingsWriter wrote. A number that is missing, is none or is wider than 64 bits gives 0, as do
/// infinities and NaN; a whole number that is wider than its field keeps the low bits. A bool is false where
/// it is missing, empty, "0" or "false", and true otherwise. A text that is missing or empty, or that is a
/// list, leaves the value as it is. Enumerations need a fixed underlying type, since any number may come.
class SettingsReader : public SettingsGroup
{
public:
    SettingsReader(QSettings* store, const QString& group, const SettingsKeys& keys)
        : SettingsGroup(store, group), m_keys(keys)
    {
    }

    template <class T> void operator()(int number, T& value) const
    {
        if (m_store != nullptr)
            take(m_store->value(m_keys.value(number)), value);
    }

private:
    template <class T> static void take(const QVariant& stored, T& value)
    {
        if constexpr (std::is_same_v<T, QString>) {
            if (const QString text = stored.toString(); !text.isEmpty())
                value = text;
        } else if constexpr (std::is_same_v<T, std::string>) {
            if (const QString text = stored.toString(); !text.isEmpty())
                value = text.toStdString();
        } else if constexpr (std::is_same_v<T, bool>) {
            value = stored.toBool();
        } else if constexpr (std::is_floating_point_v<T>) {
            value = static_cast<T>(stored.toDouble());
            if (!std::isfinite(value))
                value = 0;
        } else {
            value = static_cast<T>(stored.toInt());
        }
    }

    SettingsKeys m_keys;
};
