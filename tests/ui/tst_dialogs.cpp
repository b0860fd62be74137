// The delete confirmation as the user sees it, and the answer it leaves in the settings.
#include "deletesettings.h"
#include "deletetipswidget.h"
#include "testhome.h"

#include <QCheckBox>
#include <QPushButton>
#include <QSettings>
#include <QSignalSpy>
#include <QTest>
#include <memory>

namespace {

QPushButton *buttonWithText(QWidget *parent, const QString &text)
{
    for (QPushButton *button : parent->findChildren<QPushButton *>()) {
        if (button->text() == text)
            return button;
    }
    return nullptr;
}

} // namespace

class TestDialogs : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_home = std::make_unique<TestHome>();
        QVERIFY(m_home->isValid());
    }

    void init()
    {
        programSettings().clear();
    }

    void deleteConfirmation_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("button");
        QTest::addColumn<int>("deletions");
        QTest::addColumn<bool>("askDeviceAfter");
        QTest::addColumn<bool>("askGroupAfter");

        const QString device = QStringLiteral("global/ask_to_delete_device");
        const QString group = QStringLiteral("global/ask_to_delete_group");
        // "Don't ask again" is ticked every time: only a confirmation with a key remembers it.
        QTest::newRow("device, cancel") << device << "取消" << 0 << true << true;
        QTest::newRow("device, confirm") << device << "确认" << 1 << false << true;
        QTest::newRow("group, confirm") << group << "确认" << 1 << true << false;
        QTest::newRow("no key, confirm") << QString() << "确认" << 1 << true << true;
    }

    void deleteConfirmation()
    {
        QFETCH(QString, key);
        QFETCH(QString, button);
        QFETCH(int, deletions);

        QVERIFY(askToDeleteDevice() && askToDeleteGroup());
        DeleteTipsWidget tips(QStringLiteral("确认删除该设备？"));
        tips.setSettingKey(key);
        tips.setName(QStringLiteral("Key light"));
        tips.show();
        QVERIFY(QTest::qWaitForWindowExposed(&tips));
        QSignalSpy deleted(&tips, &DeleteTipsWidget::deleteItem);

        auto *box = tips.findChild<QCheckBox *>();
        QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(8, box->height() / 2));
        QVERIFY(box->isChecked());
        QTest::mouseClick(buttonWithText(&tips, button), Qt::LeftButton);

        QVERIFY(!tips.isVisible());
        QCOMPARE(deleted.count(), deletions);
        if (deletions)
            QCOMPARE(deleted.first().first().toString(), QStringLiteral("Key light"));
        QTEST(askToDeleteDevice(), "askDeviceAfter");
        QTEST(askToDeleteGroup(), "askGroupAfter");
        // It must outlive the program: the answer is in the user's settings file.
        programSettings().sync();
        const QByteArray stored = readFile(m_home->path() + QStringLiteral("/.config/brivon/com.brivon.beamcrafter.conf"));
        QCOMPARE(stored.contains("ask_to_delete_device=false") || stored.contains("ask_to_delete_group=false"),
                deletions && !key.isEmpty());
    }

private:
    // Made before the first QSettings use: QSettings keeps its folder for the whole process.
    std::unique_ptr<TestHome> m_home;
};

QTEST_MAIN(TestDialogs)
#include "tst_dialogs.moc"
