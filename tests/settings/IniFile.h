#pragma once

#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

#include <memory>

/// A settings file of its own folder, and the store over it.
class IniFile
{
public:
    /// A file with this text.
    explicit IniFile(const QByteArray& text = {})
    {
        QFile file(path());
        if (file.open(QIODevice::WriteOnly))
            file.write(text);
        file.close();
        m_store = std::make_unique<QSettings>(path(), QSettings::IniFormat);
    }

    QString path() const { return m_folder.filePath(QStringLiteral("store.ini")); }
    QSettings* store() const { return m_store.get(); }
    /// Writes the file out and opens it anew, so that what is read comes from the file.
    QSettings* reopen()
    {
        m_store.reset();
        m_store = std::make_unique<QSettings>(path(), QSettings::IniFormat);
        return m_store.get();
    }
    /// What stands in the file under group/key; an invalid value where nothing does.
    QVariant value(const QString& key) const { return QSettings(path(), QSettings::IniFormat).value(key); }
    QByteArray bytes() const
    {
        QFile file(path());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    QStringList keys() const { return QSettings(path(), QSettings::IniFormat).allKeys(); }

private:
    QTemporaryDir m_folder;
    std::unique_ptr<QSettings> m_store;
};
