// The control panel follows the real store: sections come and go with their first and last card,
// groups are renamed and deleted, and a card's own delete forgets a light or only takes it out of
// its group.
#include "controlitemwidget.h"
#include "controlwidget.h"
#include "customslider.h"
#include "devicemgr.h"
#include "lighteffectsetdialog.h"
#include "menuutil.h"
#include "rotatingsvgwidget.h"
#include "simlights.h"
#include "switchbutton.h"
#include "testhome.h"
#include "wrapbutton.h"

#include <QApplication>
#include <QGroupBox>
#include <QInputDialog>
#include <QLabel>
#include <QPointer>
#include <QScrollArea>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>

#include <algorithm>
#include <memory>

namespace {

DevData light(const QString &addr, const QString &name)
{
    DevData dev;
    dev.addr = addr;
    dev.name = name;
    dev.protocol = 2;
    return dev;
}

const DevData kKey = light(QStringLiteral("AA:00:00:00:01:01"), QStringLiteral("Key"));
const DevData kFill = light(QStringLiteral("AA:00:00:00:01:02"), QStringLiteral("Fill"));
const DevData kBack = light(QStringLiteral("AA:00:00:00:01:03"), QStringLiteral("Back"));
const QString kAll = QStringLiteral("设备列表");

QStringList titles(const ControlWidget &panel)
{
    QStringList result;
    for (const QGroupBox *box : panel.sections())
        result << box->title();
    return result;
}

QStringList cardAddrs(const QGroupBox *section)
{
    QStringList result;
    for (const ControlItemWidget *card : ControlWidget::cards(section))
        result << card->addr();
    return result;
}

} // namespace

