#include "custompopup.h"
#include "customlistwidget.h"
#include "customslider.h"
#include "rotatingsvgwidget.h"
#include "switchbutton.h"

#include <QApplication>
#include <QSignalSpy>
#include <QTest>
#include <QWheelEvent>

class TestCustomWidgets : public QObject
{
    Q_OBJECT

private slots:
    void bubbleFollowsTheValue_data();
    void bubbleFollowsTheValue();
    void bubbleStaysWhenRangeIsEmpty();
    void stepSliderShowsAndReportsTheStep_data();
    void stepSliderShowsAndReportsTheStep();
    void bubbleShowsOnlyWhileHoveredInActiveWindow();
    void wheelIsLeftToTheSurroundingList();
    void pressAndReleaseSignals_data();
    void pressAndReleaseSignals();
    void switchRestylesOnChoose();
    void reconnectIconGuardsAgainstSecondClick();
    void listClickIntoEmptySpaceDeselects();
};

namespace {

// A window with a 200 px wide slider 10 px in from its left edge, at a known place on screen.
struct SliderWindow
{
    explicit SliderWindow(CustomSlider *s)
        : slider(s)
    {
        window.move(100, 200);
        window.resize(260, 100);
        slider->setParent(&window);
        slider->setOrientation(Qt::Horizontal);
        slider->setGeometry(10, 50, 200, 30);
        window.show();
    }
    QWidget window;
    CustomSlider *slider;
};

QPoint expectedBubblePos(const CustomSlider &slider)
{
    const QPoint topLeft = slider.mapToGlobal(QPoint(0, 0));
    const double fraction = double(slider.value() - slider.minimum()) / (slider.maximum() - slider.minimum());
    const int anchorX = int(topLeft.x() + slider.width() * fraction);
    return QPoint(anchorX - 25, topLeft.y() - 30);
}

} // namespace

void TestCustomWidgets::bubbleFollowsTheValue_data()
{
    QTest::addColumn<int>("minimum");
    QTest::addColumn<int>("maximum");
    QTest::addColumn<int>("value");
    QTest::addColumn<int>("ratio");
    QTest::addColumn<QString>("unit");
    QTest::addColumn<QString>("text");
    QTest::newRow("quarter") << 0 << 100 << 25 << 1 << "" << "25";
    QTest::newRow("right end") << 0 << 100 << 100 << 1 << "%" << "100%";
    QTest::newRow("factor 10") << 0 << 100 << 7 << 10 << "%" << "70%";
    QTest::newRow("temperature") << 27 << 65 << 50 << 100 << "K" << "5000K";
    QTest::newRow("negative range") << -50 << 50 << -20 << 1 << "" << "-20";
}

void TestCustomWidgets::bubbleFollowsTheValue()
{
    QFETCH(int, minimum);
    QFETCH(int, maximum);
    QFETCH(int, value);
    QFETCH(int, ratio);
    QFETCH(QString, unit);

    auto *slider = new CustomSlider;
    SliderWindow window(slider);
    slider->setRange(minimum, maximum);
    slider->setRatio(ratio);
    slider->setUnit(unit);
    slider->setValue(value);

    QTEST(slider->popup()->text(), "text");
    QCOMPARE(slider->popup()->pos(), expectedBubblePos(*slider));
    // The pointer's tip (bottom centre of the bubble) sits on the slider's top edge.
    QCOMPARE(slider->popup()->geometry().bottom() + 1, slider->mapToGlobal(QPoint(0, 0)).y());
}

void TestCustomWidgets::bubbleStaysWhenRangeIsEmpty()
{
    auto *slider = new CustomSlider;
    SliderWindow window(slider);
    slider->setRange(5, 5);
    const QPoint before = slider->popup()->pos();
    slider->setValue(9);
    slider->updatePopup();
    QCOMPARE(slider->value(), 5);
    QCOMPARE(slider->popup()->text(), QStringLiteral("0"));
    QCOMPARE(slider->popup()->pos(), before);
}

void TestCustomWidgets::stepSliderShowsAndReportsTheStep_data()
{
    QTest::addColumn<int>("value");
    QTest::addColumn<int>("ratio");
    QTest::addColumn<int>("shown");
    QTest::newRow("zero reads as -1") << 0 << 1 << -1;
    QTest::newRow("one") << 1 << 1 << 1;
    QTest::newRow("factor not applied") << 6 << 10 << 6;
}

