#include "huebridgedialog.h"
#include "ui_huebridgedialog.h"

#include "devicemgr.h"
#include "huedevicemgr.h"

#include <QListWidgetItem>

namespace {

const char kMarkedStep[] = "background-color: green;";
const char kUnmarkedStep[] = "background-color: rgba(50, 50, 50, 255);";

const char kDialogSheet[] =
    "#HueBridgeDialog { background-color: #1E1E1E; }"
    "QLabel { color: #E6E6E6; font-size: 14px; }"
    "QLabel#label_selected, QLabel#label_pairing, QLabel#label_paired, QLabel#label_failed, QLabel#label_select"
    " { color: #FFFFFF; font-size: 18px; }"
    "QLabel#label0, QLabel#label1, QLabel#label2, QLabel#label3 { color: #FFFFFF; font-size: 12px; }"
    "QListWidget { background-color: #0F0F0F; color: #E6E6E6; border: 1px solid #363636; border-radius: 4px;"
    " font-size: 13px; outline: none; }"
    "QListWidget::item { height: 32px; padding-left: 6px; }"
    "QListWidget::item:selected { background-color: #0A84FF; color: #FFFFFF; }"
    "QPushButton { background-color: #0A84FF; color: #FFFFFF; border: none; border-radius: 4px;"
    " font-size: 14px; padding: 0 16px; }"
    "QPushButton:hover { background-color: #3A9BFF; }"
    "QPushButton:pressed { background-color: #0060C0; }";

} // namespace

HueBridgeDialog::HueBridgeDialog(QWidget *parent)
    : QDialog(parent)
    , ui(std::make_unique<Ui::HueBridgeDialog>())
{
    registerHueMetaTypes();
    ui->setupUi(this);
    setFixedSize(600, 550);
    setStyleSheet(QString::fromLatin1(kDialogSheet));
    m_retryTimer.setInterval(kRetryIntervalMs);
    connect(&m_retryTimer, &QTimer::timeout, this, &HueBridgeDialog::onRetryTick);
    setPage(SelectPage);
    m_repair = false;

    const std::shared_ptr<HueDeviceMgr> hue =
        std::dynamic_pointer_cast<HueDeviceMgr>(DeviceMgrSingleton::instance()->getDeviceMgrByProtocol(HueDeviceMgr::kProtocol));
    if (hue) {
        m_hueBridge = hue->hueBridge();
        connect(m_hueBridge.get(), &HueBridge::discover, this, &HueBridgeDialog::onDiscoverBridge);
        connect(m_hueBridge.get(), &HueBridge::discover2, this, &HueBridgeDialog::onDiscoverBridge2);
        connect(m_hueBridge.get(), &HueBridge::registerResult, this, &HueBridgeDialog::onRegisterResult);
        connect(m_hueBridge.get(), &HueBridge::keyRevoked, this, &HueBridgeDialog::onKeyRevoked);
    }
    connect(ui->listWidget, &QListWidget::itemSelectionChanged, this, &HueBridgeDialog::onItemSelectionChanged);
    connect(ui->pushButton_pair, &QPushButton::clicked, this, &HueBridgeDialog::onPairBridge);
    connect(ui->pushButton_retry, &QPushButton::clicked, this, &HueBridgeDialog::onTryBridge);
}

HueBridgeDialog::~HueBridgeDialog() = default;

void HueBridgeDialog::discoverBridges()
{
    showBesideParent();
    raise();
    if (m_hueBridge)
        m_hueBridge->discoverBridges();
}

int HueBridgeDialog::currentPage() const
{
    return ui->stackedWidget->currentIndex();
}

void HueBridgeDialog::setPage(int index)
{
    ui->stackedWidget->setCurrentIndex(index);
    switch (index) {
    case SelectPage:
        markSteps(1);
        ui->image_pressed->setPixmap(QPixmap(QStringLiteral(":/resource/png/bridge_pressed.png")));
        break;
    case SelectedPage:
        markSteps(2);
        break;
    case PairingPage:
        markSteps(3);
        break;
    default:
        markSteps(4);
        break;
    }
}

