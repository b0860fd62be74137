#include "downloadfile.h"
#include "fakeupdateserver.h"
#include "processutil.h"
#include "testcerts.h"
#include "testhome.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTest>

class TestDownloadFile : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        QVERIFY(m_server.listen());
        // Big enough to arrive in several reads and progress steps.
        for (int i = 0; m_body.size() < 200 * 1024; ++i)
            m_body += "installer block " + QByteArray::number(i) + '\n';
        m_server.setFile(QStringLiteral("setup.run"), m_body);
        m_dir = m_home.path() + QStringLiteral("/downloads/software");

        // HTTPS on 127.0.0.1 and 127.0.0.2 with a certificate for 127.0.0.1 and localhost only, signed by
        // a test root that the download trusts through its test override.
        const QString pki = m_home.path() + QStringLiteral("/pki");
        QVERIFY(TestCerts::makeRoot(pki));
        QVERIFY(TestCerts::makeServer(pki, "server", pki, "127.0.0.1", {"IP:127.0.0.1", "DNS:localhost"}));
        qputenv("BRIVON_UPDATE_CA_FILE", (pki + QStringLiteral("/ca.pem")).toUtf8());
        for (FakeUpdateServer *server : {&m_https, &m_otherHost}) {
            QVERIFY(server->setTls(pki + "/server.pem", pki + "/server.key"));
            server->setFile(QStringLiteral("setup.run"), m_body);
            server->setSlowPace(16 * 1024, 5);
        }
        QVERIFY(m_https.listen());
        QVERIFY(m_otherHost.listen(0, QHostAddress(QStringLiteral("127.0.0.2"))));
        for (const char *name : {"安装 程序.run", "..\\..\\config\\lightconfig.json", "../../evil.run", "setup\n.run", ".profile",
                                 "setup.run:stream", "CON.exe", "setup\u202Egpj.run"})
            m_https.setFile(QString::fromUtf8(name), m_body);
    }

    void overHttps_data();
    void overHttps();

    // Refused at the start: a folder that can never be made (below a regular file, even for root),
    // then a second download while one runs.
    void refusedAtTheStart()
    {
        const QString dir = m_home.path() + QStringLiteral("/blocker/sub");
        QVERIFY(writeFile(m_home.path() + QStringLiteral("/blocker"), "a file, not a folder"));
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression(u'^' + QRegularExpression::escape("Unable to save the file " + dir + "/setup.run: ")));
        const int requestsBefore = m_server.requests().size();
        DownloadFile download;
        QSignalSpy finished(&download, &DownloadFile::downloadFinished);
        QVERIFY(!download.startDownload(m_server.url("/files/setup.run"), dir));
        QTest::qWait(100);
        QCOMPARE(finished.size(), 0);
        QCOMPARE(int(download.lastFailure()), int(DownloadFile::Failure::File));
        QCOMPARE(m_server.requests().size(), requestsBefore);

        m_server.setSlowPace(4096, 20);
        QVERIFY(download.startDownload(m_server.url("/slow/setup.run"), m_dir));
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression(QStringLiteral("^\\[DownloadFile::startDownload\\]: busy")));
        QVERIFY(!download.startDownload(m_server.url("/files/setup.run"), m_dir));
        QVERIFY(waitUntil([&] { return QFileInfo(m_dir + QStringLiteral("/setup.run")).size() > 0; }, 10000));
        download.cancelDownload();
    }

private:
    TestHome m_home;
    FakeUpdateServer m_server;
    FakeUpdateServer m_https;
    FakeUpdateServer m_otherHost;
    QByteArray m_body;
    QString m_dir;
};

