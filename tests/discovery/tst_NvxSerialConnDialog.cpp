#include "tests/discovery/DialogFixture.h"
#include "tests/discovery/SerialLine.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"

#include <QAccessible>
#include <QHBoxLayout>
#include <QPointer>
#include <QSerialPortInfo>

#include <algorithm>

namespace {

const QString kScanning = QStringLiteral("Scanning ports...");
const QString kNone = QStringLiteral("No Devices Found!");
const QString kFinished = QStringLiteral("Finished scanning.");

QString nameOf(QWidget* widget)
{
    if (auto* button = qobject_cast<QPushButton*>(widget))
        return button->text().remove(u'&');
    return widget->objectName();
}

} // namespace

/// The dialog under mouse and keyboard; the ports are listed by this program's own udev functions.
class tst_NvxSerialConnDialog : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    // --- happy flows
    void form();
    void accessibleNames();
    void tabGoesTheWayTheWidgetsStand();
    void showingDoesNotScan();
    void listsWhatAnswers();
    void asksAtOneRate();
    void connectTakesTheSelected();
    void doubleClickTakesTheRow();
    void enterInTheListConnects();
    void enterInTheNumberChecksThePort();
    void checkPortLooksAtOnePort();
    void searchedTypeIsTheScanners();
    void rescanFindsAnew();
    void onlyPlainNumbersCount();
    // --- rainy day flows
    void noPortsAtAll();
    void silentPort();
    void otherTypesAreNotListed();
    void rescanClearsTheListAlone();
    void rescanDuringAScanDoesNothing();
    void checkPortDuringAScanCancelsIt();
    void connectWithoutSelection_data();
    void connectWithoutSelection();
    void unknownPortIsNotAccepted();
    void cancelling_data();
    void cancelling();
    void acceptEndsTheScan();
    void deletedWhileItScans();
    void deletedByItsOwnSignal_data();
    void deletedByItsOwnSignal();

private:
    ListedPorts m_ports;
};

void tst_NvxSerialConnDialog::initTestCase()
{
    m_ports.setPorts({{"7", "/dev/null"}});
    const auto listed = QSerialPortInfo::availablePorts();
    if (listed.size() != 1 || listed[0].portName() != QStringLiteral("7"))
        QSKIP("This Qt doesn't ask the libudev of its process for serial ports.");
}

void tst_NvxSerialConnDialog::init()
{
    // What the offscreen platform says of itself whenever a window is shown.
    QTest::failOnWarning(
        QRegularExpression(QStringLiteral("^(?!This plugin does not support propagateSizeHints)")));
    m_ports.setPorts({});
}

