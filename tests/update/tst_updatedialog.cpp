#include "appdatapaths.h"
#include "fakeupdateserver.h"
#include "processutil.h"
#include "testhome.h"
#include "updatedialog.h"

#include <QFile>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTextEdit>

#include <memory>

class TestUpdateDialog : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        QVERIFY(m_server.listen());
        for (int i = 0; m_body.size() < 128 * 1024; ++i)
            m_body += "#!/bin/sh\n# part " + QByteArray::number(i) + '\n';
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

    void cleanup()
    {
        m_dialog.reset();
    }

    // An offer shows the release; a second offer while open changes nothing; "安装更新" downloads the
    // first offer's installer (through redirects) and starts it.
    void offerThenInstall()
    {
        auto *progressBar = child<QProgressBar>("progressBar");
        QList<int> values;
        connect(progressBar, &QProgressBar::valueChanged, this, [&values](int value) { values << value; });
        m_dialog->onVersionMessage(offer(QStringLiteral("/redirect/2/BeamcrafterSetup.run")));
        QVERIFY(m_dialog->isVisible());
        QCOMPARE(child<QLabel>("label_desc")->text(),
                 QStringLiteral("Brivon Lumen 1.1.0现在可用 -- 您的当前版本是 1.0.30 . 是否要立即安装？"));
        QVERIFY(child<QLabel>("label_tip")->isHidden());
        QCOMPARE(progressBar->value(), 0);
        QVERIFY(choicesShown());
        VersionData other = offer(QStringLiteral("/files/other.run"));
        other.versionInfo = QStringLiteral("other");
        m_dialog->onVersionMessage(other);
        QCOMPARE(child<QTextEdit>("textEdit")->toPlainText(), QStringLiteral("1. 新增色温预设\n2. Fixes"));

        QTest::mouseClick(child<QPushButton>("pushButton_update"), Qt::LeftButton);
        QVERIFY(child<QWidget>("widget_3")->isHidden());
        QVERIFY(!child<QWidget>("pushButton_cancel")->isHidden());
        QVERIFY(waitUntil([&] { return !m_started.isEmpty(); }, 20000));
        const QString path = downloadFolderPath() + QStringLiteral("BeamcrafterSetup.run");
        QCOMPARE(m_started, QStringList{path});
        QCOMPARE(readFile(path), m_body);
        QVERIFY(QFileInfo(path).isExecutable());
        QCOMPARE(values.value(values.size() - 1), 100);
        QVERIFY(!m_dialog->isVisible());
        QVERIFY(choicesShown());
    }

    void choicesOnlyClose_data()
    {
        QTest::addColumn<QString>("button");
        QTest::newRow("skip") << "pushButton_skip";
        QTest::newRow("later") << "pushButton_promptLater";
    }

    void choicesOnlyClose()
    {
        QFETCH(QString, button);
        const int requestsBefore = m_server.requests().size();
        m_dialog->onVersionMessage(offer(QStringLiteral("/files/BeamcrafterSetup.run")));
        QTest::mouseClick(child<QPushButton>(button.toLatin1().constData()), Qt::LeftButton);
        QVERIFY(!m_dialog->isVisible());
        QCOMPARE(m_server.requests().size(), requestsBefore);
        QVERIFY(m_started.isEmpty());

        // Nothing is remembered: the next check offers the same release again.
        VersionData again = offer(QStringLiteral("/files/BeamcrafterSetup.run"));
        again.versionInfo = QStringLiteral("again");
        m_dialog->onVersionMessage(again);
        QVERIFY(m_dialog->isVisible());
        QCOMPARE(child<QTextEdit>("textEdit")->toPlainText(), QStringLiteral("again"));
    }

    void failedDownloadShowsTipAndRetries_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("connection dropped") << "/broken/BeamcrafterSetup.run";
        QTest::newRow("no file name") << "/files/";
    }

    void failedDownloadShowsTipAndRetries()
    {
        QFETCH(QString, path);
        auto *tip = child<QLabel>("label_tip");
        m_dialog->onVersionMessage(offer(path));
        const int requestsBefore = m_server.requests().size();

        for (int attempt = 1; attempt <= 2; ++attempt) {
            QTest::mouseClick(child<QPushButton>("pushButton_update"), Qt::LeftButton);
            QVERIFY(waitUntil([&] { return !tip->isHidden(); }, 20000));
            QCOMPARE(tip->text(), QStringLiteral("下载失败,可能是新版本地址异常!"));
            QVERIFY(choicesShown());
            QVERIFY(m_dialog->isVisible());
        }
        // Each press of install really went out again (a URL without a file name never leaves).
        const int expectedRequests = path.endsWith(QLatin1Char('/')) ? 0 : 2;
        QCOMPARE(m_server.requests().size() - requestsBefore, expectedRequests);
        QVERIFY(m_started.isEmpty());
    }

    void cancelStopsTheDownload_data()
    {
        QTest::addColumn<bool>("escape");
        QTest::newRow("cancel button") << false;
        QTest::newRow("escape key") << true;
    }

    void cancelStopsTheDownload()
    {
        QFETCH(bool, escape);
        m_server.setSlowPace(2048, 20);
        auto *progressBar = child<QProgressBar>("progressBar");
        m_dialog->onVersionMessage(offer(QStringLiteral("/slow/BeamcrafterSetup.run")));
        QTest::mouseClick(child<QPushButton>("pushButton_update"), Qt::LeftButton);
        QVERIFY(waitUntil([&] { return progressBar->value() > 0; }, 10000));
        QVERIFY(progressBar->value() < 100);

        if (escape)
            QTest::keyClick(m_dialog.get(), Qt::Key_Escape);
        else
            QTest::mouseClick(child<QPushButton>("pushButton_cancel"), Qt::LeftButton);
        QVERIFY(!m_dialog->isVisible());
        QVERIFY(choicesShown());
        QTest::qWait(200);
        QVERIFY(!QFile::exists(downloadFolderPath() + QStringLiteral("BeamcrafterSetup.run")));
        QVERIFY(m_started.isEmpty());
        QVERIFY(child<QLabel>("label_tip")->isHidden());
    }

    void noUrlDoesNothing()
    {
        VersionData data = offer(QString());
        data.downloadUrl.clear();
        const int requestsBefore = m_server.requests().size();
        m_dialog->onVersionMessage(data);
        QTest::mouseClick(child<QPushButton>("pushButton_update"), Qt::LeftButton);
        QTest::qWait(100);
        QVERIFY(choicesShown());
        QVERIFY(child<QLabel>("label_tip")->isHidden());
        QCOMPARE(m_server.requests().size(), requestsBefore);
    }

private:
    VersionData offer(const QString &path) const
    {
        VersionData data;
        data.version = QStringLiteral("1.1.0");
        data.versionInfo = QStringLiteral("1. 新增色温预设\n2. Fixes");
        data.downloadUrl = m_server.url(path);
        data.size = int(m_body.size());
        return data;
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
