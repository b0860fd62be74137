#pragma once

#include "devdata.h"

#include <QFrame>
#include <QList>
#include <QString>
#include <QTimer>

class CustomSlider;
class LightEffectSetDialog;
class QColorDialog;
class QHBoxLayout;
class QKeyEvent;
class QLabel;
class QMenu;
class QPushButton;
class QVBoxLayout;
class RotatingSvgWidget;
class SwitchButton;

// One card of the control panel: one light as seen from one group. Every user action becomes a
// call on the device manager with the light's address; the light's state comes back through the
// store's signals.
class ControlItemWidget : public QFrame
{
    Q_OBJECT

public:
    enum DragMode { DragNone = 0, DragBrightness = 1, DragTemperature = 2 };
    static constexpr int kDragIntervalMs = 100;
    static constexpr int kAdjustingEndDelayMs = 200;

    explicit ControlItemWidget(QWidget *parent = nullptr);
    ~ControlItemWidget() override;

    // Binds the card to a light of a group, then shows the record's ranges and state.
    void setDevice(const QString &groupUuid, const QString &groupName, const DevData &dev);

    QString groupUuid() const { return m_groupUuid; }
    QString groupName() const { return m_groupName; }
    QString name() const { return m_name; }
    QString addr() const { return m_addr; }
    QString currentColor() const { return m_currentColor; }
    QString currentEffect() const { return m_currentEffect; }

    CustomSlider *brightnessSlider() const { return m_brightnessSlider; }
    CustomSlider *temperatureSlider() const { return m_temperatureSlider; }
    SwitchButton *powerButton() const { return m_powerButton; }
    QPushButton *colorButton() const { return m_colorButton; }
    QPushButton *effectButton() const { return m_effectButton; }
    QLabel *nameLabel() const { return m_nameLabel; }
    QLabel *linkStateLabel() const { return m_linkStateLabel; }
    RotatingSvgWidget *reconnectIcon() const { return m_reconnectIcon; }
    LightEffectSetDialog *effectPicker() const { return m_effectPicker; }
    QColorDialog *colorDialog() const { return m_colorDialog; }

    // Text colour that stays readable on a button of the given background colour.
    static QString textColorFor(const QColor &background);

public slots:
    void slotUpdateLightState(DevData dev);

private slots:
    void slotPluginUpdateLightState(DevData dev);
    void slotReconnectDevice(QString devAddr);
    void slotPowerOnButtonClicked();
    void showContextMenu(QPoint pos);
    void onTimeout();

protected:
    void keyPressEvent(QKeyEvent *event) override;

private:
    void setupColorMenu();
    void setupEffectMenu();
    void applyParamRange(const DevData &dev);
    void applySwitchState(bool on);
    // Controls follow the link, the switch and what the light can do.
    void updateControlsEnabled();
    void showEffectName();
    void showName(const QString &name);
    void askForName();
    void beginAdjusting(DragMode mode, bool fromKeyboard);
    void endAdjusting();
    void showLinkState(bool connected);
    void showReconnecting(bool active);
    void setColorButton(const QString &colorName);
    void clearEffectSelection();
    void onSliderPressed(DragMode mode);
    void onSliderReleased();
    void onBrightnessChanged(int value);
    void onTemperatureChanged(int value);
    void onColorSelected(const QColor &color);

    QVBoxLayout *m_mainLayout = nullptr;
    QHBoxLayout *m_headerLayout = nullptr;
    QHBoxLayout *m_temperatureLayout = nullptr;
    QHBoxLayout *m_brightnessLayout = nullptr;
    QLabel *m_tipsLabel = nullptr;
    QLabel *m_nameLabel = nullptr;
    QLabel *m_temperatureIcon = nullptr;
    CustomSlider *m_temperatureSlider = nullptr;
    QLabel *m_brightnessIcon = nullptr;
    CustomSlider *m_brightnessSlider = nullptr;
    QLabel *m_linkStateLabel = nullptr;
    SwitchButton *m_powerButton = nullptr;
    QPushButton *m_colorButton = nullptr;
    QPushButton *m_effectButton = nullptr;
    RotatingSvgWidget *m_reconnectIcon = nullptr;
    bool m_autoReconnecting = false;
    QString m_groupUuid;
    QString m_groupName;
    QString m_name;
    QString m_addr;
    LightEffectSetDialog *m_effectPicker = nullptr;
    QString m_currentEffect;
    QColorDialog *m_colorDialog = nullptr;
    QString m_currentColor;
    quint8 m_linkState = 0;
    quint8 m_switchState = 0;
    qint32 m_protocol = -1;
    bool m_colorLightEnable = false;
    bool m_lightEffectEnable = false;
    qint32 m_lastTemperature = -1;
    qint32 m_lastBrightness = -1;
    qint32 m_lastAuxValue1 = -1;
    qint32 m_lastAuxValue2 = -1;
    qint32 m_brightnessRatio = 1;
    qint32 m_temperatureRatio = 100;
    QTimer m_dragTimer;
    qint32 m_dragMode = DragNone;
    QList<int> m_pendingTemperatures;
    QList<int> m_pendingBrightnesses;
    // Set while the values being coalesced come from the keyboard rather than a held handle.
    bool m_keyboardAdjusting = false;
    bool m_hasEffects = false;
    qint32 m_curModel = -1;
    // Set while the card itself moves a slider to a reported value, so that the move is not
    // mistaken for a user's.
    bool m_applyingState = false;
};
