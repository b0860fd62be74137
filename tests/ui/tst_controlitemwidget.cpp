// The control card against the simulated lights: what the user does on the card must reach the
// light through the real device manager, and what the light reports must show on the card.
#include "controlitemwidget.h"
#include "customslider.h"
#include "devicemgr.h"
#include "groupheaderwidget.h"
#include "lighteffectsetdialog.h"
#include "processutil.h"
#include "rotatingsvgwidget.h"
#include "simlights.h"
#include "switchbutton.h"
#include "testhome.h"
#include "wrapbutton.h"

#include <QColorDialog>
#include <QElapsedTimer>
#include <QLabel>
#include <QMenu>
#include <QMouseEvent>
#include <QSignalSpy>
#include <QStyleOptionSlider>
#include <QTest>

#include <memory>

namespace {

const QString kFF = QStringLiteral("AA:00:00:00:00:02");   // protocol 2: colour and effects
const QString kAA = QStringLiteral("AA:00:00:00:00:10");   // protocol 1001

const QByteArray kLights = R"({
  "timing": { "discoverFirstMs": 30, "discoverStepMs": 20, "scanMs": 300, "connectMs": 60, "replyMs": 10 },
  "lights": [
    { "addr": "AA:00:00:00:00:02", "name": "Key light", "protocol": 2, "power": true, "brightness": 50,
            "temperature": 5600, "mode": 2 },
    { "addr": "AA:00:00:00:00:10", "name": "COB", "protocol": 1001, "power": true, "brightness": 60, "temperature": 4300,
            "mode": 1 }
  ]
})";

// A value of the light's own state as the simulator reports it (true is 1).
int lightValue(const QString &addr, const char *key)
{
    return SimLights::state(addr).value(QLatin1String(key)).toVariant().toInt();
}

// Turns a knob on the light itself.
bool knob(const QString &addr, const char *change)
{
    return SimLights::command(QStringLiteral("knob %1 ").arg(addr) + QLatin1String(change)) == QLatin1String("ok");
}

QPoint handleCentre(const QSlider *slider, int value)
{
    // As QSlider fills it for itself (every slider here lies horizontally), so that the handle lands
    // where the slider expects it.
    QStyleOptionSlider option;
    option.initFrom(slider);
    option.subControls = QStyle::SC_All;
    option.state |= QStyle::State_Horizontal;
    option.orientation = Qt::Horizontal;
    option.minimum = slider->minimum();
    option.maximum = slider->maximum();
    option.sliderPosition = option.sliderValue = value;
    return slider->style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, slider).center();
}

void press(QSlider *slider, int value) { QTest::mousePress(slider, Qt::LeftButton, {}, handleCentre(slider, value)); }
void release(QSlider *slider, int value) { QTest::mouseRelease(slider, Qt::LeftButton, {}, handleCentre(slider, value)); }

void dragTo(QSlider *slider, int value)
{
    const QPoint pos = handleCentre(slider, value);
    QMouseEvent move(QEvent::MouseMove, pos, slider->mapToGlobal(pos), Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(slider, &move);
}

void drag(QSlider *slider, int from, int to)
{
    press(slider, from);
    dragTo(slider, to);
    release(slider, to);
}

// The brightness values a 55 AA light received, oldest first: mode frames (55 aa, type, command 01,
// length 00 05, then 01 for colour temperature) carry the brightness in byte 7.
QList<int> brightnessFrames(const QString &addr)
{
    QList<int> values;
    for (const QString &frame : SimLights::frames(addr)) {
        const QStringList bytes = frame.split(QLatin1Char(' '));
        if (bytes.size() >= 8 && bytes.mid(3, 4) == QStringList{"01", "00", "05", "01"})
            values << bytes.at(7).toInt(nullptr, 16);
    }
    return values;
}

std::unique_ptr<ControlItemWidget> shownCard(const QString &addr)
{
    auto card = std::make_unique<ControlItemWidget>();
    card->setDevice(defaultGroupUuid(), QStringLiteral("all"), SimLights::stored(addr));
    card->show();
    return QTest::qWaitForWindowExposed(card.get()) ? std::move(card) : nullptr;
}

// A light that only the store knows, switched on in green and linked as given.
DevData storeOnlyLight(const QString &addr, int protocol, int linkState)
{
    DevData dev;
    dev.addr = addr;
    dev.name = QStringLiteral("Probe");
    dev.protocol = protocol;
    // What the catalogue says of these protocols.
    dev.colorLightEnable = protocol == 2 || protocol == 2001;
    dev.lightEffectEnable = dev.colorLightEnable || protocol == 1;
    DeviceMgrSingleton::instance()->store()->addDev(dev);
    dev.linkState = quint8(linkState);
    dev.switchState = true;
    dev.devCurModel = 3;
    dev.colorLight = QStringLiteral("#00ff00");
    DeviceMgrSingleton::instance()->store()->updateDev(dev);
    return dev;
}

} // namespace

