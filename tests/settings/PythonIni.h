#pragma once

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QProcess>
#include <QStringList>

/// The texts of a settings file by "group/key".
using IniTexts = QMap<QString, QString>;

/// What a Python program of this folder prints; nothing where it fails.
inline QByteArray outputOfPython(const char* script, const QString& path, const QByteArray& input = {})
{
    QProcess python;
    python.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    python.start(
        QStringLiteral(NVX_PYTHON),
        {QStringLiteral("-BS"), QStringLiteral(NVX_SETTINGS_TESTS) + u'/' + QLatin1String(script), path});
    python.write(input);
    python.closeWriteChannel();
    const bool isDone = python.waitForFinished(60000) && python.exitStatus() == QProcess::NormalExit;
    return isDone && python.exitCode() == 0 ? python.readAllStandardOutput() : QByteArray();
}

/// What Python reads from a file; empty where it fails.
inline QJsonObject readByPython(const QString& path)
{
    return QJsonDocument::fromJson(outputOfPython("read_ini.py", path)).object();
}

/// The keys of a group in the order of the file.
inline QStringList keysByPython(const QString& path, const QString& group)
{
    QStringList keys;
    for (const QJsonValue entry : readByPython(path).value(group).toArray())
        keys << entry.toArray().at(0).toString();
    return keys;
}

/// All texts of a file as Python reads them; empty where it fails.
inline IniTexts textsByPython(const QString& path)
{
    IniTexts texts;
    const QJsonObject groups = readByPython(path);
    for (auto group = groups.begin(); group != groups.end(); ++group) {
        for (const QJsonValue entry : group->toArray())
            texts.insert(group.key() + u'/' + entry.toArray().at(0).toString(),
                         entry.toArray().at(1).toString());
    }
    return texts;
}

/// Lets Python write a file; a text that begins with "bare:" stands there without quotes, and without that
/// word.
inline void writeByPython(const QString& path, const IniTexts& texts)
{
    QMap<QString, QJsonObject> groups;
    for (auto text = texts.begin(); text != texts.end(); ++text)
        groups[text.key().section(u'/', 0, 0)].insert(text.key().section(u'/', 1), text.value());
    QJsonObject whole;
    for (auto group = groups.begin(); group != groups.end(); ++group)
        whole.insert(group.key(), group.value());
    outputOfPython("write_ini.py", path, QJsonDocument(whole).toJson());
}
