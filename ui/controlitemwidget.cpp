#include "controlitemwidget.h"

#include "adjustingtracker.h"
#include "customslider.h"
#include "devicemgr.h"
#include "lighteffectsetdialog.h"
#include "rotatingsvgwidget.h"
#include "svgicon.h"
#include "switchbutton.h"
#include "uistylesheets.h"

#include <QColorDialog>
#include <QDebug>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>
#include <QWidgetAction>

namespace {

constexpr int kIconSize = 30;
constexpr int kReconnectSpinLimitMs = 3000;

QLabel *iconLabel(const QString &path, QWidget *parent)
{
    auto *label = new QLabel(parent);
    label->setFixedSize(kIconSize, kIconSize);
    label->setPixmap(svgPixmap(path, QSize(kIconSize, kIconSize), label->devicePixelRatioF()));
    return label;
}

const QString &colorDialogSheet()
{
    static const QString sheet = QStringLiteral(
        "QColorDialog {   color: #000000;   background-color: #F0F0F0;   border: 1px solid #D0D0D0;}"
        "QColorDialog QLabel {   color: #000000;   background-color: transparent;}"
        "QColorDialog QLineEdit, QColorDialog QSpinBox {   color: #000000;   background-color: #FFFFFF;"
        "   border: 1px solid #C8C8C8;   border-radius: 3px;   padding: 1px 3px;}"
        "QColorDialog QPushButton {   color: #000000;   background-color: #E1E1E1;   border: 1px solid #C8C8C8;"
        "   border-radius: 5px;   min-width: 72px;   min-height: 24px;}"
        "QColorDialog QPushButton:hover {   color: #FFFFFF;   background-color: #0A84FF;   border-color: #0A84FF;}"
        "QColorDialog QComboBox {   color: #000000;   background-color: #FFFFFF;   font-size: 13px;}");
    return sheet;
}

} // namespace

