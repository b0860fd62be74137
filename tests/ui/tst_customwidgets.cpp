#include "custompopup.h"
#include "customlistwidget.h"
#include "customslider.h"

#include <QApplication>
#include <QTest>
#include <QWheelEvent>

namespace {

// A shown window with a 200 px wide slider at a known place on screen.
struct SliderWindow
{
    SliderWindow(int minimum, int maximum)
    {
        window.setGeometry(100, 200, 260, 100);
        slider->setGeometry(10, 50, 200, 30);
        slider->setRange(minimum, maximum);
        window.show();
    }
    QWidget window;
    CustomSlider *slider = new CustomSlider(Qt::Horizontal, &window);
};

// The bubble's pointer tip sits on the slider's top edge, above the value's share of its width.
QPoint expectedBubblePos(const CustomSlider &slider)
{
    const QPoint topLeft = slider.mapToGlobal(QPoint(0, 0));
    const double fraction = double(slider.value() - slider.minimum()) / (slider.maximum() - slider.minimum());
    return QPoint(int(topLeft.x() + slider.width() * fraction) - 25, topLeft.y() - 30);
}

} // namespace

class TestCustomWidgets : public QObject
{
    Q_OBJECT

private slots:
    void bubbleFollowsTheValue_data()
    {
        QTest::addColumn<int>("minimum");
        QTest::addColumn<int>("maximum");
        QTest::addColumn<int>("value");
        QTest::addColumn<int>("ratio");
        QTest::addColumn<QString>("unit");
        QTest::addColumn<QString>("text");
        QTest::newRow("temperature") << 27 << 65 << 50 << 100 << "K" << "5000K";
        QTest::newRow("empty range stays") << 5 << 5 << 9 << 1 << "" << "0";
    }

    void bubbleFollowsTheValue()
    {
        QFETCH(int, minimum);
        QFETCH(int, maximum);
        QFETCH(int, value);
        QFETCH(int, ratio);
        QFETCH(QString, unit);

        SliderWindow window(minimum, maximum);
        CustomSlider *slider = window.slider;
        const QPoint before = slider->popup()->pos();
        slider->setRatio(ratio);
        slider->setUnit(unit);
        slider->setValue(value);
        slider->updatePopup();

        QTEST(slider->popup()->text(), "text");
        QCOMPARE(slider->popup()->pos(), minimum == maximum ? before : expectedBubblePos(*slider));
    }

    void wheelIsLeftToTheSurroundingList()
    {
        CustomSlider slider(Qt::Horizontal);
        slider.setRange(0, 100);
        slider.setValue(50);
        QWheelEvent wheel(QPointF(10, 10), QPointF(10, 10), QPoint(), QPoint(0, -120), Qt::NoButton, Qt::NoModifier,
                Qt::NoScrollPhase, false);
        QApplication::sendEvent(&slider, &wheel);
        // Ignored, so that Qt hands it on to the parents and the panel scrolls instead.
        QVERIFY(!wheel.isAccepted() && slider.value() == 50);
    }

    void listClickIntoEmptySpaceDeselects()
    {
        CustomListWidget list;
        list.resize(200, 300);
        list.addItems({QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")});
        list.show();
        QVERIFY(QTest::qWaitForWindowExposed(&list));
        QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, list.visualItemRect(list.item(1)).center());
        QCOMPARE(list.selectedItems(), QList<QListWidgetItem *>{list.item(1)});
        QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, QPoint(100, 280));
        QVERIFY(list.selectedItems().isEmpty());
    }
};

QTEST_MAIN(TestCustomWidgets)
#include "tst_customwidgets.moc"