void tst_NvxSerialConnDialog::form()
{
    NvxSerialConnDialog dialog(nullptr);
    QCOMPARE(dialog.objectName(), QStringLiteral("NvxSerialConnDialog"));
    QCOMPARE(dialog.windowTitle(), QStringLiteral("Connect to Recorder"));
    QCOMPARE(dialog.size(), QSize(250, 277));
    const auto part = [&](const char* name) { return dialog.findChild<QWidget*>(QLatin1String(name)); };
    auto* vertical = qobject_cast<QVBoxLayout*>(dialog.layout());
    QVERIFY(vertical != nullptr);
    QCOMPARE(vertical->objectName(), QStringLiteral("verticalLayout"));
    QCOMPARE(vertical->count(), 4);
    QCOMPARE(vertical->itemAt(0)->widget(), part("lwDevices"));
    auto* horizontal = qobject_cast<QHBoxLayout*>(vertical->itemAt(1)->layout());
    QVERIFY(horizontal != nullptr);
    QCOMPARE(vertical->itemAt(2)->widget(), part("lblMessage"));
    QCOMPARE(vertical->itemAt(3)->widget(), part("buttonBox"));
    QCOMPARE(horizontal->objectName(), QStringLiteral("horizontalLayout"));
    QCOMPARE(horizontal->count(), 3);
    QCOMPARE(horizontal->itemAt(0)->widget(), part("lblPortName"));
    QCOMPARE(horizontal->itemAt(1)->widget(), part("sbComPort"));
    QCOMPARE(horizontal->itemAt(2)->widget(), part("btnManualConnect"));
    QCOMPARE(horizontal->stretch(0), 1);
    QCOMPARE(horizontal->stretch(1), 0);
    QCOMPARE(horizontal->stretch(2), 0);

    QVERIFY(qobject_cast<QListWidget*>(part("lwDevices")) != nullptr);
    auto* port = qobject_cast<QLabel*>(part("lblPortName"));
    QVERIFY(port != nullptr);
    QCOMPARE(port->text(), QStringLiteral("COM"));
    QVERIFY(port->alignment().testFlag(Qt::AlignRight) && port->alignment().testFlag(Qt::AlignVCenter));
    auto* number = qobject_cast<QSpinBox*>(part("sbComPort"));
    QVERIFY(number != nullptr);
    QCOMPARE(number->minimum(), 3);
    QCOMPARE(number->maximum(), 99);
    QCOMPARE(number->value(), 3);
    auto* check = qobject_cast<QPushButton*>(part("btnManualConnect"));
    QVERIFY(check != nullptr);
    QCOMPARE(check->text(), QStringLiteral("Check Port"));
    auto* message = qobject_cast<QLabel*>(part("lblMessage"));
    QVERIFY(message != nullptr);
    QCOMPARE(message->text(), QStringLiteral("No Devices."));
    auto* box = qobject_cast<QDialogButtonBox*>(part("buttonBox"));
    QVERIFY(box != nullptr);
    QCOMPARE(box->orientation(), Qt::Horizontal);
    QCOMPARE(box->standardButtons(), QDialogButtonBox::Cancel);
    QMap<QString, QDialogButtonBox::ButtonRole> roles;
    for (QAbstractButton* button : box->buttons())
        roles[button->text().remove(u'&')] = box->buttonRole(button);
    const QMap<QString, QDialogButtonBox::ButtonRole> expected{
        {QStringLiteral("Connect"), QDialogButtonBox::AcceptRole},
        {QStringLiteral("Scan Ports"), QDialogButtonBox::ResetRole},
        {QStringLiteral("Cancel"), QDialogButtonBox::RejectRole}};
    QCOMPARE(roles, expected);
}

void tst_NvxSerialConnDialog::accessibleNames()
{
    DialogFixture dialog;
    const auto nameFor = [](QWidget* widget) {
        return QAccessible::queryAccessibleInterface(widget)->text(QAccessible::Name);
    };
    QCOMPARE(nameFor(dialog.get()), QStringLiteral("Connect to Recorder"));
    QCOMPARE(nameFor(dialog.list()), QStringLiteral("Recorders found"));
    QCOMPARE(nameFor(dialog.number()), QStringLiteral("COM port number"));
    QCOMPARE(nameFor(dialog.check()), QStringLiteral("Check Port"));
    QCOMPARE(nameFor(dialog.button("Connect")), QStringLiteral("Connect"));
    QCOMPARE(nameFor(dialog.part<QLabel>("lblMessage")), QStringLiteral("No Devices."));
    QCOMPARE(dialog.part<QLabel>("lblPortName")->buddy(), dialog.number());
}

void tst_NvxSerialConnDialog::tabGoesTheWayTheWidgetsStand()
{
    DialogFixture dialog;
    QVERIFY(dialog.isReady());
    QStringList buttons;
    QList<QWidget*> widgets;
    for (QAbstractButton* button : dialog.box()->buttons())
        widgets << button;
    std::sort(widgets.begin(), widgets.end(), [](QWidget* a, QWidget* b) { return a->x() < b->x(); });
    for (QWidget* widget : widgets)
        buttons << nameOf(widget);
    QStringList order;
    for (int i = 0; i < 6; ++i) {
        order << nameOf(dialog->focusWidget());
        QTest::keyClick(dialog->focusWidget(), Qt::Key_Tab);
    }
    QCOMPARE(order, QStringList({QStringLiteral("lwDevices"), QStringLiteral("sbComPort"),
                                 QStringLiteral("Check Port")}) +
                        buttons);
    QCOMPARE(dialog->focusWidget(), dialog.list());
}