ControlItemWidget::ControlItemWidget(QWidget *parent)
    : QFrame(parent)
{
    resize(492, 178);
    setFixedHeight(178);
    setObjectName(QStringLiteral("controItemlWidget"));
    setStyleSheet(QStringLiteral(
        "#controItemlWidget { background-color: #141414; border-radius: 10px;}"
        "QMenu { background: #4B4C4E;border-radius: 2px;}"
        "QMenu::item { background: #4B4C4E; color: white; height: 30px; }"
        "QMenu::item:selected { background: #0A84FF;}"));

    m_mainLayout = new QVBoxLayout(this);
    m_mainLayout->setContentsMargins(0, 0, 0, 0);
    m_headerLayout = new QHBoxLayout;
    m_temperatureLayout = new QHBoxLayout;
    m_brightnessLayout = new QHBoxLayout;

    m_tipsLabel = iconLabel(QStringLiteral(":/resource/svg/tips.svg"), this);
    m_nameLabel = new QLabel(this);
    m_nameLabel->setFixedWidth(180);
    m_nameLabel->setStyleSheet(QStringLiteral("QLabel{color: #E6E6E6; font-size: 14px;}"));
    m_nameLabel->setText(QStringLiteral("Brivon Beam Crafter"));
    m_temperatureIcon = iconLabel(QStringLiteral(":/resource/svg/color_temperature.svg"), this);
    m_temperatureSlider = new CustomSlider(Qt::Horizontal, this);
    m_brightnessIcon = iconLabel(QStringLiteral(":/resource/svg/brightness.svg"), this);
    m_brightnessSlider = new CustomSlider(Qt::Horizontal, this);

    m_linkStateLabel = new QLabel(this);
    m_linkStateLabel->setFixedSize(82, 22);
    m_linkStateLabel->setAlignment(Qt::AlignCenter);
    QFont linkFont = m_linkStateLabel->font();
    linkFont.setPixelSize(12);
    m_linkStateLabel->setFont(linkFont);

    m_powerButton = new SwitchButton(this);
    m_powerButton->setObjectName(QStringLiteral("controlItemPowerOnBtn"));
    m_powerButton->setFixedSize(52, 30);
    m_colorButton = new QPushButton(tr("彩光"), this);
    m_colorButton->setObjectName(QStringLiteral("controlItemColorLightBtn"));
    m_colorButton->setFixedSize(60, 22);
    m_colorButton->setToolTip(tr("彩光"));
    m_effectButton = new QPushButton(tr("光效"), this);
    m_effectButton->setObjectName(QStringLiteral("controlItemLightEffectBtn"));
    m_effectButton->setFixedSize(60, 22);
    m_reconnectIcon = new RotatingSvgWidget(this);
    m_reconnectIcon->setFocusPolicy(Qt::StrongFocus);
    m_reconnectIcon->setToolTip(tr("重新连接"));
    m_reconnectIcon->setAccessibleName(tr("重新连接"));
    m_powerButton->setToolTip(tr("开关"));
    m_powerButton->setAccessibleName(tr("开关"));
    m_brightnessSlider->setAccessibleName(tr("亮度"));
    m_temperatureSlider->setAccessibleName(tr("色温"));

    m_headerLayout->setContentsMargins(15, 24, 16, 0);
    m_headerLayout->setSpacing(4);
    m_headerLayout->addSpacing(5);
    m_headerLayout->addWidget(m_tipsLabel);
    m_headerLayout->addSpacing(4);
    m_headerLayout->addWidget(m_nameLabel);
    m_headerLayout->addSpacing(4);
    m_headerLayout->addWidget(m_linkStateLabel);
    m_headerLayout->addSpacing(4);
    m_headerLayout->addWidget(m_effectButton);
    m_headerLayout->addSpacing(4);
    m_headerLayout->addWidget(m_colorButton);
    m_headerLayout->addStretch();
    m_headerLayout->addWidget(m_powerButton);
    m_headerLayout->addWidget(m_reconnectIcon);

    m_brightnessLayout->setContentsMargins(16, 16, 16, 0);
    m_brightnessLayout->addWidget(m_brightnessIcon);
    m_brightnessLayout->addSpacing(4);
    m_brightnessLayout->addWidget(m_brightnessSlider);
    m_brightnessSlider->setRange(0, 100);
    m_brightnessSlider->setSingleStep(1);
    m_brightnessSlider->setPageStep(10);
    m_brightnessSlider->setFixedHeight(30);
    m_brightnessSlider->setRatio(m_brightnessRatio);

    m_temperatureLayout->setContentsMargins(16, 24, 16, 0);
    m_temperatureLayout->addWidget(m_temperatureIcon);
    m_temperatureLayout->addSpacing(4);
    m_temperatureLayout->addWidget(m_temperatureSlider);
    m_temperatureSlider->setRange(2700, 6500);
    m_temperatureSlider->setSingleStep(1);
    m_temperatureSlider->setPageStep(1);
    m_temperatureSlider->setFixedHeight(30);
    m_temperatureSlider->setRatio(m_temperatureRatio);
    m_brightnessSlider->setUnit(QStringLiteral("%"));
    m_temperatureSlider->setUnit(QStringLiteral("K"));

    m_mainLayout->addLayout(m_headerLayout);
    m_mainLayout->addLayout(m_brightnessLayout);
    m_mainLayout->addLayout(m_temperatureLayout);
    m_mainLayout->addStretch();

    m_effectButton->setStyleSheet(UiStyleSheets::plainCardButton());
    m_colorButton->setStyleSheet(UiStyleSheets::plainCardButton());
    m_powerButton->setStyleSheet(QStringLiteral(
        "SwitchButton[choose = true] { background-color: transparent; border-image: url(:/resource/svg/switch_on.svg);}"
        "SwitchButton[choose = false] { background-color: transparent; border-image: url(:/resource/svg/switch_off.svg);}"
        "SwitchButton:disabled { background-color: transparent; border-image: url(:/resource/svg/switch_disabled.svg);}"));

    showLinkState(false);
    m_powerButton->setChoose(false);
    m_colorButton->setEnabled(false);
    m_effectButton->setEnabled(false);
    m_brightnessSlider->setEnabled(false);
    m_temperatureSlider->setEnabled(false);
    m_brightnessSlider->setStyleSheet(UiStyleSheets::sliderDisabled());
    m_temperatureSlider->setStyleSheet(UiStyleSheets::sliderDisabled());

    setupEffectMenu();
    setupColorMenu();

    connect(m_powerButton, &QPushButton::clicked, this, &ControlItemWidget::slotPowerOnButtonClicked);
    connect(m_brightnessSlider, &CustomSlider::sigSliderPressed, this, [this] { onSliderPressed(DragBrightness); });
    connect(m_temperatureSlider, &CustomSlider::sigSliderPressed, this, [this] { onSliderPressed(DragTemperature); });
    connect(m_brightnessSlider, &CustomSlider::sigSliderReleased, this, &ControlItemWidget::onSliderReleased);
    connect(m_temperatureSlider, &CustomSlider::sigSliderReleased, this, &ControlItemWidget::onSliderReleased);
    connect(m_brightnessSlider, &QSlider::valueChanged, this, &ControlItemWidget::onBrightnessChanged);
    connect(m_temperatureSlider, &QSlider::valueChanged, this, &ControlItemWidget::onTemperatureChanged);
    // A coarse timer may fire a little early, and then a light would get two values within 100 ms.
    m_dragTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_dragTimer, &QTimer::timeout, this, &ControlItemWidget::onTimeout);

    DeviceMgr *mgr = DeviceMgrSingleton::instance();
    connect(m_reconnectIcon, &RotatingSvgWidget::reconnect_dev, this, [this] {
        DeviceMgrSingleton::instance()->reconnectDevice(m_addr);
    });
    connect(mgr, &BaseDevice::sigReconnectDevice, this, &ControlItemWidget::slotReconnectDevice);
    connect(mgr, &BaseDevice::sigReconnecting, this, [this](const QString &addr, bool active) {
        if (addr == m_addr)
            showReconnecting(active);
    });

    setContextMenuPolicy(Qt::CustomContextMenu);
    connect(this, &QWidget::customContextMenuRequested, this, &ControlItemWidget::showContextMenu);

    DevDataMgr *store = mgr->store();
    connect(
        store, &DevDataMgr::onUpdateDev, this,
        [this](const QString &, const QString &, const DevData &info) {
            if (info.addr == m_addr)
                slotUpdateLightState(info);
        },
        Qt::QueuedConnection);
    connect(
        store, &DevDataMgr::onUpdateDevParamRange, this,
        [this](const DevData &info) {
            if (info.addr == m_addr)
                applyParamRange(info);
        },
        Qt::QueuedConnection);
}

