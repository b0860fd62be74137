#pragma once

#include <QIcon>
#include <QPixmap>
#include <QSize>
#include <QString>

// The one way the interface turns its SVG artwork into pixels: rendered at the device pixel
// ratio it will be shown at, so icons stay sharp at 150 % and 200 % scaling.

// An SVG resource rendered at size (logical pixels) for a screen of the given ratio, transparent
// around the drawing; an empty pixmap of that size when the file is not a valid SVG.
QPixmap svgPixmap(const QString &path, const QSize &size, qreal devicePixelRatio);

// An icon holding the drawing at its own size for ratios 1, 1.5, 2 and the application's own
// ratio, so that whichever screen a button is on picks a sharp one.
QIcon svgIcon(const QString &path);
