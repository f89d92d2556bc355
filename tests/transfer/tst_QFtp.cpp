#include "NvxQtCommon/transfer/QFtp.h"
#include "tests/support/NvxTestCase.h"
#include "tests/transfer/FtpRun.h"
#include "tests/transfer/ScriptedFtpServer.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTest>

namespace {

using Server = ScriptedFtpServer;
using Lines = QList<QByteArray>;

const QDateTime kStart(QDate(2021, 3, 1), QTime(0, 0), Qt::UTC);

} // namespace

class tst_QFtp : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    // --- happy flows
    void sendsTheLinesOfEachCommand_data();
    void sendsTheLinesOfEachCommand();
    void idsAreConsecutive();
    void signalsComeInOrder();
    void statesOfASession();
    void statusTexts();
    void anonymousOnlyWhereNull();
    void numbersOfTheInterface();
    void activeMode();
    void extendedForms_data();
    void extendedForms();
    void proxyNamesTheHost_data();
    void proxyNamesTheHost();
    void timeRangeIsForTheListingsThatFollow();
    void oneBatchForEachPiece();
    void progressHasTheTotal();
    void rawRepliesAreHandedOn();
    void rawTransfer();
    void bytesStayReadableBehindTheEnd();
    void readTakesSome();
    void commandsQueuedInSlots();
    void reconnectsWhileConnected();
    void passiveToPeer();
    void objectNames();

private:
    std::unique_ptr<Server> m_server;
    std::unique_ptr<QFtp> m_ftp;
    std::unique_ptr<FtpRun> m_run;
};

void tst_QFtp::init()
{
    failOnUnexpectedWarnings();
    m_server = std::make_unique<Server>(QHostAddress(QStringLiteral("127.62.6.4")));
    m_ftp = std::make_unique<QFtp>();
    m_run = std::make_unique<FtpRun>(*m_ftp, m_server->host(), m_server->port());
}

void tst_QFtp::cleanup()
{
    m_run.reset();
    m_ftp.reset();
    m_server.reset();
}

void tst_QFtp::sendsTheLinesOfEachCommand_data()
{
    QTest::addColumn<std::function<void(QFtp&)>>("queue");
    QTest::addColumn<Lines>("lines");
    const auto row = [](const char* name, std::function<void(QFtp&)> queue, const Lines& lines) {
        QTest::newRow(name) << std::move(queue) << lines;
    };
    const QString name = QStringLiteral("m\u00e9r.wav");
    const QByteArray bytes = name.toUtf8();
    row("login", [](QFtp& ftp) { ftp.login(QStringLiteral("me"), QStringLiteral("secret")); },
        {"USER me", "PASS secret"});
    row("list", [](QFtp& ftp) { ftp.list(); }, {"TYPE A", "PASV", "LIST"});
    row("list of a directory", [](QFtp& ftp) { ftp.list(QStringLiteral("a b")); },
        {"TYPE A", "PASV", "LIST a b"});
    row("cd", [name](QFtp& ftp) { ftp.cd(name); }, {"CWD " + bytes});
    row("get", [name](QFtp& ftp) { ftp.get(name); }, {"TYPE I", "SIZE " + bytes, "PASV", "RETR " + bytes});
    row("get of text", [name](QFtp& ftp) { ftp.get(name, nullptr, QFtp::Ascii); },
        {"TYPE A", "SIZE " + bytes, "PASV", "RETR " + bytes});
    row("put", [name](QFtp& ftp) { ftp.put(QByteArray("abc"), name); },
        {"TYPE I", "PASV", "ALLO 3", "STOR " + bytes});
    row("put of text", [name](QFtp& ftp) { ftp.put(QByteArray(), name, QFtp::Ascii); },
        {"TYPE A", "PASV", "ALLO 0", "STOR " + bytes});
    row("remove", [name](QFtp& ftp) { ftp.remove(name); }, {"DELE " + bytes});
    row("mkdir", [name](QFtp& ftp) { ftp.mkdir(name); }, {"MKD " + bytes});
    row("rmdir", [name](QFtp& ftp) { ftp.rmdir(name); }, {"RMD " + bytes});
    row("rename", [name](QFtp& ftp) { ftp.rename(name, QStringLiteral("x")); }, {"RNFR " + bytes, "RNTO x"});
    row("raw", [](QFtp& ftp) { ftp.rawCommand(QStringLiteral("NOOP")); }, {"NOOP"});
    row("close", [](QFtp& ftp) { ftp.close(); }, {"QUIT"});
    row("transfer mode", [](QFtp& ftp) { ftp.setTransferMode(QFtp::Passive); }, {});
    row("proxy", [](QFtp& ftp) { ftp.setProxy(QStringLiteral("p"), 1); }, {});
}

