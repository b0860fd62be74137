#include "bluetoothsettings.h"

#include <QDebug>
#include <QProcess>
#include <QStandardPaths>
#include <QStringList>

namespace {

struct SettingsTool
{
    const char *program;
    QStringList arguments;
};

} // namespace

bool openBluetoothSettings()
{
    // The desktops' own Bluetooth pages, in the order a mixed installation most likely means.
    const SettingsTool tools[] = {
        {"gnome-control-center", {QStringLiteral("bluetooth")}},
        {"blueman-manager", {}},
        {"systemsettings", {QStringLiteral("kcm_bluetooth")}},
        {"systemsettings5", {QStringLiteral("kcm_bluetooth")}},
    };
    for (const SettingsTool &tool : tools) {
        const QString path = QStandardPaths::findExecutable(QString::fromLatin1(tool.program));
        if (path.isEmpty())
            continue;
        if (QProcess::startDetached(path, tool.arguments)) {
            qDebug().noquote() << "[openBluetoothSettings]: program:" << path;
            return true;
        }
    }
    qDebug().noquote() << "[openBluetoothSettings]: no Bluetooth settings program found";
    return false;
}
