#include "logcapture.h"
#include "testhome.h"
#include "processutil.h"
#include "websocketserver.h"

#include <QLoggingCategory>
#include <QSettings>
#include <QtEndian>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTest>
#include <QWebSocket>

#include <memory>

namespace {

QByteArray upgradeRequest(const QByteArray &host, const QList<QByteArray> &extraHeaders = {})
{
    QByteArray request = "GET / HTTP/1.1\r\nHost: " + host
        + "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
          "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n";
    for (const QByteArray &header : extraHeaders)
        request += header + "\r\n";
    return request + "\r\n";
}

// Sends a raw upgrade request and returns the answer: up to its head when the upgrade is taken,
// everything up to the server's close otherwise.
QByteArray handshakeAnswer(quint16 port, const QList<QByteArray> &extraHeaders, const QByteArray &host)
{
    QTcpSocket socket;
    socket.connectToHost(QStringLiteral("127.0.0.1"), port);
    if (!socket.waitForConnected(3000))
        return "no connection";
    socket.write(upgradeRequest(host, extraHeaders));
    QByteArray answer;
    waitUntil([&] {
        answer += socket.readAll();
        return socket.state() == QAbstractSocket::UnconnectedState
            || (answer.startsWith("HTTP/1.1 101") && answer.contains("\r\n\r\n"));
    }, 5000);
    return answer;
}

std::unique_ptr<QWebSocket> openClient(quint16 port, const QString &host = QStringLiteral("127.0.0.1"))
{
    auto client = std::make_unique<QWebSocket>();
    client->open(QUrl(QStringLiteral("ws://%1:%2").arg(host).arg(port)));
    waitUntil([&] { return client->state() == QAbstractSocket::ConnectedState; }, 5000);
    return client;
}

} // namespace

class TestWebSocketServer : public QObject
{
    Q_OBJECT

private slots:
    void servesLoopbackClientsUntilItEnds();
    void handshakePolicy_data();
    void handshakePolicy();

private:
    TestHome m_home;
};

// One server through its life: published, on both loopbacks only, replies to the latest client,
// a slow client closed, unpublished at the end. Skipping a busy port is proven end to end.
void TestWebSocketServer::servesLoopbackClientsUntilItEnds()
{
    auto server = std::make_unique<WebSocketServer>();
    QCOMPARE(programSettings("pluginserver").value(QStringLiteral("server/port")).toInt(), int(server->port()));
    QTcpSocket other;
    other.connectToHost(QStringLiteral("127.0.0.2"), server->port());
    QVERIFY(!other.waitForConnected(1000));

    QSignalSpy received(server.get(), &WebSocketServer::receiveMessage);
    auto first = openClient(server->port());
    QVERIFY(waitUntil([&] { return server->clientCount() == 1; }, 3000));
    auto second = openClient(server->port(), QStringLiteral("[::1]"));
    QVERIFY(waitUntil([&] { return server->clientCount() == 2; }, 3000));
    QSignalSpy firstGot(first.get(), &QWebSocket::textMessageReceived);
    QSignalSpy secondGot(second.get(), &QWebSocket::textMessageReceived);
    server->sendMessage(QStringLiteral("reply"));
    QVERIFY(secondGot.wait(3000));
    QCOMPARE(secondGot.at(0).at(0).toString(), QStringLiteral("reply"));

    // A newer client that reads next to nothing takes the replies until it is closed as too slow;
    // the first client is heard all along, and answered.
    QTcpSocket slow;
    slow.setReadBufferSize(1024);
    slow.connectToHost(QStringLiteral("127.0.0.1"), server->port());
    QVERIFY(slow.waitForConnected(3000));
    slow.write(upgradeRequest("127.0.0.1:" + QByteArray::number(server->port())));
    QVERIFY(waitUntil([&] { return server->clientCount() == 3; }, 3000));
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));
    LogCapture log;
    const QString reply(64 * 1024, QLatin1Char('x'));
    for (int i = 0; i < 1000 && !log.contains(QStringLiteral("client too slow, closed")); ++i) {
        server->sendMessage(reply);
        first->sendTextMessage(QStringLiteral("still here"));
        QCoreApplication::processEvents();
    }
    QLoggingCategory::setFilterRules(QString());
    QVERIFY(log.contains(QStringLiteral("client too slow, closed")));
    connect(server.get(), &WebSocketServer::receiveMessage, server.get(), [&] { server->replyToSender(QStringLiteral("answer")); });
    first->sendTextMessage(QStringLiteral("after"));
    QVERIFY(waitUntil([&] { return received.last().at(0) == QStringLiteral("after") && !firstGot.isEmpty(); }, 3000));
    QCOMPARE(firstGot.last().at(0).toString(), QStringLiteral("answer"));

    // Read what was left for the slow client: its stream ends with a close frame, code 1008. That
    // frame holds the only byte 0x88 in the stream: data frame heads and their "x" hold none.
    slow.setReadBufferSize(0);
    QByteArray stream;
    QVERIFY(waitUntil([&] {
        stream += slow.readAll();
        return slow.state() == QAbstractSocket::UnconnectedState;
    }, 15000));
    stream += slow.readAll();
    const int close = stream.lastIndexOf('\x88');
    QVERIFY2(close > 0 && stream.size() >= close + 4, "no close frame");
    QCOMPARE(qFromBigEndian<quint16>(stream.constData() + close + 2), quint16(1008));
    QTRY_COMPARE(server->clientCount(), 2);

    // The newest client has left: replies go nowhere, though the older ones are still connected.
    const int got = firstGot.size() + secondGot.size();
    server->sendMessage(QStringLiteral("nobody"));
    QTest::qWait(200);
    QCOMPARE(firstGot.size() + secondGot.size(), got);
    QCOMPARE(first->state(), QAbstractSocket::ConnectedState);

    server.reset();
    QVERIFY(!programSettings("pluginserver").contains(QStringLiteral("server/port")));
    QVERIFY(!programSettings("pluginserver").contains(QStringLiteral("server/address")));
}

