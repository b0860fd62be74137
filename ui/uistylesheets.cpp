#include "uistylesheets.h"

namespace {

QString sliderSheet(const QString &grooveStops, const QString &handleStops, const QString &handleBorder)
{
    return QStringLiteral("QSlider::groove:horizontal {height: 8px;background: qlineargradient(%1);"
                          "border-radius: 4px;}QSlider::handle:horizontal {background: QRadialGradient(cx:0, "
                          "cy:0, radius: 1, fx:0.5, fy:0.5, %2);border: %3;width: 26px;margin: -10px 0;"
                          "border-radius: 13px; }")
        .arg(grooveStops, handleStops, handleBorder);
}

const QString kDarkHandle = QStringLiteral("stop:0 #141414, stop:1 #141414");
const QString kWhiteBorder = QStringLiteral("1px solid #ffffff");

} // namespace

namespace UiStyleSheets {

const QString &whiteButton()
{
    static const QString sheet = QStringLiteral(
        "QPushButton {background-color: #FFFFFF; font-size:14px; color: #1E1E1E; border-radius: 5px;}"
        "QPushButton:pressed { background-color: #0A84FF;  color: white; font-size:14px;}"
        "QPushButton:hover { background-color: #0A84FF;  color: white; font-size:14px;}");
    return sheet;
}

const QString &effectButton()
{
    static const QString sheet = QStringLiteral(
        "QPushButton { text-align: center;background-color: #F6FFED; color: black; border: 1px solid; "
        "border-radius: 5px; font-size: 12px;padding-bottom: 5px;padding: 2px; }"
        "QPushButton::checked{ color: #FFFFFF; background-color: #0078FF; }");
    return sheet;
}

const QString &plainCardButton()
{
    static const QString sheet = QStringLiteral(
        "QPushButton { background-color: #F6FFED; color: black; border: none; border-radius: 5px; font-size: 12px; }"
        "QPushButton:disabled { background-color: #C0C0C0; color: #6E6E6E; }"
        "QPushButton::menu-indicator{image:none; width: 0px;}");
    return sheet;
}

const QString &sliderDisabled()
{
    static const QString sheet = sliderSheet(
        QStringLiteral("x1:0, y1:0, x2:1, y2:0, stop:0 #434343, stop:1 #434343"),
        QStringLiteral("stop:0 #9C9C9C, stop:1 #9C9C9C"), QStringLiteral("1px solid rgba(255, 255, 255, 0.2)"));
    return sheet;
}

const QString &sliderBrightness()
{
    static const QString sheet = sliderSheet(QStringLiteral("x1:0, y1:0, x2:1, y2:0, stop:0 #222222, stop:1 #FFFFFF"),
                                             kDarkHandle, kWhiteBorder);
    return sheet;
}

const QString &sliderTemperatureColdToWarm()
{
    static const QString sheet = sliderSheet(
        QStringLiteral("x1:0, y1:0, x2:0.7, y2:0, x3:1, y3:0, stop:0 #A7CAFF, stop:0.7 #FFFFFF, stop:1 #FF9D3F"),
        kDarkHandle, kWhiteBorder);
    return sheet;
}

const QString &sliderTemperatureWarmToCold()
{
    static const QString sheet = sliderSheet(
        QStringLiteral("x1:0, y1:0, x2:0.7, y2:0, x3:1, y3:0, stop:0 #FF9D3F, stop:0.7 #FFFFFF, stop:1 #A7CAFF"),
        kDarkHandle, kWhiteBorder);
    return sheet;
}

} // namespace UiStyleSheets
