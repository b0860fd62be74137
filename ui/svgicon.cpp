#include "svgicon.h"

#include <QGuiApplication>
#include <QHash>
#include <QPainter>
#include <QSvgRenderer>

#include <cmath>

namespace {

// Resources never change while the program runs: each drawing is rendered once per size and
// shared (pixmaps and icons are implicitly shared), however many cards show it.
bool cacheable(const QString &path)
{
    return path.startsWith(QLatin1String(":/"));
}

QString pixmapKey(const QString &path, const QSize &size, qreal ratio)
{
    return QStringLiteral("%1|%2x%3@%4").arg(path).arg(size.width()).arg(size.height()).arg(ratio);
}

} // namespace

QPixmap svgPixmap(const QString &path, const QSize &size, qreal devicePixelRatio)
{
    const qreal ratio = devicePixelRatio > 0 ? devicePixelRatio : 1.0;
    static QHash<QString, QPixmap> cache;
    const QString key = cacheable(path) ? pixmapKey(path, size, ratio) : QString();
    if (!key.isEmpty()) {
        const auto it = cache.constFind(key);
        if (it != cache.constEnd())
            return *it;
    }
    QPixmap pixmap(QSize(int(std::ceil(size.width() * ratio)), int(std::ceil(size.height() * ratio))));
    pixmap.fill(Qt::transparent);
    QSvgRenderer renderer(path);
    if (renderer.isValid()) {
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        renderer.render(&painter);
    }
    pixmap.setDevicePixelRatio(ratio);
    if (!key.isEmpty())
        cache.insert(key, pixmap);
    return pixmap;
}

QIcon svgIcon(const QString &path)
{
    static QHash<QString, QIcon> cache;
    if (cacheable(path)) {
        const auto it = cache.constFind(path);
        if (it != cache.constEnd())
            return *it;
    }
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
    if (cacheable(path))
        cache.insert(path, icon);
    return icon;
}