class TestControlItemWidget : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_home = std::make_unique<TestHome>();
        SimLights::select(kLights, true);
        QVERIFY(SimLights::addAndConnectAll(2));
    }

    void slidersReachTheLight()
    {
        const QString addr = kAA;
        DeviceMgrSingleton::instance()->setBrightness(addr, 10);
        QVERIFY(waitUntil([&] { return lightValue(addr, "brightness") == 10; }, 3000));
        const auto card = shownCard(addr);
        QVERIFY(card);
        CustomSlider *slider = card->brightnessSlider();
        QCOMPARE(slider->value(), 10);
        const int sentBefore = int(brightnessFrames(addr).size());

        // Twenty-five steps from 10 to 90 within 250 ms, as a quick drag of the handle.
        press(slider, 10);
        QElapsedTimer clock;
        clock.start();
        for (int step = 1; step <= 25; ++step) {
            while (clock.elapsed() < step * 10)
                QTest::qWait(1);
            dragTo(slider, 10 + 80 * step / 25);
        }
        release(slider, 90);
        const qint64 held = clock.elapsed();
        QVERIFY(waitUntil([&] { return lightValue(addr, "brightness") == 90; }, 3000));
        QTest::qWait(300);
        const QList<int> sent = brightnessFrames(addr).mid(sentBefore);
        // One value per 100 ms of holding at most, plus the final one on release; and the latest value
        // went out while the handle was still held, not only on release.
        QVERIFY2(sent.size() <= 1 + held / ControlItemWidget::kDragIntervalMs, qPrintable(QString::number(sent.size())));
        QVERIFY(sent.size() >= 2);
        QCOMPARE(sent.last(), 90);
        QCOMPARE(SimLights::stored(addr).brightness, 90);

        // The temperature slider works in hundreds of kelvin, over this light's range from 2900 K.
        CustomSlider *temperature = card->temperatureSlider();
        QCOMPARE((QList<int>{temperature->minimum(), temperature->maximum(), temperature->value()}),
                (QList<int>{29, 65, 43}));
        drag(temperature, 43, 50);
        QVERIFY(waitUntil([&] { return lightValue(addr, "temperature") == 5000; }, 3000));
        QVERIFY(waitUntil([&] { return SimLights::stored(addr).temperature == 5000; }, 3000));
    }

    void powerAndLinkFollowTheLight()
    {
        const auto card = shownCard(kFF);
        QVERIFY(card);
        SwitchButton *power = card->powerButton();
        QVERIFY(power->choose());
        QTest::mouseClick(power, Qt::LeftButton);
        // Shown at once, before the light has answered.
        QVERIFY(!power->choose());
        QVERIFY(waitUntil([] { return !lightValue(kFF, "power"); }, 3000));
        QVERIFY(waitUntil([&] { return !card->brightnessSlider()->isEnabled(); }, 3000));
        QTest::mouseClick(power, Qt::LeftButton);
        QVERIFY(waitUntil([] { return lightValue(kFF, "power"); }, 3000));
        QVERIFY(waitUntil([&] { return card->brightnessSlider()->isEnabled(); }, 3000));

        // The link lost: the program tries again by itself and the icon spins meanwhile; a click adds
        // no second attempt.
        QVERIFY(SimLights::command(QStringLiteral("drop ") + kFF).startsWith(QLatin1String("ok")));
        QVERIFY(waitUntil([&] { return card->linkStateLabel()->text() == QStringLiteral("未连接"); }, 3000));
        QVERIFY(!power->isVisible());
        RotatingSvgWidget *icon = card->reconnectIcon();
        QVERIFY(icon->isVisible() && icon->isRotating());
        QTest::mouseClick(icon, Qt::LeftButton);
        QVERIFY(icon->isRotating());
        QVERIFY(waitUntil([&] { return card->linkStateLabel()->text() == QStringLiteral("已连接"); }, 5000));
        QVERIFY(!icon->isRotating());
        QVERIFY(power->isVisible());
        QCOMPARE(lightValue(kFF, "overlappingAttempts"), 0);

        // A light the transport cannot switch off (no frame for its protocol): the click shows off at
        // once, and the next report, still on, puts the switch back.
        DevData mute = storeOnlyLight(QStringLiteral("AA:00:00:00:00:44"), 4, 1);
        const auto muteCard = shownCard(mute.addr);
        QVERIFY(muteCard);
        QVERIFY(muteCard->powerButton()->choose());
        QTest::mouseClick(muteCard->powerButton(), Qt::LeftButton);
        QVERIFY(!muteCard->powerButton()->choose());
        QTest::qWait(50);
        QVERIFY(SimLights::stored(mute.addr).switchState);
        mute.brightness = 30;
        DeviceMgrSingleton::instance()->store()->updateDev(mute);
        QVERIFY(waitUntil([&] { return muteCard->powerButton()->choose(); }, 2000));
        QCOMPARE(muteCard->brightnessSlider()->value(), 30);
        DeviceMgrSingleton::instance()->delDev(defaultGroupUuid(), mute.addr);
    }

    void colourPickClearsTheEffect()
    {
        const auto card = shownCard(kFF);
        QVERIFY(card);
        emit card->effectButton()->menu()->aboutToShow();
        LightEffectSetDialog *picker = card->effectPicker();
        WrapButton *effect = picker->button(QStringLiteral("9"));
        QVERIFY(effect);
        QTest::mouseClick(effect, Qt::LeftButton);
        QCOMPARE(picker->checkedCmd(), QStringLiteral("9"));
        QCOMPARE(card->effectButton()->toolTip(), effect->text());
        QVERIFY(waitUntil([] { return lightValue(kFF, "mode") == 9; }, 3000));
        // The light's report confirms the effect without undoing the selection.
        QVERIFY(waitUntil([] { return SimLights::stored(kFF).devCurModel == 2; }, 3000));
        QTest::qWait(50);
        QCOMPARE(picker->checkedCmd(), QStringLiteral("9"));

        emit card->colorButton()->menu()->aboutToShow();
        card->colorDialog()->setCurrentColor(QColor(0, 255, 0));
        card->colorDialog()->accept();
        QCOMPARE(card->currentEffect(), QString());
        // The button no longer names the effect.
        QCOMPARE(card->effectButton()->toolTip(), QStringLiteral("光效"));
        QCOMPARE(card->effectButton()->text(), QStringLiteral("光效"));
        QCOMPARE(picker->checkedCmd(), QString());
        QVERIFY(card->colorButton()->styleSheet().contains(QLatin1String("background-color: #00ff00; color: #ffffff;")));
        QVERIFY(waitUntil([] { return lightValue(kFF, "hue") == 120; }, 3000));
    }

    void colourButtonTextStaysReadable()
    {
        // Mid grey is the lightest background with white text; green weighs more than red.
        QCOMPARE(ControlItemWidget::textColorFor(QColor(128, 128, 128)), QStringLiteral("#ffffff"));
        QCOMPARE(ControlItemWidget::textColorFor(QColor(129, 129, 129)), QStringLiteral("#000000"));
        QCOMPARE(ControlItemWidget::textColorFor(QColor(255, 255, 0)), QStringLiteral("#000000"));
        QCOMPARE(ControlItemWidget::textColorFor(QColor(255, 0, 0)), QStringLiteral("#ffffff"));
    }

    void effectPickerOffersTheCatalogue()
    {
        LightEffectSetDialog picker;
        QSignalSpy selected(&picker, &LightEffectSetDialog::selectEffect);
        picker.loadEffects(kFF, 2);
        const QList<EffectItem> effects = DeviceMgrSingleton::instance()->getEffectData().effects(2);
        QVERIFY(!effects.isEmpty());
        for (const EffectItem &effect : effects) {
            QVERIFY(picker.button(effect.cmd));
            QCOMPARE(picker.button(effect.cmd)->text(), effect.name);
        }
        // Choosing from outside selects quietly; an unknown effect clears the choice and says so.
        const QString first = effects.at(0).cmd;
        picker.selectEffectCmd(first);
        QVERIFY(selected.isEmpty());
        picker.selectEffectCmd(QStringLiteral("no such effect"));
        QCOMPARE(picker.checkedCmd(), QString());
        QCOMPARE(selected.count(), 1);
    }

    // A light switched off by a plug-in client while its slider is held: the drag ends, so the
    // 55 AA light's own reports are applied again afterwards.
    void dragEndsWhenTheSliderIsDisabled()
    {
        const auto card = shownCard(kAA);
        QVERIFY(card);
        CustomSlider *slider = card->brightnessSlider();
        QVERIFY(slider->isEnabled());
        press(slider, slider->value());
        DeviceMgrSingleton::instance()->powerOff(kAA);
        QVERIFY(waitUntil([&] { return !slider->isEnabled(); }, 3000));
        QTest::qWait(ControlItemWidget::kAdjustingEndDelayMs + 100);
        QVERIFY(knob(kAA, "power on"));
        QVERIFY(waitUntil([&] { return card->powerButton()->choose() && slider->isEnabled(); }, 3000));
    }

    // A drag that starts before the end of the last one has been sent.
    void overlappingDragsKeepAdjusting()
    {
        const auto card = shownCard(kAA);
        QVERIFY(card);
        CustomSlider *slider = card->brightnessSlider();
        const int held = slider->value();
        drag(slider, held, held);
        press(slider, held);
        // Well past the first drag's end: the light's reports must still be held back.
        QTest::qWait(ControlItemWidget::kAdjustingEndDelayMs + 200);
        QVERIFY(knob(kAA, "brightness 17"));
        QTest::qWait(400);
        QCOMPARE(slider->value(), held);
        release(slider, held);
        QTest::qWait(ControlItemWidget::kAdjustingEndDelayMs + 100);
        QVERIFY(knob(kAA, "brightness 23"));
        QVERIFY(waitUntil([&] { return slider->value() == 23; }, 3000));
    }

    void keyboardChangesAreCoalesced()
    {
        // One request at a time: the light's answer to a switch-on may carry its older brightness.
        DeviceMgrSingleton::instance()->powerOn(kAA);
        QVERIFY(waitUntil([] { return SimLights::stored(kAA).switchState; }, 3000));
        QTest::qWait(200);
        DeviceMgrSingleton::instance()->setBrightness(kAA, 40);
        QVERIFY(waitUntil([&] { return lightValue(kAA, "brightness") == 40 && SimLights::stored(kAA).brightness == 40; },
                3000));
        const auto card = shownCard(kAA);
        QVERIFY(card);
        CustomSlider *slider = card->brightnessSlider();
        QTRY_VERIFY(slider->isEnabled());
        QTRY_COMPARE(slider->value(), 40);
        const int before = int(brightnessFrames(kAA).size());
        QElapsedTimer clock;
        clock.start();
        for (int i = 0; i < 8; ++i)
            QTest::keyClick(slider, Qt::Key_Right);
        QTest::keyClick(slider, Qt::Key_PageUp);
        const qint64 typed = clock.elapsed();
        QCOMPARE(slider->value(), 58);
        // Reaches the light without any drag, coalesced like one.
        QVERIFY(waitUntil([&] { return lightValue(kAA, "brightness") == 58; }, 3000));
        QTest::qWait(300);
        const QList<int> sent = brightnessFrames(kAA).mid(before);
        QVERIFY2(sent.size() <= 2 + typed / ControlItemWidget::kDragIntervalMs, qPrintable(QString::number(sent.size())));
        QCOMPARE(sent.last(), 58);

        // Once the light reports a change of its own, no keyboard value goes out later over it, not
        // even with the next press of the handle.
        QTest::keyClick(slider, Qt::Key_Home);
        QVERIFY(waitUntil([&] { return lightValue(kAA, "brightness") == 0; }, 3000));
        QTest::qWait(500);
        QVERIFY(knob(kAA, "brightness 30"));
        QTRY_COMPARE(slider->value(), 30);
        drag(slider, 30, 30);
        QTest::qWait(300);
        QCOMPARE(lightValue(kAA, "brightness"), 30);
    }

    void controlsFollowCapabilityAndLink_data()
    {
        QTest::addColumn<int>("protocol");
        QTest::addColumn<int>("linkState");
        QTest::addColumn<bool>("colourEnabled");
        QTest::addColumn<bool>("effectEnabled");
        QTest::newRow("colour light with effects") << 2 << 1 << true << true;
        QTest::newRow("white light with effects") << 1 << 1 << false << true;
        QTest::newRow("55 AA light") << 1001 << 1 << false << false;
        QTest::newRow("Hue lamp: colour, no effect list") << 2001 << 1 << true << false;
        QTest::newRow("not connected") << 2 << 0 << false << false;
    }

    void controlsFollowCapabilityAndLink()
    {
        QFETCH(int, protocol);
        QFETCH(int, linkState);
        DevDataMgr *store = DeviceMgrSingleton::instance()->store();
        DevData dev = storeOnlyLight(QStringLiteral("AA:00:00:00:00:55"), protocol, linkState);
        const auto card = shownCard(dev.addr);
        QVERIFY(card);
        QTEST(card->colorButton()->isEnabled(), "colourEnabled");
        QTEST(card->effectButton()->isEnabled(), "effectEnabled");
        QCOMPARE(card->brightnessSlider()->isEnabled(), linkState != 0);
        QCOMPARE(card->temperatureSlider()->isEnabled(), linkState != 0);
        QCOMPARE(card->linkStateLabel()->text(), linkState ? QStringLiteral("已连接") : QStringLiteral("未连接"));
        QCOMPARE(card->reconnectIcon()->isVisible(), linkState == 0);

        // The link comes and goes: the controls with it.
        dev.linkState = quint8(1 - linkState);
        store->updateDev(dev);
        QTRY_COMPARE(card->brightnessSlider()->isEnabled(), linkState == 0);
        dev.linkState = quint8(linkState);
        store->updateDev(dev);
        QTRY_COMPARE(card->brightnessSlider()->isEnabled(), linkState != 0);
        DeviceMgrSingleton::instance()->delDev(defaultGroupUuid(), dev.addr);
    }

    void groupHeaderDrivesEveryLight()
    {
        DeviceMgr *mgr = DeviceMgrSingleton::instance();
        const QString uuid = mgr->addGroup(QStringLiteral("Both"));
        mgr->addDevToGroup(uuid, SimLights::stored(kFF));
        mgr->addDevToGroup(uuid, SimLights::stored(kAA));
        mgr->powerOn(kFF);
        mgr->powerOn(kAA);
        QVERIFY(waitUntil([] { return SimLights::stored(kFF).switchState && SimLights::stored(kAA).switchState; }, 3000));
        GroupHeaderWidget header(uuid);
        header.show();
        QVERIFY(QTest::qWaitForWindowExposed(&header));
        QTRY_VERIFY(header.powerButton()->choose());

        CustomSlider *slider = header.brightnessSlider();
        QTRY_VERIFY(slider->isEnabled());
        drag(slider, slider->value(), 50);
        QVERIFY(waitUntil([] { return lightValue(kFF, "brightness") == 50 && lightValue(kAA, "brightness") == 50; }, 3000));
        QTest::mouseClick(header.powerButton(), Qt::LeftButton);
        QVERIFY(waitUntil([&] { return !lightValue(kFF, "power") && !lightValue(kAA, "power"); }, 3000));
        QTRY_VERIFY(!slider->isEnabled());
        mgr->delGroup(uuid);
    }

private:
    std::unique_ptr<TestHome> m_home;
};

QTEST_MAIN(TestControlItemWidget)
#include "tst_controlitemwidget.moc"
