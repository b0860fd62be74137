#include "processutil.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>

QString beamcrafterPath()
{
    return QStringLiteral(BRIVON_BIN_DIR "/beamcrafter");
}

bool waitUntil(const std::function<bool()> &pred, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    while (!pred()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(10);
    }
    return true;
}

QString ownLoopbackAddress(int host)
{
    return QStringLiteral("127.%1.0.%2").arg(10 + QCoreApplication::applicationPid() % 240).arg(host);
}
