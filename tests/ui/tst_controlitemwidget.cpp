// The control card against the simulated lights: what the user does on the card must reach the
// light through the real device manager, and what the light reports must show on the card.
#include "controlitemwidget.h"
#include "custompopup.h"
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
#include <QGridLayout>
#include <QLabel>
#include <QMenu>
#include <QMouseEvent>
#include <QPushButton>
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
    { "addr": "AA:00:00:00:00:10", "name": "COB", "protocol": 1001, "power": true, "brightness": 60,
      "temperature": 4300, "mode": 1 }
  ]
})";

QPoint handleCentre(const QSlider *slider, int value)
{
    QStyleOptionSlider option;
    // As QSlider fills it for itself, so that the handle lands where the slider expects it.
    option.initFrom(slider);
    option.subControls = QStyle::SC_All;
    option.tickPosition = slider->tickPosition();
    option.tickInterval = slider->tickInterval();
    option.upsideDown = slider->invertedAppearance();
    option.direction = Qt::LeftToRight;
    if (slider->orientation() == Qt::Horizontal)
        option.state |= QStyle::State_Horizontal;
    option.orientation = slider->orientation();
    option.minimum = slider->minimum();
    option.maximum = slider->maximum();
    option.sliderPosition = value;
    option.sliderValue = value;
    option.singleStep = slider->singleStep();
    option.pageStep = slider->pageStep();
    return slider->style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, slider).center();
}

void dragTo(QSlider *slider, int value)
{
    const QPoint pos = handleCentre(slider, value);
    QMouseEvent move(QEvent::MouseMove, pos, slider->mapToGlobal(pos), Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(slider, &move);
}

// The values of the frames that set a light's brightness, in the order the light received them.
QList<int> brightnessFrames(const QString &addr)
{
    QList<int> values;
    const QStringList all = SimLights::frames(addr);
    for (const QString &frame : all) {
        const QStringList bytes = frame.split(QLatin1Char(' '));
        if (addr == kFF && bytes.size() >= 4 && bytes.at(1) == QLatin1String("a2"))
            values << bytes.at(3).toInt(nullptr, 16);
        // 55 AA mode frame: 55 aa, type, command 01, length 00 05, then 01 (colour temperature) and
        // the brightness.
        if (addr == kAA && bytes.size() >= 8 && bytes.at(3) == QLatin1String("01") && bytes.at(5) == QLatin1String("05")
            && bytes.at(6) == QLatin1String("01"))
            values << bytes.at(7).toInt(nullptr, 16);
    }
    return values;
}

} // namespace

class TestControlItemWidget : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();

    void brightnessDragIsCoalesced_data();
    void brightnessDragIsCoalesced();
    void temperatureSliderWorksInHundreds_data();
    void temperatureSliderWorksInHundreds();
    void powerClickIsOptimistic();
    void reportRevertsAnUnconfirmedClick();
    void colourPickClearsTheEffect();
    void colourButtonTextStaysReadable_data();
    void colourButtonTextStaysReadable();
    void effectGridFivePerRow();
    void lostLinkAndReconnect();
    void dragEndsWhenTheSliderIsDisabled();
    void overlappingDragsKeepAdjusting_data();
    void overlappingDragsKeepAdjusting();
    void keyboardChangesAreCoalesced();
    void controlsFollowCapabilityAndLink_data();
    void controlsFollowCapabilityAndLink();
    void groupHeaderDrivesEveryLight();

private:
    ControlItemWidget *makeCard(const QString &addr);

    std::unique_ptr<TestHome> m_home;
    std::unique_ptr<ControlItemWidget> m_card;
};

void TestControlItemWidget::initTestCase()
{
    m_home = std::make_unique<TestHome>();
    SimLights::select(kLights, true);
    QVERIFY(SimLights::addAndConnectAll(2));
}

void TestControlItemWidget::cleanup()
{
    m_card.reset();
}

ControlItemWidget *TestControlItemWidget::makeCard(const QString &addr)
{
    m_card = std::make_unique<ControlItemWidget>();
    m_card->setDevice(defaultGroupUuid(), QStringLiteral("all"), SimLights::stored(addr));
    m_card->show();
    if (!QTest::qWaitForWindowExposed(m_card.get()))
        return nullptr;
    return m_card.get();
}

