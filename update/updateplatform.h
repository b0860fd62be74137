#pragma once

#include <QString>

// The platform name the update server expects in the "os" query item ("Windows", "Linux").
QString updatePlatformName();

// The name a download is saved under when the URL's own name is not safe to use.
QString installerFallbackName();

// Gets a downloaded installer ready to be started as a program. Returns false if it cannot be.
bool prepareInstaller(const QString &path);

// Starts the installer the way the platform expects, without waiting for it. False when it could
// not be started.
bool launchInstaller(const QString &path);
