// Renders the custom widgets, the small dialogs and every icon into PNG files, so that a change
// in their look can be checked by eye: uigallery <output folder>
#include "about.h"
#include "applanguage.h"
#include "customlistwidget.h"
#include "custompopup.h"
#include "customslider.h"
#include "deletetipswidget.h"
#include "messageboxwidget.h"
#include "rotatingsvgwidget.h"
#include "switchbutton.h"
#include "uistylesheets.h"
#include "wrapbutton.h"
#include "zrprocessbar.h"

#include <QApplication>
#include <QDir>
#include <QGridLayout>
#include <QIcon>
#include <QLabel>
#include <QPainter>
#include <QSvgRenderer>

namespace {

QString g_out;

// Translucent windows are composed on a mid grey so that their rounded corners show.
void save(QWidget *widget, const QString &name, const QColor &backdrop = QColor(0x80, 0x80, 0x80), int zoom = 1)
{
    widget->ensurePolished();
    if (!widget->testAttribute(Qt::WA_WState_Created))
        widget->show();
    QApplication::processEvents();
    const QPixmap shot = widget->grab();
    QImage image(shot.size(), QImage::Format_ARGB32);
    image.fill(backdrop);
    QPainter painter(&image);
    painter.drawPixmap(0, 0, shot);
    painter.end();
    image = image.scaled(image.size() * zoom);
    image.save(g_out + QLatin1Char('/') + name + QStringLiteral(".png"));
}

const char *const kSwitchSheet =
    "SwitchButton[choose = true] { background-color: transparent; border-image: url(:/resource/svg/switch_on.svg);}"
    "SwitchButton[choose = false] { background-color: transparent; border-image: url(:/resource/svg/switch_off.svg);}"
    "SwitchButton:disabled { background-color: transparent; border-image: url(:/resource/svg/switch_disabled.svg);}";

} // namespace

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    if (argc < 2)
        return 2;
    g_out = QString::fromLocal8Bit(argv[1]);
    QDir().mkpath(g_out);
    loadApplicationFont(QStringLiteral(":/resource/font/Roboto-Light-10.ttf"));

    // Sliders of a card, with the bubble of the brightness slider.
    QWidget sliders;
    sliders.setStyleSheet(QStringLiteral("background-color: #141414;"));
    auto *grid = new QGridLayout(&sliders);
    grid->setContentsMargins(16, 40, 16, 16);
    const QList<QPair<QString, QString>> sheets{{QStringLiteral("brightness"), UiStyleSheets::sliderBrightness()},
                                                {QStringLiteral("warm to cold"), UiStyleSheets::sliderTemperatureWarmToCold()},
                                                {QStringLiteral("cold to warm"), UiStyleSheets::sliderTemperatureColdToWarm()},
                                                {QStringLiteral("disabled"), UiStyleSheets::sliderDisabled()}};
    CustomSlider *first = nullptr;
    for (int i = 0; i < sheets.size(); ++i) {
        auto *label = new QLabel(sheets[i].first);
        label->setStyleSheet(QStringLiteral("color: #E6E6E6; font-size: 12px;"));
        auto *slider = new CustomSlider(Qt::Horizontal);
        slider->setFixedHeight(30);
        slider->setMinimumWidth(380);
        slider->setStyleSheet(sheets[i].second);
        slider->setRange(0, 100);
        slider->setValue(30 + i * 15);
        grid->addWidget(label, i, 0);
        grid->addWidget(slider, i, 1);
        if (!first)
            first = slider;
    }
    sliders.show();
    save(&sliders, QStringLiteral("sliders"));
    first->setUnit(QStringLiteral("%"));
    first->setValue(80);
    first->popup()->show();
    save(first->popup(), QStringLiteral("bubble"), QColor(0x80, 0x80, 0x80), 4);

    // Switches, the reconnect icon, the spinner and effect buttons on a card's background.
    QWidget controls;
    controls.setStyleSheet(QStringLiteral("QWidget#controls { background-color: #141414; }"));
    controls.setObjectName(QStringLiteral("controls"));
    auto *row = new QGridLayout(&controls);
    for (int i = 0; i < 3; ++i) {
        auto *button = new SwitchButton;
        button->setFixedSize(52, 30);
        button->setStyleSheet(QString::fromLatin1(kSwitchSheet));
        button->setChoose(i == 0);
        button->setEnabled(i != 2);
        row->addWidget(button, 0, i);
    }
    auto *icon = new RotatingSvgWidget;
    row->addWidget(icon, 0, 3);
    auto *turned = new RotatingSvgWidget;
    turned->setRotation(45);
    row->addWidget(turned, 0, 4);
    auto *spinner = new ZrProcessBar;
    spinner->startAnimation();
    for (int i = 0; i < 90; ++i)
        spinner->updateRotation();
    row->addWidget(spinner, 0, 5);
    const QStringList effects{QStringLiteral("闪电"), QStringLiteral("Police car flashing lights"),
                              QStringLiteral("Fireworks over the harbour at night"), QStringLiteral("TV")};
    for (int i = 0; i < effects.size(); ++i) {
        auto *effect = new WrapButton(effects[i]);
        effect->setCheckable(true);
        effect->setChecked(i == 1);
        effect->setFixedSize(80, 80);
        effect->setStyleSheet(UiStyleSheets::effectButton());
        row->addWidget(effect, 1, i);
    }
    controls.show();
    save(&controls, QStringLiteral("controls"));

    CustomListWidget list;
    list.addItems({QStringLiteral("设备列表"), QStringLiteral("Studio A"), QStringLiteral("Studio B")});
    list.resize(200, 160);
    list.item(1)->setSelected(true);
    save(&list, QStringLiteral("list"));

    About about;
    save(&about, QStringLiteral("about"));
    MessageBoxWidget message;
    message.setText(QStringLiteral("蓝牙未打开，请先在系统设置中打开蓝牙"));
    save(&message, QStringLiteral("messagebox"));
    DeleteTipsWidget tips(QStringLiteral("确认删除该群组？"));
    save(&tips, QStringLiteral("deletetips"));

    // Every icon at 48 px on the dark card colour, with its name.
    const QStringList names = QDir(QStringLiteral(":/resource/svg")).entryList({QStringLiteral("*.svg")});
    const int cell = 96;
    QImage sheet(cell * 5, cell * ((names.size() + 4) / 5), QImage::Format_ARGB32);
    sheet.fill(QColor(0x14, 0x14, 0x14));
    QPainter painter(&sheet);
    painter.setRenderHint(QPainter::Antialiasing);
    for (int i = 0; i < names.size(); ++i) {
        const QRect box((i % 5) * cell, (i / 5) * cell, cell, cell);
        QSvgRenderer renderer(QStringLiteral(":/resource/svg/") + names[i]);
        QSizeF size = renderer.defaultSize();
        size *= 48.0 / qMax(size.width(), size.height());
        renderer.render(&painter, QRectF(box.center().x() - size.width() / 2, box.top() + 16, size.width(), size.height()));
        painter.setPen(QColor(0x9C, 0x9C, 0x9C));
        QFont font = painter.font();
        font.setPixelSize(10);
        painter.setFont(font);
        painter.drawText(box.adjusted(2, 70, -2, 0), Qt::AlignHCenter | Qt::AlignTop, names[i]);
    }
    painter.end();
    sheet.save(g_out + QStringLiteral("/icons.png"));

    // The same icons at the sizes the interface draws them (16, 24 and 30 px), shown three times
    // enlarged so that blur and lost detail are easy to see.
    const QList<int> sizes{16, 24, 30};
    QImage actual(names.size() * 34, 3 * 34, QImage::Format_ARGB32);
    actual.fill(QColor(0x1E, 0x1E, 0x1E));
    QPainter small(&actual);
    for (int i = 0; i < names.size(); ++i) {
        for (int j = 0; j < sizes.size(); ++j) {
            const QPixmap pixmap = QIcon(QStringLiteral(":/resource/svg/") + names[i]).pixmap(sizes[j], sizes[j]);
            small.drawPixmap(i * 34 + (34 - pixmap.width()) / 2, j * 34 + (34 - pixmap.height()) / 2, pixmap);
        }
    }
    small.end();
    actual.scaled(actual.size() * 3).save(g_out + QStringLiteral("/icons-actual.png"));
    return 0;
}
