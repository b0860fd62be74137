#pragma once

// Turns the system's requests to end the program (SIGTERM and SIGINT on Linux; a console's
// close, log-off and shut-down events on Windows) into a normal quit through the event loop, so
// that everything that runs when the loop ends (the store's final write among it) still runs.
// Call once, after the application object exists.
void installQuitSignals();
