// Start-up of the real program with many stored lights. For each number of lights the program is
// started as a process on a private Xvfb display, in a throw-away home whose lightconfig.json holds
// that many lights (protocols 1, 2, 7, 162 and 1001 in turn) plus one group of ten per fifty lights,
// all of them present on the simulated-lights plug-in. Per case, the median of several runs of:
//   - the time from starting the process to its main window being mapped (an X MapNotify);
//   - the time to the plug-in server's port being published (its settings file);
//   - the resident memory 3 s after the start (VmRSS; 2 s after the window if that is later);
//   - the CPU time and the context switches of all its threads in the following idle seconds
//     (every wake-up of a sleeping thread ends in a context switch);
//   - per card (one per light and group member): window time and memory above the empty case.
//
//   bench_startup [--runs N] [--lights 0,20,100,500] [--idle SECONDS] [--program PATH]
//                 [--plugin PATH] [--keep]    (defaults: 5 runs, 10 s idle, the program built beside;
//                                             --keep leaves each run's home with the program's log)
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <QTemporaryDir>

#include <xcb/xcb.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kProtocols[] = {1, 2, 7, 162, 1001};
constexpr int kGroupSize = 10;
constexpr int kLightsPerGroup = 50;
constexpr double kSettleSeconds = 3.0;
constexpr double kLateSettleSeconds = 2.0;
constexpr double kStartTimeoutSeconds = 120.0;

double now()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) / 1e9;
}

void sleepUntil(double when)
{
    while (true) {
        const double left = when - now();
        if (left <= 0)
            return;
        timespec ts{time_t(left), long((left - double(time_t(left))) * 1e9)};
        nanosleep(&ts, nullptr);
    }
}

QString lightAddr(int i)
{
    return QStringLiteral("BE:00:00:%1:%2:%3")
        .arg(i / 10000, 2, 10, QLatin1Char('0'))
        .arg(i / 100 % 100, 2, 10, QLatin1Char('0'))
        .arg(i % 100, 2, 10, QLatin1Char('0'));
}

int groupCount(int lights)
{
    return lights / kLightsPerGroup;
}

int cardCount(int lights)
{
    return lights + groupCount(lights) * kGroupSize;
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// The stored lights as the scan window stores them, and the same lights on the simulator.
void writeHome(const QString &home, int lights)
{
    QJsonArray devs, simulated, groups;
    for (int i = 0; i < lights; ++i) {
        const int protocol = kProtocols[i % 5];
        const bool is55AA = protocol == 1001;
        devs.append(QJsonObject{
            {"addr", lightAddr(i)},
            {"name", QStringLiteral("Light %1").arg(i + 1)},
            {"enablePower", true},
            {"protocol", protocol},
            {"oldBrightness", 50},
            {"colorLight", QJsonObject{{"value", "#FFFFFF"}, {"enable", protocol == 2 || protocol == 7}}},
            {"lightEffect", QJsonObject{{"value", ""}, {"enable", !is55AA}}},
            {"brightness", QJsonObject{{"value", 50}, {"max", 100}, {"min", is55AA ? 1 : 0}, {"ratio", 1}}},
            {"temperature",
             QJsonObject{{"value", 4300}, {"max", is55AA ? 6500 : 5600}, {"min", is55AA ? 2700 : 3200},
                         {"ratio", 100}}},
        });
        simulated.append(QJsonObject{{"addr", lightAddr(i)}, {"name", QStringLiteral("Light %1").arg(i + 1)},
                                     {"protocol", protocol}, {"power", true}, {"brightness", 50},
                                     {"temperature", 4300}});
    }
    for (int g = 0; g < groupCount(lights); ++g) {
        QJsonArray members;
        for (int i = 0; i < kGroupSize; ++i)
            members.append(lightAddr(g * kLightsPerGroup + i));
        groups.append(QJsonObject{{"name", QStringLiteral("Group %1").arg(g + 1)},
                                  {"uuid", QStringLiteral("{00000000-0000-4000-8000-%1}").arg(g, 12, 10, QLatin1Char('0'))},
                                  {"devs", members}});
    }
    writeFile(home + "/.local/share/Brivon/Beamcrafter/config/lightconfig.json",
              QJsonDocument(QJsonObject{{"devs", devs}, {"groups", groups}}).toJson());
    // Quick lights: the links are up well before the idle measurement begins.
    const QJsonObject timing{{"discoverFirstMs", 1}, {"discoverStepMs", 1}, {"scanMs", 300},
                             {"connectMs", 20}, {"replyMs", 2}};
    writeFile(home + "/lights.json", QJsonDocument(QJsonObject{{"timing", timing}, {"lights", simulated}}).toJson());
}

// ---- the process and what /proc says about it --------------------------------------------------

struct ProcSample
{
    long rssKb = 0;
    long cpuTicks = 0;     // user + system, all threads
    long switches = 0;     // voluntary + involuntary context switches, all threads
};

long statusField(const QByteArray &status, const char *name)
{
    const QByteArray key = QByteArray(name) + ':';
    for (const QByteArray &line : status.split('\n')) {
        if (line.startsWith(key))
            return line.mid(key.size()).trimmed().split(' ').value(0).toLong();
    }
    return 0;
}

QByteArray readProcFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

std::optional<ProcSample> sample(pid_t pid)
{
    const QString base = QStringLiteral("/proc/%1").arg(pid);
    const QByteArray stat = readProcFile(base + "/stat");
    if (stat.isEmpty())
        return std::nullopt;
    // The fields after the command name, which is in parentheses and may hold spaces.
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    ProcSample s;
    s.cpuTicks = fields.value(11).toLong() + fields.value(12).toLong(); // utime, stime
    s.rssKb = statusField(readProcFile(base + "/status"), "VmRSS");
    const QStringList tasks = QDir(base + "/task").entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &task : tasks) {
        const QByteArray status = readProcFile(base + "/task/" + task + "/status");
        s.switches += statusField(status, "voluntary_ctxt_switches")
                      + statusField(status, "nonvoluntary_ctxt_switches");
    }
    return s;
}

