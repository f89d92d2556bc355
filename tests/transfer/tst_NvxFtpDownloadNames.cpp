#include "NvxQtCommon/transfer/NvxFtpDownloadQueue.h"
#include "tests/transfer/HostileNames.h"
#include "tests/transfer/RequestCase.h"

/// A server that has every name that it is asked for, and names that want to leave the folder. Nothing
/// outside of the folder changes.
class tst_NvxFtpDownloadNames : public RequestCase
{
    Q_OBJECT

public:
    tst_NvxFtpDownloadNames() : RequestCase(QStringLiteral("127.94.4.4")) {}

private Q_SLOTS:
    void initTestCase();
    void init();

    // --- happy flows
    void oddNamesLandInTheFolder_data();
    void oddNamesLandInTheFolder();
    // --- rainy day flows
    void hostileNames_data();
    void hostileNames();

private:
    /// Downloads a name into the folder "in" and waits for the request's end.
    void fetch(const QString& remoteName, const QString& localName);
    QMap<QString, QByteArray> outside() const;

    QTemporaryDir m_anything;
    FtpPeer m_bait;
    int m_connections = 0;
};

void tst_NvxFtpDownloadNames::initTestCase()
{
    if (!m_bait.start(m_address, m_anything.path(), {QStringLiteral("--any-file"), QStringLiteral("evil")}))
        QSKIP(qPrintable("no FTP server on port 21: " + m_bait.errorText()));
}

void tst_NvxFtpDownloadNames::init()
{
    makeFolders();
    m_told.clear();
    m_connections = 0;
    QVERIFY(QDir(m_client->path()).mkpath(QStringLiteral("in/sub")));
    QVERIFY(QDir(m_client->path()).mkpath(QStringLiteral("beside")));
    QVERIFY(makeFile(local(QStringLiteral("precious")), "mine"));
    QVERIFY(makeFile(local(QStringLiteral("beside/precious")), "mine"));
    QVERIFY(makeFile(local(QStringLiteral("in/sub/precious")), "mine"));
}

QMap<QString, QByteArray> tst_NvxFtpDownloadNames::outside() const
{
    QMap<QString, QByteArray> tree = treeOf(m_client->path());
    for (const QString& path : tree.keys()) {
        if (path.startsWith(QLatin1String("in/")) && !path.startsWith(QLatin1String("in/sub")))
            tree.remove(path);
    }
    return tree;
}

void tst_NvxFtpDownloadNames::fetch(const QString& remoteName, const QString& localName)
{
    const auto request = makeRequest(remoteName, Request::DownloadWork, localName);
    connect(request.get(), &Request::newState, this, [this] { ++m_connections; });
    NvxFtpDownloadQueue queue;
    queue.setDestDir(local(QStringLiteral("in")));
    QSignalSpy finished(&queue, &NvxFtpDownloadQueue::signalProcTaskComplete);
    queue.push_back(request.get());
    queue.startQueuedRequests();
    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 20000);
}

void tst_NvxFtpDownloadNames::oddNamesLandInTheFolder_data()
{
    QTest::addColumn<QString>("name");
    for (const char* name :
         {"%2e%2e%2fprecious", "..precious", "~", "~root", "-rf", "$HOME", "`id`", "a;b", "*", ".hidden",
          "gr\xC3\xBC\xC3\x9F"
          "e",
          "\xEF\xBC\x8F"
          "precious"})
        QTest::newRow(name) << QString::fromUtf8(name);
}

void tst_NvxFtpDownloadNames::oddNamesLandInTheFolder()
{
    QFETCH(const QString, name);
    const auto before = outside();
    fetch(name, QString());
    QCOMPARE(m_told, QStringList("complete"));
    QVERIFY(m_connections > 0);
    QCOMPARE(QDir(local(QStringLiteral("in"))).entryList(QDir::Files | QDir::Hidden), QStringList(name));
    QCOMPARE(fileBytes(local("in/" + name)), QByteArray("evil"));
    QCOMPARE(outside(), before);
}

void tst_NvxFtpDownloadNames::hostileNames_data()
{
    QTest::addColumn<QString>("name");
    const QStringList names = namesThatWantOut();
    for (const QString& name : names)
        QTest::addRow("%lld: %s", names.indexOf(name), qPrintable(name.left(40))) << name;
}

void tst_NvxFtpDownloadNames::hostileNames()
{
    QFETCH(QString, name);
    name.replace(QLatin1String("{}"), m_client->path());
    const auto before = treeOf(m_client->path());
    // As the server's name, and as a name of the caller's for a good one.
    fetch(name, QString());
    fetch(QStringLiteral("good"), name);
    QCOMPARE(treeOf(m_client->path()), before);
    QCOMPARE(m_told,
             QStringList({"failed The local name is not a bare file name, " + name, "complete with error",
                          "failed The local name is not a bare file name, good", "complete with error"}));
    // Nobody was even connected to.
    QCOMPARE(m_connections, 0);
}

int main(int argc, char* argv[])
{
    return runFtpTest<tst_NvxFtpDownloadNames>(argc, argv);
}

#include "tst_NvxFtpDownloadNames.moc"
