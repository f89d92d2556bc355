#include "NvxQtCommon/transfer/QFtp.h"
#include "tests/support/NvxTestCase.h"
#include "tests/transfer/FtpRun.h"
#include "tests/transfer/LocalFtpServer.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QTemporaryFile>

namespace {

constexpr qint64 kKilledSize = 64 << 20;
/// For the largest files, on a busy machine.
constexpr int kTransferMs = 300000;
constexpr qint64 kAbortedSize = 16 << 20;
const QStringList kNames = {QStringLiteral("empty.wav"), QStringLiteral("one byte.txt"),
                            QStringLiteral("REC1234_20210304_050607.wav"),
                            QStringLiteral("m\u00e9r \u00df\u20ac.wav")};

QByteArray bytesOf(const QString& name)
{
    QByteArray bytes(name.startsWith(u"empty") ? 0
                     : name.startsWith(u"one") ? 1
                                               : 3000000 + int(name.size()),
                     Qt::Uninitialized);
    for (qsizetype i = 0; i < bytes.size(); ++i)
        bytes[i] = char(i * 7 + i / 251);
    return bytes;
}

QByteArray digestOf(QIODevice& device)
{
    QCryptographicHash hash(QCryptographicHash::Sha256);
    device.seek(0);
    hash.addData(&device);
    return hash.result();
}

QByteArray digestOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? digestOf(file) : QByteArray("no file");
}

/// What curl fetches of an address.
QByteArray digestByCurl(const QString& url)
{
    QTemporaryFile file;
    if (!file.open())
        return "no file";
    QProcess curl;
    curl.start(QStringLiteral("curl"),
               {QStringLiteral("--silent"), QStringLiteral("--show-error"), QStringLiteral("--noproxy"),
                QStringLiteral("*"), QStringLiteral("--output"), file.fileName(), url});
    if (!curl.waitForFinished(kTransferMs) || curl.exitCode() != 0)
        return "curl: " + curl.readAllStandardError();
    return digestOf(file.fileName());
}

} // namespace

/// The client against servers that others wrote, with curl as the judge of what they serve.
class tst_QFtpPeers : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    // --- happy flows
    void roundTrip_data();
    void roundTrip();
    void largeFile_data();
    void largeFile();
    void listsManyFiles_data();
    void listsManyFiles();
    // --- rainy day flows
    void refusals_data();
    void refusals();
    void abortsAndGoesOn_data();
    void abortsAndGoesOn();
    void serverThatIsKilled_data();
    void serverThatIsKilled();

private:
    /// Rows of each server at IPv4 and IPv6.
    static void addPeers();
    void startPeer();
    void runAll(const std::function<void()>& queue);

    std::unique_ptr<LocalFtpServer> m_peer;
    std::unique_ptr<QFtp> m_ftp;
    std::unique_ptr<FtpRun> m_run;
};

void tst_QFtpPeers::init()
{
    failOnUnexpectedWarnings();
    m_peer = std::make_unique<LocalFtpServer>();
    m_ftp = std::make_unique<QFtp>();
}

void tst_QFtpPeers::cleanup()
{
    m_run.reset();
    m_ftp.reset();
    m_peer.reset();
}

void tst_QFtpPeers::addPeers()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("address");
    QTest::newRow("vsftpd") << int(LocalFtpServer::Vsftpd) << "127.62.7.1";
    QTest::newRow("pyftpdlib") << int(LocalFtpServer::Pyftpdlib) << "127.62.7.2";
    if (QTcpServer().listen(QHostAddress::LocalHostIPv6)) {
        QTest::newRow("vsftpd over IPv6") << int(LocalFtpServer::Vsftpd) << "::1";
        QTest::newRow("pyftpdlib over IPv6") << int(LocalFtpServer::Pyftpdlib) << "::1";
    }
}

void tst_QFtpPeers::startPeer()
{
    QFETCH(int, kind);
    QFETCH(QString, address);
    QVERIFY2(m_peer->start(LocalFtpServer::Kind(kind), QHostAddress(address)),
             qPrintable(m_peer->errorText()));
    m_run = std::make_unique<FtpRun>(*m_ftp, m_peer->host(), m_peer->port());
}

/// Runs what is queued on a new connection.
void tst_QFtpPeers::runAll(const std::function<void()>& queue)
{
    const int count = m_run->doneCount + 1;
    m_run->queue(QStringLiteral("connect login"));
    queue();
    QVERIFY(m_run->waitForDone(count, kTransferMs));
    QVERIFY2(!m_run->doneError, qPrintable(m_run->errorText));
}

#define STEP(call)                                                                                           \
    do {                                                                                                     \
        call;                                                                                                \
        if (QTest::currentTestFailed())                                                                      \
            return;                                                                                          \
    } while (false)

void tst_QFtpPeers::roundTrip_data()
{
    addPeers();
}

