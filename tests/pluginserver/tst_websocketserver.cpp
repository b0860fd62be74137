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

    void answersOnIPv6Loopback();
    void repliesGoToTheLatestClientOnly();
    void portIsUnpublishedWhenTheServerEnds();
    void listensOnLoopbackOnly();
    void slowClientIsClosedWhileOthersAreServed();
    void handshakePolicy_data();
    void handshakePolicy();
    void incompleteOrHugeHandshakesAreDropped();

private:
    std::unique_ptr<TestHome> m_home;
};

void TestWebSocketServer::answersOnIPv6Loopback()
{
    // Skipping a busy port and publishing the one taken are proven end to end; here the IPv6 side.
    WebSocketServer server;
    QVERIFY(server.listensOnIPv6());
    QWebSocket v6;
    v6.open(QUrl(QStringLiteral("ws://[::1]:%1").arg(server.port())));
    QTRY_COMPARE_WITH_TIMEOUT(v6.state(), QAbstractSocket::ConnectedState, 5000);
}

void TestWebSocketServer::portIsUnpublishedWhenTheServerEnds()
{
    auto server = std::make_unique<WebSocketServer>();
    QCOMPARE(serverSettings().value(QStringLiteral("server/port")).toInt(), int(server->port()));
    server.reset();
    QVERIFY(!serverSettings().contains(QStringLiteral("server/port")));
    QVERIFY(!serverSettings().contains(QStringLiteral("server/address")));
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

void TestWebSocketServer::slowClientIsClosedWhileOthersAreServed()
{
    WebSocketServer server;
    QSignalSpy received(&server, &WebSocketServer::receiveMessage);
    auto other = openClient(server.port());
    QVERIFY(waitUntil([&] { return server.clientCount() == 1; }, 3000));
    // The slow client is the newest, so replies go to it; it reads next to nothing.
    QTcpSocket slow;
    slow.setReadBufferSize(1024);
    slow.connectToHost(QStringLiteral("127.0.0.1"), server.port());
    QVERIFY(slow.waitForConnected(3000));
    slow.write("GET / HTTP/1.1\r\nHost: 127.0.0.1:" + QByteArray::number(server.port())
               + "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                 "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n");
    QVERIFY(waitUntil([&] { return server.clientCount() == 2; }, 3000));

    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));
    LogCapture log;
    const QString reply(64 * 1024, QLatin1Char('x'));
    for (int i = 0; i < 1000 && !log.contains(QStringLiteral("client too slow, closed")); ++i) {
        server.sendMessage(reply);
        // The older client is heard and answered all along.
        other->sendTextMessage(QStringLiteral("still here"));
        QCoreApplication::processEvents();
    }
    QLoggingCategory::setFilterRules(QString());
    QVERIFY(log.contains(QStringLiteral("client too slow, closed")));
    QSignalSpy answered(other.get(), &QWebSocket::textMessageReceived);
    connect(&server, &WebSocketServer::receiveMessage, &server, [&] { server.replyToSender(QStringLiteral("answer")); });
    other->sendTextMessage(QStringLiteral("after"));
    QVERIFY(answered.wait(3000));
    QVERIFY(received.size() > 1);

    // Read what was left for the slow client: its stream ends with a close frame, code 1008.
    slow.setReadBufferSize(0);
    QByteArray stream;
    QVERIFY(waitUntil([&] {
        stream += slow.readAll();
        return slow.state() == QAbstractSocket::UnconnectedState;
    }, 15000));
    stream += slow.readAll();
    int at = stream.indexOf("\r\n\r\n") + 4;
    QByteArray closeFrame;
    while (at + 2 <= stream.size()) {
        qint64 length = quint8(stream.at(at + 1)) & 0x7F;
        int header = 2;
        if (length == 126) {
            length = (quint8(stream.at(at + 2)) << 8) | quint8(stream.at(at + 3));
            header = 4;
        } else if (length == 127) {
            length = qFromBigEndian<qint64>(stream.constData() + at + 2);
            header = 10;
        }
        if ((quint8(stream.at(at)) & 0x0F) == 0x8)
            closeFrame = stream.mid(at + header, int(length));
        at += header + int(length);
    }
    QVERIFY2(closeFrame.size() >= 2, "no close frame");
    QCOMPARE(qFromBigEndian<quint16>(closeFrame.constData()), quint16(1008));
    QTRY_COMPARE(server.clientCount(), 1);
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
    QTest::newRow("other scheme") << QList<QByteArray>{"Origin: ftp://localhost"} << QByteArray("127.0.0.1:%") << false;
    QTest::newRow("file with a host") << QList<QByteArray>{"Origin: file://evil.example"} << QByteArray("127.0.0.1:%") << false;
    QTest::newRow("HTML deck plug-in") << QList<QByteArray>{"Origin: file://"} << QByteArray("127.0.0.1:%") << true;
    QTest::newRow("IPv6 page") << QList<QByteArray>{"Origin: http://[::1]:3000"} << QByteArray("[::1]:%") << true;
    QTest::newRow("host in capitals") << QList<QByteArray>{"Origin: HTTP://LOCALHOST"} << QByteArray("LOCALHOST:%") << true;
    QTest::newRow("other IPv6 host") << QList<QByteArray>{} << QByteArray("[::2]:%") << false;
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
