#include "NvxQtCommon/contract/job/ZcrConfigFile.h"
#include "tests/array/ArrayReplies.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/OwnNetwork.h"
#include "tests/support/SourceFile.h"
#include "tests/transfer/FtpPeer.h"
#include "tests/transfer/VsftpdPeer.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTemporaryDir>

#include <filesystem>

namespace {

const QHostAddress kController(QStringLiteral("127.81.11.3"));
const QByteArray kBefore =
    "; of the maker\r\n$WAVE_GAIN=6\r\n$MAKER=x y\r\n[NET]\r\n$WAVE_GAIN=9\r\nip=1\r\n";
const QByteArray kConfiguration = R"("serialNumber":600,"wavSampRate":48000,"wavGain":3)";
const QString kDone = QStringLiteral("m_ftpProc->downLoad() success: true");
const QString kNotDone = QStringLiteral("m_ftpProc->downLoad() success: false");

QByteArray bytesOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("none");
}

bool writeBytes(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly) &&
           file.write(bytes) == bytes.size();
}

HydJobSettings tags()
{
    HydJobSettings settings;
    settings.setWavRate(SampRate{96000});
    settings.setFftRef(-120);
    settings.setWavLogLen(61);
    settings.setFftLogLen(62);
    return settings;
}

QByteArray editedBytes(const QByteArray& file)
{
    return QByteArray::fromStdString(editedZcrConfig(file.toStdString(), tags(), {12, 11}));
}

/// An adapter with two channels and settings of its own, and a packaged server with the file.
struct Writer : ArrayRig
{
    Writer() : ArrayRig(kController.toIPv4Address())
    {
        listChannels({12, 11});
        reply(kConfiguration);
    }
    bool serve(const QStringList& options = {}, const QByteArray& file = kBefore)
    {
        return writeBytes(remote(), file) && peer.start(kController.toString(), folder.path(), options);
    }
    QString remote() const { return folder.filePath(QStringLiteral("Config/JOBSETUP.CFG")); }

    QTemporaryDir folder;
    FtpPeer peer;
    QSignalSpy reset{&adapter, &HydZcrCommandAdapter::signalResetZCR};
};

/// Where the local copy belongs.
QString localCopy()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) +
           QStringLiteral("/127_81_11_3___JOBSETUP.CFG");
}

} // namespace

/// Writing the configuration file of an array controller by FTP.
class tst_HydZcrCommandAdapterWrite : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    // --- happy flows
    void writesTheFile_data();
    void writesTheFile();
    void secondTime();
    void editsTheCopy();
    void replacesTheCopyByARename();
    // --- rainy day flows
    void failedDownload_data();
    void failedDownload();
    void failedUpload_data();
    void failedUpload();
    void tooLongFile_data();
    void tooLongFile();
    void longestCopy();
    void nobodyListens();
    void noPlaceForTheCopy();
    void editsNothing();
    void copyThatIsNoFile_data();
    void copyThatIsNoFile();

private:
    void needPort();

    std::unique_ptr<QTemporaryDir> m_data;
};

void tst_HydZcrCommandAdapterWrite::init()
{
    failOnUnexpectedWarnings();
    // The folder for the copy isn't there yet.
    m_data = std::make_unique<QTemporaryDir>();
    qputenv("XDG_DATA_HOME", m_data->filePath(QStringLiteral("not/there")).toUtf8());
}

void tst_HydZcrCommandAdapterWrite::needPort()
{
    QTcpServer probe;
    if (!probe.listen(kController, 21))
        QSKIP(qPrintable(QStringLiteral("port 21, which array controllers have, can't be bound: ") +
                         probe.errorString()));
}

void tst_HydZcrCommandAdapterWrite::writesTheFile_data()
{
    QTest::addColumn<bool>("isVsftpd");
    QTest::newRow("vsftpd") << true;
    QTest::newRow("pyftpdlib") << false;
}

