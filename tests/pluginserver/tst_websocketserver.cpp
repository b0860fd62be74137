#include "testhome.h"
#include "processutil.h"
#include "websocketserver.h"

#include <QSettings>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>
#include <QWebSocket>

#include <memory>

namespace {

QSettings serverSettings()
{
    return QSettings(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("brivon"),
                     QStringLiteral("com.brivon.beamcrafter.pluginserver"));
}

// Sends a raw upgrade request and returns the status line of the answer.
QByteArray handshakeStatus(quint16 port, const QList<QByteArray> &extraHeaders, const QByteArray &host)
{
    QTcpSocket socket;
    socket.connectToHost(QStringLiteral("127.0.0.1"), port);
    if (!socket.waitForConnected(3000))
        return "no connection";
    QByteArray request = "GET / HTTP/1.1\r\nHost: " + host
        + "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
          "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n";
    for (const QByteArray &header : extraHeaders)
        request += header + "\r\n";
    socket.write(request + "\r\n");
    QByteArray answer;
    waitUntil([&] {
        answer += socket.readAll();
        return answer.contains("\r\n") || socket.state() == QAbstractSocket::UnconnectedState;
    }, 5000);
    return answer.left(answer.indexOf("\r\n"));
}

std::unique_ptr<QWebSocket> openClient(quint16 port)
{
    auto client = std::make_unique<QWebSocket>();
    client->open(QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(port)));
    waitUntil([&] { return client->state() == QAbstractSocket::ConnectedState; }, 5000);
    return client;
}

} // namespace

class TestWebSocketServer : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_home = std::make_unique<TestHome>(); }
    void cleanup() { m_home.reset(); }

    void busyPortIsSkippedAndPublished();
    void repliesGoToTheLatestClientOnly();
    void listensOnLoopbackOnly();
    void handshakePolicy_data();
    void handshakePolicy();
    void incompleteOrHugeHandshakesAreDropped();

private:
    std::unique_ptr<TestHome> m_home;
};

void TestWebSocketServer::busyPortIsSkippedAndPublished()
{
    QTcpServer squatter;
    quint16 taken = WebSocketServer::kFirstPort;
    while (!squatter.listen(QHostAddress(QStringLiteral("127.0.0.1")), taken))
        ++taken;

    WebSocketServer server;
    QVERIFY(server.port() > taken);
    QSettings settings = serverSettings();
    QCOMPARE(settings.value(QStringLiteral("server/address")).toString(), QStringLiteral("127.0.0.1"));
    QCOMPARE(settings.value(QStringLiteral("server/port")).toInt(), int(server.port()));

    // A client finds the server through the published port.
    auto client = openClient(quint16(settings.value(QStringLiteral("server/port")).toInt()));
    QCOMPARE(client->state(), QAbstractSocket::ConnectedState);
}

void TestWebSocketServer::repliesGoToTheLatestClientOnly()
{
    WebSocketServer server;
    QSignalSpy received(&server, &WebSocketServer::receiveMessage);
    auto first = openClient(server.port());
    QVERIFY(waitUntil([&] { return server.clientCount() == 1; }, 3000));
    auto second = openClient(server.port());
    QVERIFY(waitUntil([&] { return server.clientCount() == 2; }, 3000));

    QSignalSpy firstGot(first.get(), &QWebSocket::textMessageReceived);
    QSignalSpy secondGot(second.get(), &QWebSocket::textMessageReceived);
    server.sendMessage(QStringLiteral("reply"));
    QVERIFY(secondGot.wait(3000));
    QCOMPARE(secondGot.at(0).at(0).toString(), QStringLiteral("reply"));

    // The older client is still heard.
    first->sendTextMessage(QStringLiteral("from first"));
    QVERIFY(received.wait(3000));
    QCOMPARE(received.last().at(0).toString(), QStringLiteral("from first"));

    // When the newest leaves, replies go nowhere, even though the first is still connected.
    second->close();
    QVERIFY(waitUntil([&] { return server.clientCount() == 1; }, 3000));
    server.sendMessage(QStringLiteral("nobody"));
    QTest::qWait(200);
    QCOMPARE(firstGot.size(), 0);
    QCOMPARE(first->state(), QAbstractSocket::ConnectedState);
}

