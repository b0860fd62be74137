#include "about.h"
#include "deletesettings.h"
#include "deletetipswidget.h"
#include "messageboxwidget.h"
#include "testhome.h"
#include "tipsbar.h"
#include "uistylesheets.h"

#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QMouseEvent>
#include <QPushButton>
#include <QRegularExpression>
#include <QSettings>
#include <QSignalSpy>
#include <QSlider>
#include <QTest>
#include <memory>

class TestDialogs : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void askDefaultsToTrue();
    void deleteConfirmation_data();
    void deleteConfirmation();
    void texts_data();
    void texts();
    void messageBoxReplacesTextAndClosesOnConfirm();
    void dragByTheStrip_data();
    void dragByTheStrip();
    void sliderSheetsPaintTheirGradients_data();
    void sliderSheetsPaintTheirGradients();

private:
    // Set before the first QSettings use: QSettings remembers its folder for the process.
    std::unique_ptr<TestHome> m_home;
    QString settingsFile() const { return m_home->path() + QStringLiteral("/.config/brivon/com.brivon.beamcrafter.conf"); }
};

namespace {

QPushButton *buttonWithText(QWidget *parent, const QString &text)
{
    const auto buttons = parent->findChildren<QPushButton *>();
    for (QPushButton *button : buttons) {
        if (button->text() == text)
            return button;
    }
    return nullptr;
}

QStringList visibleTexts(QWidget *widget)
{
    QStringList texts{widget->windowTitle()};
    for (QLabel *label : widget->findChildren<QLabel *>())
        texts << label->text();
    for (QAbstractButton *button : widget->findChildren<QAbstractButton *>())
        texts << button->text();
    return texts;
}

} // namespace

void TestDialogs::initTestCase()
{
    m_home = std::make_unique<TestHome>();
    QVERIFY(m_home->isValid());
}

void TestDialogs::init()
{
    QSettings(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("brivon"),
              QStringLiteral("com.brivon.beamcrafter"))
        .clear();
}

void TestDialogs::askDefaultsToTrue()
{
    QVERIFY(askToDeleteDevice());
    QVERIFY(askToDeleteGroup());
    setAskToDelete(QStringLiteral("global/ask_to_delete_device"), false);
    QVERIFY(!askToDeleteDevice());
    QVERIFY(askToDeleteGroup());
    setAskToDelete(QStringLiteral("global/ask_to_delete_device"), true);
    QVERIFY(askToDeleteDevice());
}

void TestDialogs::deleteConfirmation_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<bool>("tick");
    QTest::addColumn<QString>("button");
    QTest::addColumn<int>("deletions");
    QTest::addColumn<bool>("askDeviceAfter");
    QTest::addColumn<bool>("askGroupAfter");

    const QString device = QStringLiteral("global/ask_to_delete_device");
    const QString group = QStringLiteral("global/ask_to_delete_group");
    QTest::newRow("device, confirm") << device << false << "确认" << 1 << true << true;
    QTest::newRow("device, ticked, cancel") << device << true << "取消" << 0 << true << true;
    QTest::newRow("device, ticked, confirm") << device << true << "确认" << 1 << false << true;
    QTest::newRow("group, ticked, cancel") << group << true << "取消" << 0 << true << true;
    QTest::newRow("group, ticked, confirm") << group << true << "确认" << 1 << true << false;
    QTest::newRow("no key, ticked, confirm") << QString() << true << "确认" << 1 << true << true;
}

void TestDialogs::deleteConfirmation()
{
    QFETCH(QString, key);
    QFETCH(bool, tick);
    QFETCH(QString, button);
    QFETCH(int, deletions);
    QFETCH(bool, askDeviceAfter);
    QFETCH(bool, askGroupAfter);

    DeleteTipsWidget tips(QStringLiteral("确认删除该设备？"));
    tips.setSettingKey(key);
    tips.setName(QStringLiteral("Key light"));
    tips.show();
    QVERIFY(QTest::qWaitForWindowExposed(&tips));
    QSignalSpy deleted(&tips, &DeleteTipsWidget::deleteItem);

    auto *box = tips.findChild<QCheckBox *>();
    QVERIFY(box);
    if (tick)
        QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(8, box->height() / 2));
    QCOMPARE(box->isChecked(), tick);
    QPushButton *pressed = buttonWithText(&tips, button);
    QVERIFY(pressed);
    QTest::mouseClick(pressed, Qt::LeftButton);

    QVERIFY(!tips.isVisible());
    QCOMPARE(deleted.count(), deletions);
    if (deletions)
        QCOMPARE(deleted.first().first().toString(), QStringLiteral("Key light"));
    QCOMPARE(askToDeleteDevice(), askDeviceAfter);
    QCOMPARE(askToDeleteGroup(), askGroupAfter);

    // The choice must survive a restart: it is in the user's settings file, not just in memory.
    QSettings(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("brivon"),
              QStringLiteral("com.brivon.beamcrafter"))
        .sync();
    const QByteArray stored = readFile(settingsFile());
    QCOMPARE(stored.contains("ask_to_delete_device=false"), !askDeviceAfter);
    QCOMPARE(stored.contains("ask_to_delete_group=false"), !askGroupAfter);
}