void tst_HydZcrCommandAdapterWrite::writesTheFile()
{
    QFETCH(bool, isVsftpd);
    needPort();
    Writer writer;
    VsftpdPeer vsftpd;
    const QString root = isVsftpd ? writer.folder.filePath(QStringLiteral("served")) : writer.folder.path();
    const QString remote = root + QStringLiteral("/Config/JOBSETUP.CFG");
    QVERIFY(writeBytes(remote, kBefore));
    if (isVsftpd)
        QVERIFY2(vsftpd.start(kController.toString(), writer.folder.path()), qPrintable(vsftpd.errorText()));
    else
        QVERIFY2(writer.serve(), qPrintable(writer.peer.errorText()));
    LogSpy log;
    writer.adapter.ftpWriteConfig(tags().map());
    QCOMPARE(log.count(kDone), 1);
    QCOMPARE(writer.reset.count(), 1);
    const auto id = writer.reset.first().first().value<HydDeviceId>();
    QCOMPARE(id.devType(), DevTypeZcr);
    QCOMPARE(id.serialNo(), ArrayRig::kSerial);
    QCOMPARE(id.netHostInfo(), writer.adapter.netHostInfo());
    QCOMPARE(bytesOf(remote), editedBytes(kBefore));
    // The copy stays.
    QCOMPARE(bytesOf(localCopy()), editedBytes(kBefore));

    QProcess judge;
    judge.start(QStringLiteral("/usr/bin/python3"),
                {QStringLiteral("-B"), sourceFile(QStringLiteral("tests/array/config_judge.py")), remote});
    QVERIFY(judge.waitForFinished(kPatienceMs));
    const QJsonObject read = QJsonDocument::fromJson(judge.readAllStandardOutput()).object();
    const QJsonObject ours = read.value(QStringLiteral("*")).toObject();
    QCOMPARE(ours.size(), 37);
    QCOMPARE(ours.value(QStringLiteral("$ARRAY_SERIALS")).toString(), QStringLiteral("12,11"));
    QCOMPARE(ours.value(QStringLiteral("$WAVE_SAMPLE_RATE")).toString(), QStringLiteral("96000"));
    QCOMPARE(ours.value(QStringLiteral("$FFT_REF_LEVEL")).toString(), QStringLiteral("-120"));
    QCOMPARE(ours.value(QStringLiteral("$WAVE_LOG_LENGTH")).toString(), QStringLiteral("61"));
    QCOMPARE(ours.value(QStringLiteral("$FFT_LOG_LENGTH")).toString(), QStringLiteral("1"));
    QCOMPARE(ours.value(QStringLiteral("$ARRAY_FFT_LOG_LENGTH")).toString(), QStringLiteral("62"));
    QCOMPARE(ours.value(QStringLiteral("$ARRAY_DEV_TYPE")).toString(), QStringLiteral("16"));
    // The tags took the place of all settings.
    QCOMPARE(ours.value(QStringLiteral("$WAVE_GAIN")).toString(), QStringLiteral("0"));
    QCOMPARE(ours.value(QStringLiteral("$MAKER")).toString(), QStringLiteral("x y"));
    QCOMPARE(read.value(QStringLiteral("NET")).toObject(),
             (QJsonObject{{QStringLiteral("$WAVE_GAIN"), QStringLiteral("9")},
                          {QStringLiteral("ip"), QStringLiteral("1")}}));
}

void tst_HydZcrCommandAdapterWrite::secondTime()
{
    needPort();
    Writer writer;
    QVERIFY(writer.serve());
    QVERIFY(writeBytes(localCopy(), "stale"));
    writer.adapter.ftpWriteConfig(tags().map());
    QCOMPARE(bytesOf(localCopy()), editedBytes(kBefore));
    HydJobSettings next = tags();
    next.setWavGain(5);
    writer.adapter.ftpWriteConfig(next.map());
    QCOMPARE(writer.reset.count(), 2);
    QCOMPARE(bytesOf(writer.remote()), editedBytes(kBefore).replace("$WAVE_GAIN=0\r\n", "$WAVE_GAIN=5\r\n"));
    QVERIFY(writer.peer.waitForLine(QStringLiteral("gone"), 4));
    QCOMPARE(writer.peer.commands(QStringLiteral("RETR")),
             QStringList(2, QStringLiteral("RETR JOBSETUP.CFG")));
    QCOMPARE(writer.peer.commands(QStringLiteral("STOR")),
             QStringList(2, QStringLiteral("STOR JOBSETUP.CFG")));
}

