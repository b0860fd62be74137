#include "quitsignals.h"

#include <QCoreApplication>
#include <QDebug>
#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// Written by the signal handler, read on the GUI thread: the handler itself only calls write(2).
int g_quitPipe[2] = {-1, -1};

void onQuitSignal(int signal)
{
    const int savedErrno = errno;
    const unsigned char byte = static_cast<unsigned char>(signal);
    [[maybe_unused]] const ssize_t written = ::write(g_quitPipe[1], &byte, 1);
    errno = savedErrno;
}

} // namespace

void installQuitSignals()
{
    QCoreApplication *app = QCoreApplication::instance();
    if (!app || g_quitPipe[0] != -1)
        return;
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, g_quitPipe) != 0) {
        qWarning() << "[installQuitSignals]: no socket pair, SIGTERM ends the program without saving:" << errno;
        return;
    }
    // A burst of signals must never block the handler.
    ::fcntl(g_quitPipe[1], F_SETFL, ::fcntl(g_quitPipe[1], F_GETFL) | O_NONBLOCK);

    auto *notifier = new QSocketNotifier(g_quitPipe[0], QSocketNotifier::Read, app);
    QObject::connect(notifier, &QSocketNotifier::activated, app, [] {
        unsigned char signal = 0;
        if (::read(g_quitPipe[0], &signal, 1) != 1)
            return;
        qDebug().noquote() << "[installQuitSignals]: signal:" << int(signal) << ", quitting";
        QCoreApplication::quit();
    });

    struct sigaction action = {};
    action.sa_handler = onQuitSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGTERM, &action, nullptr);
    ::sigaction(SIGINT, &action, nullptr);
}
