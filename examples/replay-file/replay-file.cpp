// Plays wave and spectrum files as live streams, one after the other, and with a directory writes what it
// plays into files again.

#include "replay-file/Replay.h"
#include "shared/InterruptWatch.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QTextStream>
#include <QTimer>

namespace {

int fail(Replay::Outcome outcome, const QString& sentence)
{
    QTextStream(stderr) << "replay-file: " << sentence << Qt::endl;
    return outcome;
}

std::optional<ReplayFILEVelocity> speedOf(const QString& name)
{
    const QStringList names{QStringLiteral("normal"), QStringLiteral("double"), QStringLiteral("quad"),
                            QStringLiteral("max")};
    const qsizetype index = names.indexOf(name);
    if (index < 0)
        return std::nullopt;
    return static_cast<ReplayFILEVelocity>(index);
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("replay-file"));
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Plays wave and spectrum files as live streams.\nExit codes: 0 done, 1 wrong use, 2 a "
                       "file can't be played, 5 files can't be written."));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("files"), QStringLiteral("Files to play, in this order."),
                                 QStringLiteral("FILE..."));
    parser.addOption({QStringLiteral("speed"), QStringLiteral("normal, double, quad or max."),
                      QStringLiteral("SPEED"), QStringLiteral("normal")});
    parser.addOption({QStringLiteral("out"),
                      QStringLiteral("Writes what is played into this directory; it is made if need be."),
                      QStringLiteral("DIR")});
    parser.process(app);

    ReplayOrder order;
    order.files = parser.positionalArguments();
    order.directory = parser.value(QStringLiteral("out"));
    if (order.files.isEmpty())
        return fail(Replay::WrongUse, QStringLiteral("which files? --help tells more."));
    const auto speed = speedOf(parser.value(QStringLiteral("speed")));
    if (!speed)
        return fail(Replay::WrongUse, QStringLiteral("--speed takes normal, double, quad or max."));
    order.speed = *speed;
    if (!order.directory.isEmpty() && !QDir().mkpath(order.directory))
        return fail(Replay::DiskError,
                    QStringLiteral("the directory %1 can't be made.").arg(order.directory));

    Replay replay(order);
    QObject::connect(&replay, &Replay::finished, &app, &QCoreApplication::exit, Qt::QueuedConnection);
    QTimer::singleShot(0, &replay, &Replay::start);
    // Ctrl-C completes the files.
    InterruptWatch interruptWatch;
    QObject::connect(&interruptWatch, &InterruptWatch::interrupted, &replay, &Replay::stop);
    return QCoreApplication::exec();
}
