#include "NvxQtCommon/transfer/NvxFtpDownloadQueue.h"
#include "tests/transfer/RequestCase.h"

#include <QDirIterator>

namespace {

/// Every file, folder and link below a folder, with the files' bytes.
QMap<QString, QByteArray> treeOf(const QString& root)
{
    QMap<QString, QByteArray> found;
    QDirIterator entries(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        const QString path = entries.next();
        const QFileInfo info = entries.fileInfo();
        found.insert(QDir(root).relativeFilePath(path),
                     info.isFile() ? fileBytes(path) : QByteArray("no file"));
    }
    return found;
}

} // namespace

/// A server that has every name that it is asked for, and names that want to leave the folder. Nothing
/// outside of the folder changes.
class tst_NvxFtpDownloadNames : public RequestCase
{
    Q_OBJECT

public:
    tst_NvxFtpDownloadNames() : RequestCase(QStringLiteral("127.94.4.4")) {}

private Q_SLOTS:
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
};

void tst_NvxFtpDownloadNames::init()
{
    makeFolders();
    m_told.clear();
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
    serve({QStringLiteral("--any-file"), QStringLiteral("evil")});
    const auto before = outside();
    fetch(name, QString());
    QCOMPARE(m_told, QStringList("complete"));
    QCOMPARE(QDir(local(QStringLiteral("in"))).entryList(QDir::Files | QDir::Hidden), QStringList(name));
    QCOMPARE(fileBytes(local("in/" + name)), QByteArray("evil"));
    QCOMPARE(outside(), before);
}

void tst_NvxFtpDownloadNames::hostileNames_data()
{
    QTest::addColumn<QString>("name");
    // What begins with {} stands for a whole path to the folder around.
    for (const char* name : {"../precious",
                             "../../precious",
                             "../beside/precious",
                             "./../precious",
                             "sub/../../precious",
                             "sub/precious",
                             "./precious",
                             "precious/",
                             "/precious",
                             "//precious",
                             "{}/precious",
                             "{}/beside/precious",
                             "{}/new",
                             "../new",
                             "../beside/new",
                             "../beside/../new",
                             "sub/new",
                             "sub//new",
                             "..",
                             ".",
                             "...",
                             "../",
                             "./",
                             "/",
                             "//",
                             "..\\precious",
                             "..\\..\\precious",
                             "sub\\precious",
                             "\\precious",
                             "\\\\host\\share",
                             "\\\\?\\C:\\precious",
                             "\\\\.\\COM1",
                             "..\\",
                             "\\",
                             "C:\\precious",
                             "C:precious",
                             "C:",
                             "c:/precious",
                             "precious:stream",
                             "precious::$DATA",
                             "file:///precious",
                             "CON",
                             "nul",
                             "AUX.wav",
                             "com1",
                             "LPT9.txt",
                             "PRN.wav.wav",
                             "CONOUT$",
                             "precious.",
                             "precious ",
                             ".. ",
                             "..  .",
                             "../precious\n",
                             "a\nb",
                             "a\r\nDELE b",
                             "a\tb",
                             "\x1B[2J",
                             "a\x7F",
                             "..\xE2\x80\xAE/precious",
                             "a\xE2\x80\x8B",
                             "a\xC2\x85"
                             "b",
                             ". ."})
        QTest::newRow(name) << QString::fromUtf8(name);
    QTest::newRow("NUL behind the way out") << QString::fromLatin1("../precious\0.wav", 16);
    QTest::newRow("NUL") << QString::fromLatin1("a\0b", 3);
    QTest::newRow("over-long") << QString(256, u'n');
    QTest::newRow("way out, often") << QStringLiteral("../").repeated(100) + QStringLiteral("new");
    QTest::newRow("half of a pair") << QString(QChar(0xDC00));
}

void tst_NvxFtpDownloadNames::hostileNames()
{
    QFETCH(QString, name);
    name.replace(QLatin1String("{}"), m_client->path());
    serve({QStringLiteral("--any-file"), QStringLiteral("evil")});
    const auto before = treeOf(m_client->path());
    // As the server's name, and as a name of the caller's for a good one.
    fetch(name, QString());
    fetch(QStringLiteral("good"), name);
    QCOMPARE(treeOf(m_client->path()), before);
    QCOMPARE(m_told,
             QStringList({"failed The local name is not a bare file name, " + name, "complete with error",
                          "failed The local name is not a bare file name, good", "complete with error"}));
    // Nothing was sent either.
    m_peer->stop();
    QVERIFY(!m_peer->lines().contains(QStringLiteral("open")));
}

int main(int argc, char* argv[])
{
    return runFtpTest<tst_NvxFtpDownloadNames>(argc, argv);
}

#include "tst_NvxFtpDownloadNames.moc"
