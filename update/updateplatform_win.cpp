#include "updateplatform.h"

#include <QDebug>
#include <QDir>
#include <QFileInfo>

#include <string>

#include <windows.h>
#include <shellapi.h>

QString updatePlatformName()
{
    return QStringLiteral("Windows");
}

QString installerFallbackName()
{
    return QStringLiteral("BeamcrafterSetup.exe");
}

// Windows decides by the file name whether a file can be run.
bool prepareInstaller(const QString &)
{
    return true;
}

// Through the shell, so that an installer that needs administrator rights gets its elevation
// prompt (a plain process start fails with error 740) and an .msi opens in Windows Installer.
bool launchInstaller(const QString &path)
{
    const std::wstring file = QDir::toNativeSeparators(path).toStdWString();
    const std::wstring folder = QDir::toNativeSeparators(QFileInfo(path).absolutePath()).toStdWString();
    SHELLEXECUTEINFOW info = {};
    info.cbSize = sizeof(info);
    // No shell error box: the program tells the user itself.
    info.fMask = SEE_MASK_NOASYNC | SEE_MASK_FLAG_NO_UI;
    info.lpVerb = L"open";
    info.lpFile = file.c_str();
    info.lpDirectory = folder.c_str();
    info.nShow = SW_SHOWNORMAL;
    if (ShellExecuteExW(&info))
        return true;
    qDebug() << "[launchInstaller]: ShellExecuteEx failed, error:" << GetLastError() << "path:" << path;
    return false;
}