class TestControlWidget : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_home = std::make_unique<TestHome>();
        SimLights::select(QByteArrayLiteral("[]"), false);
        QCOMPARE(mgr()->deviceCount(), 0);
    }

    void cleanup()
    {
        for (const QString &uuid : mgr()->getGroups().keys())
            mgr()->delGroup(uuid);
        for (const QString &addr : mgr()->getDevices().keys())
            mgr()->delDev(defaultGroupUuid(), addr);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    void builtFromTheStore()
    {
        // Added in an order that is neither by name nor by address.
        mgr()->addDev(kFill);
        mgr()->addDev(kKey);
        mgr()->addDev(kBack);
        const QString stage = mgr()->addGroup(QStringLiteral("Stage"));
        mgr()->addDevToGroup(stage, kBack);
        mgr()->addDevToGroup(stage, kKey);
        mgr()->addGroup(QStringLiteral("Empty"));
        const QString alpha = mgr()->addGroup(QStringLiteral("Alpha"));
        mgr()->addDevToGroup(alpha, kFill);
        mgr()->addDevToGroup(alpha, kKey);

        ControlWidget panel;
        QSignalSpy cleared(&panel, &ControlWidget::clearDeviceSig);
        // Sections and cards in the order they were added; a group without lights has none.
        QCOMPARE(titles(panel), (QStringList{kAll, QStringLiteral("Stage"), QStringLiteral("Alpha")}));
        QCOMPARE(panel.sections().at(0)->property("uuid").toString(), defaultGroupUuid());
        QCOMPARE(cardAddrs(panel.sections().at(0)), (QStringList{kFill.addr, kKey.addr, kBack.addr}));
        // A group keeps its own order.
        QCOMPARE(cardAddrs(panel.section(stage)), (QStringList{kBack.addr, kKey.addr}));
        ControlItemWidget *card = ControlWidget::card(panel.section(stage), kKey.addr);
        QCOMPARE(card->groupUuid(), stage);
        QCOMPARE(card->nameLabel()->toolTip(), QStringLiteral("Key"));

        // Renaming a group changes only its title; deleting one takes only its own section.
        QPointer<ControlItemWidget> gone = card;
        mgr()->renameGroup(alpha, QStringLiteral("Alpha 2"));
        QCOMPARE(titles(panel), (QStringList{kAll, QStringLiteral("Stage"), QStringLiteral("Alpha 2")}));
        QCOMPARE(ControlWidget::card(panel.section(alpha), kKey.addr)->groupUuid(), alpha);
        mgr()->delGroup(stage);
        QCOMPARE(titles(panel), (QStringList{kAll, QStringLiteral("Alpha 2")}));
        QCOMPARE(cardAddrs(panel.section(alpha)), (QStringList{kFill.addr, kKey.addr}));
        QCOMPARE(cardAddrs(panel.section(defaultGroupUuid())).size(), 3);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(gone.isNull());

        // A new group shows up with its first light, listed once however often it is added.
        const QString late = mgr()->addGroup(QStringLiteral("Late"));
        QCOMPARE(panel.sections().size(), 2);
        mgr()->addDevToGroup(late, kBack);
        mgr()->addDevToGroup(late, kBack);
        QCOMPARE(cardAddrs(panel.section(late)), QStringList{kBack.addr});
        // A group's last light takes its section along, and nothing tells the window to go empty.
        mgr()->delDev(alpha, kFill.addr);
        mgr()->delDev(alpha, kKey.addr);
        QCOMPARE(titles(panel), (QStringList{kAll, QStringLiteral("Late")}));
        QCOMPARE(cardAddrs(panel.section(defaultGroupUuid())), (QStringList{kFill.addr, kKey.addr, kBack.addr}));
        for (const DevData &dev : {kFill, kKey, kBack}) {
            QCOMPARE(cleared.count(), 0);
            mgr()->delDev(defaultGroupUuid(), dev.addr);
        }
        QVERIFY(panel.sections().isEmpty());
        QCOMPARE(cleared.count(), 1);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(panel.findChildren<ControlItemWidget *>().isEmpty() && panel.findChildren<QGroupBox *>().isEmpty());
        // The first light brings the list of all lights back.
        mgr()->addDev(kKey);
        QCOMPARE(titles(panel), QStringList{kAll});
        QCOMPARE(cardAddrs(panel.section(defaultGroupUuid())), QStringList{kKey.addr});
    }

    void cardDeleteFromItsMenu_data()
    {
        QTest::addColumn<bool>("fromAllDevices");
        QTest::newRow("from the list of all devices: forgotten") << true;
        QTest::newRow("from a group: only leaves the group") << false;
    }

    void cardDeleteFromItsMenu()
    {
        QFETCH(bool, fromAllDevices);
        mgr()->addDev(kKey);
        mgr()->addDev(kFill);
        const QString stage = mgr()->addGroup(QStringLiteral("Stage"));
        mgr()->addDevToGroup(stage, kKey);
        ControlWidget panel;
        panel.resize(610, 800);
        panel.show();
        QVERIFY(QTest::qWaitForWindowExposed(&panel));
        QSignalSpy cleared(&panel, &ControlWidget::clearDeviceSig);
        // Each section starts with its group's own controls.
        QVERIFY(ControlWidget::header(panel.section(stage)));

        // Renamed from a card's menu: every card of the light shows the new name, trimmed.
        ControlItemWidget *listed = ControlWidget::card(panel.section(defaultGroupUuid()), kKey.addr);
        QVERIFY(runContextMenu([&] { emit listed->customContextMenuRequested(QPoint(20, 20)); },
                QStringLiteral("重命名")).contains(QStringLiteral("重命名")));
        auto *dialog = listed->findChild<QInputDialog *>();
        QVERIFY(dialog);
        QCOMPARE(dialog->textValue(), QStringLiteral("Key"));
        dialog->setTextValue(QStringLiteral("  Key left  "));
        dialog->accept();
        QCOMPARE(mgr()->store()->findDev(kKey.addr)->name, QStringLiteral("Key left"));
        QTRY_COMPARE(listed->name(), QStringLiteral("Key left"));
        QTRY_COMPARE(ControlWidget::card(panel.section(stage), kKey.addr)->nameLabel()->text(), QStringLiteral("Key left"));

        const QString uuid = fromAllDevices ? defaultGroupUuid() : stage;
        ControlItemWidget *card = ControlWidget::card(panel.section(uuid), kKey.addr);
        QVERIFY(card);
        // From the keyboard: Delete on the focused card (here its reconnect icon) opens its menu.
        QWidget *focused = card->reconnectIcon();
        panel.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&panel));
        focused->setFocus(Qt::TabFocusReason);
        QVERIFY(focused->hasFocus());
        QVERIFY(runContextMenu([&] { QTest::keyClick(focused, Qt::Key_Delete); },
                QStringLiteral("删除")).contains(QStringLiteral("删除")));
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);

        // The group's only light is gone from it either way, and with it the group's section.
        QVERIFY(!panel.section(stage));
        QVERIFY(mgr()->getGroups().value(stage).devs.isEmpty());
        QCOMPARE(mgr()->store()->findDev(kKey.addr) == nullptr, fromAllDevices);
        QCOMPARE(cardAddrs(panel.section(defaultGroupUuid())),
                 fromAllDevices ? QStringList{kFill.addr} : (QStringList{kKey.addr, kFill.addr}));
        QCOMPARE(cleared.count(), 0);
    }

    void cardsGetTheirControlsWhenReached()
    {
        QList<DevData> lights;
        for (int i = 0; i < 20; ++i) {
            lights << light(QStringLiteral("AA:00:00:00:02:%1").arg(i, 2, 10, QLatin1Char('0')),
                    QStringLiteral("L%1").arg(i));
            lights.last().colorLightEnable = true;
            lights.last().lightEffectEnable = true;
            mgr()->addDev(lights.last());
        }
        ControlWidget panel;
        panel.resize(610, 800);
        panel.show();
        QVERIFY(QTest::qWaitForWindowExposed(&panel));
        const QList<ControlItemWidget *> cards = ControlWidget::cards(panel.section(defaultGroupUuid()));
        ControlItemWidget *last = cards.last();
        QTRY_VERIFY(cards.first()->isBuilt());
        QVERIFY(!last->isBuilt());

        // What the light reports meanwhile is what the card shows once it is scrolled to.
        DevData state = lights.last();
        state.linkState = 1;
        state.switchState = true;
        state.brightness = 70;
        state.colorLight = QStringLiteral("#00ff00");
        state.devCurModel = 3;
        mgr()->store()->updateDev(state);
        state.devCurModel = 2;
        state.lightEffect = QStringLiteral("9");
        mgr()->store()->updateDev(state);
        QTRY_COMPARE(last->currentEffect(), QStringLiteral("9"));
        QVERIFY(!last->isBuilt());
        QScrollBar *bar = panel.findChild<QScrollArea *>()->verticalScrollBar();
        bar->setValue(bar->maximum());
        QTRY_VERIFY(last->isBuilt());
        QCOMPARE(last->linkStateLabel()->text(), QStringLiteral("已连接"));
        QVERIFY(last->powerButton()->choose());
        QCOMPARE(last->brightnessSlider()->value(), 70);
        QCOMPARE(last->currentColor(), QStringLiteral("#00ff00")); // for the colour picker
        QVERIFY(!last->colorButton()->styleSheet().contains(QLatin1String("#00ff00")));
        QCOMPARE(last->effectButton()->toolTip(), last->effectPicker()->button(QStringLiteral("9"))->text());

        // Tab reaches the controls of a card still without them, in their place.
        const auto unbuilt = std::find_if(cards.cbegin(), cards.cend(), [](ControlItemWidget *c) { return !c->isBuilt(); });
        QVERIFY(unbuilt != cards.cend() && unbuilt != cards.cbegin());
        panel.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&panel));
        (*(unbuilt - 1))->reconnectIcon()->setFocus(Qt::TabFocusReason);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QVERIFY((*unbuilt)->isBuilt());
        QCOMPARE(QApplication::focusWidget(), (*unbuilt)->reconnectIcon());
    }

private:
    DeviceMgr *mgr() const { return DeviceMgrSingleton::instance(); }

    std::unique_ptr<TestHome> m_home;
};

QTEST_MAIN(TestControlWidget)
#include "tst_controlwidget.moc"