void tst_QFtp::sendsTheLinesOfEachCommand()
{
    QFETCH(std::function<void(QFtp&)>, queue);
    QFETCH(Lines, lines);
    QVERIFY(m_run->run(QStringLiteral("connect")));
    queue(*m_ftp);
    QVERIFY(m_run->waitForDone(2));
    QVERIFY2(!m_run->doneError, qPrintable(m_run->errorText));
    QCOMPARE(m_server->lines, lines);
}

void tst_QFtp::idsAreConsecutive()
{
    const int first = m_ftp->connectToHost(m_server->host(), m_server->port());
    QVERIFY(first > 0);
    QCOMPARE(m_ftp->login(), first + 1);
    QCOMPARE(m_ftp->setTransferMode(QFtp::Passive), first + 2);
    QCOMPARE(m_ftp->close(), first + 3);
    QSignalSpy finished(m_ftp.get(), &QFtp::commandFinished);
    QSignalSpy started(m_ftp.get(), &QFtp::commandStarted);
    QVERIFY(started.isEmpty());
    QVERIFY(m_run->waitForDone());
    QCOMPARE(finished.size(), 4);
    for (int i = 0; i < 4; ++i) {
        QCOMPARE(started[i][0].toInt(), first + i);
        QCOMPARE(finished[i][0].toInt(), first + i);
        QCOMPARE(finished[i][1].toBool(), false);
    }
}

void tst_QFtp::signalsComeInOrder()
{
    QStringList order;
    QList<int> ids;
    connect(m_ftp.get(), &QFtp::commandStarted, this, [&](int id) {
        order << QStringLiteral("started %1").arg(m_ftp->currentCommand());
        QCOMPARE(m_ftp->currentId(), id);
    });
    connect(m_ftp.get(), &QFtp::commandFinished, this, [&] {
        order << QStringLiteral("finished");
        // The command has left the queue by now.
        QCOMPARE(m_ftp->currentId(), 0);
        QCOMPARE(m_ftp->currentCommand(), QFtp::None);
        QCOMPARE(m_ftp->currentDevice(), nullptr);
    });
    connect(m_ftp.get(), &QFtp::done, this, [&] { order << QStringLiteral("done"); });
    connect(m_ftp.get(), &QFtp::listInfoS, this, [&] { order << QStringLiteral("list"); });
    QVERIFY(!m_ftp->hasPendingCommands());
    m_run->queue(QStringLiteral("connect list"));
    QVERIFY(m_ftp->hasPendingCommands());
    QVERIFY(order.isEmpty());
    QVERIFY(m_run->waitForDone());
    QCOMPARE(order, QStringList({"started 3", "finished", "started 6", "list", "finished", "done"}));
}

void tst_QFtp::statesOfASession()
{
    QCOMPARE(m_ftp->state(), QFtp::Unconnected);
    QVERIFY(m_run->run(QStringLiteral("connect login list close")));
    QCOMPARE(m_run->states, QList<int>({1, 2, 3, 4, 5, 0}));
    QCOMPARE(m_ftp->state(), QFtp::Unconnected);
}