void TestDialogs::texts_data()
{
    QTest::addColumn<QString>("dialog");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("about") << "about" << QStringList{"关于", "Version: 1.0.30"};
    QTest::newRow("message box") << "message" << QStringList{"确认"};
    QTest::newRow("delete confirmation") << "delete" << QStringList{"确认删除该群组？", "不再询问", "确认", "取消"};
}

void TestDialogs::texts()
{
    QFETCH(QString, dialog);
    QFETCH(QStringList, expected);
    std::unique_ptr<QWidget> widget;
    if (dialog == QLatin1String("about"))
        widget = std::make_unique<About>();
    else if (dialog == QLatin1String("message"))
        widget = std::make_unique<MessageBoxWidget>();
    else
        widget = std::make_unique<DeleteTipsWidget>(QStringLiteral("确认删除该群组？"));
    const QStringList texts = visibleTexts(widget.get());
    for (const QString &text : expected)
        QVERIFY2(texts.contains(text), qPrintable(text + QStringLiteral(" not in ") + texts.join(QLatin1Char('|'))));
}

void TestDialogs::messageBoxReplacesTextAndClosesOnConfirm()
{
    MessageBoxWidget box;
    QVERIFY(!box.isModal());
    QVERIFY(box.windowFlags().testFlag(Qt::WindowStaysOnTopHint));
    box.setText(QStringLiteral("蓝牙不存在"));
    box.show();
    QVERIFY(QTest::qWaitForWindowExposed(&box));
    box.setText(QStringLiteral("蓝牙未打开，请先在系统设置中打开蓝牙"));
    box.show();
    const QStringList texts = visibleTexts(&box);
    QVERIFY(texts.contains(QStringLiteral("蓝牙未打开，请先在系统设置中打开蓝牙")));
    QVERIFY(!texts.contains(QStringLiteral("蓝牙不存在")));

    QTest::mouseClick(buttonWithText(&box, QStringLiteral("确认")), Qt::LeftButton);
    QVERIFY(!box.isVisible());
}

void TestDialogs::dragByTheStrip_data()
{
    QTest::addColumn<Qt::MouseButton>("button");
    QTest::addColumn<QPoint>("moved");
    QTest::newRow("left") << Qt::LeftButton << QPoint(35, -20);
    QTest::newRow("right") << Qt::RightButton << QPoint(0, 0);
}

void TestDialogs::dragByTheStrip()
{
    QFETCH(Qt::MouseButton, button);
    QFETCH(QPoint, moved);

    MessageBoxWidget box;
    box.move(300, 300);
    box.show();
    QVERIFY(QTest::qWaitForWindowExposed(&box));
    auto *strip = box.findChild<TipsBar *>();
    QVERIFY(strip);
    const QPoint start = box.pos();

    const QPointF grip(40, 10);
    const QPointF global = strip->mapToGlobal(grip);
    QMouseEvent press(QEvent::MouseButtonPress, grip, global, button, button, Qt::NoModifier);
    QApplication::sendEvent(strip, &press);
    // Two steps: the window must follow the pointer, not add each step's offset again.
    for (const QPointF step : {QPointF(10, 5), QPointF(35, -20)}) {
        QMouseEvent move(QEvent::MouseMove, grip + step, global + step, Qt::NoButton, button, Qt::NoModifier);
        QApplication::sendEvent(strip, &move);
    }
    QCOMPARE(box.pos(), start + moved);
}

void TestDialogs::sliderSheetsPaintTheirGradients_data()
{
    QTest::addColumn<QString>("sheet");
    QTest::addColumn<QColor>("left");
    QTest::addColumn<QColor>("right");
    QTest::newRow("brightness") << UiStyleSheets::sliderBrightness() << QColor(0x22, 0x22, 0x22) << QColor(Qt::white);
    QTest::newRow("warm to cold") << UiStyleSheets::sliderTemperatureWarmToCold() << QColor(0xFF, 0x9D, 0x3F)
                                  << QColor(0xA7, 0xCA, 0xFF);
    QTest::newRow("cold to warm") << UiStyleSheets::sliderTemperatureColdToWarm() << QColor(0xA7, 0xCA, 0xFF)
                                  << QColor(0xFF, 0x9D, 0x3F);
    QTest::newRow("disabled") << UiStyleSheets::sliderDisabled() << QColor(0x43, 0x43, 0x43)
                              << QColor(0x43, 0x43, 0x43);
}

void TestDialogs::sliderSheetsPaintTheirGradients()
{
    QFETCH(QString, sheet);
    QFETCH(QColor, left);
    QFETCH(QColor, right);
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
    const QColor atLeft = image.pixelColor(4, y);
    const QColor atRight = image.pixelColor(image.width() - 5, y);
    QVERIFY2(near(atLeft, left), qPrintable(atLeft.name()));
    QVERIFY2(near(atRight, right), qPrintable(atRight.name()));
    // The 26 px round handle sits in the middle, taller than the 8 px groove.
    QVERIFY(image.pixelColor(150, y - 10) != image.pixelColor(4, y - 10));
}

QTEST_MAIN(TestDialogs)
#include "tst_dialogs.moc"
