#include "simlights.h"

#include "devicemgr.h"
#include "processutil.h"
#include "testhome.h"

#include <QCoreApplication>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocalSocket>
#include <QSignalSpy>

namespace SimLights {

namespace {
QString g_control;
}

void select(const QByteArray &lightsJson, bool withControlSocket)
{
    const QString lightsFile = QDir::tempPath() + QStringLiteral("/simlights.json");
    qputenv("BRIVON_BLE_PLUGIN", BRIVON_BIN_DIR "/libBrivonBleSim.so");
    if (lightsJson.isEmpty()) {
        qunsetenv("BRIVON_SIM_LIGHTS");
    } else {
        writeFile(lightsFile, lightsJson);
        qputenv("BRIVON_SIM_LIGHTS", lightsFile.toUtf8());
    }
    // A local socket path must stay short: the test home may be deep in the build tree.
    g_control = withControlSocket ? QStringLiteral("/tmp/brivon-simlights-%1").arg(QCoreApplication::applicationPid())
                                  : QString();
    qputenv("BRIVON_SIM_CONTROL", g_control.toUtf8());
    // Scans look for Hue bridges too: keep them off the network.
    qputenv("BRIVON_HUE_DISCOVERY_URL", "http://127.0.0.1:9/");
}

bool addAndConnectAll(int expected, int timeoutMs)
{
    DeviceMgr *mgr = DeviceMgrSingleton::instance();
    QSignalSpy discovered(mgr, &BaseDevice::sigDeviceDiscovered);
    QSignalSpy finished(mgr, &BaseDevice::sigDeviceDiscoveredFinished);
    mgr->startScan();
    if (!waitUntil([&] { return finished.count() > 0; }, timeoutMs) || discovered.count() != expected)
        return false;
    QStringList addrs;
    for (const QList<QVariant> &args : qAsConst(discovered)) {
        const DevData dev = args.at(0).value<DevData>();
        mgr->addDev(dev);
        mgr->connectToDevice(dev.addr);
        addrs << dev.addr;
    }
    return waitUntil(
        [&] {
            for (const QString &addr : qAsConst(addrs)) {
                const DevData *dev = mgr->store()->findDev(addr);
                if (!dev || !dev->linkState || !dev->switchState)
                    return false;
            }
            return true;
        },
        timeoutMs);
}

QString command(const QString &line)
{
    // The simulator lives in this process: wait by running the event loop, never by blocking.
    QLocalSocket socket;
    socket.connectToServer(g_control);
    if (!waitUntil([&] { return socket.state() == QLocalSocket::ConnectedState; }, 2000))
        return QStringLiteral("error not connected");
    socket.write(line.toUtf8() + '\n');
    if (!waitUntil([&] { return socket.canReadLine(); }, 2000))
        return QStringLiteral("error no answer");
    return QString::fromUtf8(socket.readLine().trimmed());
}

QString controlPath()
{
    return g_control;
}

QJsonObject state(const QString &addr)
{
    const QString reply = command(QStringLiteral("state ") + addr);
    return reply.startsWith(QLatin1String("ok ")) ? QJsonDocument::fromJson(reply.mid(3).toUtf8()).object()
                                                  : QJsonObject();
}

QStringList frames(const QString &addr)
{
    const QString reply = command(QStringLiteral("frames ") + addr);
    QStringList result;
    if (!reply.startsWith(QLatin1String("ok ")))
        return result;
    const QJsonArray array = QJsonDocument::fromJson(reply.mid(3).toUtf8()).array();
    for (const QJsonValue &value : array)
        result << value.toString();
    return result;
}

DevData stored(const QString &addr)
{
    const DevData *dev = DeviceMgrSingleton::instance()->store()->findDev(addr);
    return dev ? *dev : DevData();
}

} // namespace SimLights
