// The group settings window against the real device manager and store, with the simulated lights
// plug-in as the Bluetooth back end: naming, renaming, context menus, deletion and membership.
#include "customlistwidget.h"
#include "deletesettings.h"
#include "deletetipswidget.h"
#include "devicenamewidget.h"
#include "devicemgr.h"
#include "devinfowidget.h"
#include "devnamegroupwidget.h"
#include "menuutil.h"
#include "processutil.h"
#include "settingmiddlewdg.h"
#include "settingwindow.h"
#include "simlights.h"
#include "testhome.h"

#include <QCheckBox>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

#include <memory>

namespace {

const QString kV60 = QStringLiteral("C4:7F:0E:10:00:01");
const QString kV80 = QStringLiteral("C4:7F:0E:20:00:02");
const QString kQ300 = QStringLiteral("C4:7F:0E:E9:10:01");

QString groupName(int n) { return n == 0 ? QStringLiteral("创建群组") : QStringLiteral("创建群组_%1").arg(n); }
DeviceMgr *mgr() { return DeviceMgrSingleton::instance(); }

QStringList storedGroupNames()
{
    QStringList names;
    for (const GroupData &group : mgr()->getGroups())
        names << group.name;
    names.sort();
    return names;
}

QStringList storedMembers(const QString &uuid)
{
    QStringList addrs;
    for (const DevData &dev : mgr()->getGroupDevices(uuid))
        addrs << dev.addr;
    return addrs;
}

QStringList sorted(QStringList list)
{
    list.sort();
    return list;
}

} // namespace

