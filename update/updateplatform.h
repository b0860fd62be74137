#pragma once

#include <QString>

// The platform name the update server expects in the "os" query item ("Windows", "Linux").
QString updatePlatformName();

// Gets a downloaded installer ready to be started as a program. Returns false if it cannot be.
bool prepareInstaller(const QString &path);
