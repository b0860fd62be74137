#pragma once

#include <QProcess>
#include <QString>
#include <functional>

// The program under test, as built beside its plug-ins and data folder.
QString beamcrafterPath();

// Runs the event loop until pred() holds or timeoutMs passes; returns pred()'s last value.
bool waitUntil(const std::function<bool()> &pred, int timeoutMs);