void TestControlItemWidget::brightnessDragIsCoalesced_data()
{
    QTest::addColumn<QString>("addr");
    QTest::newRow("FF light") << kFF;
    QTest::newRow("55 AA light") << kAA;
}

void TestControlItemWidget::brightnessDragIsCoalesced()
{
    QFETCH(QString, addr);
    DeviceMgrSingleton::instance()->setBrightness(addr, 10);
    QVERIFY(waitUntil([&] { return SimLights::state(addr).value(QLatin1String("brightness")).toInt() == 10; }, 3000));
    ControlItemWidget *card = makeCard(addr);
    QVERIFY(card);
    CustomSlider *slider = card->brightnessSlider();
    QCOMPARE(slider->value(), 10);
    const int sentBefore = int(brightnessFrames(addr).size());

    // Twenty-five steps from 10 to 90 within 250 ms, as a quick drag of the handle.
    QTest::mousePress(slider, Qt::LeftButton, {}, handleCentre(slider, 10));
    QElapsedTimer clock;
    clock.start();
    constexpr int kSteps = 25;
    for (int step = 1; step <= kSteps; ++step) {
        while (clock.elapsed() < step * 10)
            QTest::qWait(1);
        dragTo(slider, 10 + 80 * step / kSteps);
    }
    QCOMPARE(slider->value(), 90);
    QTest::mouseRelease(slider, Qt::LeftButton, {}, handleCentre(slider, 90));
    const qint64 held = clock.elapsed();

    QVERIFY(waitUntil([&] { return SimLights::state(addr).value(QLatin1String("brightness")).toInt() == 90; }, 3000));
    QTest::qWait(300);
    const QList<int> sent = brightnessFrames(addr).mid(sentBefore);
    // One value per 100 ms of holding at most, plus the final one on release.
    QVERIFY2(sent.size() <= 1 + held / ControlItemWidget::kDragIntervalMs,
             qPrintable(QStringLiteral("%1 values in %2 ms").arg(sent.size()).arg(held)));
    // And the latest value went out while the handle was still held, not only on release.
    QVERIFY(sent.size() >= 2);
    QCOMPARE(sent.last(), 90);
    QCOMPARE(SimLights::stored(addr).brightness, 90);
}

void TestControlItemWidget::temperatureSliderWorksInHundreds_data()
{
    QTest::addColumn<QString>("addr");
    QTest::addColumn<int>("minimum");
    QTest::addColumn<int>("reported");
    QTest::newRow("FF light, 2700 K to 6500 K") << kFF << 27 << 56;
    QTest::newRow("55 AA light, 2900 K to 6500 K") << kAA << 29 << 43;
}

void TestControlItemWidget::temperatureSliderWorksInHundreds()
{
    QFETCH(QString, addr);
    QFETCH(int, minimum);
    QFETCH(int, reported);
    ControlItemWidget *card = makeCard(addr);
    QVERIFY(card);
    CustomSlider *slider = card->temperatureSlider();
    QCOMPARE((QList<int>{slider->minimum(), slider->maximum(), slider->value()}), (QList<int>{minimum, 65, reported}));

    QTest::mousePress(slider, Qt::LeftButton, {}, handleCentre(slider, reported));
    dragTo(slider, 50);
    QTest::mouseRelease(slider, Qt::LeftButton, {}, handleCentre(slider, 50));
    QVERIFY(waitUntil([&] { return SimLights::state(addr).value(QLatin1String("temperature")).toInt() == 5000; }, 3000));
    QVERIFY(waitUntil([&] { return SimLights::stored(addr).temperature == 5000; }, 3000));
}

void TestControlItemWidget::powerClickIsOptimistic()
{
    ControlItemWidget *card = makeCard(kFF);
    QVERIFY(card);
    SwitchButton *power = card->powerButton();
    QVERIFY(power->choose());

    QTest::mouseClick(power, Qt::LeftButton);
    // Shown at once, before the light has answered.
    QVERIFY(!power->choose());
    QVERIFY(waitUntil([] { return !SimLights::state(kFF).value(QLatin1String("power")).toBool(); }, 3000));
    QVERIFY(waitUntil([&] { return !card->brightnessSlider()->isEnabled(); }, 3000));
    QVERIFY(!card->effectButton()->isEnabled());

    QTest::mouseClick(power, Qt::LeftButton);
    QVERIFY(waitUntil([] { return SimLights::state(kFF).value(QLatin1String("power")).toBool(); }, 3000));
    QVERIFY(waitUntil([&] { return card->brightnessSlider()->isEnabled(); }, 3000));

    // Switched at the light itself: the report moves the switch.
    QVERIFY(SimLights::command(QStringLiteral("knob %1 power off").arg(kFF)).startsWith(QLatin1String("ok")));
    QVERIFY(waitUntil([&] { return !power->choose(); }, 3000));
    QVERIFY(SimLights::command(QStringLiteral("knob %1 power on").arg(kFF)).startsWith(QLatin1String("ok")));
    QVERIFY(waitUntil([&] { return power->choose(); }, 3000));
}

