#include "updateplatform.h"

#include <QFile>

QString updatePlatformName()
{
    return QStringLiteral("Linux");
}

// A download arrives without the execute bits, and the installer is started directly.
bool prepareInstaller(const QString &path)
{
    QFile file(path);
    return file.setPermissions(file.permissions() | QFileDevice::ExeOwner | QFileDevice::ExeUser
                               | QFileDevice::ExeGroup | QFileDevice::ExeOther);
}
