#include "NvxQtSimulator/HttpRequestReader.h"
#include "tests/support/NvxTestCase.h"

namespace {

const QByteArray kPlain = QByteArrayLiteral("GET /cgi-bin/Status.cgi? HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");

} // namespace

class tst_HttpRequestReader : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void anySplitGivesTheSameRequests()
    {
        const QByteArray two = kPlain + "POST /x HTTP/1.1\r\nConnection: close\r\n\r\n";
        for (qsizetype piece = 1; piece <= two.size(); ++piece) {
            HttpRequestReader reader;
            QList<HttpRequest> requests;
            for (qsizetype at = 0; at < two.size(); at += piece) {
                reader.add(two.mid(at, piece));
                while (const auto request = reader.next())
                    requests << *request;
            }
            QCOMPARE(requests.size(), 2);
            QCOMPARE(requests[0].method, QByteArray("GET"));
            QCOMPARE(requests[0].target, QByteArray("/cgi-bin/Status.cgi?"));
            QVERIFY(requests[0].keepsAlive);
            QCOMPARE(requests[1].method, QByteArray("POST"));
            QVERIFY(!requests[1].keepsAlive);
            QVERIFY(!reader.isBroken());
        }
    }

    void targetsStayByteForByte()
    {
        HttpRequestReader reader;
        reader.add("GET /a%7B\"{}\xC3\xA4?data=%22&& HTTP/1.1\r\n\r\n");
        const auto request = reader.next();
        QVERIFY(request);
        QCOMPARE(request->target, QByteArray("/a%7B\"{}\xC3\xA4?data=%22&&"));
    }

    void whoKeepsTheConnection_data()
    {
        QTest::addColumn<QByteArray>("head");
        QTest::addColumn<bool>("keepsAlive");
        QTest::newRow("1.1") << QByteArray("GET / HTTP/1.1\r\nHost: x") << true;
        QTest::newRow("1.0") << QByteArray("GET / HTTP/1.0\r\nHost: x") << false;
        QTest::newRow("asked to close") << QByteArray("GET / HTTP/1.1\r\nCONNECTION:  Close ") << false;
        QTest::newRow("body") << QByteArray("GET / HTTP/1.1\r\nContent-Length: 4") << false;
        QTest::newRow("no body") << QByteArray("GET / HTTP/1.1\r\nContent-Length: 0") << true;
        QTest::newRow("chunks") << QByteArray("GET / HTTP/1.1\r\nTransfer-Encoding: chunked") << false;
    }
    void whoKeepsTheConnection()
    {
        QFETCH(const QByteArray, head);
        HttpRequestReader reader;
        reader.add(head + "\r\n\r\n");
        const auto request = reader.next();
        QVERIFY(request);
        QTEST(request->keepsAlive, "keepsAlive");
    }

    // --- rainy day flows
    void noRequests_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("nothing in the line") << QByteArray("\r\n\r\n");
        QTest::newRow("two words") << QByteArray("GET /\r\n\r\n");
        QTest::newRow("four words") << QByteArray("GET / x HTTP/1.1\r\n\r\n");
        QTest::newRow("other protocol") << QByteArray("GET / FTP/1.1\r\n\r\n");
        QTest::newRow("blank target") << QByteArray("GET  HTTP/1.1\r\n\r\n");
        QTest::newRow("without end") << QByteArray(HttpRequestReader::kMaxHead, 'G');
        QTest::newRow("end too late") << QByteArray("GET / HTTP/1.1\r\nX: ") +
                                             QByteArray(HttpRequestReader::kMaxHead, 'x') + "\r\n\r\n";
        QTest::newRow("zeros") << QByteArray(20, '\0') + "\r\n\r\n";
    }
    void noRequests()
    {
        QFETCH(const QByteArray, bytes);
        HttpRequestReader reader;
        reader.add(bytes);
        QVERIFY(!reader.next());
        QVERIFY(reader.isBroken());
        // For good.
        reader.add(kPlain);
        QVERIFY(!reader.next());
        QVERIFY(reader.isBroken());
    }

    void everyTruncationWaits()
    {
        for (qsizetype size = 0; size < kPlain.size(); ++size) {
            HttpRequestReader reader;
            reader.add(kPlain.first(size));
            QVERIFY(!reader.next());
            QVERIFY(!reader.isBroken());
        }
    }
};

QTEST_GUILESS_MAIN(tst_HttpRequestReader)
#include "tst_HttpRequestReader.moc"
