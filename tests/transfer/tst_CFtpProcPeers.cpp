#include "NvxQtCommon/transfer/CFtpProc.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/OwnNetwork.h"
#include "tests/transfer/FtpPeer.h"
#include "tests/transfer/VsftpdPeer.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QTemporaryDir>

namespace {

const QString kVsftpd = QStringLiteral("127.94.3.1");
const QString kPyftpdlib = QStringLiteral("127.94.3.2");

QByteArray checksum(const QString& path)
{
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    return file.open(QIODevice::ReadOnly) && hash.addData(&file) ? hash.result().toHex() : QByteArray("none");
}

bool makeFile(const QString& path, qint64 size)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    QByteArray block(1 << 16, Qt::Uninitialized);
    quint32 state = 7;
    for (qint64 written = 0; written < size; written += block.size()) {
        for (char& byte : block) {
            state = state * 1664525 + 1013904223;
            byte = static_cast<char>(state >> 24);
        }
        block.resize(qMin(qint64(block.size()), size - written));
        if (file.write(block) != block.size())
            return false;
    }
    return true;
}

} // namespace

/// CFtpProc and the program curl with two servers that others wrote: what the one wrote, the other reads.
class tst_CFtpProcPeers : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    // --- happy flows
    void sameBytesAsCurl_data();
    void sameBytesAsCurl();
    void listings_data();
    void listings();

private:
    QTemporaryDir m_dir;
    VsftpdPeer m_vsftpd;
    FtpPeer m_pyftpdlib;
};

void tst_CFtpProcPeers::initTestCase()
{
    QVERIFY(QDir(m_dir.path()).mkpath(QStringLiteral("py/pub")));
    if (!m_pyftpdlib.start(kPyftpdlib, m_dir.filePath(QStringLiteral("py"))))
        QSKIP(qPrintable("no FTP server on port 21: " + m_pyftpdlib.errorText()));
    if (!m_vsftpd.start(kVsftpd, m_dir.filePath(QStringLiteral("vs"))))
        QSKIP(qPrintable("vsftpd doesn't serve: " + m_vsftpd.errorText()));
}

void tst_CFtpProcPeers::sameBytesAsCurl_data()
{
    QTest::addColumn<QString>("server");
    QTest::addColumn<qint64>("size");
    QTest::addColumn<QString>("name");
    for (const QString& server : {kVsftpd, kPyftpdlib}) {
        const QByteArray label = server == kVsftpd ? "vsftpd" : "pyftpdlib";
        QTest::newRow(label + ", empty") << server << qint64(0) << "empty.wav";
        QTest::newRow(label + ", a byte") << server << qint64(1) << "one.wav";
        QTest::newRow(label + ", megabytes") << server << qint64(20000003) << "REC7_20210304_050600.wav";
        QTest::newRow(label + ", name") << server << qint64(1000) << u"gr\u00FC\u00DFe %2F;type=d.wav"_qs;
    }
}

void tst_CFtpProcPeers::sameBytesAsCurl()
{
    QFETCH(const QString, server);
    QFETCH(const qint64, size);
    QFETCH(const QString, name);
    const QString original = m_dir.filePath(QStringLiteral("original"));
    const QString ours = m_dir.filePath(QStringLiteral("ours"));
    const QString curls = m_dir.filePath(QStringLiteral("curls"));
    QFile::remove(ours);
    QFile::remove(curls);
    QVERIFY(makeFile(original, size));
    CFtpProc proc;
    proc.setIpAddr(server);
    QVERIFY(proc.upLoad(original.toStdString(), ("pub/" + name).toStdString()));
    QVERIFY(proc.fileExists(("pub/" + name).toStdString()));
    QVERIFY(proc.downLoad(("pub/" + name).toStdString(), ours.toStdString()));
    const QString url = "ftp://" + server + "/pub/" + QString::fromLatin1(name.toUtf8().toPercentEncoding());
    QProcess curl;
    curl.start(QStringLiteral("curl"), {QStringLiteral("-sS"), QStringLiteral("--noproxy"),
                                        QStringLiteral("*"), QStringLiteral("-o"), curls, url});
    QVERIFY(curl.waitForFinished(60000));
    QCOMPARE(curl.readAllStandardError(), QByteArray());
    // It makes no file of an empty one.
    if (size > 0)
        QCOMPARE(checksum(curls), checksum(original));
    QCOMPARE(checksum(ours), checksum(original));
}

void tst_CFtpProcPeers::listings_data()
{
    QTest::addColumn<QString>("server");
    QTest::newRow("vsftpd") << kVsftpd;
    QTest::newRow("pyftpdlib") << kPyftpdlib;
}

void tst_CFtpProcPeers::listings()
{
    QFETCH(const QString, server);
    const QString root =
        m_dir.filePath(server == kVsftpd ? QStringLiteral("vs/served/pub") : QStringLiteral("py/pub"));
    QVERIFY(QDir(root).mkpath(QStringLiteral("Data/20210304")));
    const QDateTime minute = QDateTime::currentDateTimeUtc();
    for (const char* name : {"TMW7_20210304_050600.wav", "TMW7_20210305_050600.wav"})
        QVERIFY(makeFile(root + QStringLiteral("/Data/") + QLatin1String(name), 10));
    CFtpProc proc;
    proc.setIpAddr(server);
    proc.setBasePath(QStringLiteral("pub/Data"));
    proc.setDTBegin(QDateTime(QDate(2021, 3, 4), QTime(0, 0), Qt::UTC));
    proc.setDTEnd(QDateTime(QDate(2021, 3, 4), QTime(23, 59), Qt::UTC));
    QStringList files;
    QStringList dirs;
    QVERIFY(proc.getListFTP(&files, &dirs, CFtpProc::DevRecorder));
    QCOMPARE(files, QStringList("TMW7_20210304_050600.wav"));
    QCOMPARE(dirs, QStringList("20210304"));

    // By the dates that the server gives: the files are of this minute or the next.
    proc.setDTBegin(minute.addSecs(-60));
    proc.setDTEnd(minute.addSecs(120));
    files.clear();
    QVERIFY(proc.getListFTP(&files, nullptr, CFtpProc::DevArray));
    files.sort();
    QCOMPARE(files, QStringList({"TMW7_20210304_050600.wav", "TMW7_20210305_050600.wav"}));
    proc.setDTBegin(minute.addSecs(-240));
    proc.setDTEnd(minute.addSecs(-120));
    files.clear();
    QVERIFY(proc.getListFTP(&files, nullptr, CFtpProc::DevArray));
    QCOMPARE(files, QStringList());
}

int main(int argc, char* argv[])
{
    enterOwnNetwork(argc, argv);
    QCoreApplication application(argc, argv);
    tst_CFtpProcPeers test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_CFtpProcPeers.moc"