class TestGroupSettings : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_home = std::make_unique<TestHome>();
        SimLights::select(QByteArray(), false);
        // Three lights are stored before the device manager first reads its configuration.
        QVERIFY(writeFile(m_home->configFile(), R"({"devs": [
            {"addr": "C4:7F:0E:10:00:01", "name": "Brivon V60 Bi-Color", "protocol": 1},
            {"addr": "C4:7F:0E:20:00:02", "name": "Brivon V80C RGB", "protocol": 2},
            {"addr": "C4:7F:0E:E9:10:01", "name": "Brivon Q300 COB", "protocol": 1001}], "groups": []})"));
        QCOMPARE(mgr()->deviceCount(), 3);
    }

    void init()
    {
        setAskToDelete(QStringLiteral("global/ask_to_delete_group"), true);
        setAskToDelete(QStringLiteral("global/ask_to_delete_device"), true);
        m_window = std::make_unique<SettingWindow>();
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    }

    void cleanup()
    {
        m_window.reset();
        for (const QString &uuid : mgr()->getGroups().keys())
            mgr()->delGroup(uuid);
    }

    void newGroupNamesFillTheFirstGap()
    {
        QListWidget *list = groups()->listWidget();
        for (int n = 0; n < 3; ++n) {
            const QString uuid = createGroup();
            QCOMPARE(list->item(n + 1)->text(), groupName(n));
            // The new group is selected and its (empty) light list is shown.
            QCOMPARE(list->currentRow(), n + 1);
            QCOMPARE(info()->currentGroup(), uuid);
            QCOMPARE(info()->listWidget()->count(), 0);
        }
        QCOMPARE(storedGroupNames(), (QStringList{groupName(0), groupName(1), groupName(2)}));

        setAskToDelete(QStringLiteral("global/ask_to_delete_group"), false);
        groups()->handleDeleteGroup(groupName(1));
        QCOMPARE(storedGroupNames(), (QStringList{groupName(0), groupName(2)}));
        createGroup();
        QCOMPARE(storedGroupNames(), (QStringList{groupName(0), groupName(1), groupName(2)}));
    }

    void rename_data()
    {
        QTest::addColumn<QString>("newName");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("another case of another group's name") << QStringLiteral("SECOND") << true;
        QTest::newRow("the list of all lights") << QStringLiteral("设备列表") << false;
        QTest::newRow("another group's name") << QStringLiteral("second") << false;
        QTest::newRow("blank") << QStringLiteral("   ") << false;
    }

    void rename()
    {
        QFETCH(QString, newName);
        QFETCH(bool, accepted);
        const QString first = mgr()->addGroup(QStringLiteral("first"));
        mgr()->addGroup(QStringLiteral("second"));
        QListWidgetItem *item = groups()->itemForUuid(first);
        QVERIFY(item);
        QSignalSpy renamed(mgr()->store(), &DevDataMgr::onUpdateGroup);
        QSignalSpy selected(groups(), &DevNameGroupWidget::selectGroup);

        groupMenu(first, QStringLiteral("重命名"));
        auto *editor = groups()->listWidget()->findChild<QLineEdit *>(QStringLiteral("groupNameEditor"));
        QVERIFY(editor);
        QCOMPARE(editor->text(), item->text());
        editor->setText(newName);
        QSignalSpy closed(groups()->listWidget()->itemDelegate(), &QAbstractItemDelegate::closeEditor);
        QTest::keyClick(editor, Qt::Key_Return);
        // The delegate commits the edit from the event loop.
        QVERIFY(waitUntil([&] { return !closed.isEmpty(); }, 2000));
    

        const QString expected = accepted ? newName : QStringLiteral("first");
        QCOMPARE(item->text(), expected);
        QCOMPARE(mgr()->getGroups().value(first).name, expected);
        QCOMPARE(renamed.count(), accepted ? 1 : 0);
        QCOMPARE(selected.last().at(0).toString(), first);
    }

    void deleteGroupAsksUntilToldNotTo()
    {
        const QString doomed = mgr()->addGroup(QStringLiteral("doomed"));
        const QString next = mgr()->addGroup(QStringLiteral("next"));
        auto *tips = groups()->findChild<DeleteTipsWidget *>();
        QVERIFY(tips);
        QSignalSpy deletedSignal(groups(), &DevNameGroupWidget::delGroup);

        // Confirming with "don't ask again" ticked deletes it and stops the questions.
        groupMenu(doomed, QStringLiteral("删除"));
        QVERIFY(tips->isVisible());
        tips->findChild<QCheckBox *>()->setChecked(true);
        tips->onOkClicked();
        QVERIFY(!mgr()->getGroups().contains(doomed) && !groups()->itemForUuid(doomed));
        QCOMPARE(deletedSignal.at(0).at(0).toString(), QStringLiteral("doomed"));

        // What a plug-in changes shows at once.
        groups()->listWidget()->setCurrentItem(groups()->itemForUuid(next));
        mgr()->addDevToGroup(next, *mgr()->store()->findDev(kQ300));
        QCOMPARE(info()->listedAddresses(), QStringList{kQ300});
        mgr()->renameGroup(next, QStringLiteral("renamed"));
        QCOMPARE(groups()->itemForUuid(next)->text(), QStringLiteral("renamed"));

        // No longer asked; the list of all lights is shown again.
        groupMenu(next, QStringLiteral("删除"));
        QVERIFY(!tips->isVisible());
        QVERIFY(mgr()->getGroups().isEmpty());
        QCOMPARE(groups()->listWidget()->count(), 1);
        QCOMPARE(info()->currentGroup(), defaultGroupUuid());
    }
    void addLightsToAGroup()
    {
        const QString uuid = createGroup();
        QVERIFY(info()->addButton()->isVisible());

        // "添加设备" offers every stored light, members selected; choosing two adds both.
        DeviceNameWidget *box = info()->deviceNameWidget();
        info()->addButton()->click();
        QVERIFY(box->isVisible());
        QListWidget *offered = box->listWidget();
        QCOMPARE(offered->count(), 3);
        for (int row = 0; row < offered->count(); ++row) {
            QListWidgetItem *item = offered->item(row);
            QVERIFY(!item->isSelected());
            if (item->data(Qt::UserRole).toString() != kV80)
                item->setSelected(true);
        }
        box->handleOkBtn();
        QCOMPARE(sorted(storedMembers(uuid)), sorted({kV60, kQ300}));
        QCOMPARE(sorted(info()->listedAddresses()), sorted({kV60, kQ300}));

        // Opened again, the members are selected; deselecting one takes it out of the group.
        info()->addButton()->click();
        for (int row = 0; row < offered->count(); ++row) {
            QListWidgetItem *item = offered->item(row);
            const QString addr = item->data(Qt::UserRole).toString();
            QCOMPARE(item->isSelected(), addr != kV80);
            if (addr == kV60)
                item->setSelected(false);
        }
        box->handleOkBtn();
        // Asked first, like every other removal.
        auto *tips = info()->findChild<DeleteTipsWidget *>();
        QVERIFY(waitUntil([&] { return tips->isVisible(); }, 2000));
        QCOMPARE(storedMembers(uuid).size(), 2);
        QVERIFY(tips->text().contains(QStringLiteral("Brivon V60 Bi-Color")));
        tips->onOkClicked();
        QCOMPARE(storedMembers(uuid), QStringList{kQ300});
        QVERIFY(mgr()->store()->findDev(kV60));

        // Members already there are not added twice.
        QList<DevData> again{*mgr()->store()->findDev(kQ300), *mgr()->store()->findDev(kV80),
                *mgr()->store()->findDev(kV80)};
        info()->handleAddDevice(again);
        QCOMPARE(storedMembers(uuid), (QStringList{kQ300, kV80}));

        // The list of all lights takes no lights from here.
        QListWidget *list = groups()->listWidget();
        list->setCurrentRow(0);
        QCOMPARE(info()->currentGroup(), defaultGroupUuid());
        QVERIFY(!info()->addButton()->isVisible());
        QCOMPARE(info()->listWidget()->count(), 3);

        // Back on the group its members are listed again, in the order they joined.
        list->setCurrentItem(groups()->itemForUuid(uuid));
        QCOMPARE(info()->listedAddresses(), (QStringList{kQ300, kV80}));
    }

    void removeLights_data()
    {
        QTest::addColumn<bool>("fromGroup");
        QTest::addColumn<bool>("ask");
        QTest::newRow("from a group, confirmed") << true << true;
        QTest::newRow("from a group, not asked") << true << false;
        QTest::newRow("from all lights, confirmed") << false << true;
    }

    void removeLights()
    {
        QFETCH(bool, fromGroup);
        QFETCH(bool, ask);
        const DevData v60 = *mgr()->store()->findDev(kV60), v80 = *mgr()->store()->findDev(kV80);
        const QString uuid = mgr()->addGroup(QStringLiteral("members"));
        mgr()->addDevToGroup(uuid, v60);
        mgr()->addDevToGroup(uuid, v80);
        setAskToDelete(QStringLiteral("global/ask_to_delete_device"), ask);
        QListWidget *groupList = groups()->listWidget();
        QListWidgetItem *shown = fromGroup ? groups()->itemForUuid(uuid) : groupList->item(0);
        groupList->setCurrentItem(shown);
        auto *tips = info()->findChild<DeleteTipsWidget *>();
        QVERIFY(tips);

        // Through the row's context menu, as the user does it.
        const int row = info()->listedAddresses().indexOf(kV80);
        QVERIFY(row >= 0);
        const QPoint pos = info()->listWidget()->visualItemRect(info()->listWidget()->item(row)).center();
        QCOMPARE(runContextMenu([&] { info()->showContextMenu(pos); }, QStringLiteral("删除")), QStringList{"删除"});
        QCOMPARE(tips->isVisible(), ask);
        if (ask) {
            QVERIFY(mgr()->store()->findDev(kV80));
            // Which of the two it is: only the question about all lights says the light is forgotten.
            QCOMPARE(tips->text(), fromGroup
                    ? QStringLiteral("确认将设备“Brivon V80C RGB”移出群组“members”？设备本身仍会保留。")
                    : QStringLiteral("确认删除设备“Brivon V80C RGB”？它将从所有群组中移除并被遗忘。"));
            // Another selection while the question is open does not change what it was about.
            groupList->setCurrentItem(fromGroup ? groupList->item(0) : groups()->itemForUuid(uuid));
            tips->onOkClicked();
            groupList->setCurrentItem(shown);
        }

        QVERIFY(!info()->listedAddresses().contains(kV80));
        QCOMPARE(storedMembers(uuid), QStringList{kV60});
        // Taken out of a group, the light stays; deleted from all lights, it is gone everywhere.
        QCOMPARE(mgr()->store()->findDev(kV80) != nullptr, fromGroup);
        QCOMPARE(mgr()->deviceCount(), fromGroup ? 3 : 2);
        if (!fromGroup)
            mgr()->addDev(v80);
    }

private:
    DevNameGroupWidget *groups() const { return m_window->middleWidget()->groupWidget(); }
    DevInfoWidget *info() const { return m_window->middleWidget()->infoWidget(); }
    // Through the group row's context menu, as the user does it.
    void groupMenu(const QString &uuid, const QString &choose)
    {
        const QPoint pos = groups()->listWidget()->visualItemRect(groups()->itemForUuid(uuid)).center();
        runContextMenu([&] { groups()->showContextMenu(pos); }, choose);
    }

    QString createGroup()
    {
        groups()->addRow()->click();
        QListWidget *list = groups()->listWidget();
        return list->item(list->count() - 1)->data(Qt::UserRole).toString();
    }

    std::unique_ptr<TestHome> m_home;
    std::unique_ptr<SettingWindow> m_window;
};

QTEST_MAIN(TestGroupSettings)
#include "tst_groupsettings.moc"
