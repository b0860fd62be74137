#pragma once

#include <QString>

// The application-data base: the writable AppDataLocation with its last component dropped and
// the trailing slash kept. The configuration and crash folders are built on it.
QString appDataBase();
QString configFolderPath(); // <base>Brivon/Beamcrafter/config/
QString crashFolderPath();  // <base>Brivon/Beamcrafter/crash/
QString downloadFolderPath(); // <base>Brivon/Beamcrafter/download/software/