void TestControlItemWidget::reportRevertsAnUnconfirmedClick()
{
    // A light the transport cannot switch off (no frame for its protocol): the click shows off at
    // once, and the next report, still on, puts the switch back.
    DevData mute;
    mute.addr = QStringLiteral("AA:00:00:00:00:44");
    mute.name = QStringLiteral("Mute");
    mute.protocol = 4;
    DevDataMgr *store = DeviceMgrSingleton::instance()->store();
    store->addDev(mute);
    mute.linkState = 1;
    mute.switchState = true;
    store->updateDev(mute);

    ControlItemWidget *card = makeCard(mute.addr);
    QVERIFY(card);
    QVERIFY(card->powerButton()->choose());
    QTest::mouseClick(card->powerButton(), Qt::LeftButton);
    QVERIFY(!card->powerButton()->choose());
    QTest::qWait(50);
    QVERIFY(SimLights::stored(mute.addr).switchState);

    mute.brightness = 30;
    store->updateDev(mute);
    QVERIFY(waitUntil([&] { return card->powerButton()->choose(); }, 2000));
    QCOMPARE(card->brightnessSlider()->value(), 30);
    DeviceMgrSingleton::instance()->delDev(defaultGroupUuid(), mute.addr);
}

void TestControlItemWidget::colourPickClearsTheEffect()
{
    ControlItemWidget *card = makeCard(kFF);
    QVERIFY(card);
    QMenu *effectMenu = card->effectButton()->menu();
    QVERIFY(effectMenu);
    emit effectMenu->aboutToShow();
    LightEffectSetDialog *picker = card->effectPicker();
    QVERIFY(!picker->isEmpty());
    WrapButton *effect = picker->button(QStringLiteral("9"));
    QVERIFY(effect);
    QTest::mouseClick(effect, Qt::LeftButton);
    QCOMPARE(picker->checkedCmd(), QStringLiteral("9"));
    QCOMPARE(card->effectButton()->toolTip(), effect->text());
    QVERIFY(waitUntil([] { return SimLights::state(kFF).value(QLatin1String("mode")).toInt() == 9; }, 3000));
    // The light's report confirms the effect without undoing the selection.
    QVERIFY(waitUntil([] { return SimLights::stored(kFF).devCurModel == 2; }, 3000));
    QTest::qWait(50);
    QCOMPARE(picker->checkedCmd(), QStringLiteral("9"));

    QMenu *colourMenu = card->colorButton()->menu();
    QVERIFY(colourMenu);
    emit colourMenu->aboutToShow();
    QColorDialog *dialog = card->colorDialog();
    dialog->setCurrentColor(QColor(0, 255, 0));
    dialog->accept();
    QCOMPARE(card->currentEffect(), QString());
    // The button no longer names the effect.
    QCOMPARE(card->effectButton()->toolTip(), QStringLiteral("光效"));
    QCOMPARE(card->effectButton()->text(), QStringLiteral("光效"));
    QCOMPARE(picker->checkedCmd(), QString());
    QVERIFY(card->colorButton()->styleSheet().contains(QLatin1String("background-color: #00ff00; color: #ffffff;")));
    QVERIFY(waitUntil([] { return SimLights::state(kFF).value(QLatin1String("hue")).toInt() == 120; }, 3000));
    QVERIFY(waitUntil([] { return SimLights::stored(kFF).devCurModel == 3; }, 3000));
    QTest::qWait(50);
    QCOMPARE(picker->checkedCmd(), QString());
}

