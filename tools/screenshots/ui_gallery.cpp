// Not a test: renders the add-light flow and each page of the Hue pairing dialog into PNG files
// for a look by eye, with the simulated lights: ui_gallery <output folder>
#include "adddevicewidget.h"
#include "devicemgr.h"
#include "devicenamewidget.h"
#include "devicewidget.h"
#include "huebridgedialog.h"
#include "middlewidget.h"
#include "processutil.h"
#include "scanwidget.h"

#include <QApplication>
#include <QDir>
#include <QListWidget>
#include <QTest>

namespace {

QString g_out;

void save(QWidget *widget, const QString &name)
{
    QApplication::processEvents();
    widget->grab().save(g_out + QLatin1Char('/') + name + QStringLiteral(".png"));
}

Bridge bridge(const QString &id, const QString &ip)
{
    Bridge b;
    b.id = id;
    b.ip = ip;
    return b;
}

} // namespace

int main(int argc, char *argv[])
{
    if (qEnvironmentVariableIsEmpty("BRIVON_BLE_PLUGIN"))
        qputenv("BRIVON_BLE_PLUGIN", BRIVON_BIN_DIR "/libBrivonBleSim.so");
    qputenv("BRIVON_SIM_CONTROL", "");
    // No real discovery service from a gallery run.
    qputenv("BRIVON_HUE_DISCOVERY_URL", "https://127.0.0.1:9/");
    QApplication app(argc, argv);
    g_out = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QDir::currentPath();
    QDir().mkpath(g_out);

    MiddleWidget empty;
    empty.resize(600, 346);
    empty.show();
    save(&empty, QStringLiteral("middlewidget"));

    ScanWidget scan;
    scan.show();
    QTest::qWait(150);
    save(&scan, QStringLiteral("scan_searching"));
    waitUntil([&]() { return scan.deviceWidget()->count() >= 3; }, 5000);
    save(&scan, QStringLiteral("scan_found_searching"));
    QTest::qWait(3000);
    scan.deviceWidget()->listWidget()->item(1)->setSelected(true);
    scan.deviceWidget()->listWidget()->item(2)->setSelected(true);
    save(&scan, QStringLiteral("scan_results"));

    HueBridgeDialog *dialog = scan.hueBridgeDialog();
    dialog->setRetryInterval(600000); // the pairing page is only looked at, never sent
    dialog->onDiscoverBridge({bridge(QStringLiteral("ecb5fafffe1a2b3c"), QStringLiteral("192.0.2.10")),
                              bridge(QStringLiteral("001788fffe4d5e6f"), QStringLiteral("192.0.2.11"))});
    save(dialog, QStringLiteral("pair_page0"));
    auto *bridges = dialog->findChild<QListWidget *>(QStringLiteral("listWidget"));
    bridges->item(0)->setSelected(true);
    save(dialog, QStringLiteral("pair_page1"));
    dialog->onPairBridge();
    save(dialog, QStringLiteral("pair_page2"));
    dialog->onRegisterResult(false);
    save(dialog, QStringLiteral("pair_page4"));
    dialog->onRegisterResult(true);
    save(dialog, QStringLiteral("pair_page3"));

    AddDeviceWidget add;
    DevData a, b;
    a.addr = QStringLiteral("AA:01");
    a.name = QStringLiteral("Key light");
    b.addr = QStringLiteral("AA:02");
    b.name = QStringLiteral("Fill light");
    add.setDevices({a, b});
    add.show();
    save(&add, QStringLiteral("adddevicewidget"));

    DeviceNameWidget names;
    names.setDevices({a, b});
    QList<DevData> members{b};
    names.onSyncSelectDevice(members);
    names.show();
    save(&names, QStringLiteral("devicenamewidget"));

    DeviceMgrSingleton::instance()->stopScan();
    return 0;
}
