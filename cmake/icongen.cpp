// Build-time helper: renders the application logo SVG into the window icon (.ico) and a 256 px PNG,
// plus a PNG of each further size asked for (the desktop icon theme's sizes).
#include <QGuiApplication>
#include <QImage>
#include <QImageWriter>
#include <QPainter>
#include <QSvgRenderer>
#include <cstdio>
#include <cstdlib>

static QImage render(QSvgRenderer &renderer, int size)
{
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    renderer.render(&painter);
    return image;
}

int main(int argc, char *argv[])
{
    QGuiApplication app(argc, argv);
    if (argc < 4 || (argc - 4) % 2 != 0) {
        std::fprintf(stderr, "usage: brivon_icongen <logo.svg> <out.ico> <out.png> [<size> <out.png>]...\n");
        return 2;
    }
    QSvgRenderer renderer(QString::fromLocal8Bit(argv[1]));
    if (!renderer.isValid()) {
        std::fprintf(stderr, "brivon_icongen: cannot read %s\n", argv[1]);
        return 1;
    }
    QImageWriter ico(QString::fromLocal8Bit(argv[2]), "ico");
    if (!ico.write(render(renderer, 64))) {
        std::fprintf(stderr, "brivon_icongen: %s\n", qPrintable(ico.errorString()));
        return 1;
    }
    if (!render(renderer, 256).save(QString::fromLocal8Bit(argv[3]), "png")) {
        std::fprintf(stderr, "brivon_icongen: cannot write %s\n", argv[3]);
        return 1;
    }
    for (int i = 4; i + 1 < argc; i += 2) {
        const int size = std::atoi(argv[i]);
        if (size < 16 || size > 1024 || !render(renderer, size).save(QString::fromLocal8Bit(argv[i + 1]), "png")) {
            std::fprintf(stderr, "brivon_icongen: cannot write %s at %s px\n", argv[i + 1], argv[i]);
            return 1;
        }
    }
    return 0;
}
