// Dialogs, style sheets and icons as the user sees them.
#include "deletesettings.h"
#include "deletetipswidget.h"
#include "messageboxwidget.h"
#include "svgicon.h"
#include "testhome.h"
#include "tipsbar.h"
#include "uistylesheets.h"

#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QPainter>
#include <QSvgRenderer>
#include <QMouseEvent>
#include <QPushButton>
#include <QRegularExpression>
#include <QSettings>
#include <QSignalSpy>
#include <QSlider>
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
        QSettings(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("brivon"),
                QStringLiteral("com.brivon.beamcrafter")).clear();
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
        QSettings(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("brivon"),
                QStringLiteral("com.brivon.beamcrafter")).sync();
        const QByteArray stored = readFile(m_home->path() + QStringLiteral("/.config/brivon/com.brivon.beamcrafter.conf"));
        QCOMPARE(stored.contains("ask_to_delete_device=false") || stored.contains("ask_to_delete_group=false"),
                deletions && !key.isEmpty());
    }

    void messageBoxDragsByItsStrip()
    {
        MessageBoxWidget box;
        QVERIFY(!box.isModal());
        box.move(300, 300);
        box.show();
        QVERIFY(QTest::qWaitForWindowExposed(&box));
        auto *strip = box.findChild<TipsBar *>();
        // Only the left button drags; two steps: the box follows the pointer rather than adding up the steps.
        for (const Qt::MouseButton button : {Qt::RightButton, Qt::LeftButton}) {
            const QPoint start = box.pos();
            const QPointF grip(40, 10), global = strip->mapToGlobal(grip);
            QMouseEvent press(QEvent::MouseButtonPress, grip, global, button, button, Qt::NoModifier);
            QApplication::sendEvent(strip, &press);
            for (const QPointF step : {QPointF(10, 5), QPointF(35, -20)}) {
                QMouseEvent move(QEvent::MouseMove, grip + step, global + step, Qt::NoButton, button, Qt::NoModifier);
                QApplication::sendEvent(strip, &move);
            }
            QCOMPARE(box.pos(), button == Qt::LeftButton ? start + QPoint(35, -20) : start);
        }
        QTest::mouseClick(buttonWithText(&box, QStringLiteral("确认")), Qt::LeftButton);
        QVERIFY(!box.isVisible());
    }

    // Each sheet parses; the 26 px round handle stands out above the 8 px groove, whose ends show the
    // way the value runs: dark to light, warm to cold, flat grey when disabled.
    void sliderSheetsPaintTheirGradients()
    {
        QTest::failOnWarning(QRegularExpression(QStringLiteral("Could not parse")));
        QSlider slider(Qt::Horizontal);
        slider.setRange(0, 100);
        slider.setValue(50);
        slider.resize(300, 30);
        QList<QColor> ends;
        for (const QString &sheet : {UiStyleSheets::sliderBrightness(), UiStyleSheets::sliderTemperatureWarmToCold(),
                     UiStyleSheets::sliderDisabled()}) {
            slider.setStyleSheet(sheet);
            const QImage image = slider.grab().toImage();
            const int y = image.height() / 2;
            QVERIFY(image.pixelColor(150, y - 10) != image.pixelColor(4, y - 10));
            ends << image.pixelColor(4, y) << image.pixelColor(image.width() - 5, y);
        }
        QVERIFY2(ends.at(0).lightness() < 60 && ends.at(1).lightness() > 200, qPrintable(ends.at(0).name()));
        QVERIFY(ends.at(2).red() > ends.at(2).blue() + 100 && ends.at(3).blue() > ends.at(3).red() + 50);
        QCOMPARE(ends.at(4), ends.at(5));
        QVERIFY(ends.at(4).hslSaturation() < 20 && ends.at(4).lightness() < 100);
    }

    void everySvgRendersSomething_data()
    {
        QTest::addColumn<QString>("path");
        const QStringList names = QDir(QStringLiteral(":/resource/svg")).entryList({QStringLiteral("*.svg")});
        QVERIFY(!names.isEmpty());
        for (const QString &name : names)
            QTest::newRow(qPrintable(name)) << QStringLiteral(":/resource/svg/") + name;
    }

    void everySvgRendersSomething()
    {
        QFETCH(QString, path);
        // QtSvg warns about every element or attribute it skips; a skipped part is a broken drawing.
        QTest::failOnWarning(QRegularExpression(QStringLiteral(".*")));
        QSvgRenderer renderer(path);
        QVERIFY(renderer.isValid());
        QVERIFY(!renderer.defaultSize().isEmpty());

        QImage image(renderer.defaultSize() * 2, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        renderer.render(&painter);
        painter.end();
        int painted = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                painted += qAlpha(image.pixel(x, y)) > 128 ? 1 : 0;
        // Line icons cover a few percent of their square at least; nothing covers all of it.
        QVERIFY2(painted > image.width() * image.height() / 50, qPrintable(QString::number(painted)));
        QVERIFY(painted < image.width() * image.height());
    }

    void svgIconKeepsTheDrawing()
    {
        const QIcon icon = svgIcon(QStringLiteral(":/resource/svg/btn_add.svg"));
        const QImage image = icon.pixmap(QSize(24, 24)).toImage();
        QCOMPARE(image.size(), QSize(24, 24));
        // Transparent around the plus, opaque at its centre.
        QCOMPARE(qAlpha(image.pixel(1, 1)), 0);
        QVERIFY(qAlpha(image.pixel(12, 12)) > 200);
        QVERIFY(svgIcon(QStringLiteral(":/resource/svg/no-such-icon.svg")).isNull());
    }

private:
    // Made before the first QSettings use: QSettings keeps its folder for the whole process.
    std::unique_ptr<TestHome> m_home;
};

QTEST_MAIN(TestDialogs)
#include "tst_dialogs.moc"