void tst_QFtp::statusTexts()
{
    QCOMPARE(m_ftp->statusText(), QString());
    QVERIFY(m_run->run(QStringLiteral("connect")));
    QCOMPARE(m_ftp->statusText(), QStringLiteral("Connected to host 127.62.6.4"));
    QVERIFY(m_run->run(QStringLiteral("active")));
    QCOMPARE(m_ftp->statusText(), QStringLiteral("Transfer mode set"));
    m_ftp->setProxy(QStringLiteral("gate"), 2121);
    QVERIFY(m_run->waitForDone(3));
    QCOMPARE(m_ftp->statusText(), QStringLiteral("Proxy set to gate:2121"));
    QVERIFY(m_run->run(QStringLiteral("close")));
    QCOMPARE(m_ftp->statusText(), QStringLiteral("Connection closed"));
}

void tst_QFtp::anonymousOnlyWhereNull()
{
    QVERIFY(m_run->run(QStringLiteral("connect")));
    m_ftp->login(QString(), QString());
    m_ftp->login(QStringLiteral(""), QStringLiteral(""));
    QVERIFY(m_run->waitForDone(2));
    QCOMPARE(m_server->lines, Lines({"USER anonymous", "PASS anonymous@", "USER ", "PASS "}));
}

void tst_QFtp::numbersOfTheInterface()
{
    const QList<int> commands = {QFtp::None,      QFtp::SetTransferMode,
                                 QFtp::SetProxy,  QFtp::ConnectToHost,
                                 QFtp::Login,     QFtp::Close,
                                 QFtp::List,      QFtp::Cd,
                                 QFtp::Get,       QFtp::Put,
                                 QFtp::Remove,    QFtp::Mkdir,
                                 QFtp::Rmdir,     QFtp::Rename,
                                 QFtp::RawCommand};
    for (int i = 0; i < 15; ++i)
        QCOMPARE(commands[i], i);
    const QList<int> states = {QFtp::Unconnected, QFtp::HostLookup, QFtp::Connecting,
                               QFtp::Connected,   QFtp::LoggedIn,   QFtp::Closing};
    QCOMPARE(states, QList<int>({0, 1, 2, 3, 4, 5}));
    const QList<int> errors = {QFtp::NoError, QFtp::UnknownError, QFtp::HostNotFound, QFtp::ConnectionRefused,
                               QFtp::NotConnected};
    QCOMPARE(errors, QList<int>({0, 1, 2, 3, 4}));
    QCOMPARE(int(QFtp::Binary), 0);
    QCOMPARE(int(QFtp::Ascii), 1);
    QCOMPARE(int(QFtp::Active), 0);
    QCOMPARE(int(QFtp::Passive), 1);
    QCOMPARE(m_ftp->error(), QFtp::NoError);
    QCOMPARE(m_ftp->errorString(), QStringLiteral("Unknown error"));
    QCOMPARE(m_ftp->bytesAvailable(), 0);
    QVERIFY(m_ftp->readAll().isEmpty());
}

void tst_QFtp::activeMode()
{
    QVERIFY(m_run->run(QStringLiteral("connect login active list get put")));
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login active list get put"));
    QCOMPARE(m_run->received(), m_server->file);
    QCOMPARE(m_server->uploaded, m_run->toPut);
    QCOMPARE(m_run->entries, QStringList({"a.wav", "Data"}));
    QVERIFY(!m_server->lines.contains("PASV"));
    const QRegularExpression port(QStringLiteral("^PORT 127,0,0,1,\\d+,\\d+$"));
    for (const int at : {3, 7, 10})
        QVERIFY2(port.match(QString::fromLatin1(m_server->lines[at])).hasMatch(),
                 m_server->lines[at].constData());
}

void tst_QFtp::extendedForms_data()
{
    QTest::addColumn<bool>("isActive");
    QTest::addColumn<bool>("isRefused");
    QTest::newRow("passive") << false << false;
    QTest::newRow("active") << true << false;
    QTest::newRow("passive, refused") << false << true;
}

