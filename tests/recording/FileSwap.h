#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>

#include <fcntl.h>
#include <unistd.h>

/// The descriptor under which this process has `path` open; -1 for none.
inline int descriptorOf(const QString& path)
{
    const QDir open(QStringLiteral("/proc/self/fd"));
    for (const QString& number : open.entryList(QDir::Files | QDir::System)) {
        char target[4096];
        const QByteArray link = QFile::encodeName(open.filePath(number));
        const ssize_t size = readlink(link.constData(), target, sizeof target);
        if (size > 0 && QFile::decodeName(QByteArray(target, size)) == QFileInfo(path).canonicalFilePath())
            return number.toInt();
    }
    return -1;
}

/// Whether the descriptor leads anywhere.
inline bool isOpenDescriptor(int descriptor)
{
    return fcntl(descriptor, F_GETFD) != -1;
}

/// Puts `other` in the place of the open file `path`: whoever has that open goes on with `other` from now on,
/// without knowing. What is there is left as it is. False when nobody has it open.
inline bool swapOpenFile(const QString& path, int other)
{
    const int descriptor = descriptorOf(path);
    return descriptor >= 0 && other >= 0 && dup2(other, descriptor) == descriptor;
}

/// The same with a device.
inline bool swapOpenFile(const QString& path, const char* device, int mode)
{
    const int other = open(device, mode);
    const bool done = swapOpenFile(path, other);
    close(other);
    return done;
}
