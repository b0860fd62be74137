#pragma once

#include "devdata.h"

#include <QFrame>
#include <QList>
#include <QString>
#include <QTimer>

class CustomSlider;
class QLabel;
class SwitchButton;

// The header row of a group section: one power switch and one brightness slider for every light
// of the group, through the device manager, coalesced like a card's slider.
class GroupHeaderWidget : public QFrame
{
    Q_OBJECT

public:
    static constexpr int kDragIntervalMs = 100;

    explicit GroupHeaderWidget(const QString &groupUuid, QWidget *parent = nullptr);
    ~GroupHeaderWidget() override;

    QString groupUuid() const { return m_groupUuid; }
    SwitchButton *powerButton() const { return m_powerButton; }
    CustomSlider *brightnessSlider() const { return m_brightnessSlider; }

    // Shows the members' state: on when any is on, the slider at their mean brightness.
    void refresh();

private:
    void onPowerClicked();
    void onValueChanged(int value);
    void beginAdjusting();
    void endAdjusting();
    void sendPending();

    QString m_groupUuid;
    QLabel *m_icon = nullptr;
    CustomSlider *m_brightnessSlider = nullptr;
    SwitchButton *m_powerButton = nullptr;
    QTimer m_timer;
    // Addresses the current adjustment began for: the ones it must end for.
    QStringList m_adjusting;
    bool m_keyboard = false;
    int m_pending = -1;
    bool m_applying = false;
};