ControlItemWidget::~ControlItemWidget()
{
    // A card deleted in the middle of a drag must not leave its light adjusting for good.
    if (m_dragMode != DragNone)
        AdjustingTracker::instance()->end(m_addr);
}

void ControlItemWidget::setupEffectMenu()
{
    auto *menu = new QMenu(this);
    m_effectPicker = new LightEffectSetDialog(this);
    auto *action = new QWidgetAction(menu);
    action->setDefaultWidget(m_effectPicker);
    menu->addAction(action);
    m_effectButton->setMenu(menu);

    connect(menu, &QMenu::aboutToShow, this, [this] {
        m_effectPicker->loadEffects(m_addr, m_protocol);
        if (!m_currentEffect.isEmpty())
            m_effectPicker->selectEffectCmd(m_currentEffect);
    });
    connect(m_effectPicker, &LightEffectSetDialog::selectEffect, this, [this](const QString &name, const QString &cmd) {
        Q_UNUSED(name)
        m_currentEffect = cmd;
        showEffectName();
    });
}

void ControlItemWidget::setupColorMenu()
{
    auto *menu = new QMenu(this);
    menu->setStyleSheet(QStringLiteral("font: 9pt \"Microsoft YaHei UI\";font-size: 13px;"));
    m_colorDialog = new QColorDialog(this);
    // Embedded in a drop-down: only the widget dialog can live there.
    m_colorDialog->setOption(QColorDialog::DontUseNativeDialog);
    m_colorDialog->setWindowFlags(Qt::Widget);
    auto *action = new QWidgetAction(menu);
    action->setDefaultWidget(m_colorDialog);
    menu->addAction(action);
    m_colorButton->setMenu(menu);

    // Picking from the screen would grab the pointer from inside an open drop-down.
    const QString pickText = QColorDialog::tr("&Pick Screen Color");
    const QList<QPushButton *> buttons = m_colorDialog->findChildren<QPushButton *>();
    for (QPushButton *button : buttons) {
        if (button->text().contains(pickText)) {
            button->hide();
            break;
        }
    }
    m_colorDialog->setStyleSheet(colorDialogSheet());

    connect(menu, &QMenu::aboutToShow, this, [this] {
        // Before the light has reported a colour the dialog keeps its own rather than showing black.
        if (QColor::isValidColorName(m_currentColor))
            m_colorDialog->setCurrentColor(QColor(m_currentColor));
        m_colorDialog->show();
    });
    connect(m_colorDialog, &QDialog::accepted, menu, &QMenu::close);
    connect(m_colorDialog, &QDialog::rejected, menu, &QMenu::close);
    connect(m_colorDialog, &QColorDialog::colorSelected, this, &ControlItemWidget::onColorSelected);
}