void tst_NvxSerialConnDialog::showingDoesNotScan()
{
    SerialLine line(reportOf(DevTypeRecorderA, 1));
    m_ports.setPorts({line.listedAs("5")});
    DialogFixture dialog;
    QVERIFY(dialog.isReady());
    QCOMPARE(dialog.message(), QStringLiteral("No Devices."));
    dialog->startScan();
    QCOMPARE(dialog.message(), kScanning);
    QCOMPARE(line.enquiries(), 0);
    QVERIFY(dialog.scanEnds(kFinished));
    QCOMPARE(line.enquiries(), 1);
}

void tst_NvxSerialConnDialog::listsWhatAnswers()
{
    SerialLine first(reportOf(DevTypeRecorderA, 101));
    SerialLine second(reportOf(DevTypeTdRec, 102));
    m_ports.setPorts({first.listedAs("2"), second.listedAs("99")});
    DialogFixture dialog;
    dialog->startScan();
    QVERIFY(dialog.scanEnds(kFinished));
    QStringList rows = dialog.rows();
    rows.sort();
    const auto text = [](HydDeviceType type, uint16_t serial) {
        const auto device = HydDevice::createDevice(type);
        device->setSerial(serial);
        return QString::fromStdString(device->friendlyText());
    };
    QCOMPARE(rows, QStringList({QStringLiteral("2 ") + text(DevTypeRecorderA, 101),
                                QStringLiteral("99 ") + text(DevTypeTdRec, 102)}));
    QCOMPARE(dialog.m_accepted.size(), 0);
    QVERIFY(dialog->isVisible());
}

void tst_NvxSerialConnDialog::asksAtOneRate()
{
    SerialLine line(reportOf(DevTypeRecorderA, 1));
    m_ports.setPorts({line.listedAs("5")});
    DialogFixture dialog;
    dialog->startScan();
    QVERIFY(dialog.scanEnds(kFinished));
    QCOMPARE(line.speed(), speed_t(B115200));
    dialog->acceptSelected(QStringLiteral("5"));
    QCOMPARE(dialog.m_accepted[0][2].toUInt(), 115200U);
}

void tst_NvxSerialConnDialog::connectTakesTheSelected()
{
    SerialLine first(reportOf(DevTypeRecorderA, 101));
    SerialLine second(reportOf(DevTypeRecorderB, 102));
    m_ports.setPorts({first.listedAs("5"), second.listedAs("6")});
    DialogFixture dialog;
    dialog->startScan();
    QVERIFY(dialog.scanEnds(kFinished));
    const int row = dialog.rows()[0].startsWith(QStringLiteral("6 ")) ? 0 : 1;
    bool isAcceptedFirst = false;
    connect(dialog.get(), &NvxSerialConnDialog::deviceAccepted, this, [&] {
        isAcceptedFirst = dialog->result() == QDialog::Accepted && dialog.m_finished.size() == 1;
    });
    const LogSpy log;
    dialog.clickRow(row);
    dialog.click(dialog.button("Connect"));
    QVERIFY(log.contains(QStringLiteral("Connect Clicked!")));
    QCOMPARE(dialog.m_accepted.size(), 1);
    QCOMPARE(dialog.device()->serial(), 102);
    QCOMPARE(dialog.device()->devType(), DevTypeRecorderB);
    QCOMPARE(dialog.m_accepted[0][1].toString(), QStringLiteral("6"));
    QVERIFY(isAcceptedFirst);
    QVERIFY(!dialog->isVisible());
}