void tst_QFtp::extendedForms()
{
    QFETCH(bool, isActive);
    QFETCH(bool, isRefused);
    if (!QTcpServer().listen(QHostAddress::LocalHostIPv6))
        QSKIP("this machine has no IPv6 loopback");
    Server server(QHostAddress(QHostAddress::LocalHostIPv6));
    // A server of another address, where the old form leads to.
    Server old(QHostAddress(QStringLiteral("127.62.6.5")));
    if (isRefused) {
        server.answer("EPSV", "500 No\r\n");
        server.handle("PASV", [&old](Server& s, const QByteArray&) {
            s.reply("227 (" + old.endpoint(old.listenForData()) + ")\r\n");
        });
        for (const QByteArray verb : {"LIST", "RETR", "STOR"}) {
            server.handle(verb, [&old, verb](Server& s, const QByteArray&) {
                s.reply("150 Here\r\n");
                old.withData([&s, verb](QTcpSocket& data) {
                    if (verb == "STOR") {
                        QObject::connect(&data, &QTcpSocket::disconnected, &s, [&s, &data] {
                            s.uploaded = data.readAll();
                            s.reply("226 Done\r\n");
                        });
                        return;
                    }
                    data.write(verb == "LIST" ? s.listing : s.file);
                    data.disconnectFromHost();
                    s.reply("226 Done\r\n");
                });
            });
        }
    }
    FtpRun run(*m_ftp, server.host(), server.port());
    QVERIFY(run.run(isActive ? QStringLiteral("connect login active list get put")
                             : QStringLiteral("connect login list get put")));
    QVERIFY2(!run.doneError, qPrintable(run.errorText));
    QCOMPARE(run.received(), server.file);
    QCOMPARE(server.uploaded, run.toPut);
    QByteArrayList data;
    for (const QByteArray& line : server.lines) {
        if (line.startsWith('E') || line.startsWith("PORT") || line.startsWith("PASV"))
            data << line.left(12);
    }
    if (isRefused)
        QCOMPARE(data, QByteArrayList({"EPSV", "PASV", "PASV", "PASV"})); // given up once and for all
    else if (isActive)
        QCOMPARE(data, QByteArrayList(3, "EPRT |2|::1|"));
    else
        QCOMPARE(data, QByteArrayList(3, "EPSV"));
}

void tst_QFtp::proxyNamesTheHost_data()
{
    QTest::addColumn<quint16>("port");
    QTest::addColumn<QByteArray>("user");
    QTest::newRow("port 21") << quint16(21) << QByteArray("USER anonymous@recorder");
    QTest::newRow("other port") << quint16(2121) << QByteArray("USER anonymous@recorder:2121");
}

void tst_QFtp::proxyNamesTheHost()
{
    QFETCH(quint16, port);
    QFETCH(QByteArray, user);
    m_ftp->setProxy(m_server->host(), m_server->port());
    m_ftp->connectToHost(QStringLiteral("recorder"), port);
    m_ftp->login();
    QVERIFY(m_run->waitForDone());
    QVERIFY2(!m_run->doneError, qPrintable(m_run->errorText));
    QCOMPARE(m_server->lines.first(), user);
    // An empty host is none.
    m_ftp->setProxy(QString(), 0);
    QVERIFY(m_run->run(QStringLiteral("connect login")));
    QCOMPARE(m_server->lines[2], QByteArray("USER anonymous"));
}

void tst_QFtp::timeRangeIsForTheListingsThatFollow()
{
    const QByteArray begin = "-rw-r--r-- 1 ftp ftp 10 Mar 04 2021 ";
    m_server->listing =
        begin + "REC1234_20200229_123456.wav\r\n" + begin + "notes.txt\r\n" + begin + "a.exe\r\n";
    QVERIFY(m_run->run(QStringLiteral("connect list")));
    QCOMPARE(m_run->entries, QStringList({"REC1234_20200229_123456.wav", "notes.txt"}));
    m_ftp->setTimeRange(kStart, kStart.addDays(10), false);
    m_run->entries.clear();
    QVERIFY(m_run->run(QStringLiteral("list")));
    QCOMPARE(m_run->entries, QStringList("notes.txt"));
    m_ftp->setTimeRange(kStart, kStart, true);
    m_run->entries.clear();
    QVERIFY(m_run->run(QStringLiteral("list")));
    QCOMPARE(m_run->entries, QStringList({"REC1234_20200229_123456.wav", "notes.txt"}));
    QCOMPARE(m_run->lastEntry.size(), 10);
}

