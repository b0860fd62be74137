#pragma once

#include <QString>
#include <functional>

// The program under test, as built beside its plug-ins and data folder.
QString beamcrafterPath();

// Runs the event loop until pred() holds or timeoutMs passes; returns pred()'s last value.
bool waitUntil(const std::function<bool()> &pred, int timeoutMs);

// A loopback address on a network of this process's own (127.x.0.host, x from the process id), so
// that a fake server of one test run never meets another run's, another checkout's included.
QString ownLoopbackAddress(int host);