void tst_NvxSerialConnDialog::doubleClickTakesTheRow()
{
    SerialLine line(reportOf(DevTypeRecorderA, 101));
    m_ports.setPorts({line.listedAs("5")});
    DialogFixture dialog;
    dialog->startScan();
    QVERIFY(dialog.scanEnds(kFinished));
    const QPoint center = dialog.list()->visualItemRect(dialog.list()->item(0)).center();
    dialog.clickRow(0);
    QCOMPARE(dialog.m_accepted.size(), 0);
    QTest::mouseDClick(dialog.list()->viewport(), Qt::LeftButton, {}, center);
    QCOMPARE(dialog.m_accepted.size(), 1);
    QCOMPARE(dialog.device()->serial(), 101);
    QCOMPARE(dialog->result(), int(QDialog::Accepted));
}

void tst_NvxSerialConnDialog::enterInTheListConnects()
{
    SerialLine line(reportOf(DevTypeRecorderA, 101));
    m_ports.setPorts({line.listedAs("5")});
    DialogFixture dialog;
    QVERIFY(dialog.isReady());
    dialog->startScan();
    QVERIFY(dialog.scanEnds(kFinished));
    QCOMPARE(dialog->focusWidget(), dialog.list());
    QTest::keyClick(dialog.list(), Qt::Key_Down);
    QCOMPARE(dialog.list()->selectedItems().size(), 1);
    QTest::keyClick(dialog.list(), Qt::Key_Return);
    QCOMPARE(dialog.m_accepted.size(), 1);
    QVERIFY(!dialog->isVisible());
}

void tst_NvxSerialConnDialog::enterInTheNumberChecksThePort()
{
    SerialLine line(reportOf(DevTypeRecorderA, 101));
    m_ports.setPorts({line.listedAs("42")});
    DialogFixture dialog;
    QVERIFY(dialog.isReady());
    QVERIFY(qobject_cast<QPushButton*>(dialog.button("Connect"))->isDefault());
    dialog.number()->setFocus();
    QVERIFY(dialog.check()->isDefault());
    dialog.number()->selectAll();
    QTest::keyClicks(dialog.number(), QStringLiteral("42"));
    const LogSpy log;
    QTest::keyClick(dialog.number(), Qt::Key_Return);
    QCOMPARE(dialog.message(), QStringLiteral("Connecting to COM42"));
    QVERIFY(!log.contains(QStringLiteral("Connect Clicked!")));
    QVERIFY(dialog.scanEnds(kFinished));
    QCOMPARE(dialog.rows().size(), 1);
    dialog.list()->setFocus();
    QVERIFY(qobject_cast<QPushButton*>(dialog.button("Connect"))->isDefault());
    QVERIFY(!dialog.check()->isDefault());
}

void tst_NvxSerialConnDialog::checkPortLooksAtOnePort()
{
    SerialLine wanted(reportOf(DevTypeRecorderA, 101));
    SerialLine other(reportOf(DevTypeRecorderA, 102));
    m_ports.setPorts({other.listedAs("11"), wanted.listedAs("12"), other.listedAs("13")});
    DialogFixture dialog;
    dialog.number()->setValue(12);
    dialog.click(dialog.check());
    QCOMPARE(dialog.message(), QStringLiteral("Connecting to COM12"));
    QVERIFY(dialog.scanEnds(kFinished));
    QCOMPARE(dialog.rows().size(), 1);
    QVERIFY(dialog.rows()[0].startsWith(QStringLiteral("12 ")));
    QCOMPARE(other.enquiries(), 0);
    // Again, and what was listed goes at once.
    dialog.click(dialog.check());
    QCOMPARE(dialog.rows(), QStringList());
    QVERIFY(dialog.scanEnds(kFinished));
    QCOMPARE(dialog.rows().size(), 1);
}