void TestControlItemWidget::colourButtonTextStaysReadable_data()
{
    QTest::addColumn<QColor>("background");
    QTest::addColumn<QString>("text");
    QTest::newRow("mid grey, on the line") << QColor(128, 128, 128) << QStringLiteral("#ffffff");
    QTest::newRow("just above the line") << QColor(129, 129, 129) << QStringLiteral("#000000");
    QTest::newRow("yellow") << QColor(255, 255, 0) << QStringLiteral("#000000");
    QTest::newRow("red") << QColor(255, 0, 0) << QStringLiteral("#ffffff");
}

void TestControlItemWidget::colourButtonTextStaysReadable()
{
    QFETCH(QColor, background);
    QFETCH(QString, text);
    QCOMPARE(ControlItemWidget::textColorFor(background), text);
}

void TestControlItemWidget::effectGridFivePerRow()
{
    LightEffectSetDialog picker;
    QSignalSpy selected(&picker, &LightEffectSetDialog::selectEffect);
    picker.loadEffects(kFF, 2);
    const QList<EffectItem> effects = DeviceMgrSingleton::instance()->getEffectData().effects(2);
    QVERIFY(effects.size() > LightEffectSetDialog::kColumns);
    auto *grid = picker.findChild<QGridLayout *>();
    QVERIFY(grid);
    for (int i = 0; i < effects.size(); ++i) {
        WrapButton *button = picker.button(effects.at(i).cmd);
        QVERIFY(button);
        QCOMPARE(button->text(), effects.at(i).name);
        int row = -1, column = -1, rowSpan = 0, columnSpan = 0;
        grid->getItemPosition(grid->indexOf(button), &row, &column, &rowSpan, &columnSpan);
        QCOMPARE(row, i / 5);
        QCOMPARE(column, i % 5);
    }

    const QString first = effects.at(0).cmd;
    picker.selectEffectCmd(first);
    QVERIFY(selected.isEmpty());
    picker.selectEffectCmd(QStringLiteral("no such effect"));
    QCOMPARE(picker.checkedCmd(), QString());
    QCOMPARE(selected.count(), 1);

    // A protocol without effects leaves the grid as it was.
    picker.selectEffectCmd(first);
    picker.loadEffects(kFF, 4242);
    QVERIFY(picker.button(first));
    QCOMPARE(picker.checkedCmd(), first);
}

void TestControlItemWidget::lostLinkAndReconnect()
{
    ControlItemWidget *card = makeCard(kFF);
    QVERIFY(card);
    QVERIFY(SimLights::command(QStringLiteral("drop ") + kFF).startsWith(QLatin1String("ok")));
    QVERIFY(waitUntil([&] { return card->linkStateLabel()->text() == QStringLiteral("未连接"); }, 3000));
    QVERIFY(!card->powerButton()->isVisible());
    RotatingSvgWidget *icon = card->reconnectIcon();
    QVERIFY(icon->isVisible());
    // The program tries again by itself and the icon spins meanwhile; a click adds no second attempt.
    QVERIFY(icon->isRotating());
    QTest::mouseClick(icon, Qt::LeftButton);
    QVERIFY(icon->isRotating());
    QVERIFY(waitUntil([&] { return card->linkStateLabel()->text() == QStringLiteral("已连接"); }, 5000));
    QVERIFY(!icon->isRotating());
    QVERIFY(card->powerButton()->isVisible());
    QCOMPARE(SimLights::state(kFF).value(QLatin1String("overlappingAttempts")).toInt(), 0);
}

// A light switched off by a plug-in client while its slider is held: the drag ends, so the
// 55 AA light's own reports are applied again afterwards.
void TestControlItemWidget::dragEndsWhenTheSliderIsDisabled()
{
    ControlItemWidget *card = makeCard(kAA);
    QVERIFY(card);
    CustomSlider *slider = card->brightnessSlider();
    QVERIFY(slider->isEnabled());
    QTest::mousePress(slider, Qt::LeftButton, {}, handleCentre(slider, slider->value()));
    DeviceMgrSingleton::instance()->powerOff(kAA);
    QVERIFY(waitUntil([&] { return !slider->isEnabled(); }, 3000));
    QTest::qWait(ControlItemWidget::kAdjustingEndDelayMs + 100);
    QVERIFY(SimLights::command(QStringLiteral("knob %1 power on").arg(kAA)).startsWith(QLatin1String("ok")));
    QVERIFY(waitUntil([&] { return card->powerButton()->choose() && slider->isEnabled(); }, 3000));
}

