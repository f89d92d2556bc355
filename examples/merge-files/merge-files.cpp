// Merges the wave files of several recorders into files with a channel for each recorder.

#include "merge-files/MergeWatch.h"
#include "shared/InterruptWatch.h"
#include "shared/UtcTime.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QTextStream>

#include <algorithm>
#include <set>

namespace {

enum ExitCode {
    Done = 0,
    WrongUse = 1,
    NothingMerged = 2,
    Aborted = 3,
    DiskError = 5,
};

int fail(ExitCode code, const QString& sentence)
{
    QTextStream(stderr) << "merge-files: " << sentence << Qt::endl;
    return code;
}

/// Each file once, since a merger ends its plan at a file that comes twice; of a directory its wave files.
QStringList filesOf(const QStringList& arguments)
{
    QStringList files;
    for (const QString& argument : arguments) {
        const QFileInfo info(argument);
        if (!info.isDir()) {
            files << info.absoluteFilePath();
            continue;
        }
        const QDir directory(argument);
        const QStringList names = directory.entryList({QStringLiteral("*.wav")}, QDir::Files, QDir::Name);
        for (const QString& name : names)
            files << directory.absoluteFilePath(name);
    }
    files.removeDuplicates();
    return files;
}

/// Channels as the options say; without any, the recorders by their serial numbers.
QString readChannels(const QStringList& values, NvxWavMerger& merger)
{
    for (const QString& value : values) {
        const QStringList sides = value.split(QLatin1Char('='));
        bool isNumber = false;
        bool isSerial = false;
        const uint channel = sides.value(0).toUInt(&isNumber);
        const ushort serial = sides.value(1).toUShort(&isSerial);
        if (sides.size() != 2 || !isNumber || !isSerial || channel < 1 || channel > 255)
            return QStringLiteral("--channel takes a number from 1 to 255, \"=\" and a serial number.");
        merger.setChannelDevice(static_cast<uint8_t>(channel), serial);
    }
    if (values.isEmpty()) {
        std::set<uint16_t> serials;
        const QStringList names = merger.fileList();
        for (const QString& name : names)
            serials.insert(recorderOf(name).value_or(uint16_t{0}));
        serials.erase(0);
        merger.setChannels(QList<uint16_t>(serials.begin(), serials.end()));
    }
    return {};
}

/// The range that the options say; without them, that of the files of recorders with a channel.
QString readRange(const QString& start, const QString& end, NvxWavMerger& merger)
{
    QDateTime first;
    QDateTime last;
    const QStringList names = merger.fileList();
    for (const QString& name : names) {
        const QDateTime time = NvxWavMerger::datetimeFromFname(QFileInfo(name).baseName());
        if (!time.isValid() || !hasChannel(merger, name))
            continue;
        first = first.isValid() ? std::min(first, time) : time;
        last = last.isValid() ? std::max(last, time) : time;
    }
    merger.setStartTime(start.isEmpty() ? first : utcTimeOf(start));
    merger.setEndTime(end.isEmpty() ? last : utcTimeOf(end));
    if (!start.isEmpty() && !merger.startTime().isValid())
        return QStringLiteral("--start takes a time like 2024-02-29T12:40:00, in UTC.");
    if (!end.isEmpty() && !merger.endTime().isValid())
        return QStringLiteral("--end takes a time like 2024-02-29T12:40:00, in UTC.");
    return {};
}

QString readOrder(const QCommandLineParser& parser, NvxWavMerger& merger)
{
    const QStringList files = filesOf(parser.positionalArguments());
    if (files.isEmpty())
        return QStringLiteral("no files to merge.");
    for (const QString& file : files)
        merger.addFile(file);
    bool ok = false;
    merger.setFileLength(parser.value(QStringLiteral("minutes")).toInt(&ok));
    if (!ok || merger.fileLength() < 1)
        return QStringLiteral("--minutes takes a number from 1 on.");
    merger.setOutputDir(parser.value(QStringLiteral("out")));
    const QString complaint = readChannels(parser.values(QStringLiteral("channel")), merger);
    return complaint.isEmpty()
               ? readRange(parser.value(QStringLiteral("start")), parser.value(QStringLiteral("end")), merger)
               : complaint;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("merge-files"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Merges the wave files of several recorders into files with a channel for each recorder.\n"
        "Exit codes: 0 done, 1 wrong use, 2 nothing to merge, 3 aborted by Ctrl-C with complete files, 5 "
        "files "
        "can't be written."));
    parser.addHelpOption();
    const auto option = [&parser](const char* name, const char* text, const char* value,
                                  const char* standard) {
        parser.addOption({QString::fromLatin1(name), QString::fromLatin1(text), QString::fromLatin1(value),
                          QString::fromLatin1(standard)});
    };
    option(
        "channel",
        "Puts a recorder on a channel; once for each. Without it, the recorders of the files go to channel 1 "
        "and so on, by their serial numbers.",
        "N=SERIAL", "");
    option("start", "Start of the time range in UTC, that of the first file without it.", "TIME", "");
    option("end", "Last time at which a file may begin, that of the last file without it.", "TIME", "");
    option("minutes", "Length of the files; others are left out.", "N", "1");
    option("out", "Directory of the merged files and the log; it is made if need be.", "DIR", "merged");
    parser.addPositionalArgument(QStringLiteral("FILE"),
                                 QStringLiteral("Wave files, or directories of them."),
                                 QStringLiteral("FILE..."));
    parser.process(app);

    NvxWavMerger merger;
    if (const QString complaint = readOrder(parser, merger); !complaint.isEmpty())
        return fail(WrongUse, complaint);
    if (!QDir().mkpath(merger.outputDir()))
        return fail(DiskError, QStringLiteral("the directory %1 can't be made.").arg(merger.outputDir()));

    const InterruptWatch interrupts;
    QObject::connect(&interrupts, &InterruptWatch::interrupted, &merger, &NvxWavMerger::abortMerge);
    const MergeWatch watch(merger);
    merger.startMerge();
    if (watch.isFailed())
        return DiskError;
    if (watch.isAborted())
        return fail(Aborted, QStringLiteral("aborted; the last file is short."));
    if (watch.fileCount() == 0)
        return fail(NothingMerged, QStringLiteral("there was nothing to merge; the log says why."));
    if (const int leftOut = merger.numFiles() - merger.numMerged(); leftOut > 0)
        QTextStream(stderr) << "merge-files: " << leftOut << " of " << merger.numFiles()
                            << " files were left out; the log says why." << Qt::endl;
    QTextStream(stdout) << "Merge complete." << Qt::endl;
    return Done;
}
