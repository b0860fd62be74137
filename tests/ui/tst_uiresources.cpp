#include "svgicon.h"

#include <QDir>
#include <QImage>
#include <QPainter>
#include <QRegularExpression>
#include <QSvgRenderer>
#include <QTest>

class TestUiResources : public QObject
{
    Q_OBJECT

private slots:
    void iconsTheInterfaceUsesExist_data();
    void iconsTheInterfaceUsesExist();
    void everySvgRendersSomething_data();
    void everySvgRendersSomething();
    void svgIconKeepsTheDrawing();
};

void TestUiResources::iconsTheInterfaceUsesExist_data()
{
    QTest::addColumn<QString>("name");
    for (const char *name : {"Subtract", "Vector", "battle", "brightness", "btn_add", "btn_green", "btn_red",
                             "btn_setting", "btn_yellow", "close", "color_temperature", "max", "mini", "revert",
                             "switch_disabled", "switch_off", "switch_on", "tips", "wifi", "logo-app"})
        QTest::newRow(name) << QString::fromLatin1(name);
}

void TestUiResources::iconsTheInterfaceUsesExist()
{
    QFETCH(QString, name);
    QVERIFY(QFile::exists(QStringLiteral(":/resource/svg/%1.svg").arg(name)));
}

void TestUiResources::everySvgRendersSomething_data()
{
    QTest::addColumn<QString>("path");
    const QStringList names = QDir(QStringLiteral(":/resource/svg")).entryList({QStringLiteral("*.svg")});
    QVERIFY(!names.isEmpty());
    for (const QString &name : names)
        QTest::newRow(qPrintable(name)) << QStringLiteral(":/resource/svg/") + name;
}

void TestUiResources::everySvgRendersSomething()
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

void TestUiResources::svgIconKeepsTheDrawing()
{
    const QIcon icon = svgIcon(QStringLiteral(":/resource/svg/btn_add.svg"));
    const QImage image = icon.pixmap(QSize(24, 24)).toImage();
    QCOMPARE(image.size(), QSize(24, 24));
    // Transparent around the plus, opaque at its centre.
    QCOMPARE(qAlpha(image.pixel(1, 1)), 0);
    QVERIFY(qAlpha(image.pixel(12, 12)) > 200);
    QVERIFY(svgIcon(QStringLiteral(":/resource/svg/no-such-icon.svg")).isNull());
}

QTEST_MAIN(TestUiResources)
#include "tst_uiresources.moc"
