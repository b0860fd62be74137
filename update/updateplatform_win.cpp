#include "updateplatform.h"

QString updatePlatformName()
{
    return QStringLiteral("Windows");
}

// Windows decides by the file name whether a file can be run.
bool prepareInstaller(const QString &)
{
    return true;
}