void tst_NvxSerialConnDialog::searchedTypeIsTheScanners()
{
    SerialLine wanted(reportOf(DevTypeTmi, 101));
    SerialLine other(reportOf(DevTypeRecorderA, 102));
    m_ports.setPorts({wanted.listedAs("5"), other.listedAs("6")});
    DialogFixture dialog;
    QCOMPARE(dialog->searchDevType(), DevTypeAny);
    dialog->setSearchDevType(DevTypeTmi);
    QCOMPARE(dialog->searchDevType(), DevTypeTmi);
    dialog->startScan();
    QVERIFY(dialog.scanEnds(kFinished));
    QCOMPARE(dialog.rows().size(), 1);
    QVERIFY(dialog.rows()[0].startsWith(QStringLiteral("5 ")));
}

void tst_NvxSerialConnDialog::rescanFindsAnew()
{
    SerialLine line(reportOf(DevTypeRecorderA, 101));
    m_ports.setPorts({line.listedAs("5")});
    DialogFixture dialog;
    dialog.click(dialog.button("Scan Ports"));
    QVERIFY(dialog.scanEnds(kFinished));
    line.setReply(reportOf(DevTypeRecorderB, 202));
    const LogSpy log;
    dialog.click(dialog.button("Scan Ports"));
    QCOMPARE(dialog.message(), kScanning);
    QCOMPARE(dialog.rows(), QStringList());
    QVERIFY(log.contains(QStringLiteral("Rescan Clicked!")));
    QVERIFY(dialog.scanEnds(kFinished));
    QCOMPARE(dialog.rows().size(), 1);
    dialog->acceptSelected(QStringLiteral("5"));
    QCOMPARE(dialog.device()->serial(), 202);
}

void tst_NvxSerialConnDialog::onlyPlainNumbersCount()
{
    SerialLine good(reportOf(DevTypeRecorderA, 101));
    SerialLine negative(reportOf(DevTypeRecorderA, 102));
    SerialLine others(reportOf(DevTypeRecorderA, 103));
    // Intended: a name with a prefix counts as 0, and a negative number as a large one that isn't above 99.
    std::vector<ListedPorts::Port> ports{good.listedAs("77"), negative.listedAs("-5")};
    for (const char* name : {"COM5", "ttyS5", "1", "100", "0", "5a", "", "65541"})
        ports.push_back(others.listedAs(name));
    m_ports.setPorts(ports);
    DialogFixture dialog;
    dialog->startScan();
    QVERIFY(dialog.scanEnds(kFinished));
    QCOMPARE(dialog.rows().size(), 2);
    QCOMPARE(good.enquiries(), 1);
    QCOMPARE(negative.enquiries(), 1);
    QCOMPARE(others.enquiries(), 0);
}

void tst_NvxSerialConnDialog::noPortsAtAll()
{
    DialogFixture dialog;
    dialog->startScan();
    QCOMPARE(dialog.message(), kScanning);
    QVERIFY(dialog.scanEnds(kNone));
    QCOMPARE(dialog.rows(), QStringList());
    dialog.click(dialog.button("Scan Ports"));
    QCOMPARE(dialog.message(), kScanning);
    QVERIFY(dialog.scanEnds(kNone));
}

void tst_NvxSerialConnDialog::silentPort()
{
    SerialLine line{QByteArray()};
    m_ports.setPorts({line.listedAs("5")});
    DialogFixture dialog;
    dialog->startScan();
    QVERIFY(dialog.scanEnds(kNone));
    QCOMPARE(line.enquiries(), 1);
}

void tst_NvxSerialConnDialog::otherTypesAreNotListed()
{
    SerialLine line(reportOf(DevTypeRecorderA, 101));
    m_ports.setPorts({line.listedAs("5")});
    DialogFixture dialog;
    dialog->setSearchDevType(DevTypeTdRec);
    dialog->startScan();
    QVERIFY(dialog.scanEnds(kNone));
    QCOMPARE(line.enquiries(), 1);
    QCOMPARE(dialog.rows(), QStringList());
}