void TestControlItemWidget::overlappingDragsKeepAdjusting_data()
{
    QTest::addColumn<QString>("first");
    QTest::newRow("same light") << kAA;
    QTest::newRow("another light") << kFF;
}

void TestControlItemWidget::overlappingDragsKeepAdjusting()
{
    QFETCH(QString, first);
    ControlItemWidget *card = makeCard(kAA);
    QVERIFY(card);
    std::unique_ptr<ControlItemWidget> other;
    CustomSlider *firstSlider = card->brightnessSlider();
    if (first != kAA) {
        other = std::make_unique<ControlItemWidget>();
        other->setDevice(defaultGroupUuid(), QStringLiteral("all"), SimLights::stored(first));
        other->show();
        QVERIFY(QTest::qWaitForWindowExposed(other.get()));
        firstSlider = other->brightnessSlider();
    }
    QTest::mousePress(firstSlider, Qt::LeftButton, {}, handleCentre(firstSlider, firstSlider->value()));
    QTest::mouseRelease(firstSlider, Qt::LeftButton, {}, handleCentre(firstSlider, firstSlider->value()));
    CustomSlider *slider = card->brightnessSlider();
    const int held = slider->value();
    QTest::mousePress(slider, Qt::LeftButton, {}, handleCentre(slider, held));
    // Well past the first drag's end: the light's reports must still be held back.
    QTest::qWait(ControlItemWidget::kAdjustingEndDelayMs + 200);
    QVERIFY(SimLights::command(QStringLiteral("knob %1 brightness 17").arg(kAA)).startsWith(QLatin1String("ok")));
    QTest::qWait(400);
    QCOMPARE(slider->value(), held);
    QTest::mouseRelease(slider, Qt::LeftButton, {}, handleCentre(slider, held));
    QTest::qWait(ControlItemWidget::kAdjustingEndDelayMs + 100);
    QVERIFY(SimLights::command(QStringLiteral("knob %1 brightness 23").arg(kAA)).startsWith(QLatin1String("ok")));
    QVERIFY(waitUntil([&] { return slider->value() == 23; }, 3000));
}

void TestControlItemWidget::keyboardChangesAreCoalesced()
{
    auto lightBrightness = [] { return SimLights::state(kAA).value(QLatin1String("brightness")).toInt(); };
    // One request at a time: the light's answer to a switch-on may carry its older brightness.
    DeviceMgrSingleton::instance()->powerOn(kAA);
    QVERIFY(waitUntil([] { return SimLights::stored(kAA).switchState; }, 3000));
    QTest::qWait(200);
    DeviceMgrSingleton::instance()->setBrightness(kAA, 40);
    QVERIFY(waitUntil([&] { return lightBrightness() == 40 && SimLights::stored(kAA).brightness == 40; }, 3000));
    ControlItemWidget *card = makeCard(kAA);
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
    QVERIFY(waitUntil([&] { return lightBrightness() == 58; }, 3000));
    QTest::qWait(300);
    QList<int> sent = brightnessFrames(kAA).mid(before);
    QVERIFY2(sent.size() <= 2 + typed / ControlItemWidget::kDragIntervalMs, qPrintable(QString::number(sent.size())));
    QCOMPARE(sent.last(), 58);

    // Once the light reports a change of its own, no keyboard value goes out later over it, not
    // even with the next press of the handle.
    QTest::keyClick(slider, Qt::Key_Home);
    QVERIFY(waitUntil([&] { return lightBrightness() == 0; }, 3000));
    QTest::qWait(500);
    QVERIFY(SimLights::command(QStringLiteral("knob %1 brightness 30").arg(kAA)).startsWith(QLatin1String("ok")));
    QTRY_COMPARE(slider->value(), 30);
    QTest::mousePress(slider, Qt::LeftButton, {}, handleCentre(slider, 30));
    QTest::mouseRelease(slider, Qt::LeftButton, {}, handleCentre(slider, 30));
    QTest::qWait(300);
    QCOMPARE(lightBrightness(), 30);
    // The bubble names its unit.
    QVERIFY(slider->popup()->text().endsWith(QLatin1Char('%')));
    QVERIFY(card->temperatureSlider()->popup()->text().endsWith(QLatin1Char('K')));
}

