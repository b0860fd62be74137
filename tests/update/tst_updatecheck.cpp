#include "fakeupdateserver.h"
#include "processutil.h"
#include "testcerts.h"
#include "testhome.h"
#include "updatecheck.h"

#include <QSignalSpy>
#include <QTest>

namespace {

const QString kNoResponse = QStringLiteral("更新检查请求未响应");
const QString kEmpty = QStringLiteral("返回的更新数据为空");
const QString kIncomplete = QStringLiteral("返回的更新数据不完整");
const QString kUpToDate = QStringLiteral("已是最新版本，不需要更新");

} // namespace

class TestUpdateCheck : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        // The language is probed once per process; this fixes it before anything asks.
        qputenv("LC_ALL", "ja_JP.UTF-8");
        QVERIFY(m_server.listen());
        // Plain HTTP to the loopback host by its name, below a path of the server's.
        m_plainBase = QStringLiteral("http://localhost:%1/api/v2/").arg(QUrl(m_server.baseUrl()).port());
        qputenv("BRIVON_UPDATE_URL", m_plainBase.toUtf8());
    }

    void replies_data();
    void replies()
    {
        QFETCH(QByteArray, body);
        QFETCH(int, status);
        QFETCH(QString, signal);
        QFETCH(QString, text);
        QFETCH(QString, log);

        m_server.setCheckReply(body, status);
        if (!log.isEmpty())
            QTest::ignoreMessage(QtDebugMsg, QRegularExpression(QRegularExpression::escape(log)));

        UpdateCheck check;
        QSignalSpy reply(&check, &UpdateCheck::replyMessage);
        QSignalSpy version(&check, &UpdateCheck::versionMessage);
        QSignalSpy error(&check, &UpdateCheck::errorMessage);
        runCheck(check, reply, version, error);
        if (QTest::currentTestFailed())
            return;

        QSignalSpy *expected = signal == QLatin1String("reply") ? &reply
                             : signal == QLatin1String("version") ? &version
                                                                    : &error;
        QCOMPARE(expected->size(), 1);
        if (!text.isEmpty())
            QCOMPARE(expected->first().first().toString(), text);
        // Each request carries the system language.
        QCOMPARE(m_server.requests().last(),
                 QStringLiteral("/api/v2/beamcrafter/checkVersion?os=Linux&ver=1.0.30&lang=ja-JP"));
    }

    // Over HTTPS with the usual verification; plain HTTP only to a loopback host.
    void transport_data()
    {
        QTest::addColumn<QString>("base");
        QTest::addColumn<bool>("trustRoot");
        QTest::addColumn<bool>("movedToHttp");
        QTest::addColumn<int>("requests"); // reaching the HTTPS server; answered when 1 and not moved

        const QString pki = m_home.path() + QStringLiteral("/pki");
        if (!m_https.isListening()) {
            QVERIFY(TestCerts::makeRoot(pki));
            QVERIFY(TestCerts::makeServer(pki, "server", pki, "127.0.0.1", {"IP:127.0.0.1", "DNS:localhost"}));
            QVERIFY(m_https.setTls(pki + "/server.pem", pki + "/server.key") && m_https.listen());
        }
        const QString https = m_https.baseUrl();
        QTest::newRow("https, trusted root") << https << true << false << 1;
        QTest::newRow("https, root not trusted") << https << false << false << 0;
        QTest::newRow("plain http to another host") << "http://update.example.com" << true << false << 0;
        QTest::newRow("redirected from https to http") << https << true << true << 1;
    }
    void transport()
    {
        QFETCH(QString, base);
        QFETCH(bool, trustRoot);
        QFETCH(bool, movedToHttp);
        QFETCH(int, requests);
        if (trustRoot)
            qputenv("BRIVON_UPDATE_CA_FILE", (m_home.path() + QStringLiteral("/pki/ca.pem")).toUtf8());
        else
            qunsetenv("BRIVON_UPDATE_CA_FILE");
        qputenv("BRIVON_UPDATE_URL", base.toUtf8());
        m_https.setCheckReply(FakeUpdateServer::upToDateReply());
        m_https.setMovedTo(movedToHttp ? m_server.baseUrl() : QString());
        const int plainBefore = m_server.requests().size();
        const int httpsBefore = m_https.requests().size();

        UpdateCheck check;
        QSignalSpy reply(&check, &UpdateCheck::replyMessage);
        QSignalSpy version(&check, &UpdateCheck::versionMessage);
        QSignalSpy error(&check, &UpdateCheck::errorMessage);
        runCheck(check, reply, version, error);
        qputenv("BRIVON_UPDATE_URL", m_plainBase.toUtf8());
        const bool answered = requests == 1 && !movedToHttp;
        QCOMPARE(reply.size(), answered ? 1 : 0);
        QCOMPARE(error.size(), answered ? 0 : 1);
        QCOMPARE(m_https.requests().size() - httpsBefore, requests);
        QCOMPARE(m_server.requests().size(), plainBefore);
    }

    void offerCarriesTheRelease_data();
    void offerCarriesTheRelease();
