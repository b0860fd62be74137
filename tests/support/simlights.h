#pragma once

#include "devdata.h"

#include <QJsonObject>
#include <QString>

// The simulated lights plug-in as the interface tests meet it: selected before the device manager
// exists, lights found and connected through the real manager, and the lights' own view read back
// through the simulator's control socket.
namespace SimLights {

// Points the device manager at the simulator with the given lights file contents (written into
// the current home; empty: the simulator's own five lights) and control socket. Call before the
// first use of the device manager.
void select(const QByteArray &lightsJson, bool withControlSocket);
// Scans, stores every light found and connects it; true once all of them report in and are on.
bool addAndConnectAll(int expected, int timeoutMs = 8000);
// One command on the control socket; "error ..." when the simulator does not answer.
QString command(const QString &line);
QString controlPath();
QJsonObject state(const QString &addr);
// The frames the program wrote to a light, oldest first, as lower-case hex with spaces.
QStringList frames(const QString &addr);
DevData stored(const QString &addr);

} // namespace SimLights