pid_t spawn(const QByteArray &program, const QList<QByteArray> &args, const QList<QByteArray> &env,
            const QByteArray &logPath, int keepFd = -1)
{
    std::vector<char *> argv{const_cast<char *>(program.constData())};
    for (const QByteArray &arg : args)
        argv.push_back(const_cast<char *>(arg.constData()));
    argv.push_back(nullptr);
    std::vector<char *> envp;
    for (const QByteArray &var : env)
        envp.push_back(const_cast<char *>(var.constData()));
    envp.push_back(nullptr);

    const pid_t pid = fork();
    if (pid != 0)
        return pid;
    const int log = open(logPath.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (log >= 0) {
        dup2(log, STDOUT_FILENO);
        dup2(log, STDERR_FILENO);
    }
    const int devNull = open("/dev/null", O_RDONLY);
    if (devNull >= 0)
        dup2(devNull, STDIN_FILENO);
    for (int fd = 3; fd < 1024; ++fd) {
        if (fd != keepFd)
            close(fd);
    }
    execve(program.constData(), argv.data(), envp.data());
    _exit(127);
}

void stop(pid_t pid)
{
    kill(pid, SIGTERM);
    const double deadline = now() + 10;
    while (now() < deadline) {
        if (waitpid(pid, nullptr, WNOHANG) == pid)
            return;
        usleep(20000);
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

// ---- a private X display -----------------------------------------------------------------------

struct Display
{
    pid_t server = 0;
    QByteArray name;
    xcb_connection_t *connection = nullptr;
};

bool startDisplay(Display &display, const QString &logFolder)
{
    int fds[2];
    if (pipe(fds) != 0)
        return false;
    display.server = spawn("/usr/bin/Xvfb",
                           {"-displayfd", QByteArray::number(fds[1]), "-screen", "0", "1920x1080x24", "-nolisten",
                            "tcp", "-noreset"},
                           {"PATH=/usr/bin:/bin"}, QFile::encodeName(logFolder + "/xvfb.log"), fds[1]);
    close(fds[1]);
    QByteArray number;
    char c = 0;
    while (read(fds[0], &c, 1) == 1 && c != '\n')
        number += c;
    close(fds[0]);
    if (number.isEmpty())
        return false;
    display.name = ':' + number;
    display.connection = xcb_connect(display.name.constData(), nullptr);
    if (xcb_connection_has_error(display.connection))
        return false;
    // Map notifications of every top-level window.
    xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(display.connection)).data;
    const uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_change_window_attributes(display.connection, screen->root, XCB_CW_EVENT_MASK, &mask);
    xcb_flush(display.connection);
    return true;
}

// True when a top-level window of a real size was mapped (the display has no other client).
bool windowMapped(xcb_connection_t *connection)
{
    bool mapped = false;
    while (xcb_generic_event_t *event = xcb_poll_for_event(connection)) {
        if ((event->response_type & 0x7f) == XCB_MAP_NOTIFY) {
            const auto *map = reinterpret_cast<xcb_map_notify_event_t *>(event);
            xcb_get_geometry_reply_t *geometry =
                xcb_get_geometry_reply(connection, xcb_get_geometry(connection, map->window), nullptr);
            if (geometry && geometry->width >= 100 && geometry->height >= 100 && !map->override_redirect)
                mapped = true;
            free(geometry);
        }
        free(event);
    }
    return mapped;
}

// ---- one run -----------------------------------------------------------------------------------

struct RunResult
{
    bool ok = false;
    double windowMs = 0;
    double portMs = 0;
    double rssMb = 0;
    double idleCpuMs = 0;
    double idleSwitches = 0;
    bool late = false; // the window came too late: memory was taken 2 s after it
};

bool portPublished(const QString &settingsFile)
{
    struct stat info{};
    if (stat(QFile::encodeName(settingsFile).constData(), &info) != 0 || info.st_size == 0)
        return false;
    return readProcFile(settingsFile).contains("port=");
}

RunResult runOnce(const Display &display, const QString &program, const QString &plugin, int lights,
                  double idleSeconds, bool keep)
{
    RunResult result;
    QTemporaryDir home(QDir::tempPath() + QStringLiteral("/brivon-startup-XXXXXX"));
    if (keep) {
        home.setAutoRemove(false);
        std::fprintf(stderr, "%d lights: %s\n", lights, qPrintable(home.path()));
    }
    writeHome(home.path(), lights);
    QDir(home.path()).mkpath("runtime");
    QFile::setPermissions(home.path() + "/runtime", QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    const QString settingsFile = home.path() + "/.config/brivon/com.brivon.beamcrafter.pluginserver.conf";

    const QByteArray h = QFile::encodeName(home.path());
    const QList<QByteArray> env{
        "PATH=/usr/bin:/bin",
        "LANG=en_US.UTF-8",
        "HOME=" + h,
        "XDG_DATA_HOME=" + h + "/.local/share",
        "XDG_CONFIG_HOME=" + h + "/.config",
        "XDG_CACHE_HOME=" + h + "/.cache",
        "XDG_RUNTIME_DIR=" + h + "/runtime",
        "TMPDIR=" + h,
        "DISPLAY=" + display.name,
        "QT_QPA_PLATFORM=xcb",
        "BRIVON_BLE_PLUGIN=" + QFile::encodeName(plugin),
        "BRIVON_SIM_LIGHTS=" + h + "/lights.json",
        "BRIVON_SIM_CONTROL=",
        "QT_MESSAGE_PATTERN=%{time process} %{message}",
    };
    windowMapped(display.connection); // nothing old counts

    const double start = now();
    const pid_t pid = spawn(QFile::encodeName(program), {}, env, h + "/program.log");
    const int xfd = xcb_get_file_descriptor(display.connection);
    bool window = false, port = false;
    while (!(window && port)) {
        if (now() - start > kStartTimeoutSeconds || waitpid(pid, nullptr, WNOHANG) == pid) {
            std::fprintf(stderr, "run with %d lights: the program did not come up (log: %s)\n", lights,
                         qPrintable(home.path() + "/program.log"));
            home.setAutoRemove(false);
            stop(pid);
            return result;
        }
        pollfd p{xfd, POLLIN, 0};
        poll(&p, 1, 1);
        if (!window && windowMapped(display.connection)) {
            window = true;
            result.windowMs = (now() - start) * 1000;
        }
        if (!port && portPublished(settingsFile)) {
            port = true;
            result.portMs = (now() - start) * 1000;
        }
    }

    // A window later than the settle time gets a moment of its own to finish painting.
    const double settled = std::max(start + kSettleSeconds, start + result.windowMs / 1000 + kLateSettleSeconds);
    result.late = settled > start + kSettleSeconds;
    sleepUntil(settled);
    const std::optional<ProcSample> before = sample(pid);
    sleepUntil(settled + idleSeconds);
    const std::optional<ProcSample> after = sample(pid);
    stop(pid);
    if (!before || !after)
        return result;
    result.rssMb = before->rssKb / 1024.0;
    result.idleCpuMs = double(after->cpuTicks - before->cpuTicks) * 1000.0 / double(sysconf(_SC_CLK_TCK));
    result.idleSwitches = double(after->switches - before->switches);
    result.ok = true;
    return result;
}

double median(std::vector<double> values)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

double loadAverage()
{
    return readProcFile("/proc/loadavg").split(' ').value(0).toDouble();
}

struct CaseResult
{
    int lights = 0;
    int runs = 0;
    double windowMs = 0, windowMin = 0, windowMax = 0, portMs = 0, rssMb = 0, idleCpuMs = 0, idleSwitches = 0;
    bool late = false;
    double loadBefore = 0, loadAfter = 0;
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    int runs = 5;
    double idleSeconds = 10;
    QList<int> counts{0, 20, 100, 500};
    QString program = QStringLiteral(BRIVON_BIN_DIR "/beamcrafter");
    QString plugin = QStringLiteral(BRIVON_BIN_DIR "/libBrivonBleSim.so");
    bool keep = false;
    const QStringList args = app.arguments();
    for (int i = 1; i < args.size(); i += 2) {
        const QString &key = args.at(i);
        if (key == "--keep") {
            keep = true;
            --i;
            continue;
        }
        if (i + 1 >= args.size()) {
            std::fprintf(stderr, "%s needs a value\n", qPrintable(key));
            return 2;
        }
        const QString &value = args.at(i + 1);
        if (key == "--runs") {
            runs = std::max(1, value.toInt());
        } else if (key == "--idle") {
            idleSeconds = std::max(0.0, value.toDouble());
        } else if (key == "--program") {
            program = QFileInfo(value).absoluteFilePath();
        } else if (key == "--plugin") {
            plugin = QFileInfo(value).absoluteFilePath();
        } else if (key == "--lights") {
            counts.clear();
            for (const QString &n : value.split(','))
                counts.append(n.toInt());
        } else {
            std::fprintf(stderr, "usage: bench_startup [--runs N] [--lights 0,20,100,500] [--idle S] "
                                 "[--program PATH] [--plugin PATH] [--keep]\n");
            return 2;
        }
    }
    if (!QFileInfo(program).isExecutable() || !QFileInfo::exists(plugin)) {
        std::fprintf(stderr, "program or plug-in missing: %s, %s\n", qPrintable(program), qPrintable(plugin));
        return 1;
    }
    signal(SIGPIPE, SIG_IGN);

    QTemporaryDir logs(QDir::tempPath() + QStringLiteral("/brivon-startup-xvfb-XXXXXX"));
    Display display;
    if (!startDisplay(display, logs.path())) {
        std::fprintf(stderr, "Xvfb did not start (is the xvfb package installed?)\n");
        if (display.server)
            stop(display.server);
        return 1;
    }
    std::printf("program: %s\ndisplay: Xvfb %s, %d runs per case, %.0f s idle, medians\n\n", qPrintable(program),
                display.name.constData(), runs, idleSeconds);
    std::fflush(stdout);

    // One run that is not counted: the first start pays for cold caches.
    runOnce(display, program, plugin, counts.value(0), 0, false);

    std::vector<CaseResult> cases;
    int failures = 0;
    for (int lights : qAsConst(counts)) {
        CaseResult c;
        c.lights = lights;
        c.loadBefore = loadAverage();
        std::vector<double> window, port, rss, cpu, switches;
        for (int r = 0; r < runs; ++r) {
            const RunResult run = runOnce(display, program, plugin, lights, idleSeconds, keep);
            if (!run.ok) {
                ++failures;
                continue;
            }
            window.push_back(run.windowMs);
            port.push_back(run.portMs);
            rss.push_back(run.rssMb);
            cpu.push_back(run.idleCpuMs);
            switches.push_back(run.idleSwitches);
            c.late = c.late || run.late;
        }
        c.loadAfter = loadAverage();
        c.runs = int(window.size());
        if (c.runs == 0)
            continue;
        c.windowMs = median(window);
        c.windowMin = *std::min_element(window.begin(), window.end());
        c.windowMax = *std::max_element(window.begin(), window.end());
        c.portMs = median(port);
        c.rssMb = median(rss);
        c.idleCpuMs = median(cpu);
        c.idleSwitches = median(switches);
        cases.push_back(c);
        std::fprintf(stderr, "%d lights done\n", lights);
    }
    stop(display.server);
    xcb_disconnect(display.connection);

    const CaseResult *empty = nullptr;
    for (const CaseResult &c : cases) {
        if (c.lights == 0)
            empty = &c;
    }
    std::printf("| lights | groups | cards | window mapped (ms) | window min-max | port published (ms) | "
                "RSS at 3 s (MB) | idle CPU (ms / %.0f s) | idle context switches | per card | load avg |\n",
                idleSeconds);
    std::printf("|---|---|---|---|---|---|---|---|---|---|---|\n");
    for (const CaseResult &c : cases) {
        QString perCard = QStringLiteral("-");
        if (empty && c.lights > 0) {
            const int cards = cardCount(c.lights);
            perCard = QStringLiteral("%1 ms, %2 KB")
                          .arg((c.windowMs - empty->windowMs) / cards, 0, 'f', 2)
                          .arg((c.rssMb - empty->rssMb) * 1024 / cards, 0, 'f', 0);
        }
        std::printf("| %d | %d | %d | %.0f | %.0f-%.0f | %.0f | %.1f%s | %.0f | %.0f | %s | %.1f-%.1f |\n", c.lights,
                    groupCount(c.lights), cardCount(c.lights), c.windowMs, c.windowMin, c.windowMax, c.portMs,
                    c.rssMb, c.late ? "*" : "", c.idleCpuMs, c.idleSwitches, qPrintable(perCard), c.loadBefore,
                    c.loadAfter);
    }
    if (std::any_of(cases.begin(), cases.end(), [](const CaseResult &c) { return c.late; }))
        std::printf("\n* the window came later than 1 s: memory taken 2 s after it was mapped\n");
    if (failures)
        std::printf("\n%d runs failed (see the messages above)\n", failures);
    return failures ? 1 : 0;
}