void TestWebSocketServer::handshakePolicy_data()
{
    QTest::addColumn<QList<QByteArray>>("headers");
    QTest::addColumn<QByteArray>("host");   // "%" stands for the port
    QTest::addColumn<QByteArray>("status"); // empty: dropped without an answer

    QTest::newRow("no origin") << QList<QByteArray>{} << QByteArray("127.0.0.1:%") << QByteArray("101");
    QTest::newRow("localhost host") << QList<QByteArray>{} << QByteArray("localhost:%") << QByteArray("101");
    QTest::newRow("local page") << QList<QByteArray>{"Origin: http://127.0.0.1:8"} << QByteArray("127.0.0.1:%") << QByteArray("101");
    QTest::newRow("foreign page") << QList<QByteArray>{"Origin: https://example.com"} << QByteArray("127.0.0.1:%") << QByteArray("403");
    QTest::newRow("lookalike prefix") << QList<QByteArray>{"Origin: http://localhost.evil.example"} << QByteArray("127.0.0.1:%") << QByteArray("403");
    QTest::newRow("lookalike suffix") << QList<QByteArray>{"Origin: http://evil.example/http://localhost"} << QByteArray("127.0.0.1:%") << QByteArray("403");
    QTest::newRow("other scheme") << QList<QByteArray>{"Origin: ftp://localhost"} << QByteArray("127.0.0.1:%") << QByteArray("403");
    QTest::newRow("file with a host") << QList<QByteArray>{"Origin: file://evil.example"} << QByteArray("127.0.0.1:%") << QByteArray("403");
    QTest::newRow("HTML deck plug-in") << QList<QByteArray>{"Origin: file://"} << QByteArray("127.0.0.1:%") << QByteArray("101");
    QTest::newRow("IPv6 page") << QList<QByteArray>{"Origin: http://[::1]:3000"} << QByteArray("[::1]:%") << QByteArray("101");
    QTest::newRow("host in capitals") << QList<QByteArray>{"Origin: HTTP://LOCALHOST"} << QByteArray("LOCALHOST:%") << QByteArray("101");
    QTest::newRow("two origins") << QList<QByteArray>{"Origin: http://localhost", "Origin: https://example.com"}
                                 << QByteArray("127.0.0.1:%") << QByteArray("403");
    QTest::newRow("rebinding host") << QList<QByteArray>{} << QByteArray("evil.example:%") << QByteArray("403");
    QTest::newRow("host on another port") << QList<QByteArray>{} << QByteArray("127.0.0.1:1") << QByteArray("403");
    QTest::newRow("head beyond the limit") << QList<QByteArray>{"X-Filler: " + QByteArray(WebSocketServer::kMaxHandshakeBytes * 2, 'a')}
                                           << QByteArray("127.0.0.1:%") << QByteArray();
}

void TestWebSocketServer::handshakePolicy()
{
    QFETCH(QList<QByteArray>, headers);
    QFETCH(QByteArray, host);
    QFETCH(QByteArray, status);

    WebSocketServer server;
    host.replace('%', QByteArray::number(server.port()));
    if (status == "403")
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("handshake refused")));
    const QByteArray answer = handshakeAnswer(server.port(), headers, host);
    QVERIFY2(status.isEmpty() ? answer.isEmpty() : answer.startsWith("HTTP/1.1 " + status), answer.constData());
    if (status == "403") {
        // A whole answer: no more body than it announces, so the page is not left waiting.
        const QRegularExpression length(QStringLiteral("\r\nContent-Length: *(\\d+)\r\n"));
        QCOMPARE(answer.size() - answer.indexOf("\r\n\r\n") - 4, length.match(QString::fromLatin1(answer)).captured(1).toInt());
    }
    QTRY_COMPARE(server.clientCount(), status == "101" ? 1 : 0);
    // The server goes on serving after any of them.
    QCOMPARE(openClient(server.port())->state(), QAbstractSocket::ConnectedState);
}

QTEST_GUILESS_MAIN(TestWebSocketServer)
#include "tst_websocketserver.moc"