void tst_NvxSerialConnDialog::rescanClearsTheListAlone()
{
    SerialLine line(reportOf(DevTypeRecorderA, 101));
    m_ports.setPorts({line.listedAs("5")});
    DialogFixture dialog;
    dialog->startScan();
    QVERIFY(dialog.scanEnds(kFinished));
    m_ports.setPorts({});
    dialog.click(dialog.button("Scan Ports"));
    // Intended: over an empty list, since what was found stays known.
    QVERIFY(dialog.scanEnds(kFinished));
    QCOMPARE(dialog.rows(), QStringList());
    dialog->acceptSelected(QStringLiteral("5"));
    QCOMPARE(dialog.device()->serial(), 101);
}

void tst_NvxSerialConnDialog::rescanDuringAScanDoesNothing()
{
    SerialLine quick(reportOf(DevTypeRecorderA, 101));
    SerialLine silent{QByteArray()};
    m_ports.setPorts({quick.listedAs("5"), silent.listedAs("6")});
    DialogFixture dialog;
    dialog->startScan();
    QTRY_COMPARE(dialog.rows().size(), 1);
    const LogSpy log;
    dialog.click(dialog.button("Scan Ports"));
    QCOMPARE(log.lines(), QStringList{QStringLiteral("Rescan Clicked!")});
    QCOMPARE(dialog.rows().size(), 1);
    QCOMPARE(dialog.message(), kScanning);
    QVERIFY(dialog.scanEnds(kFinished));
    QCOMPARE(quick.enquiries(), 1);
}

void tst_NvxSerialConnDialog::checkPortDuringAScanCancelsIt()
{
    SerialLine quick(reportOf(DevTypeRecorderA, 101));
    SerialLine silent{QByteArray()};
    SerialLine wanted(reportOf(DevTypeRecorderB, 102));
    m_ports.setPorts({quick.listedAs("5"), silent.listedAs("6")});
    DialogFixture dialog;
    dialog->startScan();
    QTRY_COMPARE(dialog.rows().size(), 1);
    m_ports.addPort(wanted.listedAs("8"));
    dialog.number()->setValue(8);
    const LogSpy log;
    dialog.click(dialog.check());
    QCOMPARE(dialog.message(), QStringLiteral("Connecting to COM8"));
    QCOMPARE(dialog.rows(), QStringList());
    QTRY_VERIFY(dialog.lists(QStringLiteral("8")));
    QVERIFY(!log.contains(QStringLiteral("Scan already in progress!")));
}

void tst_NvxSerialConnDialog::connectWithoutSelection_data()
{
    QTest::addColumn<bool>("isListed");
    QTest::newRow("nothing found") << false;
    QTest::newRow("nothing selected") << true;
}

void tst_NvxSerialConnDialog::connectWithoutSelection()
{
    QFETCH(bool, isListed);
    SerialLine line(reportOf(DevTypeRecorderA, 101));
    if (isListed)
        m_ports.setPorts({line.listedAs("5")});
    DialogFixture dialog;
    dialog->startScan();
    QVERIFY(dialog.scanEnds(isListed ? kFinished : kNone));
    QCOMPARE(dialog.rows().size(), isListed ? 1 : 0);
    dialog.list()->setCurrentRow(0, QItemSelectionModel::NoUpdate);
    const LogSpy log;
    dialog.click(dialog.button("Connect"));
    QCOMPARE(log.lines(), QStringList{QStringLiteral("Connect Clicked!")});
    QCOMPARE(dialog.m_accepted.size(), 0);
    QCOMPARE(dialog.m_finished.size(), 0);
    QVERIFY(dialog->isVisible());
}

void tst_NvxSerialConnDialog::unknownPortIsNotAccepted()
{
    SerialLine line(reportOf(DevTypeRecorderA, 101));
    m_ports.setPorts({line.listedAs("5")});
    DialogFixture dialog;
    dialog->startScan();
    QVERIFY(dialog.scanEnds(kFinished));
    for (const QString& port : {QString(), QStringLiteral("6"), QStringLiteral("05")})
        dialog->acceptSelected(port);
    QCOMPARE(dialog.m_accepted.size(), 0);
    QVERIFY(dialog->isVisible());
}

