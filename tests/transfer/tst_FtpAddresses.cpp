#include "NvxQtCommon/transfer/FtpAddresses.h"
#include "tests/support/NvxTestCase.h"

class tst_FtpAddresses : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void passive_data();
    void passive();
    void extendedPassive_data();
    void extendedPassive();
    void activeLine_data();
    void activeLine();
};

void tst_FtpAddresses::passive_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");
    QTest::newRow("usual") << "Entering Passive Mode (10,0,1,255,4,210)."
                           << "10.0.1.255:1234";
    QTest::newRow("without brackets") << "=10,0,0,1,255,255"
                                      << "10.0.0.1:65535";
    QTest::newRow("number ahead") << "Mode 2 of 3,4: 10,0,0,1,0,21 ok"
                                  << "10.0.0.1:21";
    QTest::newRow("more numbers") << "(1,2,3,4,5,6,7,8)"
                                  << "1.2.3.4:1286";
    QTest::newRow("leading zeros") << "(010,000,000,001,000,021)"
                                   << "10.0.0.1:21";
    // --- rainy day flows
    QTest::newRow("nothing") << ""
                             << "";
    QTest::newRow("junk") << "Entering Passive Mode"
                          << "";
    QTest::newRow("five numbers") << "(10,0,0,1,4)"
                                  << "";
    QTest::newRow("five numbers and a comma") << "(10,0,0,1,4,)"
                                              << "";
    QTest::newRow("blanks between") << "(10, 0, 0, 1, 4, 210)"
                                    << "";
    QTest::newRow("points between") << "(10.0.0.1,4,210)"
                                    << "";
    QTest::newRow("octet over 255") << "(256,0,0,1,4,210)"
                                    << "";
    QTest::newRow("port number over 255") << "(10,0,0,1,4,256)"
                                          << "";
    QTest::newRow("endless number") << "(10,0,0,1,4," + QString(4000, u'9') + ")"
                                    << "";
    QTest::newRow("port 0") << "(10,0,0,1,0,0)"
                            << "";
    QTest::newRow("negative") << "(10,0,0,-1,4,210)"
                              << "";
    QTest::newRow("letters for digits") << QStringLiteral("(1\u0660,0,0,1,4,\u0661)") << "";
}

void tst_FtpAddresses::passive()
{
    QFETCH(QString, text);
    QFETCH(QString, expected);
    const auto endpoint = FtpAddresses::passive(text);
    QCOMPARE(endpoint.has_value(), !expected.isEmpty());
    if (endpoint)
        QCOMPARE(endpoint->address.toString() + u':' + QString::number(endpoint->port), expected);
}

void tst_FtpAddresses::extendedPassive_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("port");
    QTest::newRow("usual") << "Entering Extended Passive Mode (|||6446|)" << 6446;
    QTest::newRow("other delimiter") << "(!!!65535!)" << 65535;
    QTest::newRow("port 1") << "(|||1|)." << 1;
    // --- rainy day flows
    QTest::newRow("nothing") << "" << 0;
    QTest::newRow("no brackets") << "|||6446|" << 0;
    QTest::newRow("two delimiters") << "(||6446|)" << 0;
    QTest::newRow("mixed delimiters") << "(|!|6446|)" << 0;
    QTest::newRow("no last delimiter") << "(|||6446)" << 0;
    QTest::newRow("no port") << "(||||)" << 0;
    QTest::newRow("port 0") << "(|||0|)" << 0;
    QTest::newRow("port over 65535") << "(|||65536|)" << 0;
    QTest::newRow("negative port") << "(|||-1|)" << 0;
    QTest::newRow("junk in the port") << "(|||64x6|)" << 0;
    QTest::newRow("digits as delimiters") << "(111644661)" << 0;
    QTest::newRow("cut short") << "(||" << 0;
}

void tst_FtpAddresses::extendedPassive()
{
    QFETCH(QString, text);
    QFETCH(int, port);
    QCOMPARE(int(FtpAddresses::extendedPassive(text).value_or(0)), port);
}

void tst_FtpAddresses::activeLine_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<int>("port");
    QTest::addColumn<QString>("line");
    QTest::newRow("IPv4") << "127.0.0.3" << 1234 << "PORT 127,0,0,3,4,210\r\n";
    QTest::newRow("IPv4 in IPv6") << "::ffff:10.1.2.3" << 65535 << "PORT 10,1,2,3,255,255\r\n";
    QTest::newRow("IPv6") << "::1" << 50000 << "EPRT |2|::1|50000|\r\n";
    QTest::newRow("IPv6 of a link") << "fe80::2%eth0" << 21 << "EPRT |2|fe80::2|21|\r\n";
}

void tst_FtpAddresses::activeLine()
{
    QFETCH(QString, address);
    QFETCH(int, port);
    QFETCH(QString, line);
    QCOMPARE(FtpAddresses::activeLine({QHostAddress(address), quint16(port)}), line);
    QCOMPARE(FtpAddresses::isIpv6(QHostAddress(address)), line.startsWith(u"EPRT"));
}

QTEST_APPLESS_MAIN(tst_FtpAddresses)
#include "tst_FtpAddresses.moc"
