#pragma once

// Installs the handler that writes <application-data base>Brivon/Beamcrafter/crash/<time>.dmp when
// the process dies of a fault. Paths are prepared here, so the handler itself stays minimal.
void installCrashHandler();
