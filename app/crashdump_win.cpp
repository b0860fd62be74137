#include "crashdump.h"

#include "appdatapaths.h"

#include <QDateTime>
#include <QDebug>
#include <QDir>

#include <windows.h>
#include <dbghelp.h>

namespace {

LONG WINAPI writeCrashDump(EXCEPTION_POINTERS *exception)
{
    const QString folder = crashFolderPath();
    QDir dir(folder);
    if (!dir.exists() && !dir.mkpath(QStringLiteral("."))) {
        qDebug() << "创建dump文件目录失败";
        return EXCEPTION_CONTINUE_SEARCH;
    }
    const QString path = folder + QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMddhhmmsszzz"))
        + QStringLiteral(".dmp");
    qDebug() << path;

    HANDLE file = CreateFileW(reinterpret_cast<LPCWSTR>(path.utf16()), GENERIC_READ | GENERIC_WRITE,
                              FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return EXCEPTION_EXECUTE_HANDLER;

    MINIDUMP_EXCEPTION_INFORMATION info;
    info.ThreadId = GetCurrentThreadId();
    info.ExceptionPointers = exception;
    info.ClientPointers = TRUE;
    MiniDumpWriteDump(GetCurrentProcess(), GetCurrentProcessId(), file, MiniDumpWithDataSegs,
                      exception ? &info : nullptr, nullptr, nullptr);
    CloseHandle(file);

    qDebug() << "I'm Sorry,Application is Crash!" << "," << "dump文件路径为 " << path;
    return EXCEPTION_EXECUTE_HANDLER;
}

} // namespace

void installCrashHandler()
{
    SetUnhandledExceptionFilter(writeCrashDump);
}
