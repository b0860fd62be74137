#include "downloadfile.h"
#include "fakeupdateserver.h"
#include "processutil.h"
#include "testhome.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTest>

namespace {

// Big enough to arrive in several reads and progress steps.
QByteArray installerBody()
{
    QByteArray body;
    for (int i = 0; body.size() < 200 * 1024; ++i)
        body += "installer block " + QByteArray::number(i) + '\n';
    return body;
}

} // namespace

class TestDownloadFile : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        QVERIFY(m_server.listen());
        m_body = installerBody();
        m_server.setFile(QStringLiteral("setup.run"), m_body);
        m_server.setFile(QStringLiteral("安装 程序.run"), "small body");
        m_dir = m_home.path() + QStringLiteral("/downloads/software");
    }

    void downloads_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("fileName");
        QTest::addColumn<QByteArray>("existing");

        QTest::newRow("direct") << "/files/setup.run" << "setup.run" << QByteArray();
        QTest::newRow("redirect chain") << "/redirect/4/setup.run" << "setup.run" << QByteArray();
        QTest::newRow("redirect over a longer stale file")
            << "/redirect/2/setup.run" << "setup.run" << QByteArray(400 * 1024, 'x');
        QTest::newRow("encoded file name") << "/files/%E5%AE%89%E8%A3%85%20%E7%A8%8B%E5%BA%8F.run"
                                           << "安装 程序.run" << QByteArray();
    }

    void downloads()
    {
        QFETCH(QString, path);
        QFETCH(QString, fileName);
        QFETCH(QByteArray, existing);

        const QString target = m_dir + QLatin1Char('/') + fileName;
        QFile::remove(target);
        if (!existing.isEmpty())
            QVERIFY(writeFile(target, existing));

        DownloadFile download;
        QSignalSpy progress(&download, &DownloadFile::currentProgress);
        QSignalSpy finished(&download, &DownloadFile::downloadFinished);
        QVERIFY(download.startDownload(m_server.url(path), m_dir));
        QVERIFY(waitUntil([&] { return !finished.isEmpty(); }, 20000));

        QCOMPARE(finished.size(), 1);
        QCOMPARE(finished.first().at(0).toString(), QFileInfo(target).absoluteFilePath());
        QCOMPARE(finished.first().at(1).toBool(), true);
        // Only the final body: neither the redirect pages nor the stale file's tail survive.
        const QByteArray expected = fileName == QLatin1String("setup.run") ? m_body : QByteArray("small body");
        QCOMPARE(readFile(target), expected);

        QCOMPARE(progress.last(), (QVariantList{qlonglong(expected.size()), qlonglong(expected.size()), 1.0}));
    }

    void refused_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("dir");
        QTest::addColumn<QString>("log");

        const QString home = m_home.path();
        QTest::newRow("blank url") << "  \t " << m_dir << "Download failed:   \t  is invalid";
        QTest::newRow("no file name") << m_server.url("/files/") << m_dir << "";
        QTest::newRow("dot dot") << m_server.url("/files/%2E%2E") << m_dir << "";
        // A folder below a regular file can never be created, even by root.
        QTest::newRow("unwritable folder") << m_server.url("/files/setup.run") << home + "/blocker/sub"
                                           << "Unable to save the file " + home + "/blocker/sub/setup.run: ";
    }

    void refused()
    {
        QFETCH(QString, url);
        QFETCH(QString, dir);
        QFETCH(QString, log);

        QVERIFY(writeFile(m_home.path() + QStringLiteral("/blocker"), "a file, not a folder"));
        if (!log.isEmpty())
            QTest::ignoreMessage(QtDebugMsg, QRegularExpression(u'^' + QRegularExpression::escape(log)));

        const int requestsBefore = m_server.requests().size();
        DownloadFile download;
        QSignalSpy finished(&download, &DownloadFile::downloadFinished);
        QVERIFY(!download.startDownload(url, dir));
        QTest::qWait(100);
        QCOMPARE(finished.size(), 0);
        QCOMPARE(m_server.requests().size(), requestsBefore);
    }

    void networkErrors_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("fileName");

        QTest::newRow("connection dropped mid-body") << m_server.url("/broken/setup.run") << "setup.run";
        QTest::newRow("dropped after a redirect") << m_server.url("/redirect/1/missing.run") << "missing.run";
        QTest::newRow("nothing listening") << "http://127.0.0.1:1/setup.run" << "setup.run";
    }

    void networkErrors()
    {
        QFETCH(QString, url);
        QFETCH(QString, fileName);

        const QString target = m_dir + QLatin1Char('/') + fileName;
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression(QStringLiteral("^Download failed: .+\\.\\[")
                                                            + QRegularExpression::escape(target) + "\\]$"));
        DownloadFile download;
        QSignalSpy finished(&download, &DownloadFile::downloadFinished);
        QVERIFY(download.startDownload(url, m_dir));
        QVERIFY(waitUntil([&] { return !finished.isEmpty(); }, 20000));
        QCOMPARE(finished.size(), 1);
        QCOMPARE(finished.first().at(0).toString(), QString());
        QCOMPARE(finished.first().at(1).toBool(), false);
        QVERIFY(!QFile::exists(target));
    }

    void busyThenCancelledMidwayLeavesNothing()
    {
        m_server.setSlowPace(4096, 20);
        const QString target = m_dir + QStringLiteral("/setup.run");
        DownloadFile download;
        QSignalSpy progress(&download, &DownloadFile::currentProgress);
        QSignalSpy finished(&download, &DownloadFile::downloadFinished);
        QVERIFY(download.startDownload(m_server.url("/slow/setup.run"), m_dir));
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression(QStringLiteral("^\\[DownloadFile::startDownload\\]: busy")));
        QVERIFY(!download.startDownload(m_server.url("/files/setup.run"), m_dir));
        QVERIFY(waitUntil([&] { return !progress.isEmpty() && progress.last().at(0).toLongLong() > 0; }, 10000));
        QVERIFY(progress.last().at(0).toLongLong() < m_body.size());
        QVERIFY(QFile::exists(target));

        download.cancelDownload();
        QTest::qWait(300);
        QCOMPARE(finished.size(), 0);
        QVERIFY(!QFile::exists(target));

        // The same object downloads again afterwards.
        QVERIFY(download.startDownload(m_server.url("/files/setup.run"), m_dir));
        QVERIFY(waitUntil([&] { return !finished.isEmpty(); }, 20000));
        QCOMPARE(finished.first().at(1).toBool(), true);
        QCOMPARE(readFile(target), m_body);
    }

private:
    TestHome m_home;
    FakeUpdateServer m_server;
    QByteArray m_body;
    QString m_dir;
};

QTEST_GUILESS_MAIN(TestDownloadFile)
#include "tst_downloadfile.moc"
