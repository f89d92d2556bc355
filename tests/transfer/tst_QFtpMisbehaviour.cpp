#include "NvxQtCommon/transfer/QFtp.h"
#include "tests/support/NvxTestCase.h"
#include "tests/transfer/FtpRun.h"
#include "tests/transfer/ScriptedFtpServer.h"

#include <QTimer>

namespace {

constexpr int kLimitMs = 500;
const QString kUnanswered = QStringLiteral("Connection timed out to host 127.62.6.1");
const QString kRefusedData = QStringLiteral("Connection refused for data connection");

using Server = ScriptedFtpServer;
using Set = std::function<void(Server&)>;

struct Behaviour
{
    const char* name;
    /// Commands behind "connect login", or all of them where they begin with "connect".
    const char* words;
    /// What has to come of these, with "!" behind the one that fails.
    const char* outcome;
    /// The whole error text; empty for a run that goes well, "*" for any.
    QString text;
    Set set;
    QByteArray received = {};
};

Set answers(const QByteArray& verb, const QByteArray& bytes)
{
    return [verb, bytes](Server& server) { server.answer(verb, bytes); };
}

/// Answers, and closes the control connection in the same breath.
Set closesBehind(const QByteArray& verb, const QByteArray& bytes)
{
    return [verb, bytes](Server& server) {
        server.handle(verb, [bytes](Server& s, const QByteArray&) {
            s.reply(bytes);
            s.closeControl();
        });
    };
}

Set resetsAt(const QByteArray& verb)
{
    return [verb](Server& server) {
        server.handle(verb, [](Server& s, const QByteArray&) { s.resetControl(); });
    };
}

/// Sends the file with replies of the test's own ahead and behind.
Set sendsFile(const QByteArray& first, const QByteArray& last)
{
    return [first, last](Server& server) {
        server.handle("RETR", [first, last](Server& s, const QByteArray&) {
            s.reply(first);
            s.sendFile(s.file, last);
        });
    };
}

/// The data connection is used in a way of the test's own.
Set usesData(const QByteArray& verb, const QByteArray& reply, std::function<void(Server&, QTcpSocket&)> use)
{
    return [verb, reply, use](Server& server) {
        server.handle(verb, [reply, use](Server& s, const QByteArray&) {
            s.reply(reply);
            s.withData([&s, use](QTcpSocket& data) { use(s, data); });
        });
    };
}

QString downloading(const QString& text)
{
    return QStringLiteral("Downloading file failed:\n") + text;
}

QString listing(const QString& text)
{
    return QStringLiteral("Listing directory failed:\n") + text;
}

QString uploading(const QString& text)
{
    return QStringLiteral("Uploading file failed:\n") + text;
}

const QList<Behaviour>& behaviours()
{
    static const QByteArray s_file = "0123456789";
    static const QByteArray s_big(300000, 'b');
    static const QList<Behaviour> s_all = {
        // Replies as bytes.
        {"replies in single bytes",
         "list get put close",
         "list get put close",
         {},
         [](Server& s) { s.isInSingleBytes = true; },
         s_file},
        {"replies with LF alone", "cd", "cd", {}, answers("CWD", "250 Here\n")},
        {"reply of several lines", "cd", "cd", {}, answers("CWD", "250-Here\r\n is\r\n226 a\r\n250 lot\r\n")},
        {"reply of 17 kB", "cd", "cd!", "Changing directory failed:\n" + QString(4096, u'x'),
         answers("CWD", "550 " + QByteArray(17000, 'x') + "\r\n")},
        {"reply line over the bound", "cd", "cd!", "The server's reply is too long",
         answers("CWD", "550 " + QByteArray(70000, 'x') + "\r\n")},
        {"reply of several lines that never ends", "cd", "cd!", "The server's reply is too long",
         [](Server& s) {
             s.handle("CWD", [](Server& server, const QByteArray&) {
                 for (int i = 0; i < 20000; ++i)
                     server.reply("250-" + QByteArray(96, 'x') + "\r\n");
             });
         }},
        {"reply of several lines that stops", "cd", "cd!", kUnanswered, answers("CWD", "250-Here\r\n")},
        {"reply without a line end", "cd", "cd!", kUnanswered, answers("CWD", "250 Here")},
        {"line of junk ahead of a reply",
         "cd",
         "cd",
         {},
         answers("CWD", "hello\r\n\r\n\xff\xfe\r\n250 Here\r\n")},
        {"junk alone", "cd", "cd!", kUnanswered, answers("CWD", "hello\r\n")},
        {"NULs in a reply", "cd", "cd!", QStringLiteral("Changing directory failed:\na") + QChar(0) + u'b',
         answers("CWD", QByteArray("550 a\0b\r\n", 9))},
        {"Latin-1 in a reply", "cd", "cd!", QStringLiteral("Changing directory failed:\n\u00e9"),
         answers("CWD", "550 \xe9\r\n")},
        {"reply without text", "cd", "cd!", "Changing directory failed:\n", answers("CWD", "550\r\n")},
        {"no answer at all", "cd", "cd!", kUnanswered, answers("CWD", "")},
        // Codes and order.
        {"code that is none", "cd", "cd!", "Changing directory failed:\nwhat",
         answers("CWD", "999 what\r\n")},
        {"code 000", "cd", "cd!", "Changing directory failed:\nwhat", answers("CWD", "000 what\r\n")},
        {"preliminary reply to a plain command", "cd", "cd", {}, answers("CWD", "150 Wait\r\n250 Here\r\n")},
        {"preliminary reply alone", "cd", "cd!", kUnanswered, answers("CWD", "150 Wait\r\n")},
        {"two replies at once", "cd", "cd", {}, answers("CWD", "250 Here\r\n250 Here\r\n")},
        {"a reply that nobody asked for",
         "raw:NOOP cd",
         "raw:NOOP cd",
         {},
         [](Server& s) { s.answer("PASS", "230 Welcome\r\n226 What?\r\n"); }},
        {"3yz where nothing waits", "cd", "cd", {}, answers("CWD", "350 And?\r\n")},
        {"2yz to RNFR", "rename", "rename", {}, answers("RNFR", "250 Fine\r\n")},
        {"RNFR refused", "rename", "rename!", "No such file", answers("RNFR", "550 No such file\r\n")},
        {"RNTO refused", "rename", "rename!", "Exists", answers("RNTO", "553 Exists\r\n")},
        {"greeting refuses", "connect", "connect!", "Connecting to host failed:\nFull",
         [](Server& s) { s.greeting = "421 Full\r\n"; }},
        {"greeting asks to wait",
         "connect login",
         "connect login",
         {},
         [](Server& s) { s.greeting = "120 Wait\r\n220 Ready\r\n"; }},
        {"no greeting", "connect", "connect!", kUnanswered, [](Server& s) { s.greeting = ""; }},
        {"greeting of junk", "connect", "connect!", kUnanswered,
         [](Server& s) { s.greeting = "SSH-2.0-x\r\n"; }},
        {"230 to USER", "cd", "cd", {}, answers("USER", "230 No password needed\r\n")},
        {"USER refused", "connect login", "connect login!", "Login failed:\nNo",
         answers("USER", "530 No\r\n")},
        {"PASS refused", "connect login", "connect login!", "Login failed:\nNo",
         answers("PASS", "530 No\r\n")},
        {"PASS asks for an account",
         "connect login",
         "connect login",
         {},
         answers("PASS", "332 Account\r\n")},
        {"QUIT refused", "close", "close!", "No", answers("QUIT", "500 No\r\n")},
        {"QUIT unanswered", "close", "close!", kUnanswered, answers("QUIT", "")},
        {"QUIT unanswered but closed", "close", "close", {}, closesBehind("QUIT", "")},
        {"QUIT answered but not closed", "close", "close", {}, answers("QUIT", "221 Bye\r\n")},
        {"421 to a command", "list", "list!", listing("Idle"), closesBehind("TYPE", "421 Idle\r\n")},
        // Sizes.
        {"SIZE refused", "get", "get!", downloading("No such file"), answers("SIZE", "550 No such file\r\n")},
        {"SIZE that isn't a number", "get", "get", {}, answers("SIZE", "213 much\r\n"), s_file},
        {"SIZE too large for a number",
         "get",
         "get",
         {},
         answers("SIZE", "213 99999999999999999999\r\n"),
         s_file},
        {"SIZE below zero", "get", "get", {}, answers("SIZE", "213 -5\r\n"), s_file},
        {"SIZE says more than comes", "get", "get", {}, answers("SIZE", "213 4711\r\n"), s_file},
        {"SIZE says less than comes", "get", "get", {}, answers("SIZE", "213 1\r\n"), s_file},
        {"file that grew behind SIZE",
         "get",
         "get",
         {},
         [](Server& s) {
             s.handle("RETR", [](Server& server, const QByteArray&) {
                 server.file = s_big;
                 server.behave("RETR");
             });
         },
         s_big},
        {"TYPE refused", "get", "get!", downloading("No"), answers("TYPE", "504 No\r\n")},
        // Addresses.
        {"227 of junk", "get", "get!", downloading("Entering Passive Mode"),
         answers("PASV", "227 Entering Passive Mode\r\n")},
        {"227 with five numbers", "get", "get!", downloading("(127,0,0,1,9)"),
         answers("PASV", "227 (127,0,0,1,9)\r\n")},
        {"227 with a number over 255", "get", "get!", downloading("(127,0,0,256,9,9)"),
         answers("PASV", "227 (127,0,0,256,9,9)\r\n")},
        {"227 with port 0", "get", "get!", downloading("(127,0,0,1,0,0)"),
         answers("PASV", "227 (127,0,0,1,0,0)\r\n")},
        {"200 to PASV", "list", "list!", listing("Ok"), answers("PASV", "200 Ok\r\n")},
        {"PASV refused", "list", "list!", listing("No"), answers("PASV", "502 No\r\n")},
        {"227 to another command", "cd", "cd", {}, answers("CWD", "227 (127,62,6,1,0,1)\r\n")},
        {"PORT refused", "active get", "active get!", downloading("No"), answers("PORT", "500 No\r\n")},
        // Data connection.
        {"data connection refused", "get", "get!", kRefusedData,
         [](Server& s) {
             s.handle("PASV", [](Server& server, const QByteArray&) {
                 const QByteArray endpoint = server.endpoint(server.listenForData());
                 server.stopListeningForData();
                 server.reply("227 (" + endpoint + ")\r\n");
             });
         }},
        {"data connection never made", "active get", "active get!", kUnanswered,
         answers("RETR", "150 File\r\n")},
        {"425 in place of data", "get", "get!", downloading("No data connection"),
         answers("RETR", "425 No data connection\r\n")},
        {"data connection late",
         "active get",
         "active get",
         {},
         [](Server& s) {
             s.handle("RETR", [](Server& server, const QByteArray&) {
                 server.reply("150 File\r\n");
                 QTimer::singleShot(50, &server, [&server] { server.sendFile(server.file, "226 Sent\r\n"); });
             });
         },
         s_file},
        {"data connection never closed", "get", "get!", kUnanswered,
         usesData("RETR", "150 File\r\n226 Sent\r\n",
                  [](Server& s, QTcpSocket& data) { data.write(s.file); }),
         s_file},
        {"data connection closed early", "get", "get", {}, [](Server& s) { s.dataLimit = 4; }, "0123"},
        {"data connection reset", "get", "get!", downloading("Cut"),
         usesData("RETR", "150 File\r\n",
                  [](Server& s, QTcpSocket& data) {
                      Server::sendReset(data);
                      s.reply("426 Cut\r\n");
                  })},
        {"data connection closed and then nothing", "get", "get!", kUnanswered,
         usesData("RETR", "150 File\r\n", [](Server&, QTcpSocket& data) { data.disconnectFromHost(); })},
        {"226 before the data", "get", "get", {}, sendsFile("150 File\r\n226 Sent\r\n", ""), s_file},
        {"226 before the data without 150", "get", "get", {}, sendsFile("226 Sent\r\n", ""), s_file},
        {"226 before a large file",
         "get",
         "get",
         {},
         [](Server& s) {
             s.file = s_big;
             sendsFile("150 File\r\n226 Sent\r\n", "")(s);
         },
         s_big},
        {"226 between the data",
         "get",
         "get",
         {},
         usesData("RETR", "150 File\r\n",
                  [](Server& s, QTcpSocket& data) {
                      data.write("01234");
                      data.flush();
                      s.reply("226 Sent\r\n");
                      QTimer::singleShot(20, &data, [&data] {
                          data.write("56789");
                          data.disconnectFromHost();
                      });
                  }),
         s_file},
        {"226 long after the data",
         "get",
         "get",
         {},
         usesData("RETR", "150 File\r\n",
                  [](Server& s, QTcpSocket& data) {
                      data.write(s.file);
                      data.disconnectFromHost();
                      QTimer::singleShot(100, &s, [&s] { s.reply("226 Sent\r\n"); });
                  }),
         s_file},
        {"226 twice", "get cd", "get cd", {}, sendsFile("150 File\r\n", "226 Sent\r\n226 Sent\r\n"), s_file},
        {"250 to RETR", "get", "get", {}, sendsFile("150 File\r\n250 Sent\r\n", ""), s_file},
        {"200 to RETR", "get", "get", {}, sendsFile("150 File\r\n200 Sent\r\n", ""), s_file},
        {"no 150", "get", "get", {}, sendsFile("", "226 Sent\r\n"), s_file},
        {"451 behind half of the file", "get", "get!", downloading("Disk"),
         [](Server& s) {
             s.dataLimit = 5;
             sendsFile("150 File\r\n", "451 Disk\r\n")(s);
         },
         "01234"},
        {"350 to RETR", "get", "get", {}, sendsFile("150 File\r\n", "350 And?\r\n"), s_file},
        {"226 in active mode before the data",
         "active get",
         "active get",
         {},
         usesData("RETR", "150 File\r\n",
                  [](Server& s, QTcpSocket& data) {
                      data.write(s.file);
                      data.disconnectFromHost();
                      s.reply("226 Sent\r\n");
                  }),
         s_file},
        {"226 in active mode without data", "active get", "active get", {}, answers("RETR", "226 Sent\r\n")},
        {"data behind an unknown command", "raw:XLST", "raw:XLST!", "Unknown", [](Server&) {}},
        // Listings.
        {"listing is a missing directory", "list", "list!", listing("ls: Data: No such file or directory"),
         [](Server& s) { s.listing = "ls: Data: No such file or directory\r\n"; }},
        {"listing is missing and refused", "list", "list!", listing("ls: x: No such file or directory"),
         [](Server& s) {
             s.handle("LIST", [](Server& server, const QByteArray&) {
                 server.reply("150 Listing\r\n");
                 server.sendFile("ls: x: No such file or directory\r\n", "550 Failed\r\n");
             });
         }},
        {"listing of junk",
         "list",
         "list",
         {},
         [](Server& s) { s.listing = QByteArray(100000, '\xff') + "\r\n\n\n" + QByteArray(5000, '\0'); }},
        {"listing of nothing", "list", "list", {}, [](Server& s) { s.listing.clear(); }},
        {"listing without an end", "list", "list!", kUnanswered,
         usesData("LIST", "150 Listing\r\n", [](Server& s, QTcpSocket& data) { data.write(s.listing); })},
        {"550 to LIST", "list", "list!", listing("No"), answers("LIST", "550 No\r\n")},
        {"250 to LIST",
         "list",
         "list",
         {},
         [](Server& s) {
             s.handle("LIST", [](Server& server, const QByteArray&) {
                 server.reply("150 Listing\r\n250 Listed\r\n");
                 server.sendFile(server.listing, "");
             });
         }},
        // Uploads.
        {"ALLO refused", "put", "put!", uploading("Full"), answers("ALLO", "552 Full\r\n")},
        {"STOR refused", "put", "put!", uploading("No"), answers("STOR", "553 No\r\n")},
        {"226 to STOR without taking data", "put", "put!", uploading("Taken"),
         answers("STOR", "226 Taken\r\n")},
        {"STOR cut and called done", "put", "put!",
         uploading("The data connection was closed before all was sent"),
         usesData("STOR", "150 Come\r\n",
                  [](Server& s, QTcpSocket& data) {
                      Server::sendReset(data);
                      QTimer::singleShot(20, &s, [&s] { s.reply("226 Taken\r\n"); });
                  })},
        {"STOR cut and refused", "put", "put!", uploading("Full"),
         usesData("STOR", "150 Come\r\n",
                  [](Server& s, QTcpSocket& data) {
                      Server::sendReset(data);
                      s.reply("452 Full\r\n");
                  })},
        {"STOR taken and not answered", "put", "put!", kUnanswered,
         usesData("STOR", "150 Come\r\n", [](Server&, QTcpSocket&) {})},
        // Control connection lost.
        {"lost at USER", "connect login", "connect login!", "Connection closed", closesBehind("USER", "")},
        {"lost behind 331", "connect login", "connect login!", "Connection closed",
         closesBehind("USER", "331 Pass")},
        {"lost at PASS", "connect login", "connect login!", "Connection closed", closesBehind("PASS", "")},
        {"lost at CWD", "cd", "cd!", "Connection closed", closesBehind("CWD", "")},
        {"lost at TYPE", "get", "get!", "Connection closed", closesBehind("TYPE", "")},
        {"lost at SIZE", "get", "get!", "Connection closed", closesBehind("SIZE", "")},
        {"lost at PASV", "get", "get!", "Connection closed", closesBehind("PASV", "")},
        {"lost at RETR", "get", "get!", "Connection closed", closesBehind("RETR", "")},
        {"lost behind 150", "get", "get!", "Connection closed", closesBehind("RETR", "150 File\r\n")},
        {"lost at STOR", "put", "put!", "Connection closed", closesBehind("STOR", "150 Come\r\n")},
        {"lost at LIST", "list", "list!", "Connection closed", closesBehind("LIST", "150 Listing\r\n")},
        {"reset at CWD", "cd", "cd!", "Connection closed", resetsAt("CWD")},
        {"reset at RETR", "get", "get!", "Connection closed", resetsAt("RETR")},
        {"lost right behind a good reply", "cd cd", "cd cd!", "*", closesBehind("CWD", "250 Here\r\n")},
    };
    return s_all;
}

} // namespace