void tst_QFtpPeers::roundTrip()
{
    STEP(startPeer());
    const QDir root(m_peer->root());
    for (const QFtp::TransferMode mode : {QFtp::Passive, QFtp::Active}) {
        const QString folder = QStringLiteral("D\u00e4ta %1").arg(mode);
        // Up.
        QMap<QString, QUrlInfo> found;
        const auto collect = connect(m_ftp.get(), &QFtp::listInfoS, this, [&](const QList<QUrlInfo>& batch) {
            for (const QUrlInfo& info : batch)
                found[info.name()] = info;
        });
        STEP(runAll([&] {
            m_ftp->setTransferMode(mode);
            m_ftp->mkdir(folder);
            m_ftp->cd(folder);
            for (const QString& name : kNames)
                m_ftp->put(bytesOf(name), name);
            m_ftp->put(QByteArray("x"), QStringLiteral("unlisted.exe"));
            m_ftp->list();
            m_ftp->cd(QStringLiteral(".."));
            m_ftp->list(folder);
            m_ftp->close();
        }));
        disconnect(collect);
        QCOMPARE(m_run->entryCount, 2 * kNames.size());
        m_run->entryCount = 0;
        for (const QString& name : kNames) {
            QVERIFY2(found.contains(name), qPrintable(found.keys().join(u' ')));
            const QUrlInfo info = found[name];
            QCOMPARE(info.size(), bytesOf(name).size());
            QVERIFY(info.isFile() && !info.isDir() && !info.isSymLink() && info.isReadable());
            QVERIFY(qAbs(info.lastModified().secsTo(QDateTime::currentDateTimeUtc())) < 3600);
            QFile stored(root.filePath(folder + u'/' + name));
            QVERIFY(stored.open(QIODevice::ReadOnly));
            QVERIFY(stored.readAll() == bytesOf(name));
        }
        QCOMPARE(found[kNames[2]].created(), QDateTime(QDate(2021, 3, 4), QTime(5, 6, 7), Qt::UTC));
        // Down, into devices and by the caller.
        for (const QString& name : kNames) {
            QBuffer device;
            QVERIFY(device.open(QIODevice::ReadWrite));
            const qsizetype before = m_run->received().size();
            STEP(runAll([&] {
                m_ftp->setTransferMode(mode);
                m_ftp->get(folder + u'/' + name, &device);
                m_ftp->get(folder + u'/' + name);
                m_ftp->close();
            }));
            QVERIFY(device.data() == bytesOf(name));
            QVERIFY(m_run->received().mid(before) == bytesOf(name));
            QCOMPARE(digestByCurl(m_peer->url(folder + u'/' + name)), digestOf(device));
        }
        // Away.
        STEP(runAll([&] {
            m_ftp->setTransferMode(mode);
            m_ftp->rename(folder + u'/' + kNames[0], folder + QStringLiteral("/moved.txt"));
            for (const QString& name : kNames.mid(1))
                m_ftp->remove(folder + u'/' + name);
            m_ftp->remove(folder + QStringLiteral("/unlisted.exe"));
            m_ftp->list(folder);
            m_ftp->remove(folder + QStringLiteral("/moved.txt"));
            m_ftp->rmdir(folder);
            m_ftp->close();
        }));
        QCOMPARE(m_run->entryCount, 1);
        QCOMPARE(m_run->lastEntry.name(), QStringLiteral("moved.txt"));
        m_run->entryCount = 0;
        QVERIFY(!root.exists(folder));
    }
}

void tst_QFtpPeers::largeFile_data()
{
    addPeers();
}

void tst_QFtpPeers::largeFile()
{
    const qint64 size = qint64(qEnvironmentVariableIntValue("NVX_LARGE_MIB")) << 20;
    QVERIFY(size > 1000);
    STEP(startPeer());
    const QString path = m_peer->root() + QStringLiteral("/large.wav");
    QFile source(path);
    QVERIFY(source.open(QIODevice::ReadWrite));
    for (const qint64 at : {qint64(0), size / 3, size - 6}) {
        source.seek(at);
        source.write("mark\r\n");
    }
    source.flush();
    QCOMPARE(source.size(), size);
    QTemporaryFile fetched;
    QVERIFY(fetched.open());
    STEP(runAll([&] {
        m_ftp->get(QStringLiteral("large.wav"), &fetched);
        m_ftp->put(&source, QStringLiteral("sent.wav"));
        source.seek(0);
    }));
    const QByteArray digest = digestOf(source);
    QCOMPARE(fetched.size(), size);
    QCOMPARE(digestOf(fetched), digest);
    QCOMPARE(digestByCurl(m_peer->url(QStringLiteral("sent.wav"))), digest);
    QCOMPARE(m_run->progress.last(), std::pair(qlonglong(size), qlonglong(size)));
}

void tst_QFtpPeers::listsManyFiles_data()
{
    addPeers();
}

