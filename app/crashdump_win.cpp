#include "crashdump.h"

#include "appdatapaths.h"

#include <QDir>

#include <windows.h>
#include <dbghelp.h>

#include <cwchar>

// The filter runs on a faulting thread of a broken process: the heap or a lock may be what broke.
// Everything it needs is prepared at installation; the filter itself only formats into fixed
// buffers, creates the file and writes the dump.
namespace {

constexpr size_t kPathMax = 32768; // the longest path Windows accepts, in wide characters
constexpr size_t kStampLength = 17; // yyyyMMddhhmmsszzz
const wchar_t kSuffix[] = L".dmp";

wchar_t g_crashFolder[kPathMax]; // ends with a backslash
size_t g_crashFolderLength = 0;
wchar_t g_dumpPath[kPathMax];

// Creates the folder and its parents; true when it exists afterwards.
bool makeFolders(wchar_t *path, size_t length)
{
    for (size_t i = 3; i < length; ++i) { // after "C:\"
        if (path[i] != L'\\')
            continue;
        path[i] = L'\0';
        CreateDirectoryW(path, nullptr);
        path[i] = L'\\';
    }
    const DWORD attributes = GetFileAttributesW(path);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

void putDigits(wchar_t *out, unsigned value, int width)
{
    for (int i = width - 1; i >= 0; --i) {
        out[i] = wchar_t(L'0' + value % 10);
        value /= 10;
    }
}

LONG WINAPI writeCrashDump(EXCEPTION_POINTERS *exception)
{
    if (g_crashFolderLength == 0 || !makeFolders(g_crashFolder, g_crashFolderLength))
        return EXCEPTION_CONTINUE_SEARCH;

    wmemcpy(g_dumpPath, g_crashFolder, g_crashFolderLength);
    SYSTEMTIME now;
    GetLocalTime(&now);
    wchar_t *stamp = g_dumpPath + g_crashFolderLength;
    putDigits(stamp, now.wYear, 4);
    putDigits(stamp + 4, now.wMonth, 2);
    putDigits(stamp + 6, now.wDay, 2);
    putDigits(stamp + 8, now.wHour, 2);
    putDigits(stamp + 10, now.wMinute, 2);
    putDigits(stamp + 12, now.wSecond, 2);
    putDigits(stamp + 14, now.wMilliseconds, 3);
    wmemcpy(stamp + kStampLength, kSuffix, sizeof(kSuffix) / sizeof(wchar_t)); // with its terminator

    HANDLE file = CreateFileW(g_dumpPath, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return EXCEPTION_EXECUTE_HANDLER;

    MINIDUMP_EXCEPTION_INFORMATION info;
    info.ThreadId = GetCurrentThreadId();
    info.ExceptionPointers = exception;
    info.ClientPointers = TRUE;
    MiniDumpWriteDump(GetCurrentProcess(), GetCurrentProcessId(), file, MiniDumpWithDataSegs,
                      exception ? &info : nullptr, nullptr, nullptr);
    CloseHandle(file);
    return EXCEPTION_EXECUTE_HANDLER;
}

} // namespace

void installCrashHandler()
{
    // The folder itself is created only when a crash needs it.
    const QString folder = QDir::toNativeSeparators(crashFolderPath());
    const qsizetype length = folder.size();
    if (length > 0 && size_t(length) + kStampLength + sizeof(kSuffix) / sizeof(wchar_t) < kPathMax) {
        wmemcpy(g_crashFolder, reinterpret_cast<const wchar_t *>(folder.utf16()), size_t(length));
        g_crashFolderLength = size_t(length);
        if (g_crashFolder[g_crashFolderLength - 1] != L'\\')
            g_crashFolder[g_crashFolderLength++] = L'\\';
        g_crashFolder[g_crashFolderLength] = L'\0';
    }
    SetUnhandledExceptionFilter(writeCrashDump);
}
