#include "bluetoothsettings.h"

#include <QDesktopServices>
#include <QUrl>

bool openBluetoothSettings()
{
    return QDesktopServices::openUrl(QUrl(QStringLiteral("ms-settings:bluetooth")));
}
