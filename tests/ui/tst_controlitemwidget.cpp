// The control card against the simulated lights: what the user does on the card must reach the
// light through the real device manager, and what the light reports must show on the card.
#include "controlitemwidget.h"
#include "customslider.h"
#include "devicemgr.h"
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
    QCOMPARE(card->effectButton()->toolTip(), QString());
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
    QVERIFY(!icon->isRotating());

    QTest::mouseClick(icon, Qt::LeftButton);
    QVERIFY(icon->isRotating());
    QVERIFY(waitUntil([&] { return card->linkStateLabel()->text() == QStringLiteral("已连接"); }, 5000));
    QVERIFY(!icon->isRotating());
    QVERIFY(card->powerButton()->isVisible());
}

QTEST_MAIN(TestControlItemWidget)
#include "tst_controlitemwidget.moc"
