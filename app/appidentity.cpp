#include "appidentity.h"

#include <QGuiApplication>
#include <QIcon>

void applyApplicationIdentity()
{
    QCoreApplication::setApplicationName(QObject::tr("Brivon Lumen"));
    QCoreApplication::setApplicationVersion(QStringLiteral(BRIVON_VERSION));
    QGuiApplication::setApplicationDisplayName(QObject::tr("Brivon Lumen"));
    // The installed desktop entry and metainfo carry this id.
    QGuiApplication::setDesktopFileName(QStringLiteral("com.brivon.beamcrafter"));
    QGuiApplication::setWindowIcon(QIcon(QStringLiteral(":/resource/svg/logo-app.ico")));
}