/// A server that does what it should not. Each command that began ends in exactly one result, the queue in
/// exactly one done(), and the same client works with a server that behaves right after.
class tst_QFtpMisbehaviour : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- rainy day flows
    void thereAreEnough();
    void endsInOneResult_data();
    void endsInOneResult();
};

void tst_QFtpMisbehaviour::thereAreEnough()
{
    QVERIFY(behaviours().size() >= 60);
}

void tst_QFtpMisbehaviour::endsInOneResult_data()
{
    QTest::addColumn<int>("index");
    for (int i = 0; i < behaviours().size(); ++i)
        QTest::newRow(behaviours()[i].name) << i;
}

void tst_QFtpMisbehaviour::endsInOneResult()
{
    QFETCH(int, index);
    const Behaviour& behaviour = behaviours()[index];
    Server server(QHostAddress(QStringLiteral("127.62.6.1")));
    behaviour.set(server);
    QFtp ftp;
    // Only for the last command, and only where it waits in vain: the machine may stall anywhere else.
    connect(&ftp, &QFtp::commandStarted, &server, [&ftp, &behaviour] {
        ftp.setInactivityLimit(behaviour.text == kUnanswered && !ftp.hasPendingCommands() ? kLimitMs : 0);
    });
    QString words = QString::fromLatin1(behaviour.words);
    QString outcome = QString::fromLatin1(behaviour.outcome);
    if (!words.startsWith(u"connect")) {
        words = QStringLiteral("connect login ") + words;
        outcome = QStringLiteral("connect login ") + outcome;
    }
    {
        FtpRun run(ftp, server.host(), server.port());
        QVERIFY(run.run(words));
        QCOMPARE(run.outcome(), outcome);
        QCOMPARE(run.started.size(), run.finished.size());
        QCOMPARE(run.doneCount, 1);
        const bool fails = outcome.endsWith(u'!');
        QCOMPARE(run.doneError, fails);
        QCOMPARE(ftp.error() != QFtp::NoError, fails);
        if (behaviour.text != u"*")
            QCOMPARE(run.errorText, fails ? behaviour.text : QStringLiteral("Unknown error"));
        QVERIFY2(run.received() == behaviour.received, run.received().left(100).constData());
        QVERIFY(!run.hasEmptyRead && !run.hasEmptyBatch);
        QVERIFY(!ftp.hasPendingCommands());
        QCOMPARE(ftp.currentId(), 0);
        QCOMPARE(ftp.currentCommand(), QFtp::None);
    }
    ftp.disconnect(&server);
    ftp.setInactivityLimit(0);
    server.reset();
    FtpRun again(ftp, server.host(), server.port());
    QVERIFY(again.run(QStringLiteral("passive connect login list get put cd close")));
    QCOMPARE(again.outcome(), QStringLiteral("passive connect login list get put cd close"));
    QCOMPARE(again.received(), server.file);
    QCOMPARE(server.uploaded, again.toPut);
    QCOMPARE(again.entries, QStringList({"a.wav", "Data"}));
    QCOMPARE(again.doneCount, 1);
    QCOMPARE(ftp.state(), QFtp::Unconnected);
}

QTEST_GUILESS_MAIN(tst_QFtpMisbehaviour)
#include "tst_QFtpMisbehaviour.moc"