void tst_QFtp::oneBatchForEachPiece()
{
    m_server->handle("LIST", [](Server& s, const QByteArray&) {
        s.reply("150 Listing\r\n");
        s.withData([&s](QTcpSocket& data) {
            data.write(s.listing + "total\r\n");
            data.flush();
        });
    });
    QSignalSpy batches(m_ftp.get(), &QFtp::listInfoS);
    QSignalSpy single(m_ftp.get(), &QFtp::listInfo);
    connect(m_ftp.get(), &QFtp::listInfoS, m_server.get(), [this, &batches] {
        // A piece without entries gives no batch.
        m_server->withData([&](QTcpSocket& data) {
            if (batches.size() == 1) {
                data.write("total\r\n");
                data.write(m_server->listing);
            } else {
                data.disconnectFromHost();
                m_server->reply("226 Listed\r\n");
            }
        });
    });
    QVERIFY(m_run->run(QStringLiteral("connect list")));
    QCOMPARE(batches.size(), 2);
    QCOMPARE(m_run->entries, QStringList({"a.wav", "Data", "a.wav", "Data"}));
    QVERIFY(!m_run->hasEmptyBatch);
    // Intended: entries come in batches alone.
    QVERIFY(single.isEmpty());
}

void tst_QFtp::progressHasTheTotal()
{
    m_server->file = QByteArray(3000000, 'f');
    for (const char* words : {"connect get", "read"}) {
        m_run->progress.clear();
        QVERIFY(m_run->run(QString::fromLatin1(words)));
        QVERIFY(m_run->progress.size() > 1);
        qlonglong last = 0;
        for (const auto& [done, total] : m_run->progress) {
            QVERIFY(done > last);
            QCOMPARE(total, 3000000);
            last = done;
        }
        QCOMPARE(last, 3000000);
    }
    m_run->progress.clear();
    m_run->toPut = QByteArray(3000000, 'p');
    QVERIFY(m_run->run(QStringLiteral("put")));
    QVERIFY(m_run->progress.size() > 1);
    QCOMPARE(m_run->progress.last(), std::pair(3000000LL, 3000000LL));
    // The total of one transfer isn't that of the next.
    m_server->answer("SIZE", "213 ?\r\n");
    m_run->progress.clear();
    QVERIFY(m_run->run(QStringLiteral("get")));
    QCOMPARE(m_run->progress.last(), std::pair(3000000LL, 0LL));
}

void tst_QFtp::rawRepliesAreHandedOn()
{
    m_server->answer("HELP", "214-Commands\r\n NOOP\r\n214 End\r\n");
    m_server->answer("SITE", "150 Wait\r\n200 Done\r\n");
    QVERIFY(m_run->run(QStringLiteral("connect raw:HELP raw:SITE_x raw:NOOP cd")));
    QCOMPARE(m_run->replies, QStringList({"214 Commands\n NOOP\nEnd", "150 Wait", "200 Done", "200 Ok"}));
    QVERIFY(m_run->run(QStringLiteral("raw:WHAT")));
    QCOMPARE(m_run->replies.last(), QStringLiteral("502 Unknown"));
    QVERIFY(m_run->doneError);
    QCOMPARE(m_run->errorText, QStringLiteral("Unknown"));
}

void tst_QFtp::rawTransfer()
{
    QVERIFY(m_run->run(QStringLiteral("connect login raw:PASV raw:list")));
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login raw:PASV raw:list!"));
    m_server->reset();
    m_run->finished.clear();
    QVERIFY(m_run->run(QStringLiteral("connect login raw:PASV raw:LIST raw:PASV raw:RETR_x")));
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login raw:PASV raw:LIST raw:PASV raw:RETR_x"));
    QCOMPARE(m_run->entries, QStringList({"a.wav", "Data"}));
    QCOMPARE(m_run->received(), m_server->file);
}

