#include "groupheaderwidget.h"

#include "adjustingtracker.h"
#include "customslider.h"
#include "devicemgr.h"
#include "svgicon.h"
#include "switchbutton.h"
#include "uistylesheets.h"

#include <QHBoxLayout>
#include <QLabel>

#include <cmath>

GroupHeaderWidget::GroupHeaderWidget(const QString &groupUuid, QWidget *parent)
    : QFrame(parent)
    , m_groupUuid(groupUuid)
    , m_icon(new QLabel(this))
    , m_brightnessSlider(new CustomSlider(Qt::Horizontal, this))
    , m_powerButton(new SwitchButton(this))
{
    setObjectName(QStringLiteral("groupHeaderWidget"));
    setStyleSheet(QStringLiteral("#groupHeaderWidget { background-color: #0A0A0A; border-radius: 8px; }"));
    setFixedHeight(46);

    m_icon->setFixedSize(24, 24);
    m_icon->setPixmap(svgPixmap(QStringLiteral(":/resource/svg/brightness.svg"), QSize(24, 24), devicePixelRatioF()));
    m_brightnessSlider->setRange(0, 100);
    m_brightnessSlider->setSingleStep(1);
    m_brightnessSlider->setPageStep(10);
    m_brightnessSlider->setFixedHeight(30);
    m_brightnessSlider->setUnit(QStringLiteral("%"));
    m_brightnessSlider->setStyleSheet(UiStyleSheets::sliderBrightness());
    m_brightnessSlider->setToolTip(tr("群组亮度"));
    m_brightnessSlider->setAccessibleName(tr("群组亮度"));
    m_powerButton->setFixedSize(52, 30);
    m_powerButton->setToolTip(tr("群组开关"));
    m_powerButton->setAccessibleName(tr("群组开关"));
    m_powerButton->setStyleSheet(QStringLiteral(
        "SwitchButton[choose = true] { background-color: transparent; border-image: url(:/resource/svg/switch_on.svg);}"
        "SwitchButton[choose = false] { background-color: transparent; border-image: url(:/resource/svg/switch_off.svg);}"
        "SwitchButton:disabled { background-color: transparent; border-image: url(:/resource/svg/switch_disabled.svg);}"));

    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(16, 6, 16, 6);
    layout->setSpacing(4);
    layout->addWidget(m_icon);
    layout->addWidget(m_brightnessSlider, 1);
    layout->addSpacing(12);
    layout->addWidget(m_powerButton);

    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &GroupHeaderWidget::sendPending);
    connect(m_powerButton, &QPushButton::clicked, this, &GroupHeaderWidget::onPowerClicked);
    connect(m_brightnessSlider, &CustomSlider::sigSliderPressed, this, [this] {
        endAdjusting();
        beginAdjusting();
    });
    connect(m_brightnessSlider, &CustomSlider::sigSliderReleased, this, [this] {
        if (!m_keyboard)
            endAdjusting();
    });
    connect(m_brightnessSlider, &QSlider::valueChanged, this, &GroupHeaderWidget::onValueChanged);

    DevDataMgr *store = DeviceMgrSingleton::instance()->store();
    connect(store, &DevDataMgr::onAddDev, this, &GroupHeaderWidget::refresh, Qt::QueuedConnection);
    connect(store, &DevDataMgr::onDelDev, this, &GroupHeaderWidget::refresh, Qt::QueuedConnection);
    connect(
        store, &DevDataMgr::onUpdateDev, this,
        [this](const QString &uuid) {
            // Every change arrives once for the list of all lights: enough to see any member's.
            if (uuid == defaultGroupUuid())
                refresh();
        },
        Qt::QueuedConnection);
    refresh();
}

GroupHeaderWidget::~GroupHeaderWidget()
{
    for (const QString &addr : qAsConst(m_adjusting))
        AdjustingTracker::instance()->end(addr);
}

void GroupHeaderWidget::refresh()
{
    const QList<DevData> members = DeviceMgrSingleton::instance()->getGroupDevices(m_groupUuid);
    bool anyOn = false;
    bool anyLinked = false;
    double sum = 0;
    int counted = 0;
    for (const DevData &dev : members) {
        anyLinked = anyLinked || dev.linkState != 0;
        if (dev.linkState == 0)
            continue;
        anyOn = anyOn || dev.switchState;
        if (dev.brightness >= 0 && dev.brightnessMax > dev.brightnessMin) {
            sum += double(dev.brightness - dev.brightnessMin) / double(dev.brightnessMax - dev.brightnessMin);
            ++counted;
        }
    }
    m_powerButton->setChoose(anyOn);
    m_powerButton->setEnabled(anyLinked);
    const bool enabled = anyLinked && anyOn;
    if (m_brightnessSlider->isEnabled() != enabled) {
        if (!enabled && !m_adjusting.isEmpty()) {
            m_brightnessSlider->setSliderDown(false);
            endAdjusting();
        }
        m_brightnessSlider->setEnabled(enabled);
        m_brightnessSlider->setStyleSheet(enabled ? UiStyleSheets::sliderBrightness() : UiStyleSheets::sliderDisabled());
    }
    // The user's own hand wins over reports while adjusting.
    if (m_adjusting.isEmpty() && counted > 0) {
        m_applying = true;
        m_brightnessSlider->setValue(int(std::lround(100.0 * sum / counted)));
        m_applying = false;
    }
}

void GroupHeaderWidget::onPowerClicked()
{
    // As a plug-in's group switch: off when any light is on, else on.
    const bool wasOn = m_powerButton->choose();
    m_powerButton->setChoose(!wasOn);
    DeviceMgr *mgr = DeviceMgrSingleton::instance();
    const QList<DevData> members = mgr->getGroupDevices(m_groupUuid);
    for (const DevData &dev : members) {
        if (wasOn)
            mgr->powerOff(dev.addr);
        else
            mgr->powerOn(dev.addr);
    }
}

void GroupHeaderWidget::onValueChanged(int value)
{
    if (m_applying)
        return;
    if (m_adjusting.isEmpty()) {
        beginAdjusting(); // arrows, Page Up/Down, Home/End
        m_keyboard = true;
    }
    m_pending = value;
}

void GroupHeaderWidget::beginAdjusting()
{
    if (!m_adjusting.isEmpty())
        return;
    const QList<DevData> members = DeviceMgrSingleton::instance()->getGroupDevices(m_groupUuid);
    for (const DevData &dev : members) {
        m_adjusting.append(dev.addr);
        AdjustingTracker::instance()->begin(dev.addr);
    }
    m_keyboard = false;
    m_timer.start(kDragIntervalMs);
}

void GroupHeaderWidget::endAdjusting()
{
    if (m_adjusting.isEmpty())
        return;
    m_timer.stop();
    sendPending();
    for (const QString &addr : std::exchange(m_adjusting, {}))
        AdjustingTracker::instance()->end(addr);
    m_keyboard = false;
}

void GroupHeaderWidget::sendPending()
{
    if (m_pending < 0) {
        if (m_keyboard && m_timer.isActive())
            endAdjusting();
        return;
    }
    const double ratio = m_pending / 100.0;
    m_pending = -1;
    DeviceMgr *mgr = DeviceMgrSingleton::instance();
    for (const QString &addr : qAsConst(m_adjusting))
        mgr->setBrightnessByRatio(addr, ratio);
}