void TestDownloadFile::overHttps_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<qint64>("size");
    QTest::addColumn<QString>("md5");
    QTest::addColumn<QString>("name"); // the name the file is saved under
    QTest::addColumn<int>("failure");

    const qint64 size = m_body.size();
    const QString md5 = QCryptographicHash::hash(m_body, QCryptographicHash::Md5).toHex();
    const QString https = m_https.baseUrl();
    const QString localhost = QStringLiteral("https://localhost:%1").arg(QUrl(https).port());
    const auto row = [&](const char *name, const QString &path, qint64 expectedSize, const QString &expectedMd5,
                         const QString &savedAs, DownloadFile::Failure failure) {
        QTest::newRow(name) << https + path << expectedSize << expectedMd5 << savedAs << int(failure);
    };
    using F = DownloadFile::Failure;
    const QString setup = QStringLiteral("setup.run");
    const QString fallback = QStringLiteral("BeamcrafterSetup.run");
    row("checked", "/files/setup.run", size, md5.toUpper(), setup, F::None);
    row("five redirects", "/redirect/5/setup.run", size, md5, setup, F::None);
    row("six redirects", "/redirect/6/setup.run", size, md5, setup, F::Refused);
    row("redirect to another host", "/moved?to=" + localhost + "/files/setup.run", size, md5, "moved", F::None);
    row("redirect to a host the certificate does not name", "/moved?to=" + m_otherHost.url("/files/setup.run"), size,
        md5, "moved", F::Network);
    row("downgrade redirect to http", "/moved?to=" + m_server.url("/files/setup.run"), size, md5, "moved", F::Refused);
    row("chunked, no length", "/chunked/setup.run", size, md5, setup, F::None);
    row("no size or md5 offered", "/unsized/setup.run", 0, "", setup, F::None);
    row("wrong md5", "/files/setup.run", size, QString(32, u'0'), setup, F::Mismatch);
    row("longer than offered", "/chunked/setup.run", size - 1, md5, setup, F::Mismatch);
    row("shorter than offered", "/files/setup.run", size + 1, md5, setup, F::Mismatch);
    row("encoded name", "/files/%E5%AE%89%E8%A3%85%20%E7%A8%8B%E5%BA%8F.run", size, md5, "安装 程序.run", F::None);
    row("windows separators", "/files/..%5C..%5Cconfig%5Clightconfig.json", size, md5, fallback, F::None);
    row("encoded slashes", "/files/..%2F..%2Fevil.run", size, md5, "evil.run", F::None);
    row("control character", "/files/setup%0A.run", size, md5, fallback, F::None);
    row("leading dot", "/files/.profile", size, md5, fallback, F::None);
    row("stream name", "/files/setup.run%3Astream", size, md5, fallback, F::None);
    row("device name", "/files/CON.exe", size, md5, fallback, F::None);
    row("right-to-left override", "/files/setup%E2%80%AEgpj.run", size, md5, fallback, F::None);
    row("empty name", "/redirect/1/setup.run/", size, md5, fallback, F::None);
    row("not found after a redirect", "/redirect/1/missing.run", size, md5, "missing.run", F::Network);
    // Refused before anything is sent or written: the older file stays.
    QTest::newRow("ftp") << "ftp://127.0.0.1/setup.run" << size << md5 << setup << int(F::Refused);
    QTest::newRow("file, no host") << "file:///etc/passwd" << size << md5 << "passwd" << int(F::Refused);
}

void TestDownloadFile::overHttps()
{
    QFETCH(QString, url);
    QFETCH(qint64, size);
    QFETCH(QString, md5);
    QFETCH(QString, name);
    QFETCH(int, failure);
    const bool ok = failure == int(DownloadFile::Failure::None);
    const bool starts = url.startsWith(QLatin1String("https:"));

    const QString root = m_home.path() + QStringLiteral("/hostile");
    const QString dir = root + QStringLiteral("/a/b/download");
    QDir(root).removeRecursively();
    // An older, longer file of the same name is replaced; a file outside the folder is never touched.
    QVERIFY(writeFile(dir + QLatin1Char('/') + name, QByteArray(400 * 1024, 'x')));
    QVERIFY(writeFile(root + QStringLiteral("/a/config/lightconfig.json"), "{}"));

    if (failure == int(DownloadFile::Failure::Network))
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression(QStringLiteral("^Download failed: .+\\.\\[")
                                                            + QRegularExpression::escape(dir + QLatin1Char('/') + name) + "\\]$"));
    DownloadFile download;
    QSignalSpy finished(&download, &DownloadFile::downloadFinished);
    QCOMPARE(download.startDownload(url, dir, size, md5), starts);
    QCOMPARE(waitUntil([&] { return !finished.isEmpty(); }, starts ? 30000 : 100), starts);
    QCOMPARE(int(download.lastFailure()), failure);
    if (starts)
        QCOMPARE(finished, (QList<QVariantList>{{ok ? dir + QLatin1Char('/') + name : QString(), ok}}));

    QStringList files;
    for (QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories); it.hasNext();)
        files << it.next().mid(root.size() + 1);
    files.sort();
    QStringList expected{QStringLiteral("a/config/lightconfig.json")};
    if (ok || !starts)
        expected.prepend(QStringLiteral("a/b/download/") + name);
    QCOMPARE(files, expected);
    QCOMPARE(readFile(root + QStringLiteral("/a/config/lightconfig.json")), QByteArray("{}"));
    if (ok || !starts)
        QCOMPARE(readFile(dir + QLatin1Char('/') + name), ok ? m_body : QByteArray(400 * 1024, 'x'));
}

QTEST_GUILESS_MAIN(TestDownloadFile)
#include "tst_downloadfile.moc"
