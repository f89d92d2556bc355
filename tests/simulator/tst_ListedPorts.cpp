#include "NvxQtSimulator/ListedPorts.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/SerialPair.h"

#include <QFile>
#include <QLockFile>
#include <QSerialPort>
#include <QSerialPortInfo>
#include <QTemporaryDir>

#include <atomic>
#include <thread>

namespace {

QStringList names(const QList<QSerialPortInfo>& list)
{
    QStringList found;
    for (const auto& info : list)
        found << info.portName();
    return found;
}

} // namespace

/// Serial ports that QSerialPortInfo lists and the machine doesn't have.
class tst_ListedPorts : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        ListedPorts ports;
        ports.setPorts({{"7", "/dev/null"}});
        if (names(QSerialPortInfo::availablePorts()) != QStringList(QStringLiteral("7")))
            QSKIP("This Qt doesn't ask the libudev of its process for serial ports.");
    }

    // --- happy flows
    void listsWhatItIsGiven();
    void opensByName();
    void followsChanges();
    void isLockedByItsLine();
    void hidesThePortsOfTheMachine();
    // --- rainy day flows
    void otherPathsAreLeftAlone();
    void namesWithOddCharacters_data();
    void namesWithOddCharacters();
    void listedWhileItChanges();
};

void tst_ListedPorts::listsWhatItIsGiven()
{
    ListedPorts ports;
    ports.setPorts({{"5", "/dev/null", 0x0403, 0x6001, "Maker", "Cable"}, {"ttyZ9", "/dev/zero"}});
    const auto list = QSerialPortInfo::availablePorts();
    QCOMPARE(names(list), QStringList({QStringLiteral("5"), QStringLiteral("ttyZ9")}));
    QCOMPARE(list[0].systemLocation(), QStringLiteral("/dev/null"));
    QCOMPARE(list[0].vendorIdentifier(), quint16(0x0403));
    QCOMPARE(list[0].productIdentifier(), quint16(0x6001));
    QCOMPARE(list[0].manufacturer(), QStringLiteral("Maker"));
    QCOMPARE(list[0].description(), QStringLiteral("Cable"));
    QVERIFY(!list[0].isNull());
    QVERIFY(!list[1].hasVendorIdentifier());
    QVERIFY(!list[1].hasProductIdentifier());
    QCOMPARE(list[1].manufacturer(), QString());
}

void tst_ListedPorts::opensByName()
{
    SerialPair line;
    ListedPorts ports;
    ports.setPorts({{"42", line.portName().toStdString()}});
    QSerialPort port(QStringLiteral("42"));
    QVERIFY(port.open(QIODevice::ReadWrite));
    port.write("out");
    QByteArray arrived;
    QTRY_VERIFY((arrived += line.read()) == "out");
    QVERIFY(line.write("in"));
    QTRY_COMPARE(port.bytesAvailable(), 2);
    QCOMPARE(port.readAll(), QByteArray("in"));
}

/// Another program may have a port of that name, which is another line.
void tst_ListedPorts::isLockedByItsLine()
{
    const QString folder = QStringLiteral("/var/lock/");
    QLockFile others(folder + QStringLiteral("LCK..43"));
    if (!others.tryLock(0))
        QSKIP("no lock file can be made here");
    SerialPair line;
    SerialPair otherLine;
    ListedPorts ports;
    ports.setPorts({{"43", line.portName().toStdString()}, {"44", line.portName().toStdString()}});
    QSerialPort port(QStringLiteral("43"));
    QVERIFY(port.open(QIODevice::ReadWrite));
    // The same line by another name.
    QSerialPort same(QStringLiteral("44"));
    QVERIFY(!same.open(QIODevice::ReadWrite));
    QCOMPARE(same.error(), QSerialPort::PermissionError);
    // What was locked is set free, though the name has come to stand for something else.
    ports.setPorts({{"43", otherLine.portName().toStdString()}, {"44", line.portName().toStdString()}});
    port.close();
    QVERIFY(same.open(QIODevice::ReadWrite));
    QVERIFY(port.open(QIODevice::ReadWrite));
    QVERIFY(others.isLocked());
    QVERIFY(QFile::exists(others.fileName()));
}

void tst_ListedPorts::followsChanges()
{
    ListedPorts ports;
    ports.addPort({"2", "/dev/null"});
    ports.addPort({"3", "/dev/null"});
    QCOMPARE(names(QSerialPortInfo::availablePorts()),
             QStringList({QStringLiteral("2"), QStringLiteral("3")}));
    ports.setPorts({{"4", "/dev/null"}});
    QCOMPARE(names(QSerialPortInfo::availablePorts()), QStringList(QStringLiteral("4")));
    QCOMPARE(ports.ports().size(), size_t(1));
}

void tst_ListedPorts::hidesThePortsOfTheMachine()
{
    const auto own = names(QSerialPortInfo::availablePorts());
    QVERIFY(!own.contains(QStringLiteral("6")));
    {
        ListedPorts ports;
        ports.setPorts({{"6", "/dev/null"}});
        QCOMPARE(names(QSerialPortInfo::availablePorts()), QStringList(QStringLiteral("6")));
    }
    QCOMPARE(names(QSerialPortInfo::availablePorts()), own);
}

void tst_ListedPorts::otherPathsAreLeftAlone()
{
    ListedPorts ports;
    ports.setPorts({{"zero", "/dev/null"}, {"zer", "/dev/null"}});
    QSerialPort gone(QStringLiteral("ze"));
    QVERIFY(!gone.open(QIODevice::ReadWrite));
    QFile random(QStringLiteral("/dev/urandom"));
    QVERIFY(random.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    QCOMPARE(random.read(4).size(), 4);
    // A new file gets the rights that it is made with.
    const QTemporaryDir folder;
    QFile file(folder.filePath(QStringLiteral("new")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY(file.permissions() & QFile::ReadOwner);
    QVERIFY(file.permissions() & QFile::WriteOwner);
}

void tst_ListedPorts::namesWithOddCharacters_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("empty") << QString();
    QTest::newRow("blanks and markers") << QStringLiteral(" %1 %n ");
    QTest::newRow("quotes and backslashes") << QStringLiteral("'\"\\[^\\d]");
    QTest::newRow("line break") << QStringLiteral("a\nb");
}

void tst_ListedPorts::namesWithOddCharacters()
{
    QFETCH(QString, name);
    ListedPorts ports;
    ports.setPorts({{name.toStdString(), "/dev/null"}, {"8", "/dev/null"}});
    QCOMPARE(names(QSerialPortInfo::availablePorts()), QStringList({name, QStringLiteral("8")}));
}

void tst_ListedPorts::listedWhileItChanges()
{
    ListedPorts ports;
    ports.addPort({"1", "/dev/null"});
    std::atomic<bool> isOver = false;
    std::atomic<int> wrong = 0;
    std::atomic<int> listings = 0;
    std::thread reader([&] {
        while (!isOver) {
            const auto list = QSerialPortInfo::availablePorts();
            // All of a generation, and nothing of another.
            for (const auto& info : list)
                wrong += info.portName() != QString::number(list.size());
            ++listings;
        }
    });
    for (size_t i = 0; listings < 200 || i < 500; ++i) {
        const size_t count = 1 + i % 8;
        ports.setPorts(std::vector<ListedPorts::Port>(count, {std::to_string(count), "/dev/null"}));
    }
    isOver = true;
    reader.join();
    QCOMPARE(wrong.load(), 0);
}

QTEST_GUILESS_MAIN(tst_ListedPorts)
#include "tst_ListedPorts.moc"
