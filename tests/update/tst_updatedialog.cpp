#include "appdatapaths.h"
#include "fakeupdateserver.h"
#include "processutil.h"
#include "testcerts.h"
#include "testhome.h"
#include "updatedialog.h"

#include <QCryptographicHash>
#include <QFile>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QTextEdit>

#include <memory>

namespace {

const QString kNotes = QStringLiteral("1. 新增色温预设\n2. <b>Fixes</b> <img src=\"x\"><a href=\"https://x\">more</a>");

} // namespace

class TestUpdateDialog : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        // Everything here goes over HTTPS, trusted through a test root.
        const QString pki = m_home.path() + QStringLiteral("/pki");
        QVERIFY(TestCerts::makeRoot(pki));
        QVERIFY(TestCerts::makeServer(pki, "server", pki, "127.0.0.1", {"IP:127.0.0.1"}));
        qputenv("BRIVON_UPDATE_CA_FILE", (pki + QStringLiteral("/ca.pem")).toUtf8());
        QVERIFY(m_server.setTls(pki + "/server.pem", pki + "/server.key"));
        QVERIFY(m_server.listen());
        qputenv("BRIVON_UPDATE_URL", m_server.baseUrl().toUtf8());
        m_body = "#!/bin/sh\necho \"$0\" > \"$HOME/installer-ran\"\n";
        for (int i = 0; m_body.size() < 128 * 1024; ++i)
            m_body += "# part " + QByteArray::number(i) + '\n';
        m_server.setFile(QStringLiteral("BeamcrafterSetup.run"), m_body);
    }

    void init()
    {
        m_started.clear();
        m_dialog = std::make_unique<UpdateDialog>();
        m_dialog->setInstallerLauncher([this](const QString &path) {
            m_started << path;
            return true;
        });
        QFile::remove(downloadFolderPath() + QStringLiteral("BeamcrafterSetup.run"));
    }

    // An offer without a URL installs nothing, and skip only closes: nothing is remembered. An offer on
    // screen stays when another comes; its download fails, and each press of install tries it again.
    void offerStaysWhileOpenAndFailuresRetry()
    {
        const int requestsBefore = m_server.requests().size();
        auto *tip = child<QLabel>("label_tip");
        m_dialog->onVersionMessage(offer(QString()));
        QTest::mouseClick(child<QPushButton>("pushButton_update"), Qt::LeftButton);
        QTest::qWait(100);
        QVERIFY(tip->isHidden());
        QTest::mouseClick(child<QPushButton>("pushButton_skip"), Qt::LeftButton);
        QVERIFY(!m_dialog->isVisible());

        m_dialog->onVersionMessage(offer(QStringLiteral("/broken/BeamcrafterSetup.run")));
        m_dialog->onVersionMessage(offer(QStringLiteral("/files/other.run"), QStringLiteral("other"), QStringLiteral("9.9.9")));
        QVERIFY(m_dialog->isVisible());
        QCOMPARE(child<QLabel>("label_desc")->text(),
                 QStringLiteral("Brivon Lumen 1.1.0现在可用 -- 您的当前版本是 1.0.30 . 是否要立即安装？"));
        // Markup from the server is shown as it is.
        QCOMPARE(child<QTextEdit>("textEdit")->toPlainText(), kNotes);
        QVERIFY(choicesShown());

        for (int attempt = 1; attempt <= 2; ++attempt) {
            QTest::mouseClick(child<QPushButton>("pushButton_update"), Qt::LeftButton);
            QVERIFY(waitUntil([&] { return !tip->isHidden(); }, 20000));
            QCOMPARE(tip->text(), QStringLiteral("下载失败,可能是新版本地址异常!"));
            QVERIFY(choicesShown());
            QVERIFY(m_dialog->isVisible());
        }
        QCOMPARE(m_server.requests().mid(requestsBefore), QStringList(2, QStringLiteral("/broken/BeamcrafterSetup.run")));
        QVERIFY(m_started.isEmpty());
    }

    // The whole way: the check offers the release over HTTPS, the download shows its progress and
    // is checked against the offer, and the installer really starts. A first attempt is cancelled
    // midway: nothing is left or started, and the next check offers the release again.
    void installDownloadsChecksAndStarts_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("escape"); // how the first attempt is cancelled
        QTest::newRow("known length, cancel button") << "/slow/BeamcrafterSetup.run" << false;
        QTest::newRow("unknown length, escape key") << "/chunked/BeamcrafterSetup.run" << true;
    }
    void installDownloadsChecksAndStarts()
    {
        QFETCH(QString, path);
        QFETCH(bool, escape);
        const QString ran = m_home.path() + QStringLiteral("/installer-ran");
        const QString installer = downloadFolderPath() + QStringLiteral("BeamcrafterSetup.run");
        QFile::remove(ran);
        m_server.setSlowPace(4096, 10);
        m_server.setCheckReply(FakeUpdateServer::offerReply("1.1.0", kNotes, m_server.url(path), m_body.size(),
                                                            QCryptographicHash::hash(m_body, QCryptographicHash::Md5).toHex()));
        m_dialog->setInstallerLauncher({});
        auto *progressBar = child<QProgressBar>("progressBar");
        QList<int> values;
        connect(progressBar, &QProgressBar::valueChanged, this, [&values](int value) { values << value; });

        UpdateCheck check;
        connect(&check, &UpdateCheck::versionMessage, m_dialog.get(), &UpdateDialog::onVersionMessage);
        for (const bool cancel : {true, false}) {
            values.clear();
            check.checkVersion();
            QVERIFY(waitUntil([&] { return m_dialog->isVisible(); }, 10000));
            QTest::mouseClick(child<QPushButton>("pushButton_update"), Qt::LeftButton);
            QVERIFY(child<QWidget>("widget_3")->isHidden());
            QVERIFY(!child<QWidget>("pushButton_cancel")->isHidden());
            if (path.contains(QLatin1String("chunked")))
                QVERIFY(waitUntil([&] { return progressBar->maximum() == 0; }, 10000));
            else
                QVERIFY(waitUntil([&] { return !values.isEmpty() && values.last() > 0 && values.last() < 100; }, 10000));
            if (!cancel)
                break;
            if (escape)
                QTest::keyClick(m_dialog.get(), Qt::Key_Escape);
            else
                QTest::mouseClick(child<QPushButton>("pushButton_cancel"), Qt::LeftButton);
            QVERIFY(!m_dialog->isVisible());
            QVERIFY(choicesShown());
            QTest::qWait(200);
            QVERIFY(!QFile::exists(installer));
            QVERIFY(!QFile::exists(ran));
            QVERIFY(child<QLabel>("label_tip")->isHidden());
        }

        QVERIFY(waitUntil([&] { return QFile::exists(ran); }, 20000));
        QCOMPARE(readFile(ran).trimmed(), installer.toUtf8());
        QCOMPARE(readFile(installer), m_body);
        // 0700: the owner alone.
        QCOMPARE(QFile::permissions(installer) & 0x0777, QFileDevice::ReadUser | QFileDevice::WriteUser | QFileDevice::ExeUser);
        QCOMPARE(values.last(), 100);
        QVERIFY(!m_dialog->isVisible());
        QVERIFY(choicesShown());
    }

    void progress_data()
    {
        QTest::addColumn<qlonglong>("bytesRead");
        QTest::addColumn<qlonglong>("totalBytes");
        QTest::addColumn<int>("maximum"); // 0: busy
        QTest::addColumn<int>("value");
        QTest::newRow("last byte of 5 GB") << 4999999999LL << 5000000000LL << 100 << 99;
        QTest::newRow("zero total") << 0LL << 0LL << 0 << -1;
        QTest::newRow("more than announced") << 10LL << 5LL << 100 << 100;
    }
    void progress()
    {
        QFETCH(qlonglong, bytesRead);
        QFETCH(qlonglong, totalBytes);
        auto *progressBar = child<QProgressBar>("progressBar");
        m_dialog->onDownloadProgress(1, 4);
        m_dialog->onDownloadProgress(bytesRead, totalBytes);
        QTEST(progressBar->maximum(), "maximum");
        if (progressBar->maximum() > 0)
            QTEST(progressBar->value(), "value");
    }

private:
    // An offer of the test installer at this server path (none when empty).
    VersionData offer(const QString &path, const QString &notes = kNotes, const QString &version = QStringLiteral("1.1.0")) const
    {
        return VersionData{m_body.size(), version, notes, path.isEmpty() ? QString() : m_server.url(path), QString()};
    }

    template<typename T> T *child(const char *name) const
    {
        T *widget = m_dialog->findChild<T *>(QLatin1String(name));
        if (!widget)
            qFatal("no child %s", name);
        return widget;
    }
    bool choicesShown() const
    {
        return !child<QWidget>("widget_3")->isHidden() && child<QWidget>("pushButton_cancel")->isHidden();
    }

    TestHome m_home;
    FakeUpdateServer m_server;
    QByteArray m_body;
    std::unique_ptr<UpdateDialog> m_dialog;
    QStringList m_started;
};

QTEST_MAIN(TestUpdateDialog)
#include "tst_updatedialog.moc"
