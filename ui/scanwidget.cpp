#include "scanwidget.h"

#include "devicemgr.h"
#include "devicewidget.h"
#include "huebridgedialog.h"

#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

const char kPrimaryButton[] =
    "QPushButton { background-color: #0A84FF; color: #FFFFFF; border: none; border-radius: 4px; font-size: 14px;}"
    "QPushButton:hover { background-color: #3A9BFF;}"
    "QPushButton:pressed { background-color: #0060C0;}"
    "QPushButton:disabled { background-color: #2C3E55; color: #7A7A7A;}";
const char kSecondaryButton[] =
    "QPushButton { background-color: #3A3A3C; color: #FFFFFF; border: none; border-radius: 4px; font-size: 14px;"
    " padding: 0 14px;}"
    "QPushButton:hover { background-color: #48484A;}"
    "QPushButton:pressed { background-color: #2C2C2E;}";

} // namespace

ScanWidget::ScanWidget(QWidget *parent)
    : QWidget(parent, Qt::Window)
    , m_deviceWidget(new DeviceWidget(this))
    , m_btnMakeSure(new QPushButton(tr("连接"), this))
    , m_btnCancel(new QPushButton(tr("取消"), this))
    , m_btnHue(new QPushButton(tr("配对 Philips Hue 桥接器"), this))
    , m_btnRescan(new QPushButton(tr("重新搜索"), this))
    , m_hueDialog(new HueBridgeDialog(this))
{
    setWindowTitle(tr("添加设备"));
    setObjectName(QStringLiteral("scanWidget"));
    setStyleSheet(QStringLiteral("#scanWidget { background-color: #141414;}"));
    setAttribute(Qt::WA_StyledBackground);
    setFixedSize(600, 468);

    auto *heading = new QLabel(tr("添加设备"), this);
    heading->setStyleSheet(QStringLiteral("color: #DCDCDC; font-size: 14px;"));

    m_btnMakeSure->setObjectName(QStringLiteral("btnMakeSure"));
    m_btnMakeSure->setFixedSize(96, 32);
    m_btnMakeSure->setStyleSheet(QString::fromLatin1(kPrimaryButton));
    m_btnCancel->setObjectName(QStringLiteral("btnCancel"));
    m_btnCancel->setFixedSize(96, 32);
    m_btnCancel->setStyleSheet(QString::fromLatin1(kSecondaryButton));
    m_btnHue->setObjectName(QStringLiteral("btnHueBridge"));
    m_btnHue->setFixedHeight(32);
    m_btnHue->setToolTip(tr("查找局域网中的 Philips Hue 桥接器并配对"));
    m_btnHue->setStyleSheet(QString::fromLatin1(kSecondaryButton));

    m_btnRescan->setObjectName(QStringLiteral("btnRescan"));
    m_btnRescan->setFixedHeight(32);
    m_btnRescan->setStyleSheet(QString::fromLatin1(kSecondaryButton));
    m_btnRescan->setEnabled(false);

    auto *buttons = new QHBoxLayout;
    buttons->setContentsMargins(0, 0, 0, 0);
    buttons->setSpacing(12);
    buttons->addWidget(m_btnHue);
    buttons->addWidget(m_btnRescan);
    buttons->addStretch(1);
    buttons->addWidget(m_btnCancel);
    buttons->addWidget(m_btnMakeSure);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 16, 16, 16);
    layout->setSpacing(12);
    layout->addWidget(heading);
    layout->addWidget(m_deviceWidget, 1);
    layout->addLayout(buttons);

    DeviceMgr *mgr = DeviceMgrSingleton::instance();
    connect(mgr, &BaseDevice::sigDeviceDiscovered, m_deviceWidget, &DeviceWidget::addDevice);
    connect(mgr, &BaseDevice::sigDeviceDiscoveredFinished, m_deviceWidget, &DeviceWidget::hideDeviceDiscoverTip);
    connect(mgr, &BaseDevice::sigDeviceDiscoveredFinished, this, [this] { m_btnRescan->setEnabled(true); });
    connect(m_btnRescan, &QPushButton::clicked, this, &ScanWidget::onRescan);
    connect(m_deviceWidget, &DeviceWidget::selectedDeviceSig, m_btnMakeSure, &QPushButton::setEnabled);
    connect(m_btnMakeSure, &QPushButton::clicked, this, &ScanWidget::onConnect);
    connect(m_btnCancel, &QPushButton::clicked, this, &ScanWidget::onCancel);
    connect(m_btnHue, &QPushButton::clicked, m_hueDialog, &HueBridgeDialog::discoverBridges);
}

ScanWidget::~ScanWidget() = default;

void ScanWidget::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (event->spontaneous())
        return; // restored from minimised: the scan of this showing goes on
    m_deviceWidget->clear();
    m_btnMakeSure->setEnabled(m_deviceWidget->count() > 0 && !m_deviceWidget->selectedDevices().isEmpty());
    m_deviceWidget->showDeviceDiscoverTip();
    m_btnRescan->setEnabled(false);
    DeviceMgrSingleton::instance()->startScan();
}

void ScanWidget::onRescan()
{
    // What is listed stays listed (and selected); the new scan adds what it finds.
    m_btnRescan->setEnabled(false);
    m_deviceWidget->showDeviceDiscoverTip();
    DeviceMgrSingleton::instance()->startScan();
}

void ScanWidget::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    if (event->spontaneous())
        return; // minimised: the window is still open
    DeviceMgrSingleton::instance()->stopScan();
}

void ScanWidget::closeEvent(QCloseEvent *event)
{
    if (m_hueDialog->isVisible())
        m_hueDialog->close();
    event->accept();
}

void ScanWidget::onConnect()
{
    DeviceMgr *mgr = DeviceMgrSingleton::instance();
    bool added = false;
    for (const DevData &dev : m_deviceWidget->selectedDevices()) {
        if (dev.addr.isEmpty())
            continue;
        m_deviceWidget->removeDevice(dev.addr);
        mgr->addDev(dev);
        // The button says "connect": link the light now rather than on the next scan.
        mgr->connectToDevice(dev.addr);
        added = true;
    }
    if (added)
        emit OKClicked();
    mgr->stopScan();
    close();
}

void ScanWidget::onCancel()
{
    DeviceMgrSingleton::instance()->stopScan();
    close();
}
