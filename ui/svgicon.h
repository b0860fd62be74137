#pragma once

#include <QIcon>
#include <QString>

// Renders an SVG resource at its own size onto a transparent pixmap. QIcon's SVG engine would
// scale per request; a fixed pixmap keeps the icons crisp at the sizes the buttons ask for.
QIcon svgIcon(const QString &path);
