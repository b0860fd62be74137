#include "svgicon.h"

#include <QGuiApplication>
#include <QPainter>
#include <QSvgRenderer>

#include <cmath>

QPixmap svgPixmap(const QString &path, const QSize &size, qreal devicePixelRatio)
{
    const qreal ratio = devicePixelRatio > 0 ? devicePixelRatio : 1.0;
    QPixmap pixmap(QSize(int(std::ceil(size.width() * ratio)), int(std::ceil(size.height() * ratio))));
    pixmap.fill(Qt::transparent);
    QSvgRenderer renderer(path);
    if (renderer.isValid()) {
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        renderer.render(&painter);
    }
    pixmap.setDevicePixelRatio(ratio);
    return pixmap;
}

QIcon svgIcon(const QString &path)
{
    QSvgRenderer renderer(path);
    if (!renderer.isValid())
        return QIcon();
    const QSize size = renderer.defaultSize();
    QIcon icon;
    QList<qreal> ratios{1.0, 1.5, 2.0};
    if (!ratios.contains(qApp->devicePixelRatio()))
        ratios.append(qApp->devicePixelRatio());
    for (const qreal ratio : qAsConst(ratios))
        icon.addPixmap(svgPixmap(path, size, ratio));
    return icon;
}
