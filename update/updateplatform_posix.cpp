#include "updateplatform.h"

#include <QDebug>
#include <QFile>
#include <QProcess>

QString updatePlatformName()
{
    return QStringLiteral("Linux");
}

QString installerFallbackName()
{
    return QStringLiteral("BeamcrafterSetup.run");
}

// A download arrives without the execute bit; only its owner may run, read or change it (0700).
bool prepareInstaller(const QString &path)
{
    return QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner
                                           | QFileDevice::ReadUser | QFileDevice::WriteUser
                                           | QFileDevice::ExeUser);
}

bool launchInstaller(const QString &path)
{
    return QProcess::startDetached(path, QStringList());
}