private:
    // Runs one check and returns the spies' counts; fails the test if not exactly one signal came.
    void runCheck(UpdateCheck &check, QSignalSpy &reply, QSignalSpy &version, QSignalSpy &error)
    {
        check.checkVersion();
        const auto total = [&] { return reply.size() + version.size() + error.size(); };
        QVERIFY(waitUntil([&] { return total() > 0; }, 10000));
        // A second signal for the same reply would arrive in the same turn of the loop or the next.
        QTest::qWait(50);
        QCOMPARE(total(), 1);
    }

    TestHome m_home;
    FakeUpdateServer m_server;
    FakeUpdateServer m_https;
    QString m_plainBase;
};

// Defined outside the class: moc cannot skip bodies that hold raw string literals.
void TestUpdateCheck::replies_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("signal");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("log");

    const QByteArray ok = R"("succ": true, "code": 200, "message": "ok")";
    auto reply = [](const QByteArray &fields) { return "{" + fields + "}"; };

    QTest::newRow("up to date") << reply(ok + R"(, "data": {"needUpdate": false})") << 200 << "reply" << kUpToDate << "";
    QTest::newRow("update offered") << reply(ok + R"(, "data": {"needUpdate": true})") << 200 << "version" << "" << "";
    QTest::newRow("http 500 with a valid body") << reply(ok + R"(, "data": {"needUpdate": false})") << 500 << "error"
                                                << kNoResponse << "reply error:";
    QTest::newRow("not json") << QByteArray("<html>maintenance</html>") << 200 << "error" << kEmpty << "missing data 3:";
    // Replies the check refuses as incomplete, with the level of the missing part.
    const auto incomplete = [](const char *name, const QByteArray &body, int level) {
        QTest::newRow(name) << body << 200 << "error" << kIncomplete + QStringLiteral("[%1]").arg(level)
                            << QStringLiteral("missing data %1:").arg(level);
    };
    const QByteArray data = R"(, "data": {"needUpdate": false})";
    incomplete("empty message", reply(R"("succ": true, "code": 200, "message": "")" + data), 2);
    incomplete("needUpdate missing", reply(ok + R"(, "data": {"version": "1.1.0"})"), 1);
}

void TestUpdateCheck::offerCarriesTheRelease_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<qint64>("size");
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("versionInfo");
    QTest::addColumn<QString>("downloadUrl");
    QTest::addColumn<QString>("md5");

    QTest::newRow("complete") << QByteArray(R"({"needUpdate": true, "version": "1.1.0", "versionInfo": "修复\nfixes",
        "downloadUrl": "http://dl.example/setup.exe", "size": 52428800, "md5": "abc123"})")
                              << 52428800LL << "1.1.0" << "修复\nfixes" << "http://dl.example/setup.exe" << "abc123";
    QTest::newRow("size of several gigabytes") << QByteArray(R"({"needUpdate": true, "version": "2.0", "size": 9999999999})")
                                               << 9999999999LL << "2.0" << "" << "" << "";
    QTest::newRow("negative size") << QByteArray(R"({"needUpdate": true, "version": "2.0", "size": -5})")
                                   << 0LL << "2.0" << "" << "" << "";
}

void TestUpdateCheck::offerCarriesTheRelease()
{
    // Carried by the offer signal (the "update offered" reply above); here what the reply holds.
    QFETCH(QByteArray, data);
    const UpdateReply parsed = UpdateCheck::parseReply(R"({"succ": true, "code": 200, "message": "ok", "data": )" + data + "}");
    QCOMPARE(parsed.kind, UpdateReply::Offer);
    const VersionData &offer = parsed.version;
    QTEST(offer.size, "size");
    QTEST(offer.version, "version");
    QTEST(offer.versionInfo, "versionInfo");
    QTEST(offer.downloadUrl, "downloadUrl");
    QTEST(offer.md5, "md5");
}

QTEST_GUILESS_MAIN(TestUpdateCheck)
#include "tst_updatecheck.moc"
