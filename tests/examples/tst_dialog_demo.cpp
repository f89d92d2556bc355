#include "tests/examples/ExampleRun.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/SourceFile.h"

#include <QDir>
#include <QImage>
#include <QTemporaryDir>

namespace {

const QStringList kPictures{QStringLiteral("dialog-empty.png"), QStringLiteral("dialog-scanning.png"),
                            QStringLiteral("dialog-none-found.png"), QStringLiteral("dialog-found.png")};
constexpr int kNoLines = 3;

} // namespace

/// The example dialog-demo as a program, without a display.
class tst_dialog_demo : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    // --- happy flows
    void takesARecorder();
    void savesItsPictures();
    void picturesOfTheGuide();
    // --- rainy day flows
    void takesNone();
    void wrongUse_data();
    void wrongUse();
    void folderThatIsNotThere();
};

void tst_dialog_demo::initTestCase()
{
    // Ends at once, one way or the other.
    const QTemporaryDir folder;
    const QString gone = folder.filePath(QStringLiteral("gone"));
    if (runExample(NVX_DIALOG_DEMO, {QStringLiteral("--pictures"), gone}).code == kNoLines)
        QSKIP("simulated lines can't be listed as serial ports here");
}

void tst_dialog_demo::takesARecorder()
{
    const ExampleRun run = runExample(NVX_DIALOG_DEMO, {QStringLiteral("--take"), QStringLiteral("12")});
    QCOMPARE(run.code, 0);
    QVERIFY2(run.output.split(u'\n').contains(QStringLiteral("TD recorder 77 on COM12 at 115200 bit/s")),
             qPrintable(run.output));
}

void tst_dialog_demo::savesItsPictures()
{
    const QTemporaryDir folder;
    const ExampleRun run = runExample(NVX_DIALOG_DEMO, {QStringLiteral("--pictures"), folder.path()});
    QVERIFY2(run.code == 0, qPrintable(run.errors));
    QList<QImage> pictures;
    for (const QString& name : kPictures) {
        const QImage picture(folder.filePath(name));
        QVERIFY2(!picture.isNull() && picture.width() >= 250 && picture.height() >= 277, qPrintable(name));
        QVERIFY2(!pictures.contains(picture), qPrintable(name));
        pictures << picture;
    }
}

void tst_dialog_demo::picturesOfTheGuide()
{
    for (const QString& name : kPictures) {
        const QImage picture(sourceFile(QStringLiteral("docs/") + name));
        QVERIFY2(!picture.isNull() && picture.width() >= 250 && picture.height() >= 277, qPrintable(name));
    }
}

/// The recorder there answers at another rate than the dialog's.
void tst_dialog_demo::takesNone()
{
    const ExampleRun run = runExample(NVX_DIALOG_DEMO, {QStringLiteral("--take"), QStringLiteral("31")});
    QCOMPARE(run.code, 2);
    QVERIFY2(run.errors.contains(QStringLiteral("dialog-demo: no recorder was taken.")),
             qPrintable(run.errors));
}

void tst_dialog_demo::wrongUse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("unknown option") << QStringList{QStringLiteral("--port")};
    QTest::newRow("option without its value") << QStringList{QStringLiteral("--take")};
    QTest::newRow("argument") << QStringList{QStringLiteral("5")};
}

void tst_dialog_demo::wrongUse()
{
    QFETCH(QStringList, arguments);
    QCOMPARE(runExample(NVX_DIALOG_DEMO, arguments).code, 1);
}

void tst_dialog_demo::folderThatIsNotThere()
{
    const QTemporaryDir folder;
    const QString gone = folder.filePath(QStringLiteral("gone"));
    const ExampleRun run = runExample(NVX_DIALOG_DEMO, {QStringLiteral("--pictures"), gone});
    QCOMPARE(run.code, 4);
    QVERIFY2(run.errors.contains(gone), qPrintable(run.errors));
}

QTEST_GUILESS_MAIN(tst_dialog_demo)
#include "tst_dialog_demo.moc"
