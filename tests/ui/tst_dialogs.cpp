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

    void sliderSheetsPaintTheirGradients_data()
    {
        QTest::addColumn<QString>("sheet");
        QTest::addColumn<QColor>("left");
        QTest::addColumn<QColor>("right");
        const QColor orange(0xFF, 0x9D, 0x3F), blue(0xA7, 0xCA, 0xFF), grey(0x43, 0x43, 0x43);
        QTest::newRow("brightness") << UiStyleSheets::sliderBrightness() << QColor(0x22, 0x22, 0x22) << QColor(Qt::white);
        QTest::newRow("warm to cold") << UiStyleSheets::sliderTemperatureWarmToCold() << orange << blue;
        QTest::newRow("disabled") << UiStyleSheets::sliderDisabled() << grey << grey;
    }

    void sliderSheetsPaintTheirGradients()
    {
        QFETCH(QString, sheet);
        QTest::failOnWarning(QRegularExpression(QStringLiteral("Could not parse")));
        QSlider slider(Qt::Horizontal);
        slider.setStyleSheet(sheet);
        slider.setRange(0, 100);
        slider.setValue(50);
        slider.resize(300, 30);
        const QImage image = slider.grab().toImage();
        const int y = image.height() / 2;
        const auto near = [](const QColor &a, const QColor &b) {
            return qAbs(a.red() - b.red()) < 24 && qAbs(a.green() - b.green()) < 24 && qAbs(a.blue() - b.blue()) < 24;
        };
        QFETCH(QColor, left);
        QFETCH(QColor, right);
        QVERIFY2(near(image.pixelColor(4, y), left), qPrintable(image.pixelColor(4, y).name()));
        QVERIFY2(near(image.pixelColor(image.width() - 5, y), right),
                qPrintable(image.pixelColor(image.width() - 5, y).name()));
        // The 26 px round handle in the middle stands out above the 8 px groove.
        QVERIFY(image.pixelColor(150, y - 10) != image.pixelColor(4, y - 10));
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
