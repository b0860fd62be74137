#include "appidentity.h"

#include <QGuiApplication>
#include <QIcon>

void applyApplicationIdentity()
{
    QCoreApplication::setApplicationName(QObject::tr("Brivon Lumen"));
    QCoreApplication::setApplicationVersion(QStringLiteral(BRIVON_VERSION));
    QGuiApplication::setApplicationDisplayName(QObject::tr("Brivon Lumen"));
    QGuiApplication::setWindowIcon(QIcon(QStringLiteral(":/resource/svg/logo-app.ico")));
}