void TestCustomWidgets::stepSliderShowsAndReportsTheStep()
{
    QFETCH(int, value);
    QFETCH(int, ratio);
    QFETCH(int, shown);

    auto *slider = new CustomStepSlider;
    SliderWindow window(slider);
    slider->setRange(0, 10);
    slider->setRatio(ratio);
    slider->setUnit(QStringLiteral(" s"));
    slider->setValue(3);
    QSignalSpy steps(slider, &CustomStepSlider::valueChanged);
    slider->setValue(value);

    QCOMPARE(steps.count(), 1);
    QCOMPARE(steps.first().first().toInt(), shown);
    QCOMPARE(slider->popup()->text(), QString::number(shown) + QStringLiteral(" s"));
    QCOMPARE(slider->popup()->pos(), expectedBubblePos(*slider));
}

void TestCustomWidgets::bubbleShowsOnlyWhileHoveredInActiveWindow()
{
    auto *slider = new CustomSlider;
    SliderWindow window(slider);
    slider->setRange(0, 100);
    slider->setValue(40);

    QWidget other;
    other.show();
    QApplication::setActiveWindow(&other);
    QVERIFY(QTest::qWaitForWindowActive(&other));
    QEnterEvent enter(QPointF(5, 5), QPointF(5, 5), slider->mapToGlobal(QPointF(5, 5)));
    QApplication::sendEvent(slider, &enter);
    QVERIFY(!slider->popup()->isVisible());

    QApplication::setActiveWindow(&window.window);
    QVERIFY(QTest::qWaitForWindowActive(&window.window));
    slider->setValue(60);
    QApplication::sendEvent(slider, &enter);
    QVERIFY(slider->popup()->isVisible());
    QCOMPARE(slider->popup()->text(), QStringLiteral("60"));
    QCOMPARE(slider->popup()->pos(), expectedBubblePos(*slider));

    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(slider, &leave);
    QVERIFY(!slider->popup()->isVisible());
}

