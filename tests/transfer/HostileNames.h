#pragma once

#include <QDir>
#include <QDirIterator>
#include <QMap>
#include <QStringList>

inline QByteArray bytesOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("none");
}

/// Every file, folder and link below a folder, with the files' bytes.
inline QMap<QString, QByteArray> treeOf(const QString& root)
{
    QMap<QString, QByteArray> found;
    QDirIterator entries(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        const QString path = entries.next();
        const QFileInfo info = entries.fileInfo();
        found.insert(QDir(root).relativeFilePath(path),
                     info.isFile() ? bytesOf(path) : QByteArray("no file"));
    }
    return found;
}

/// Names that try to leave the folder that a file is meant for, or to become something else than a file. In
/// those with {} that stands for the whole path of the folder around.
inline QStringList namesThatWantOut()
{
    QStringList names;
    for (const char* name : {"../precious",
                             "../../precious",
                             "../beside/precious",
                             "./../precious",
                             "sub/../../precious",
                             "sub/precious",
                             "./precious",
                             "precious/",
                             "/precious",
                             "//precious",
                             "{}/precious",
                             "{}/beside/precious",
                             "{}/new",
                             "../new",
                             "../beside/new",
                             "../beside/../new",
                             "sub/new",
                             "sub//new",
                             "..",
                             ".",
                             "...",
                             "../",
                             "./",
                             "/",
                             "//",
                             "..\\precious",
                             "..\\..\\precious",
                             "sub\\precious",
                             "\\precious",
                             "\\\\host\\share",
                             "\\\\?\\C:\\precious",
                             "\\\\.\\COM1",
                             "..\\",
                             "\\",
                             "C:\\precious",
                             "C:precious",
                             "C:",
                             "c:/precious",
                             "precious:stream",
                             "precious::$DATA",
                             "file:///precious",
                             "CON",
                             "nul",
                             "AUX.wav",
                             "com1",
                             "LPT9.txt",
                             "PRN.wav.wav",
                             "CONOUT$",
                             "precious.",
                             "precious ",
                             ".. ",
                             "..  .",
                             "../precious\n",
                             "a\nb",
                             "a\r\nDELE b",
                             "a\tb",
                             "\x1B[2J",
                             "a\x7F",
                             "..\xE2\x80\xAE/precious",
                             "a\xE2\x80\x8B",
                             "a\xC2\x85"
                             "b",
                             ". ."})
        names << QString::fromUtf8(name);
    // A NUL behind the way out, and one within a name.
    names << QString::fromLatin1("../precious\0.wav", 16) << QString::fromLatin1("a\0b", 3);
    // A name that is too long, a way out that is, and half of a surrogate pair.
    names << QString(256, u'n') << QStringLiteral("../").repeated(100) + QStringLiteral("new")
          << QString(QChar(0xDC00));
    return names;
}
