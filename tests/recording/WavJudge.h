#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>

#include <cstdint>
#include <vector>

/// What libsndfile says about a wave file.
struct JudgedWav
{
    QString error; ///< empty for a file that it reads whole
    int channels = 0;
    int rate = 0;
    int bits = 0;
    bool isBigEndian = false;
    qint64 frames = 0;
    std::vector<int32_t> samples; ///< frame by frame, with the file's own values
    QString title;
    QString software;
    QString date;
    QString comment;
};

/// One chunk of a wave file, as it stands in the bytes.
struct RiffChunk
{
    QByteArray name;
    qint64 offset = 0; ///< of the content
    quint32 size = 0;
};

/// The bare structure of a wave file, read here without any help.
struct RiffView
{
    bool isValid = false;
    bool isBigEndian = false;
    quint32 riffSize = 0;
    qint64 fileSize = 0;
    QList<RiffChunk> chunks;           ///< "fmt ", "LIST", "data"
    QMap<QByteArray, QByteArray> info; ///< entries of the INFO list

    const RiffChunk* chunk(const char* name) const;
    /// Bytes ahead of the samples.
    qint64 headerSize() const;
};

JudgedWav judgeWav(const QString& path);
RiffView viewRiff(const QString& path);
/// What a program of others has against the file; empty when it reads it.
QString soxObjection(const QString& path);
QString ffprobeObjection(const QString& path);
/// Empty when the file's sizes fit each other, the padding is even and libsndfile and sox read it.
QString wholeFileObjection(const QString& path);