void TestCustomWidgets::wheelIsLeftToTheSurroundingList()
{
    CustomSlider slider(Qt::Horizontal);
    QSlider plain(Qt::Horizontal);
    for (QSlider *s : {static_cast<QSlider *>(&slider), &plain}) {
        s->resize(200, 30);
        s->setRange(0, 100);
        s->setValue(50);
    }
    const auto turn = [](QSlider *target) {
        const QPointF local(100, 15);
        QWheelEvent wheel(local, target->mapToGlobal(local), QPoint(), QPoint(0, -120), Qt::NoButton,
                          Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(target, &wheel);
        return wheel.isAccepted();
    };
    // The same turn moves a plain slider, so the event itself is one a slider would act on.
    QVERIFY(turn(&plain));
    QVERIFY(plain.value() != 50);
    // Ignored, so that Qt hands it on to the parents: the panel's scroll area scrolls.
    QVERIFY(!turn(&slider));
    QCOMPARE(slider.value(), 50);
}

void TestCustomWidgets::pressAndReleaseSignals_data()
{
    QTest::addColumn<Qt::MouseButton>("button");
    QTest::addColumn<int>("expected");
    QTest::newRow("left") << Qt::LeftButton << 1;
    QTest::newRow("right") << Qt::RightButton << 0;
    QTest::newRow("middle") << Qt::MiddleButton << 0;
}

void TestCustomWidgets::pressAndReleaseSignals()
{
    QFETCH(Qt::MouseButton, button);
    QFETCH(int, expected);

    auto *slider = new CustomSlider;
    SliderWindow window(slider);
    slider->setRange(0, 100);
    slider->setValue(50);
    QVERIFY(QTest::qWaitForWindowExposed(&window.window));

    // Owners suspend their own updates on the press, so it must come before the slider reacts.
    QList<bool> downAtSignal;
    connect(slider, &CustomSlider::sigSliderPressed, this, [&] { downAtSignal << slider->isSliderDown(); });
    connect(slider, &CustomSlider::sigSliderReleased, this, [&] { downAtSignal << slider->isSliderDown(); });
    QSignalSpy pressed(slider, &CustomSlider::sigSliderPressed);
    QSignalSpy released(slider, &CustomSlider::sigSliderReleased);

    const QPoint handle = slider->rect().center();
    QTest::mousePress(slider, button, {}, handle);
    QCOMPARE(pressed.count(), expected);
    QCOMPARE(released.count(), 0);
    QTest::mouseRelease(slider, button, {}, handle);
    QCOMPARE(pressed.count(), expected);
    QCOMPARE(released.count(), expected);
    if (expected)
        QCOMPARE(downAtSignal, (QList<bool>{false, true}));
}

void TestCustomWidgets::switchRestylesOnChoose()
{
    SwitchButton button;
    button.setStyleSheet(QStringLiteral("SwitchButton[choose = true] { background-color: #0A84FF; border: none;}"
                                        "SwitchButton[choose = false] { background-color: #141414; border: none;}"));
    button.resize(52, 30);
    button.show();
    QVERIFY(QTest::qWaitForWindowExposed(&button));
    QSignalSpy changed(&button, &SwitchButton::chooseChanged);
    const auto centre = [&] { return button.grab().toImage().pixelColor(26, 15); };

    QCOMPARE(centre(), QColor(QStringLiteral("#141414")));
    button.setChoose(false);
    QCOMPARE(changed.count(), 0);

    button.setChoose(true);
    QCOMPARE(changed.count(), 1);
    QVERIFY(button.property("choose").toBool());
    QCOMPARE(centre(), QColor(QStringLiteral("#0A84FF")));

    button.setChoose(true);
    QCOMPARE(changed.count(), 1);
    button.setProperty("choose", false);
    QCOMPARE(changed.count(), 2);
    QCOMPARE(centre(), QColor(QStringLiteral("#141414")));
}

void TestCustomWidgets::reconnectIconGuardsAgainstSecondClick()
{
    RotatingSvgWidget icon;
    icon.show();
    QVERIFY(QTest::qWaitForWindowExposed(&icon));
    QSignalSpy reconnect(&icon, &RotatingSvgWidget::reconnect_dev);

    QTest::mouseClick(&icon, Qt::RightButton);
    QCOMPARE(reconnect.count(), 0);
    QVERIFY(!icon.isRotating());

    QTest::mouseClick(&icon, Qt::LeftButton);
    QCOMPARE(reconnect.count(), 1);
    QVERIFY(icon.isRotating());
    QTest::mouseClick(&icon, Qt::LeftButton);
    QCOMPARE(reconnect.count(), 1);

    QTRY_VERIFY(icon.rotation() >= 10.0);
    emit icon.stopRotation();
    QVERIFY(!icon.isRotating());
    const double stoppedAt = icon.rotation();
    QTest::qWait(120);
    QCOMPARE(icon.rotation(), stoppedAt);

    // A spin started by the owner (a reconnect notice) asks for no reconnect of its own.
    emit icon.startRotation();
    QVERIFY(icon.isRotating());
    QCOMPARE(reconnect.count(), 1);
    emit icon.stopRotation();
    QTest::mouseClick(&icon, Qt::LeftButton);
    QCOMPARE(reconnect.count(), 2);
}

void TestCustomWidgets::listClickIntoEmptySpaceDeselects()
{
    CustomListWidget list;
    list.resize(200, 300);
    list.addItems({QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")});
    list.show();
    QVERIFY(QTest::qWaitForWindowExposed(&list));

    const QPoint onSecond = list.visualItemRect(list.item(1)).center();
    const QPoint empty(100, 280);
    QVERIFY(!list.indexAt(empty).isValid());

    QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, onSecond);
    QCOMPARE(list.selectedItems(), QList<QListWidgetItem *>{list.item(1)});
    QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, empty);
    QVERIFY(list.selectedItems().isEmpty());
    QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, empty);
    QVERIFY(list.selectedItems().isEmpty());
    QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, onSecond);
    QCOMPARE(list.selectedItems(), QList<QListWidgetItem *>{list.item(1)});
}

QTEST_MAIN(TestCustomWidgets)
#include "tst_customwidgets.moc"
