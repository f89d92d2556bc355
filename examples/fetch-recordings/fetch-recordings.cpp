// Fetches the recordings of a time range from one or several recorders.

#include "fetch-recordings/FetchReport.h"
#include "shared/InterruptWatch.h"
#include "shared/UtcTime.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QSocketNotifier>
#include <QTextStream>

#include <iostream>
#include <string>

namespace {

enum ExitCode {
    Done = 0,
    WrongUse = 1,
    NothingFound = 2,
    NotWhole = 3,
    DiskError = 5,
};

int fail(ExitCode code, const QString& sentence)
{
    QTextStream(stderr) << "fetch-recordings: " << sentence << Qt::endl;
    return code;
}

struct Order
{
    QStringList hosts;
    QDateTime begin;
    QDateTime end;
    bool isAll = false;
    int tries = 0;
    QString complaint;
};

Order readOrder(const QCommandLineParser& parser)
{
    Order order;
    order.hosts = parser.values(QStringLiteral("host")) + parser.positionalArguments();
    order.isAll = !parser.isSet(QStringLiteral("from")) && !parser.isSet(QStringLiteral("to"));
    order.begin = utcTimeOf(parser.value(QStringLiteral("from")));
    order.end = utcTimeOf(parser.value(QStringLiteral("to")));
    bool isNumber = false;
    order.tries = parser.value(QStringLiteral("tries")).toInt(&isNumber);
    for (const QString& host : std::as_const(order.hosts)) {
        if (NvxIpAddr(host.toStdString()).toInt() == 0)
            order.complaint = QStringLiteral("--host takes an IPv4 address, not %1.").arg(host);
    }
    if (order.hosts.isEmpty())
        order.complaint = QStringLiteral("--host is missing.");
    else if (!order.isAll && (!order.begin.isValid() || !order.end.isValid()))
        order.complaint = QStringLiteral("--from and --to take times like 2024-02-29T12:40:00, in UTC.");
    else if (!isNumber || order.tries < 1)
        order.complaint = QStringLiteral("--tries takes a number from 1 on.");
    return order;
}

/// Return pauses, and return again goes on, as does the end of the input, behind which nobody could any more.
void pauseOnReturn(QSocketNotifier& keys, NvxFetchSession& session)
{
    QObject::connect(&keys, &QSocketNotifier::activated, &session, [&] {
        std::string line;
        const bool isOver = !std::getline(std::cin, line);
        keys.setEnabled(!isOver);
        if (session.isPaused()) {
            QTextStream(stdout) << "Going on." << Qt::endl;
            session.resume();
        } else if (!isOver) {
            QTextStream(stdout) << "Paused; return goes on." << Qt::endl;
            session.pause();
        }
    });
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("fetch-recordings"));
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Fetches the recordings of a time range from one or several recorders, three files at "
                       "a time. The return key "
                       "pauses and goes on, Ctrl-C ends it.\n"
                       "Exit codes: 0 all fetched, 1 wrong use, 2 nothing found, 3 not all fetched, 5 the "
                       "directory can't be "
                       "made."));
    parser.addHelpOption();
    const auto option = [&parser](const char* name, const char* text, const char* value,
                                  const char* standard) {
        parser.addOption({QString::fromLatin1(name), QString::fromLatin1(text), QString::fromLatin1(value),
                          QString::fromLatin1(standard)});
    };
    option("host", "IPv4 address of a recorder; once for each, or with the others behind it.", "ADDR", "");
    parser.addPositionalArgument(QStringLiteral("ADDR"), QStringLiteral("More recorders."),
                                 QStringLiteral("[ADDR...]"));
    option("from", "First time at which a recording may begin, in UTC.", "TIME", "");
    option("to", "Last time at which a recording may begin, in UTC. Without both, recordings of any time.",
           "TIME", "");
    option("out", "Directory of the files; it is made if need be.", "DIR", "recordings");
    option("tries", "How often each listing and each file is tried.", "N", "5");
    parser.process(app);

    const Order order = readOrder(parser);
    if (!order.complaint.isEmpty())
        return fail(WrongUse, order.complaint);
    const QString directory = parser.value(QStringLiteral("out"));
    if (!QDir().mkpath(directory))
        return fail(DiskError, QStringLiteral("the directory %1 can't be made.").arg(directory));

    NvxFetchSession session;
    session.setDestDir(directory);
    session.setMaxAttempts(order.tries);
    session.setPassiveToPeer(true);
    const FetchReport report(session);
    const InterruptWatch interrupts;
    QObject::connect(&interrupts, &InterruptWatch::interrupted, &session, &NvxFetchSession::cancel);
    QSocketNotifier keys(0, QSocketNotifier::Read);
    pauseOnReturn(keys, session);
    QObject::connect(&session, &NvxFetchSession::finished, &app, &QCoreApplication::quit,
                     Qt::QueuedConnection);
    session.start(order.hosts, order.begin, order.end, order.isAll);
    QCoreApplication::exec();
    if (!report.summary().isWhole())
        return NotWhole;
    return report.summary().files() == 0 ? NothingFound : Done;
}
