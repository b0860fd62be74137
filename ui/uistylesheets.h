#pragma once

#include <QString>

// Style sheets shared by the cards, the custom widgets and the small dialogs. Each is built once,
// on first use, and handed out by reference.
namespace UiStyleSheets {

// White button with a blue hover, used by the message box and the delete confirmation.
const QString &whiteButton();
// Checkable effect button of the effect picker; blue when checked.
const QString &effectButton();
// A card's colour or effect button in its plain (not coloured) look, greyed when disabled.
const QString &plainCardButton();
// Either slider of a card whose light is off.
const QString &sliderDisabled();
// Brightness slider: dark to white.
const QString &sliderBrightness();
// Temperature slider, cold blue at the low end.
const QString &sliderTemperatureColdToWarm();
// Temperature slider, warm orange at the low end: the one the cards use.
const QString &sliderTemperatureWarmToCold();

} // namespace UiStyleSheets