void tst_QFtp::bytesStayReadableBehindTheEnd()
{
    QFtp ftp;
    ftp.connectToHost(m_server->host(), m_server->port());
    ftp.get(QStringLiteral("a.wav"));
    ftp.close();
    QSignalSpy done(&ftp, &QFtp::done);
    QVERIFY(done.wait(10000));
    QCOMPARE(done[0][0].toBool(), false);
    QCOMPARE(ftp.bytesAvailable(), m_server->file.size());
    QCOMPARE(ftp.readAll(), m_server->file);
    QCOMPARE(ftp.bytesAvailable(), 0);
}

void tst_QFtp::readTakesSome()
{
    QFtp ftp;
    QByteArray bytes;
    connect(&ftp, &QFtp::readyRead, this, [&] {
        char piece[3];
        while (const qint64 count = ftp.read(piece, sizeof piece))
            bytes.append(piece, count);
    });
    ftp.connectToHost(m_server->host(), m_server->port());
    ftp.get(QStringLiteral("a.wav"));
    QSignalSpy done(&ftp, &QFtp::done);
    QVERIFY(done.wait(10000));
    QCOMPARE(bytes, m_server->file);
}

void tst_QFtp::commandsQueuedInSlots()
{
    int rounds = 0;
    connect(m_ftp.get(), &QFtp::commandFinished, this, [&] {
        if (++rounds < 5)
            m_run->queue(QStringLiteral("cd"));
    });
    QVERIFY(m_run->run(QStringLiteral("connect")));
    QCOMPARE(m_run->outcome(), QStringLiteral("connect cd cd cd cd"));
    QCOMPARE(m_run->doneCount, 1);
    // Those of a done() are a queue of their own.
    connect(m_ftp.get(), &QFtp::done, this, [&] {
        if (m_run->doneCount == 2)
            m_run->queue(QStringLiteral("cd"));
    });
    QVERIFY(m_run->run(QStringLiteral("cd")));
    QVERIFY(m_run->waitForDone(3));
    QCOMPARE(m_run->finished.size(), 7);
}

void tst_QFtp::reconnectsWhileConnected()
{
    QVERIFY(m_run->run(QStringLiteral("connect login connect login cd")));
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login connect login cd"));
    QCOMPARE(m_server->connections, 2);
    QCOMPARE(m_run->states, QList<int>({1, 2, 3, 4, 0, 1, 2, 3, 4}));
}

void tst_QFtp::passiveToPeer()
{
    // An address where nobody listens; the port is the right one.
    m_server->handle("PASV", [](Server& s, const QByteArray&) {
        const quint16 port = s.listenForData();
        s.reply("227 (127,62,6,99," + QByteArray::number(port >> 8) + ',' + QByteArray::number(port & 255) +
                ")\r\n");
    });
    QVERIFY(!m_ftp->isPassiveToPeer());
    QVERIFY(m_run->run(QStringLiteral("connect get")));
    QCOMPARE(m_run->outcome(), QStringLiteral("connect get!"));
    QCOMPARE(m_ftp->error(), QFtp::ConnectionRefused);
    m_ftp->setPassiveToPeer(true);
    QVERIFY(m_ftp->isPassiveToPeer());
    QVERIFY(m_run->run(QStringLiteral("get")));
    QVERIFY2(!m_run->doneError, qPrintable(m_run->errorText));
    QCOMPARE(m_run->received(), m_server->file);
}

void tst_QFtp::objectNames()
{
    QStringList names;
    const auto collect = [this, &names] {
        for (const QObject* object : m_ftp->findChildren<QObject*>()) {
            if (!object->objectName().isEmpty() && !names.contains(object->objectName()))
                names << object->objectName();
        }
    };
    connect(m_ftp.get(), &QFtp::dataTransferProgress, this, collect);
    QVERIFY(m_run->run(QStringLiteral("connect get active get")));
    for (const char* name : {"QFtpPI_socket", "QFtpDTP Passive state socket", "QFtpDTP Active state socket",
                             "QFtpDTP active state server"})
        QVERIFY2(names.contains(QString::fromLatin1(name)), name);
}

QTEST_GUILESS_MAIN(tst_QFtp)
#include "tst_QFtp.moc"
