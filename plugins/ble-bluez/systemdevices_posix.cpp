#include "systemdevices.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDebug>
#include <QVariantMap>

namespace {

const QString kBluez = QStringLiteral("org.bluez");
const QString kDeviceIface = QStringLiteral("org.bluez.Device1");

struct CachedDevice
{
    QString path;
    QString adapterPath;
    bool paired = false;
};

// Looks the address up in BlueZ's object tree (a{oa{sa{sv}}}).
QList<CachedDevice> findDevices(const QDBusArgument &tree, const QString &devAddr)
{
    QList<CachedDevice> found;
    tree.beginMap();
    while (!tree.atEnd()) {
        QDBusObjectPath path;
        tree.beginMapEntry();
        tree >> path;
        tree.beginMap();
        while (!tree.atEnd()) {
            QString iface;
            QVariantMap props;
            tree.beginMapEntry();
            tree >> iface >> props;
            tree.endMapEntry();
            if (iface == kDeviceIface
                    && props.value(QStringLiteral("Address")).toString().compare(devAddr, Qt::CaseInsensitive) == 0) {
                found << CachedDevice{path.path(),
                                      qvariant_cast<QDBusObjectPath>(props.value(QStringLiteral("Adapter"))).path(),
                                      props.value(QStringLiteral("Paired")).toBool()};
            }
        }
        tree.endMap();
        tree.endMapEntry();
    }
    tree.endMap();
    return found;
}

void logFailure(const char *what, const QString &devAddr, const QDBusError &error)
{
    qWarning().noquote() << "[SystemDevices::forget]: addr:" << devAddr << what << error.name() << error.message();
}

} // namespace

void SystemDevices::forget(const QString &devAddr)
{
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected() || devAddr.isEmpty())
        return;
    const QDBusMessage query = QDBusMessage::createMethodCall(kBluez, QStringLiteral("/"),
                                                             QStringLiteral("org.freedesktop.DBus.ObjectManager"),
                                                             QStringLiteral("GetManagedObjects"));
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(query));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [devAddr](QDBusPendingCallWatcher *call) {
        call->deleteLater();
        const QDBusMessage reply = call->reply();
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
            logFailure("cannot list devices:", devAddr, call->error());
            return;
        }
        const QList<CachedDevice> devices = findDevices(reply.arguments().first().value<QDBusArgument>(), devAddr);
        for (const CachedDevice &device : devices) {
            if (device.paired) {
                qDebug().noquote() << "[SystemDevices::forget]: addr:" << devAddr << "paired with the system, kept";
                continue;
            }
            QDBusMessage remove = QDBusMessage::createMethodCall(kBluez, device.adapterPath,
                                                                 QStringLiteral("org.bluez.Adapter1"),
                                                                 QStringLiteral("RemoveDevice"));
            remove << QVariant::fromValue(QDBusObjectPath(device.path));
            auto *removal = new QDBusPendingCallWatcher(QDBusConnection::systemBus().asyncCall(remove));
            QObject::connect(removal, &QDBusPendingCallWatcher::finished, removal, [devAddr](QDBusPendingCallWatcher *done) {
                done->deleteLater();
                if (done->isError())
                    logFailure("RemoveDevice failed:", devAddr, done->error());
                else
                    qDebug().noquote() << "[SystemDevices::forget]: addr:" << devAddr << "removed from BlueZ";
            });
        }
    });
}