void tst_HydZcrCommandAdapterWrite::editsTheCopy()
{
    Writer writer;
    const QString copy = m_data->filePath(QStringLiteral("a.cfg"));
    QVERIFY(writeBytes(copy, kBefore));
    QVERIFY(writer.adapter.handleLoadingZCRConfFinished(true, copy));
    const HydJobSettings settings = ZcrCgiReply::parse(kConfiguration.toStdString()).settings();
    QCOMPARE(bytesOf(copy),
             QByteArray::fromStdString(editedZcrConfig(kBefore.toStdString(), settings, {12, 11})));
    // An empty file is a file.
    QVERIFY(writeBytes(copy, {}));
    QVERIFY(writer.adapter.handleLoadingZCRConfFinished(true, copy));
    QCOMPARE(bytesOf(copy), QByteArray::fromStdString(editedZcrConfig({}, settings, {12, 11})));
    QVERIFY(bytesOf(copy).endsWith("$ARRAY_SERIALS=12,11\n"));
    writer.adapter.clearLists();
    QVERIFY(writer.adapter.handleLoadingZCRConfFinished(true, copy));
    QVERIFY(bytesOf(copy).endsWith("$ARRAY_SERIALS=\n"));
}

void tst_HydZcrCommandAdapterWrite::replacesTheCopyByARename()
{
    Writer writer;
    const QString copy = m_data->filePath(QStringLiteral("a.cfg"));
    const QString other = m_data->filePath(QStringLiteral("b.cfg"));
    QVERIFY(writeBytes(copy, kBefore));
    std::filesystem::create_hard_link(copy.toStdString(), other.toStdString());
    QVERIFY(writer.adapter.handleLoadingZCRConfFinished(true, copy));
    QVERIFY(bytesOf(copy) != kBefore);
    QCOMPARE(bytesOf(other), kBefore);
    QCOMPARE(QDir(m_data->path()).entryList(QDir::Files),
             (QStringList{QStringLiteral("a.cfg"), QStringLiteral("b.cfg")}));
}

void tst_HydZcrCommandAdapterWrite::failedDownload_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::newRow("refused") << QStringList{QStringLiteral("--refuse"), QStringLiteral("RETR")};
    QTest::newRow("folder refused") << QStringList{QStringLiteral("--refuse"), QStringLiteral("CWD")};
    QTest::newRow("login refused") << QStringList{QStringLiteral("--refuse"), QStringLiteral("USER")};
    QTest::newRow("dropped") << QStringList{QStringLiteral("--drop"), QStringLiteral("RETR")};
}

void tst_HydZcrCommandAdapterWrite::failedDownload()
{
    QFETCH(QStringList, options);
    needPort();
    Writer writer;
    QVERIFY(writer.serve(options));
    QVERIFY(writeBytes(localCopy(), "stale"));
    LogSpy log;
    writer.adapter.ftpWriteConfig(tags().map());
    QVERIFY(writer.reset.isEmpty());
    QVERIFY(!QFile::exists(localCopy()));
    QVERIFY(!log.contains(kDone) && !log.contains(kNotDone));
    QVERIFY(!log.lines().filter(QStringLiteral("Failed to work with the FTP device: ")).isEmpty());
    QVERIFY(writer.peer.waitForLine(QStringLiteral("gone")));
    QCOMPARE(writer.peer.commands(QStringLiteral("STOR")), QStringList());
    QCOMPARE(bytesOf(writer.remote()), kBefore);
}

void tst_HydZcrCommandAdapterWrite::failedUpload_data()
{
    QTest::addColumn<QString>("option");
    QTest::newRow("refused") << QStringLiteral("--refuse");
    QTest::newRow("dropped") << QStringLiteral("--drop");
}

void tst_HydZcrCommandAdapterWrite::failedUpload()
{
    QFETCH(QString, option);
    needPort();
    Writer writer;
    QVERIFY(writer.serve({option, QStringLiteral("STOR")}));
    LogSpy log;
    writer.adapter.ftpWriteConfig(tags().map());
    QCOMPARE(log.count(kNotDone), 1);
    QVERIFY(writer.reset.isEmpty());
    QCOMPARE(bytesOf(localCopy()), editedBytes(kBefore));
    QCOMPARE(bytesOf(writer.remote()), kBefore);
}