void tst_QFtpPeers::listsManyFiles()
{
    STEP(startPeer());
    constexpr int kFiles = 1000;
    const QDateTime start(QDate(2021, 3, 4), QTime(5, 0), Qt::UTC);
    for (int i = 0; i < kFiles; ++i) {
        const QString name =
            start.addSecs(60 * i).toString(QStringLiteral("'/REC1234_'yyyyMMdd'_'hhmmss'.wav'"));
        QFile file(m_peer->root() + name);
        QVERIFY(file.open(QIODevice::WriteOnly));
    }
    STEP(runAll([&] { m_ftp->list(); }));
    QCOMPARE(m_run->entryCount, kFiles);
    m_run->entryCount = 0;
    m_ftp->setTimeRange(start.addSecs(60), start.addSecs(120), false);
    STEP(runAll([&] { m_ftp->list(); }));
    QCOMPARE(m_run->entryCount, 2);
}

void tst_QFtpPeers::refusals_data()
{
    addPeers();
}

void tst_QFtpPeers::refusals()
{
    STEP(startPeer());
    const std::pair<QString, std::function<void()>> refused[] = {
        {QStringLiteral("Downloading file failed:\n"), [this] { m_ftp->get(QStringLiteral("none.wav")); }},
        {QStringLiteral("Changing directory failed:\n"), [this] { m_ftp->cd(QStringLiteral("none")); }},
        {QStringLiteral("Removing file failed:\n"), [this] { m_ftp->remove(QStringLiteral("none.wav")); }},
        {QStringLiteral("Removing directory failed:\n"), [this] { m_ftp->rmdir(QStringLiteral("none")); }},
        {QStringLiteral("Creating directory failed:\n"),
         [this] { m_ftp->mkdir(QStringLiteral("none/none")); }},
        {QStringLiteral("Uploading file failed:\n"),
         [this] { m_ftp->put(QByteArray("x"), QStringLiteral("none/x.wav")); }},
    };
    m_run->run(QStringLiteral("connect login"));
    for (const auto& [frame, queue] : refused) {
        const int count = m_run->doneCount + 1;
        queue();
        QVERIFY(m_run->waitForDone(count));
        QVERIFY(m_run->doneError);
        QVERIFY2(m_run->errorText.startsWith(frame), qPrintable(m_run->errorText));
        QVERIFY(m_run->errorText.size() > frame.size());
    }
    // All on one connection, which is still good.
    QVERIFY(m_run->run(QStringLiteral("raw:NOOP close")));
    QVERIFY(!m_run->doneError);
    const int count = m_run->doneCount + 1;
    m_run->queue(QStringLiteral("connect"));
    m_ftp->login(QStringLiteral("nobody"), QStringLiteral("wrong"));
    QVERIFY(m_run->waitForDone(count));
    QVERIFY2(m_run->errorText.startsWith(u"Login failed:\n"), qPrintable(m_run->errorText));
}

void tst_QFtpPeers::abortsAndGoesOn_data()
{
    addPeers();
}

void tst_QFtpPeers::abortsAndGoesOn()
{
    STEP(startPeer());
    QFile source(m_peer->root() + QStringLiteral("/a.wav"));
    QVERIFY(source.open(QIODevice::WriteOnly));
    QVERIFY(source.resize(kAbortedSize));
    QVERIFY(QDir(m_peer->root()).mkdir(QStringLiteral("Data")));
    for (const QString& word : {QStringLiteral("get"), QStringLiteral("read"), QStringLiteral("put")}) {
        m_run->finished.clear();
        m_run->toPut = QByteArray(kAbortedSize, 'p');
        const auto aborting = connect(m_ftp.get(), &QFtp::dataTransferProgress, m_ftp.get(), &QFtp::abort);
        const int count = m_run->doneCount + 1;
        m_run->queue(QStringLiteral("connect login ") + word);
        QVERIFY2(m_run->waitForDone(count), qPrintable(word));
        QCOMPARE(m_run->outcome(), QStringLiteral("connect login %1!").arg(word));
        disconnect(aborting);
        QVERIFY(m_run->run(QStringLiteral("raw:NOOP list close")));
        QVERIFY2(!m_run->doneError, qPrintable(m_run->errorText));
    }
}

void tst_QFtpPeers::serverThatIsKilled_data()
{
    // The other one serves each connection by a process that outlives it.
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("address");
    QTest::newRow("pyftpdlib") << int(LocalFtpServer::Pyftpdlib) << "127.62.7.2";
}

void tst_QFtpPeers::serverThatIsKilled()
{
    STEP(startPeer());
    QFile source(m_peer->root() + QStringLiteral("/a.wav"));
    QVERIFY(source.open(QIODevice::WriteOnly));
    QVERIFY(source.resize(kKilledSize));
    connect(m_ftp.get(), &QFtp::dataTransferProgress, this, [this] { m_peer->kill(); });
    QVERIFY(m_run->run(QStringLiteral("connect login get close")));
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login get!"));
    QCOMPARE(m_run->errorText, QStringLiteral("Connection closed"));
    QCOMPARE(m_ftp->state(), QFtp::Unconnected);
}

QTEST_GUILESS_MAIN(tst_QFtpPeers)
#include "tst_QFtpPeers.moc"