void ControlItemWidget::setDevice(const QString &groupUuid, const QString &groupName, const DevData &dev)
{
    m_groupUuid = groupUuid;
    m_groupName = groupName;
    m_addr = dev.addr;
    m_protocol = dev.protocol;
    m_colorLightEnable = dev.colorLightEnable;
    m_lightEffectEnable = dev.lightEffectEnable;
    // An effect button over an empty drop-down would promise what the light cannot do.
    m_hasEffects = !DeviceMgrSingleton::instance()->getEffectData().effects(m_protocol).isEmpty();
    showName(dev.name);
    applyParamRange(dev);
    slotUpdateLightState(dev);
    showReconnecting(DeviceMgrSingleton::instance()->isReconnecting(m_addr));
}

void ControlItemWidget::showReconnecting(bool active)
{
    // The icon spins for as long as the program tries on its own; a connection hides it.
    m_autoReconnecting = active;
    if (active && !m_reconnectIcon->isRotating())
        m_reconnectIcon->onStartRotation();
    else if (!active && m_reconnectIcon->isRotating())
        m_reconnectIcon->onStopRotation();
}

void ControlItemWidget::showName(const QString &name)
{
    m_name = name;
    // A long name is cut with an ellipsis rather than mid-letter; the tool tip has it in full.
    m_nameLabel->ensurePolished(); // the style sheet's font size, not the default one
    m_nameLabel->setText(QFontMetrics(m_nameLabel->font()).elidedText(name, Qt::ElideRight, m_nameLabel->width()));
    m_nameLabel->setToolTip(name);
    setAccessibleName(name);
}

