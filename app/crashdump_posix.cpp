#include "crashdump.h"

#include "appdatapaths.h"

#include <QByteArray>
#include <QDateTime>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <execinfo.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// Everything the handler needs is prepared at install time: inside a signal handler only
// async-signal-safe calls are allowed (no malloc, no Qt, no locks, no time-zone lookups).
namespace {

constexpr int kPathMax = 4096;
constexpr int kFrameMax = 64;
constexpr int kCrashSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};

char g_crashFolder[kPathMax];
size_t g_crashFolderLength = 0;
long g_utcOffsetSeconds = 0;
alignas(16) char g_alternateStack[64 * 1024];

class Writer
{
public:
    explicit Writer(int fd) : m_fd(fd) {}

    Writer &text(const char *s) { return raw(s, strlen(s)); }
    Writer &raw(const char *s, size_t n)
    {
        while (n > 0) {
            const ssize_t written = ::write(m_fd, s, n);
            if (written <= 0) {
                if (written < 0 && errno == EINTR)
                    continue;
                break;
            }
            s += written;
            n -= size_t(written);
        }
        return *this;
    }
    Writer &number(unsigned long value, unsigned base = 10, int minDigits = 1)
    {
        char digits[32];
        int count = 0;
        do {
            digits[count++] = "0123456789abcdef"[value % base];
            value /= base;
        } while (value > 0 && count < 32);
        while (count < minDigits && count < 32)
            digits[count++] = '0';
        char out[32];
        for (int i = 0; i < count; ++i)
            out[i] = digits[count - 1 - i];
        return raw(out, size_t(count));
    }

private:
    int m_fd;
};

const char *signalName(int sig)
{
    switch (sig) {
    case SIGSEGV: return "SIGSEGV";
    case SIGBUS: return "SIGBUS";
    case SIGFPE: return "SIGFPE";
    case SIGILL: return "SIGILL";
    case SIGABRT: return "SIGABRT";
    default: return "signal";
    }
}

// Civil date from days since 1970-01-01 (proleptic Gregorian), without the C library.
void civilFromDays(long days, long &year, unsigned &month, unsigned &day)
{
    days += 719468;
    const long era = (days >= 0 ? days : days - 146096) / 146097;
    const unsigned dayOfEra = unsigned(days - era * 146097);
    const unsigned yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const unsigned mp = (5 * dayOfYear + 2) / 153;
    day = dayOfYear - (153 * mp + 2) / 5 + 1;
    month = mp < 10 ? mp + 3 : mp - 9;
    year = long(yearOfEra) + era * 400 + (month <= 2 ? 1 : 0);
}

// Appends "yyyyMMddhhmmsszzz" of the current local time to buffer at position pos.
size_t appendTimestamp(char *buffer, size_t pos)
{
    timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    const long local = long(now.tv_sec) + g_utcOffsetSeconds;
    long days = local / 86400;
    long secondsOfDay = local % 86400;
    if (secondsOfDay < 0) {
        secondsOfDay += 86400;
        --days;
    }
    long year = 0;
    unsigned month = 0, day = 0;
    civilFromDays(days, year, month, day);
    const unsigned long fields[] = {static_cast<unsigned long>(year), month, day,
                                    static_cast<unsigned long>(secondsOfDay / 3600),
                                    static_cast<unsigned long>(secondsOfDay / 60 % 60),
                                    static_cast<unsigned long>(secondsOfDay % 60),
                                    static_cast<unsigned long>(now.tv_nsec / 1000000)};
    const int widths[] = {4, 2, 2, 2, 2, 2, 3};
    for (int f = 0; f < 7; ++f) {
        unsigned long value = fields[f];
        for (int i = widths[f] - 1; i >= 0; --i) {
            buffer[pos + size_t(i)] = char('0' + value % 10);
            value /= 10;
        }
        pos += size_t(widths[f]);
    }
    return pos;
}

bool makeFolders(char *path, size_t length)
{
    for (size_t i = 1; i <= length; ++i) {
        if (i == length || path[i] == '/') {
            const char saved = path[i];
            path[i] = '\0';
            const int rc = mkdir(path, 0700);
            const int error = errno;
            path[i] = saved;
            if (rc != 0 && error != EEXIST)
                return false;
        }
    }
    struct stat info {};
    char copy[kPathMax];
    memcpy(copy, path, length);
    copy[length] = '\0';
    return stat(copy, &info) == 0 && S_ISDIR(info.st_mode);
}

void writeCrashDump(int sig, siginfo_t *info, void *)
{
    const int savedErrno = errno;
    Writer log(STDERR_FILENO);

    char path[kPathMax + 32];
    memcpy(path, g_crashFolder, g_crashFolderLength);
    if (!makeFolders(path, g_crashFolderLength)) {
        log.text("创建dump文件目录失败\n");
    } else {
        path[g_crashFolderLength] = '/';
        const size_t length = appendTimestamp(path, g_crashFolderLength + 1);
        memcpy(path + length, ".dmp", 5);
        log.text(path).text("\n");

        const int fd = ::open(path, O_CREAT | O_RDWR | O_TRUNC | O_CLOEXEC, 0600);
        if (fd >= 0) {
            Writer dump(fd);
            dump.text("Brivon Lumen crash report\nversion: " BRIVON_VERSION "\npid: ")
                .number(unsigned(getpid()))
                .text("\nsignal: ").number(unsigned(sig)).text(" (").text(signalName(sig)).text(")")
                .text("\ncode: ").number(unsigned(info ? info->si_code : 0))
                .text("\naddress: 0x").number(info ? reinterpret_cast<unsigned long>(info->si_addr) : 0, 16)
                .text("\n\nbacktrace:\n");
            void *frames[kFrameMax];
            const int count = backtrace(frames, kFrameMax);
            backtrace_symbols_fd(frames, count, fd);
            ::close(fd);
            log.text("I'm Sorry,Application is Crash! , dump文件路径为  ").text(path).text("\n");
        }
    }

    // Let the system's own crash handling (core dump, exit status) see the original signal.
    struct sigaction dflt {};
    dflt.sa_handler = SIG_DFL;
    sigemptyset(&dflt.sa_mask);
    sigaction(sig, &dflt, nullptr);
    errno = savedErrno;
    raise(sig);
}

} // namespace

void installCrashHandler()
{
    // Kept without its trailing slash: the handler creates each component, then appends the name.
    QByteArray folder = crashFolderPath().toLocal8Bit();
    while (folder.size() > 1 && folder.endsWith('/'))
        folder.chop(1);
    g_crashFolderLength = size_t(qMin<qsizetype>(folder.size(), kPathMax - 1));
    memcpy(g_crashFolder, folder.constData(), g_crashFolderLength);
    g_crashFolder[g_crashFolderLength] = '\0';
    g_utcOffsetSeconds = QDateTime::currentDateTime().offsetFromUtc();

    // backtrace() loads libgcc on first use, which must not happen inside the handler.
    void *warmUp[1];
    backtrace(warmUp, 1);

    stack_t stack {};
    stack.ss_sp = g_alternateStack;
    stack.ss_size = sizeof(g_alternateStack);
    sigaltstack(&stack, nullptr);

    struct sigaction action {};
    action.sa_sigaction = writeCrashDump;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (int sig : kCrashSignals)
        sigaction(sig, &action, nullptr);
}