void TestWebSocketServer::listensOnLoopbackOnly()
{
    WebSocketServer server;
    QTcpSocket other;
    other.connectToHost(QStringLiteral("127.0.0.2"), server.port());
    QVERIFY(!other.waitForConnected(1000));
}

void TestWebSocketServer::handshakePolicy_data()
{
    QTest::addColumn<QList<QByteArray>>("headers");
    QTest::addColumn<QByteArray>("host");      // "%" stands for the port
    QTest::addColumn<bool>("accepted");

    QTest::newRow("no origin") << QList<QByteArray>{} << QByteArray("127.0.0.1:%") << true;
    QTest::newRow("localhost host") << QList<QByteArray>{} << QByteArray("localhost:%") << true;
    QTest::newRow("local page") << QList<QByteArray>{"Origin: http://localhost:3000"} << QByteArray("127.0.0.1:%") << true;
    QTest::newRow("foreign page") << QList<QByteArray>{"Origin: https://example.com"} << QByteArray("127.0.0.1:%") << false;
    QTest::newRow("null origin") << QList<QByteArray>{"Origin: null"} << QByteArray("127.0.0.1:%") << false;
    QTest::newRow("lookalike prefix") << QList<QByteArray>{"Origin: http://localhost.evil.example"} << QByteArray("127.0.0.1:%") << false;
    QTest::newRow("lookalike suffix") << QList<QByteArray>{"Origin: http://evil.example/http://localhost"} << QByteArray("127.0.0.1:%") << false;
    QTest::newRow("path after origin") << QList<QByteArray>{"Origin: http://localhost:8000/"} << QByteArray("127.0.0.1:%") << false;
    QTest::newRow("two origins") << QList<QByteArray>{"Origin: http://localhost", "Origin: https://example.com"}
                                 << QByteArray("127.0.0.1:%") << false;
    QTest::newRow("rebinding host") << QList<QByteArray>{} << QByteArray("evil.example:8000") << false;
    QTest::newRow("host on another port") << QList<QByteArray>{} << QByteArray("127.0.0.1:1") << false;
}

void TestWebSocketServer::handshakePolicy()
{
    QFETCH(QList<QByteArray>, headers);
    QFETCH(QByteArray, host);
    QFETCH(bool, accepted);

    WebSocketServer server;
    QSignalSpy received(&server, &WebSocketServer::receiveMessage);
    host.replace('%', QByteArray::number(server.port()));
    if (!accepted)
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("handshake refused")));
    const QByteArray status = handshakeStatus(server.port(), headers, host);
    QCOMPARE(status.startsWith("HTTP/1.1 101"), accepted);
    if (!accepted)
        QVERIFY2(status.startsWith("HTTP/1.1 403"), status.constData());
    QTRY_COMPARE(server.clientCount(), accepted ? 1 : 0);
}

void TestWebSocketServer::incompleteOrHugeHandshakesAreDropped()
{
    WebSocketServer server;
    QTcpSocket huge;
    huge.connectToHost(QStringLiteral("127.0.0.1"), server.port());
    QVERIFY(huge.waitForConnected(3000));
    huge.write("GET / HTTP/1.1\r\nX-Filler: " + QByteArray(WebSocketServer::kMaxHandshakeBytes * 2, 'a'));
    QVERIFY(waitUntil([&] { return huge.state() == QAbstractSocket::UnconnectedState; }, 5000));

    // The server keeps serving after it.
    auto client = openClient(server.port());
    QCOMPARE(client->state(), QAbstractSocket::ConnectedState);
    QCOMPARE(server.clientCount(), 1);
}

QTEST_GUILESS_MAIN(TestWebSocketServer)
#include "tst_websocketserver.moc"
