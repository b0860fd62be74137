#include "quitsignals.h"

#include <QCoreApplication>
#include <QMetaObject>

#include <windows.h>

namespace {

// Runs on a thread of the system's: hands the quit to the GUI thread and lets the loop end.
BOOL WINAPI onConsoleEvent(DWORD event)
{
    switch (event) {
    case CTRL_C_EVENT:
    case CTRL_BREAK_EVENT:
    case CTRL_CLOSE_EVENT:
    case CTRL_LOGOFF_EVENT:
    case CTRL_SHUTDOWN_EVENT:
        if (QCoreApplication *app = QCoreApplication::instance())
            QMetaObject::invokeMethod(app, [] { QCoreApplication::quit(); }, Qt::QueuedConnection);
        // The process ends when this returns for the last three: give the loop time to finish.
        if (event >= CTRL_CLOSE_EVENT)
            ::Sleep(3000);
        return TRUE;
    default:
        return FALSE;
    }
}

} // namespace

void installQuitSignals()
{
    // The session's end reaches the windows as WM_ENDSESSION, which Qt answers with aboutToQuit;
    // a console the program was started from can also ask it to stop.
    ::SetConsoleCtrlHandler(onConsoleEvent, TRUE);
}
