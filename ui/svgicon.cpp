#include "svgicon.h"

#include <QPainter>
#include <QPixmap>
#include <QSvgRenderer>

QIcon svgIcon(const QString &path)
{
    QSvgRenderer renderer(path);
    if (!renderer.isValid())
        return QIcon();
    QPixmap pixmap(renderer.defaultSize());
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    renderer.render(&painter);
    painter.end();
    return QIcon(pixmap);
}