void tst_NvxSerialConnDialog::cancelling_data()
{
    QTest::addColumn<QString>("way");
    QTest::newRow("button") << "button";
    QTest::newRow("Escape") << "escape";
    QTest::newRow("close button of the window") << "close";
    QTest::newRow("reject") << "reject";
}

void tst_NvxSerialConnDialog::cancelling()
{
    QFETCH(QString, way);
    SerialLine silent{QByteArray()};
    m_ports.setPorts({silent.listedAs("5")});
    DialogFixture dialog;
    QVERIFY(dialog.isReady());
    dialog->startScan();
    QTRY_COMPARE(silent.enquiries(), 1);
    const LogSpy log;
    if (way == QStringLiteral("button"))
        dialog.click(dialog.button("Cancel"));
    else if (way == QStringLiteral("escape"))
        QTest::keyClick(dialog.get(), Qt::Key_Escape);
    else if (way == QStringLiteral("close"))
        dialog->close();
    else
        dialog->reject();
    QCOMPARE(log.contains(QStringLiteral("Cancelled!")), way == QStringLiteral("button"));
    QVERIFY(!dialog->isVisible());
    QCOMPARE(dialog->result(), int(QDialog::Rejected));
    QCOMPARE(dialog.m_finished.size(), 1);
    QCOMPARE(dialog.m_accepted.size(), 0);
    // The scan is over: another one can start.
    dialog->startScan();
    QVERIFY(!log.contains(QStringLiteral("Scan already in progress!")));
}

void tst_NvxSerialConnDialog::acceptEndsTheScan()
{
    SerialLine quick(reportOf(DevTypeRecorderA, 101));
    SerialLine silent{QByteArray()};
    m_ports.setPorts({quick.listedAs("5"), silent.listedAs("6")});
    DialogFixture dialog;
    dialog->startScan();
    QTRY_COMPARE(dialog.rows().size(), 1);
    dialog->acceptSelected(QStringLiteral("5"));
    QCOMPARE(dialog.m_accepted.size(), 1);
    const LogSpy log;
    dialog->startScan();
    QVERIFY(!log.contains(QStringLiteral("Scan already in progress!")));
}

void tst_NvxSerialConnDialog::deletedWhileItScans()
{
    SerialLine silent{QByteArray()};
    m_ports.setPorts({silent.listedAs("5")});
    QWidget parent;
    auto* dialog = new NvxSerialConnDialog(&parent);
    dialog->startScan();
    QTRY_COMPARE(silent.enquiries(), 1);
    delete dialog;
    // And before the ports are listed.
    dialog = new NvxSerialConnDialog(&parent);
    dialog->startScan();
    delete dialog;
}

void tst_NvxSerialConnDialog::deletedByItsOwnSignal_data()
{
    QTest::addColumn<bool>("byAccepted");
    QTest::newRow("accepted") << true;
    QTest::newRow("deviceAccepted") << false;
}

void tst_NvxSerialConnDialog::deletedByItsOwnSignal()
{
    QFETCH(bool, byAccepted);
    SerialLine line(reportOf(DevTypeRecorderA, 101));
    m_ports.setPorts({line.listedAs("5")});
    QPointer<NvxSerialConnDialog> dialog = new NvxSerialConnDialog(nullptr);
    QSignalSpy accepted(dialog, &NvxSerialConnDialog::deviceAccepted);
    dialog->show();
    dialog->startScan();
    auto* message = dialog->findChild<QLabel*>(QStringLiteral("lblMessage"));
    QTRY_COMPARE(message->text(), kFinished);
    if (byAccepted)
        connect(dialog, &QDialog::accepted, this, [&] { delete dialog; });
    else
        connect(dialog, &NvxSerialConnDialog::deviceAccepted, this, [&] { delete dialog; });
    dialog->acceptSelected(QStringLiteral("5"));
    QVERIFY(dialog.isNull());
    QCOMPARE(accepted.size(), byAccepted ? 0 : 1);
}

QTEST_MAIN(tst_NvxSerialConnDialog)
#include "tst_NvxSerialConnDialog.moc"
