#include "appdatapaths.h"

#include <QStandardPaths>

QString appDataBase()
{
    const QString location = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    const int slash = location.lastIndexOf(QLatin1Char('/'));
    return slash < 0 ? location + QLatin1Char('/') : location.left(slash + 1);
}

QString configFolderPath()
{
    return appDataBase() + QStringLiteral("Brivon/Beamcrafter/config/");
}

QString crashFolderPath()
{
    return appDataBase() + QStringLiteral("Brivon/Beamcrafter/crash/");
}

QString downloadFolderPath()
{
    return appDataBase() + QStringLiteral("Brivon/Beamcrafter/download/software/");
}
