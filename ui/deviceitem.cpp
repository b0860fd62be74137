#include "deviceitem.h"

#include "svgicon.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

constexpr quint8 kOnline = 1;

} // namespace

DeviceItem::DeviceItem(const DevData &data, QWidget *parent)
    : QWidget(parent)
    , m_addr(data.addr)
    , m_stateDot(new QLabel(this))
    , m_nameLabel(new QLabel(this))
    , m_stateLabel(new QLabel(this))
    , m_removeButton(new QPushButton(this))
{
    setObjectName(QStringLiteral("deviceItem"));
    // The card behind the row is painted by the list's delegate.
    setStyleSheet(QStringLiteral("#deviceItem { background: transparent; }"));
    setAttribute(Qt::WA_TranslucentBackground);

    m_stateDot->setFixedSize(8, 8);
    m_nameLabel->setStyleSheet(QStringLiteral("color: #EBEBF5; font-size: 14px; background: transparent;"));
    m_stateLabel->setStyleSheet(QStringLiteral("color: #9C9C9C; font-size: 12px; background: transparent;"));

    m_removeButton->setObjectName(QStringLiteral("removeButton"));
    m_removeButton->setIcon(svgIcon(QStringLiteral(":/resource/svg/Subtract.svg")));
    m_removeButton->setIconSize(QSize(20, 20));
    m_removeButton->setFixedSize(32, 32);
    m_removeButton->setCursor(Qt::PointingHandCursor);
    m_removeButton->setToolTip(tr("删除"));
    m_removeButton->setAccessibleName(tr("删除"));
    m_removeButton->setStyleSheet(QStringLiteral("#removeButton { background: transparent; border: none; }"
                                                 "#removeButton:hover { background-color: #444446; border-radius: 16px; }"));
    connect(m_removeButton, &QPushButton::clicked, this, [this] { emit removeClicked(m_addr); });

    auto *texts = new QVBoxLayout;
    texts->setContentsMargins(0, 0, 0, 0);
    texts->setSpacing(2);
    texts->addWidget(m_nameLabel);
    texts->addWidget(m_stateLabel);

    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(16, 6, 12, 6);
    layout->setSpacing(12);
    layout->addWidget(m_stateDot);
    layout->addLayout(texts, 1);
    layout->addWidget(m_removeButton);

    setData(data);
}

QString DeviceItem::name() const
{
    return m_nameLabel->text();
}

void DeviceItem::setData(const DevData &data)
{
    m_online = data.linkState == kOnline;
    m_nameLabel->setText(data.name.isEmpty() ? data.addr : data.name);
    m_nameLabel->setToolTip(data.addr);
    m_stateLabel->setText(m_online ? tr("在线") : tr("离线"));
    m_stateDot->setStyleSheet(QStringLiteral("background-color: %1; border-radius: 4px;")
                                  .arg(m_online ? QStringLiteral("#30D158") : QStringLiteral("#5A5A5A")));
}
