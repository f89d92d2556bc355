#pragma once

#include "NvxQtCommon/contract/identity/HydEnums.h"
#include "NvxQtCommon/merge/NvxWavMerger.h"
#include "tests/support/FftParamsGuard.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <cstdint>
#include <memory>

/// One recording of one recorder, as our own wave writer writes it. Tests change what they need.
struct MergeFile
{
    uint16_t serial = 1;
    QString stamp = QStringLiteral("20240229_124000"); ///< date and time in the name
    unsigned seconds = 60;
    unsigned moreFrames = 0; ///< than the seconds have
    unsigned rate = 200;
    unsigned char bits = 16;
    bool bigEndian = false;
    QString prefix = QStringLiteral("ABC");
    HydDeviceType deviceType = DevTypeRecorderA;
    int16_t sensitivity = -170;
    int16_t temperature = 0;
    int16_t humidity = 0;
    uint64_t startSample = 0;

    /// Prefix, serial number in four digits, stamp.
    QString baseName() const;
    qint64 frames() const { return qint64{seconds} * rate + moreFrames; }
    /// The samples as they stand in the file. Each value tells its recorder and its place.
    QByteArray samples() const;
};

/// Writes the file into `directory`; gives its path, or an empty text.
QString writeMergeFile(const QString& directory, const MergeFile& file);

/// Takes the list with the record out of a wave file; gives it with its head, nothing on failure.
QByteArray takeListOut(const QString& path);

/// `blocks` of one channel each, all of the same size, sample by sample next to each other.
QByteArray woven(const QList<QByteArray>& blocks, int width);

/// The bytes of the data chunk.
QByteArray dataOfWav(const QString& path);

/// A merger over a folder with inputs and one for the outputs, and what it emits, in order: "status: ...",
/// "failed: ...", "progress ...", "aborted", "complete". It puts the FFT parameters back, which reading
/// headers of low rates changes for the process.
class MergeRig
{
public:
    explicit MergeRig(std::unique_ptr<NvxWavMerger> own = std::make_unique<NvxWavMerger>());

    QString inputDir() const { return m_folder.filePath(QStringLiteral("in")); }
    QString outputDir() const { return m_folder.filePath(QStringLiteral("out")); }
    /// Writes a file and adds it.
    QString add(const MergeFile& file);
    /// Wave files in the output directory, by name.
    QStringList outputs() const;
    QString outputPath(const QString& name) const { return outputDir() + QLatin1Char('/') + name; }
    QStringList logPaths() const;
    /// Lines of all merge logs; the time stamp at the beginning of a line is cut off and was seen to be one.
    QStringList logLines() const;
    /// The log's lines that contain `text`.
    QStringList logLinesWith(const QString& text) const;
    /// What was emitted, without the line that names the log.
    QStringList signalsAfterLog() const;

    std::unique_ptr<NvxWavMerger> merger;
    QStringList signalsSeen;

private:
    FftParamsGuard m_fftParams;
    const qint64 m_begin = QDateTime::currentSecsSinceEpoch();
    QTemporaryDir m_folder;
};
