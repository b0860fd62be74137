#pragma once

#include <QString>

// The application-data base: the writable AppDataLocation with its last component dropped and
// the trailing slash kept. The configuration and crash folders are built on it.
QString appDataBase();
QString configFolderPath(); // <base>Brivon/Beamcrafter/config/
QString crashFolderPath();  // <base>Brivon/Beamcrafter/crash/
QString downloadFolderPath(); // <base>Brivon/Beamcrafter/download/software/

// Read-only files shipped with the program (the effect catalogue, ...): data/<name> beside the
// executable when it runs in place, else <prefix>/share/beamcrafter/<name> once installed.
QString programDataFile(const QString &name);
// Puts the installed program's private plug-in folder (<prefix>/lib/beamcrafter) at the head of
// the library paths, so that plug-ins are still loaded by their bare name. Needs the application
// object.
void addPrivatePluginFolder();
