#include "lighteffectsetdialog.h"

#include "devicemgr.h"
#include "uistylesheets.h"
#include "wrapbutton.h"

#include <QGridLayout>
#include <QScrollArea>
#include <QScrollBar>
#include <QVBoxLayout>

namespace {
constexpr int kButtonSize = 80;
constexpr int kGridMargin = 9;
constexpr int kGridSpacing = 6;
constexpr int kScrollBarWidth = 14;
constexpr int kVisibleRows = 3;
} // namespace

LightEffectSetDialog::LightEffectSetDialog(QWidget *parent)
    : QDialog(parent)
{
    setWindowTitle(tr("光效"));

    m_scrollArea = new QScrollArea(this);
    m_scrollArea->setWidgetResizable(true);
    m_scrollArea->setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    m_scrollArea->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    m_scrollArea->setStyleSheet(QStringLiteral(
        "QScrollBar:vertical {            background-color: QLinearGradient(x1: 0, y1: 0, x2: 1, y2: 0,"
        "stop: 0 rgb(31,30,31), stop: 0.75 rgb(54, 53, 54),stop: 1 rgb(58,57,58));            width: 14px;        }"
        "QScrollBar::handle:vertical {background-color: #6E6E6E; min-height: 20px; border-radius: 4px; margin: 2px;}"
        "QScrollBar::add-line:vertical, QScrollBar::sub-line:vertical {height: 0px; border: none; background: none;}"
        "QScrollBar::add-page:vertical, QScrollBar::sub-page:vertical {background: none;}"
        "QScrollArea {border: none; background-color: #1E1E1E;}"));

    auto *inner = new QWidget(m_scrollArea);
    inner->setObjectName(QStringLiteral("lightEffectGrid"));
    inner->setStyleSheet(QStringLiteral("#lightEffectGrid {background-color: #1E1E1E;}"));
    m_grid = new QGridLayout(inner);
    m_grid->setContentsMargins(kGridMargin, kGridMargin, kGridMargin, kGridMargin);
    m_grid->setSpacing(kGridSpacing);
    m_grid->setAlignment(Qt::AlignTop | Qt::AlignLeft);
    m_scrollArea->setWidget(inner);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_scrollArea);

    // Room for a full row of five without a horizontal scroll bar; longer lists scroll vertically.
    const int rowWidth = kColumns * kButtonSize + (kColumns - 1) * kGridSpacing + 2 * kGridMargin;
    setFixedWidth(rowWidth + kScrollBarWidth + 2);
}

void LightEffectSetDialog::loadEffects(const QString &addr, int protocol)
{
    if (addr == m_addr && protocol == m_protocol)
        return;
    const QList<EffectItem> effects = DeviceMgrSingleton::instance()->getEffectData().effects(protocol);
    if (effects.isEmpty())
        return;

    while (QLayoutItem *item = m_grid->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    m_buttons.clear();
    m_checked = nullptr;
    m_addr = addr;
    m_protocol = protocol;

    for (int i = 0; i < effects.size(); ++i) {
        const EffectItem &effect = effects.at(i);
        auto *button = new WrapButton(effect.name, m_grid->parentWidget());
        button->setCheckable(true);
        button->setChecked(false);
        button->setStyleSheet(UiStyleSheets::effectButton());
        button->setFixedSize(kButtonSize, kButtonSize);
        m_buttons.insert(effect.cmd, button);
        m_grid->addWidget(button, i / kColumns, i % kColumns);
        const QString name = effect.name;
        const QString cmd = effect.cmd;
        connect(button, &QPushButton::clicked, this, [this, button, name, cmd] { onButtonClicked(button, name, cmd); });
    }

    const int rows = qMin(kVisibleRows, int((effects.size() + kColumns - 1) / kColumns));
    setFixedHeight(rows * kButtonSize + (rows - 1) * kGridSpacing + 2 * kGridMargin + 2);
}

void LightEffectSetDialog::onButtonClicked(WrapButton *button, const QString &name, const QString &cmd)
{
    button->setChecked(true);
    if (m_checked && m_checked != button)
        m_checked->setChecked(false);
    m_checked = button;
    emit selectEffect(name, cmd);
    DeviceMgrSingleton::instance()->setLightEffect(m_addr, cmd);
}

void LightEffectSetDialog::selectEffectCmd(const QString &cmd)
{
    WrapButton *button = m_buttons.value(cmd);
    if (!button) {
        if (m_checked)
            m_checked->setChecked(false);
        m_checked = nullptr;
        emit selectEffect(QString(), QString());
        return;
    }
    if (m_checked && m_checked != button)
        m_checked->setChecked(false);
    button->setChecked(true);
    m_checked = button;
}

void LightEffectSetDialog::clearEffectCmd(const QString &cmd)
{
    if (WrapButton *button = m_buttons.value(cmd))
        button->setChecked(false);
    if (m_checked)
        m_checked->setChecked(false);
    m_checked = nullptr;
}

QString LightEffectSetDialog::checkedCmd() const
{
    for (auto it = m_buttons.cbegin(); it != m_buttons.cend(); ++it) {
        if (it.value()->isChecked())
            return it.key();
    }
    return QString();
}