void HueBridgeDialog::markSteps(int count)
{
    QLabel *const steps[] = {ui->label0, ui->label1, ui->label2, ui->label3};
    for (int i = 0; i < 4; ++i)
        steps[i]->setStyleSheet(QString::fromLatin1(i < count ? kMarkedStep : kUnmarkedStep));
}

void HueBridgeDialog::showBesideParent()
{
    if (isVisible())
        return;
    show();
    // Beside the scan window rather than on top of it, so the found lights stay in view.
    if (QWidget *owner = parentWidget())
        move(owner->x() + owner->width(), y());
}

bool HueBridgeDialog::hasBridge(const QString &id) const
{
    for (int row = 0; row < ui->listWidget->count(); ++row) {
        if (ui->listWidget->item(row)->text() == id)
            return true;
    }
    return false;
}

void HueBridgeDialog::onDiscoverBridge(QList<Bridge> bridges)
{
    m_repair = false;
    for (const Bridge &bridge : qAsConst(bridges)) {
        if (hasBridge(bridge.id))
            continue;
        auto *item = new QListWidgetItem(bridge.id, ui->listWidget);
        item->setData(Qt::UserRole, QVariant::fromValue(bridge));
    }
    // Listed for when the user opens the dialog; a scan's own discovery does not pop it up.
}

void HueBridgeDialog::onDiscoverBridge2(Bridge bridge, QString light)
{
    m_repair = true;
    ui->listWidget->clear();
    auto *item = new QListWidgetItem(bridge.id, ui->listWidget);
    item->setData(Qt::UserRole, QVariant::fromValue(bridge));
    item->setData(Qt::UserRole + 1, light);
    showBesideParent();
}

void HueBridgeDialog::onKeyRevoked(Bridge bridge, QString light)
{
    m_repair = true;
    ui->listWidget->clear();
    auto *item = new QListWidgetItem(bridge.id, ui->listWidget);
    item->setData(Qt::UserRole, QVariant::fromValue(bridge));
    item->setData(Qt::UserRole + 1, light);
    item->setSelected(true);
    showBesideParent();
    raise();
}

void HueBridgeDialog::onItemSelectionChanged()
{
    setPage(ui->listWidget->selectedItems().isEmpty() ? SelectPage : SelectedPage);
}

void HueBridgeDialog::onPairBridge()
{
    const QList<QListWidgetItem *> selected = ui->listWidget->selectedItems();
    if (selected.isEmpty())
        return;
    m_pairing = selected.first()->data(Qt::UserRole).value<Bridge>();
    // The light id is taken now: the item itself is deleted once its bridge is paired.
    m_pairingLight = selected.first()->data(Qt::UserRole + 1).toString();
    setPage(PairingPage);
    // A press while a round runs starts it over: one handler, one request per tick, a fresh count.
    m_remaining = kRetryCount;
    m_retryTimer.start();
    ui->label_pair_gif->start();
}

void HueBridgeDialog::onRetryTick()
{
    --m_remaining;
    if (m_remaining < 0) {
        onRegisterResult(false);
        return;
    }
    if (!m_hueBridge)
        return;
    if (m_repair)
        m_hueBridge->pairBridge(m_pairing.ip, m_pairing.id, m_pairingLight);
    else
        m_hueBridge->pairBridge(m_pairing);
}

void HueBridgeDialog::onTryBridge()
{
    onPairBridge();
}

void HueBridgeDialog::onRegisterResult(bool result)
{
    if (result) {
        // The bridge that was paired leaves the list, whichever item is selected by now.
        qDeleteAll(ui->listWidget->findItems(m_pairing.id, Qt::MatchExactly));
        ui->listWidget->clearSelection();
        setPage(PairedPage);
    } else {
        setPage(FailedPage);
    }
    markSteps(4);
    m_retryTimer.stop();
    m_remaining = 0;
    ui->label_pair_gif->stop();
}
