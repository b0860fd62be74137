#pragma once

#include "huebridge.h"

#include <QDialog>
#include <QList>
#include <QString>
#include <QTimer>

#include <memory>

namespace Ui {
class HueBridgeDialog;
}

// Pairs the program with a Hue bridge: lists the bridges discovery reports, retries the pairing
// request while the user presses the bridge's link button, and shows how it ended.
class HueBridgeDialog : public QDialog
{
    Q_OBJECT

public:
    enum Page { SelectPage = 0, SelectedPage = 1, PairingPage = 2, PairedPage = 3, FailedPage = 4 };

    static constexpr int kRetryIntervalMs = 5000;
    static constexpr int kRetryCount = 12;

    explicit HueBridgeDialog(QWidget *parent = nullptr);
    ~HueBridgeDialog() override;

    // Shows the dialog and asks the bridge client for the bridges on the network; the answer
    // fills the list (at most one request a minute reaches the discovery service).
    void discoverBridges();

    int currentPage() const;
    bool isRepairMode() const { return m_repair; }
    int remainingAttempts() const { return m_remaining; }
    // The wait between two pairing requests; tests and demos shorten it.
    void setRetryInterval(int ms) { m_retryTimer.setInterval(ms); }
    int retryInterval() const { return m_retryTimer.interval(); }

public slots:
    void onDiscoverBridge(QList<Bridge> bridges);
    void onDiscoverBridge2(Bridge bridge, QString light);
    void onRegisterResult(bool result);
    void onItemSelectionChanged();
    void onPairBridge();
    void onTryBridge();
    // The bridge refused its key: offer to pair it again, with its entry already chosen.
    void onKeyRevoked(Bridge bridge, QString light);

private:
    void setPage(int index);
    void markSteps(int count);
    void showBesideParent();
    bool hasBridge(const QString &id) const;
    void onRetryTick();

    std::unique_ptr<Ui::HueBridgeDialog> ui;
    QTimer m_retryTimer;
    int m_remaining = 0;
    std::shared_ptr<HueBridge> m_hueBridge;
    bool m_repair = false;
    Bridge m_pairing;       // the bridge of the running (or last) pairing round
    QString m_pairingLight; // its light, in re-pair mode
};
