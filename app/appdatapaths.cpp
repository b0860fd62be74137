#include "appdatapaths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

// Both relative to the executable's folder; set by the build from the install layout.
#ifndef BRIVON_INSTALL_DATA_RELDIR
#define BRIVON_INSTALL_DATA_RELDIR "../share/beamcrafter"
#endif
#ifndef BRIVON_INSTALL_PLUGIN_RELDIR
#define BRIVON_INSTALL_PLUGIN_RELDIR "../lib/beamcrafter"
#endif

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

QString programDataFile(const QString &name)
{
    const QString folder = QCoreApplication::applicationDirPath();
    const QString inPlace = folder + QStringLiteral("/data/") + name;
    const QString installed =
        QDir::cleanPath(folder + QStringLiteral("/" BRIVON_INSTALL_DATA_RELDIR "/") + name);
    return QFileInfo::exists(inPlace) || !QFileInfo::exists(installed) ? inPlace : installed;
}

void addPrivatePluginFolder()
{
    const QString folder =
        QDir::cleanPath(QCoreApplication::applicationDirPath() + QStringLiteral("/" BRIVON_INSTALL_PLUGIN_RELDIR));
    if (QFileInfo(folder).isDir())
        QCoreApplication::addLibraryPath(folder);
}