void tst_HydZcrCommandAdapterWrite::tooLongFile_data()
{
    QTest::addColumn<QStringList>("options");
    const QString noSize = QStringLiteral("--no-size");
    QTest::newRow("one byte") << QStringList();
    QTest::newRow("one byte, without a size") << QStringList{noSize};
    QTest::newRow("endless") << QStringList{noSize, QStringLiteral("--endless")};
}

void tst_HydZcrCommandAdapterWrite::tooLongFile()
{
    QFETCH(QStringList, options);
    needPort();
    Writer writer;
    QVERIFY(writer.serve(options, QByteArray(HydZcrCommandAdapter::kMaxConfigSize + 1, '\n')));
    LogSpy log;
    writer.adapter.ftpWriteConfig(tags().map());
    QVERIFY(writer.reset.isEmpty());
    QCOMPARE(log.count(QStringLiteral("Failed to work with the FTP device: Maximum file size exceeded")), 1);
    QVERIFY(QDir(QFileInfo(localCopy()).path()).isEmpty());
    QVERIFY(writer.peer.waitForLine(QStringLiteral("gone")));
    QCOMPARE(writer.peer.commands(QStringLiteral("STOR")), QStringList());
}

void tst_HydZcrCommandAdapterWrite::longestCopy()
{
    Writer writer;
    const QByteArray longest(HydZcrCommandAdapter::kMaxConfigSize, '\n');
    QVERIFY(writeBytes(localCopy(), longest + '\n'));
    QVERIFY(!writer.adapter.handleLoadingZCRConfFinished(true, localCopy()));
    QCOMPARE(QFileInfo(localCopy()).size(), longest.size() + 1);
    QVERIFY(writeBytes(localCopy(), longest));
    QVERIFY(writer.adapter.handleLoadingZCRConfFinished(true, localCopy()));
}

void tst_HydZcrCommandAdapterWrite::nobodyListens()
{
    Writer writer;
    LogSpy log;
    writer.adapter.ftpWriteConfig(tags().map());
    QVERIFY(writer.reset.isEmpty());
    QVERIFY(!log.contains(kNotDone));
    // The tags are the settings all the same.
    const QString copy = m_data->filePath(QStringLiteral("a.cfg"));
    QVERIFY(writeBytes(copy, kBefore));
    QVERIFY(writer.adapter.handleLoadingZCRConfFinished(true, copy));
    QCOMPARE(bytesOf(copy), editedBytes(kBefore));
}

void tst_HydZcrCommandAdapterWrite::noPlaceForTheCopy()
{
    const QString file = m_data->filePath(QStringLiteral("file"));
    QVERIFY(writeBytes(file, "x"));
    qputenv("XDG_DATA_HOME", file.toUtf8());
    Writer writer;
    LogSpy log;
    writer.adapter.ftpWriteConfig(tags().map());
    QVERIFY(writer.reset.isEmpty());
    QVERIFY(!log.lines().filter(QStringLiteral("Couldn't open '")).isEmpty());
    QCOMPARE(bytesOf(file), "x");
}

void tst_HydZcrCommandAdapterWrite::editsNothing()
{
    Writer writer;
    const QString copy = m_data->filePath(QStringLiteral("a.cfg"));
    QVERIFY(writeBytes(copy, kBefore));
    LogSpy log;
    QVERIFY(!writer.adapter.handleLoadingZCRConfFinished(false, copy));
    QCOMPARE(log.lines(), QStringList{QStringLiteral("Error of the file ZCR CONFIG loading: ") + copy});
    QCOMPARE(bytesOf(copy), kBefore);
}

void tst_HydZcrCommandAdapterWrite::copyThatIsNoFile_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("none") << QString();
    QTest::newRow("missing") << QStringLiteral("/missing");
    QTest::newRow("folder") << QStringLiteral("/.");
}

void tst_HydZcrCommandAdapterWrite::copyThatIsNoFile()
{
    QFETCH(QString, name);
    Writer writer;
    LogSpy log;
    QVERIFY(
        !writer.adapter.handleLoadingZCRConfFinished(true, name.isEmpty() ? name : m_data->path() + name));
    QVERIFY(log.lines().isEmpty());
    QVERIFY(QDir(m_data->path()).isEmpty());
}

int main(int argc, char* argv[])
{
    enterOwnNetwork(argc, argv);
    QCoreApplication application(argc, argv);
    tst_HydZcrCommandAdapterWrite test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_HydZcrCommandAdapterWrite.moc"