void ControlItemWidget::askForName()
{
    auto *dialog = new QInputDialog(this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle(tr("重命名"));
    dialog->setLabelText(tr("设备名称："));
    dialog->setTextValue(m_name);
    dialog->setWindowModality(Qt::WindowModal);
    dialog->setStyleSheet(QStringLiteral("QInputDialog { background-color: #282828; } QLabel { color: #E6E6E6; }"));
    const QString addr = m_addr;
    connect(dialog, &QInputDialog::textValueSelected, this,
            [addr](const QString &text) { DeviceMgrSingleton::instance()->renameDev(addr, text); });
    dialog->open();
}

QString ControlItemWidget::textColorFor(const QColor &background)
{
    const int weighted = (background.red() * 11 + background.green() * 16 + background.blue() * 5) & ~31;
    return weighted > 4096 ? QStringLiteral("#000000") : QStringLiteral("#ffffff");
}

void ControlItemWidget::setColorButton(const QString &colorName)
{
    m_currentColor = colorName;
    m_colorButton->setStyleSheet(QStringLiteral("QPushButton{ background-color: %1; color: %2; border: none; "
                                                "border-radius: 5px; font-size: 12px; } "
                                                "QPushButton:disabled { background-color: #C0C0C0; color: #6E6E6E; }"
                                                "QPushButton::menu-indicator{image:none; width: 0px;}")
                                     .arg(colorName, textColorFor(QColor(colorName))));
}

void ControlItemWidget::onColorSelected(const QColor &color)
{
    setColorButton(color.name());
    DeviceMgrSingleton::instance()->setColor(m_addr, color);
    clearEffectSelection();
}

void ControlItemWidget::clearEffectSelection()
{
    if (m_currentEffect.isEmpty())
        return;
    m_effectPicker->clearEffectCmd(m_currentEffect);
    m_currentEffect.clear();
    showEffectName();
}

void ControlItemWidget::showEffectName()
{
    QString name;
    if (!m_currentEffect.isEmpty()) {
        const QList<EffectItem> effects = DeviceMgrSingleton::instance()->getEffectData().effects(m_protocol);
        for (const EffectItem &effect : effects) {
            if (effect.cmd == m_currentEffect) {
                name = effect.name;
                break;
            }
        }
    }
    if (name.isEmpty()) {
        m_effectButton->setText(tr("光效"));
        m_effectButton->setToolTip(tr("光效"));
        return;
    }
    m_effectButton->ensurePolished();
    m_effectButton->setText(
        QFontMetrics(m_effectButton->font()).elidedText(name, Qt::ElideRight, m_effectButton->width() - 6));
    m_effectButton->setToolTip(name);
}

void ControlItemWidget::showLinkState(bool connected)
{
    const QString text = connected ? tr("已连接") : tr("未连接");
    m_linkStateLabel->setStyleSheet(
        connected ? QStringLiteral("QLabel { background-color: #F6FFED; color: #52C41A; border: 2px solid #A9CB8E; "
                                   "border-radius: 5px; padding: 1px;}")
                  : QStringLiteral("QLabel { background-color: #FFF1F0; color: #F63943; border: 2px solid #DEAEAC; "
                                   "border-radius: 5px; padding: 1px;}"));
    // Longer translations must not spill out of the fixed-size badge.
    const QString elided =
        QFontMetrics(m_linkStateLabel->font()).elidedText(text, Qt::ElideRight, m_linkStateLabel->width() - 5);
    m_linkStateLabel->setText(elided);
    m_linkStateLabel->setToolTip(elided != text ? text : QString());

    if (connected) {
        emit m_reconnectIcon->stopRotation();
        m_reconnectIcon->hide();
        m_powerButton->show();
    } else {
        m_reconnectIcon->show();
        m_powerButton->hide();
    }
    updateControlsEnabled();
}

void ControlItemWidget::applySwitchState(bool on)
{
    m_powerButton->setChoose(on);
    updateControlsEnabled();
}

void ControlItemWidget::updateControlsEnabled()
{
    const bool on = m_linkState != 0 && m_powerButton->choose();
    // A slider disabled under the pointer never sees its release: the drag ends here instead.
    if (!on && m_dragMode != DragNone) {
        m_brightnessSlider->setSliderDown(false);
        m_temperatureSlider->setSliderDown(false);
        endAdjusting();
    }
    m_colorButton->setEnabled(on && m_colorLightEnable);
    m_effectButton->setEnabled(on && m_lightEffectEnable && m_hasEffects);
    m_powerButton->setEnabled(m_linkState != 0);
    if (m_brightnessSlider->isEnabled() == on && !m_brightnessSlider->styleSheet().isEmpty())
        return;
    m_brightnessSlider->setEnabled(on);
    m_temperatureSlider->setEnabled(on);
    m_brightnessSlider->setStyleSheet(on ? UiStyleSheets::sliderBrightness() : UiStyleSheets::sliderDisabled());
    m_temperatureSlider->setStyleSheet(on ? UiStyleSheets::sliderTemperatureWarmToCold()
                                          : UiStyleSheets::sliderDisabled());
}

void ControlItemWidget::applyParamRange(const DevData &dev)
{
    {
        const QSignalBlocker blocker(m_brightnessSlider);
        m_brightnessRatio = dev.brightnessRatio;
        m_brightnessSlider->setRatio(m_brightnessRatio);
        m_brightnessSlider->setRange(dev.brightnessMin / m_brightnessRatio, dev.brightnessMax / m_brightnessRatio);
    }
    {
        const QSignalBlocker blocker(m_temperatureSlider);
        m_temperatureRatio = dev.temperatureRatio;
        m_temperatureSlider->setRatio(m_temperatureRatio);
        m_temperatureSlider->setRange(dev.temperatureMin / m_temperatureRatio,
                                      dev.temperatureMax / m_temperatureRatio);
    }
    // A light that never reported its state keeps its handles at the start, not wherever the
    // change of range clamped them.
    if (m_lastBrightness < 0) {
        const QSignalBlocker blocker(m_brightnessSlider);
        m_brightnessSlider->setValue(m_brightnessSlider->minimum());
    }
    if (m_lastTemperature < 0) {
        const QSignalBlocker blocker(m_temperatureSlider);
        m_temperatureSlider->setValue(m_temperatureSlider->minimum());
    }
}

void ControlItemWidget::slotUpdateLightState(DevData dev)
{
    if (dev.addr != m_addr)
        return;

    if (dev.linkState != m_linkState) {
        m_linkState = dev.linkState;
        showLinkState(m_linkState != 0);
    }
    if (!dev.enablePower)
        m_powerButton->hide();
    if (dev.name != m_name && !dev.name.isEmpty())
        showName(dev.name);

    // The switch may show an optimistic click that the light has not confirmed: the report decides.
    if (quint8(dev.switchState) != m_switchState || m_powerButton->choose() != dev.switchState) {
        m_switchState = dev.switchState;
        applySwitchState(dev.switchState);
    }

    if (m_colorLightEnable && dev.colorLight != m_currentColor && (dev.devCurModel == 3 || dev.protocol == 2001)) {
        setColorButton(dev.colorLight);
        if (m_colorDialog->isVisible())
            m_colorDialog->setCurrentColor(QColor(dev.colorLight));
    }
    // Out of colour mode the button goes back to its plain look; the colour is kept for the picker.
    if (m_curModel == 3 && dev.devCurModel != 3 && dev.protocol != 2001)
        m_colorButton->setStyleSheet(UiStyleSheets::plainCardButton());
    m_curModel = dev.devCurModel;

    m_applyingState = true;
    if (dev.temperature != m_lastTemperature) {
        m_lastTemperature = dev.temperature;
        m_temperatureSlider->setValue(dev.temperature / m_temperatureRatio);
    }
    if (dev.brightness != m_lastBrightness) {
        m_lastBrightness = dev.brightness;
        m_brightnessSlider->setValue(dev.brightness / m_brightnessRatio);
    }
    m_applyingState = false;

    if (m_lightEffectEnable) {
        if (dev.lightEffect != m_currentEffect)
            m_currentEffect = dev.lightEffect;
        if (m_effectPicker->isEmpty())
            m_effectPicker->loadEffects(m_addr, m_protocol);
        if (dev.devCurModel == 2) {
            m_effectPicker->selectEffectCmd(m_currentEffect);
            showEffectName();
        } else {
            clearEffectSelection();
        }
    }

    m_lastAuxValue1 = dev.auxValue1;
    m_lastAuxValue2 = dev.auxValue2;
}

void ControlItemWidget::slotPluginUpdateLightState(DevData dev)
{
    if (dev.addr != m_addr)
        return;
    // The last values are deliberately not stored first: the sliders' change handlers record the
    // move as if the user had made it.
    if (dev.temperature != m_lastTemperature)
        m_temperatureSlider->setValue(dev.temperature / m_temperatureRatio);
    if (dev.brightness != m_lastBrightness)
        m_brightnessSlider->setValue(dev.brightness / m_brightnessRatio);
    m_lastAuxValue1 = dev.auxValue1;
    m_lastAuxValue2 = dev.auxValue2;
}

void ControlItemWidget::slotReconnectDevice(QString devAddr)
{
    if (devAddr != m_addr)
        return;
    if (!m_reconnectIcon->isRotating())
        m_reconnectIcon->onStartRotation();
    QTimer::singleShot(kReconnectSpinLimitMs, m_reconnectIcon, [this] {
        if (m_reconnectIcon->isRotating() && !m_autoReconnecting)
            m_reconnectIcon->onStopRotation();
    });
}

void ControlItemWidget::slotPowerOnButtonClicked()
{
    const bool wasOn = m_powerButton->choose();
    m_powerButton->setChoose(!wasOn);
    if (wasOn)
        DeviceMgrSingleton::instance()->powerOff(m_addr);
    else
        DeviceMgrSingleton::instance()->powerOn(m_addr);
}

void ControlItemWidget::showContextMenu(QPoint pos)
{
    QMenu menu(this);
    QAction *renameAction = menu.addAction(tr("重命名"));
    QAction *deleteAction = menu.addAction(tr("删除"));
    QAction *chosen = menu.exec(mapToGlobal(pos));
    if (chosen == renameAction) {
        askForName();
        return;
    }
    if (chosen != deleteAction)
        return;
    // Copies: the store's answer may schedule this card for deletion.
    const QString groupUuid = m_groupUuid;
    const QString addr = m_addr;
    DeviceMgr *mgr = DeviceMgrSingleton::instance();
    if (groupUuid == defaultGroupUuid())
        mgr->removeDevice(addr);
    mgr->delDev(groupUuid, addr);
}

void ControlItemWidget::onSliderPressed(DragMode mode)
{
    // A keyboard adjustment in progress sends its last value before the drag takes over.
    endAdjusting();
    beginAdjusting(mode, false);
}

void ControlItemWidget::onSliderReleased()
{
    if (!m_keyboardAdjusting)
        endAdjusting();
}

void ControlItemWidget::beginAdjusting(DragMode mode, bool fromKeyboard)
{
    if (m_dragMode == mode)
        return;
    endAdjusting();
    m_dragMode = mode;
    m_keyboardAdjusting = fromKeyboard;
    m_dragTimer.start(kDragIntervalMs);
    AdjustingTracker::instance()->begin(m_addr);
}

void ControlItemWidget::endAdjusting()
{
    if (m_dragMode == DragNone)
        return;
    m_dragTimer.stop();
    onTimeout(); // the final value
    m_dragMode = DragNone;
    m_keyboardAdjusting = false;
    // Whatever the other slider recorded meanwhile is not sent later, out of date.
    m_pendingBrightnesses.clear();
    m_pendingTemperatures.clear();
    AdjustingTracker::instance()->end(m_addr);
}

void ControlItemWidget::onBrightnessChanged(int value)
{
    if (m_applyingState)
        return;
    const int x = value * m_brightnessRatio;
    if (x == m_lastBrightness)
        return;
    m_lastBrightness = x;
    // Arrows, Page Up/Down, Home/End: coalesced like a drag.
    if (m_dragMode == DragNone || (m_keyboardAdjusting && m_dragMode != DragBrightness))
        beginAdjusting(DragBrightness, true);
    m_pendingBrightnesses.append(x);
}

void ControlItemWidget::onTemperatureChanged(int value)
{
    if (m_applyingState)
        return;
    const int x = value * m_temperatureRatio;
    if (x == m_lastTemperature)
        return;
    m_lastTemperature = x;
    if (m_dragMode == DragNone || (m_keyboardAdjusting && m_dragMode != DragTemperature))
        beginAdjusting(DragTemperature, true);
    m_pendingTemperatures.append(x);
    // A colour temperature ends any running effect.
    clearEffectSelection();
}

void ControlItemWidget::onTimeout()
{
    DeviceMgr *mgr = DeviceMgrSingleton::instance();
    bool sent = false;
    if (!m_pendingTemperatures.isEmpty() && m_dragMode == DragTemperature) {
        const int last = m_pendingTemperatures.last();
        m_pendingTemperatures.clear();
        mgr->setTemperature(m_addr, last);
        sent = true;
    }
    if (!m_pendingBrightnesses.isEmpty() && m_dragMode == DragBrightness) {
        const int last = m_pendingBrightnesses.last();
        m_pendingBrightnesses.clear();
        mgr->setBrightness(m_addr, last);
        sent = true;
    }
    // Keys no longer pressed: the keyboard adjustment is over.
    if (!sent && m_keyboardAdjusting && m_dragTimer.isActive())
        endAdjusting();
}

void ControlItemWidget::keyPressEvent(QKeyEvent *event)
{
    // The card's menu (delete, rename) from the keyboard, wherever the focus is on the card.
    if (event->key() == Qt::Key_Delete || (event->key() == Qt::Key_F10 && event->modifiers() == Qt::ShiftModifier)) {
        showContextMenu(rect().center());
        return;
    }
    QFrame::keyPressEvent(event);
}