void TestControlItemWidget::controlsFollowCapabilityAndLink_data()
{
    QTest::addColumn<int>("protocol");
    QTest::addColumn<bool>("colour");
    QTest::addColumn<bool>("effects");
    QTest::addColumn<int>("linkState");
    QTest::addColumn<bool>("colourEnabled");
    QTest::addColumn<bool>("effectEnabled");
    QTest::addColumn<bool>("slidersEnabled");
    QTest::newRow("colour light with effects") << 2 << true << true << 1 << true << true << true;
    QTest::newRow("white light with effects") << 1 << false << true << 1 << false << true << true;
    QTest::newRow("55 AA light") << 1001 << false << false << 1 << false << false << true;
    QTest::newRow("Hue lamp: colour, no effect list") << 2001 << true << true << 1 << true << false << true;
    QTest::newRow("not connected") << 2 << true << true << 0 << false << false << false;
}

void TestControlItemWidget::controlsFollowCapabilityAndLink()
{
    QFETCH(int, protocol);
    QFETCH(bool, colour);
    QFETCH(bool, effects);
    QFETCH(int, linkState);
    DevData dev;
    dev.addr = QStringLiteral("AA:00:00:00:00:55");
    dev.name = QStringLiteral("Probe");
    dev.protocol = protocol;
    dev.colorLightEnable = colour;
    dev.lightEffectEnable = effects;
    DevDataMgr *store = DeviceMgrSingleton::instance()->store();
    store->addDev(dev);
    dev.linkState = quint8(linkState);
    dev.switchState = true;
    dev.devCurModel = 3;
    dev.colorLight = QStringLiteral("#00ff00");
    store->updateDev(dev);

    ControlItemWidget *card = makeCard(dev.addr);
    QVERIFY(card);
    QTEST(card->colorButton()->isEnabled(), "colourEnabled");
    QTEST(card->effectButton()->isEnabled(), "effectEnabled");
    QTEST(card->brightnessSlider()->isEnabled(), "slidersEnabled");
    QTEST(card->temperatureSlider()->isEnabled(), "slidersEnabled");

    // The link comes and goes: the controls with it.
    dev.linkState = quint8(1 - linkState);
    store->updateDev(dev);
    QTRY_COMPARE(card->brightnessSlider()->isEnabled(), linkState == 0);
    dev.linkState = quint8(linkState);
    store->updateDev(dev);
    QTRY_COMPARE(card->brightnessSlider()->isEnabled(), linkState != 0);

    if (protocol == 2) {
        // Out of colour mode the colour button drops the colour; a running effect is named.
        QVERIFY(card->colorButton()->styleSheet().contains(QLatin1String("#00ff00")));
        dev.devCurModel = 2;
        dev.lightEffect = QStringLiteral("9");
        store->updateDev(dev);
        QTRY_VERIFY(!card->colorButton()->styleSheet().contains(QLatin1String("#00ff00")));
        const QString name = card->effectPicker()->button(QStringLiteral("9"))->text();
        QCOMPARE(card->effectButton()->toolTip(), name);
        QVERIFY(card->effectButton()->text() != QStringLiteral("光效"));
        QVERIFY(name.startsWith(card->effectButton()->text().chopped(1)));
    }
    DeviceMgrSingleton::instance()->delDev(defaultGroupUuid(), dev.addr);
}

void TestControlItemWidget::groupHeaderDrivesEveryLight()
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
    QTest::mousePress(slider, Qt::LeftButton, {}, handleCentre(slider, slider->value()));
    dragTo(slider, 50);
    QTest::mouseRelease(slider, Qt::LeftButton, {}, handleCentre(slider, 50));
    auto state = [](const QString &addr, const char *key) { return SimLights::state(addr).value(QLatin1String(key)).toVariant().toInt(); };
    QVERIFY(waitUntil([&] { return state(kFF, "brightness") == 50 && state(kAA, "brightness") == 50; }, 3000));

    QTest::mouseClick(header.powerButton(), Qt::LeftButton);
    QVERIFY(waitUntil([&] { return !state(kFF, "power") && !state(kAA, "power"); }, 3000));
    QTRY_VERIFY(!slider->isEnabled());
    mgr->delGroup(uuid);
}

QTEST_MAIN(TestControlItemWidget)
#include "tst_controlitemwidget.moc"
