#include "deletetipswidget.h"

#include "deletesettings.h"
#include "tipsbar.h"
#include "uistylesheets.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

void DeleteTipsWidget::setText(const QString &text)
{
    m_label->setText(text);
}

QString DeleteTipsWidget::text() const
{
    return m_label->text();
}

DeleteTipsWidget::DeleteTipsWidget(const QString &text, QWidget *parent)
    : QDialog(parent, Qt::Dialog | Qt::FramelessWindowHint)
    , m_label(new QLabel(text, this))
    , m_checkBox(new QCheckBox(tr("不再询问"), this))
    , m_okButton(new QPushButton(tr("确认"), this))
    , m_cancelButton(new QPushButton(tr("取消"), this))
    , m_tipsBar(new TipsBar(this))
{
    resize(358, 214);
    setAttribute(Qt::WA_TranslucentBackground);
    setObjectName(QStringLiteral("deleteTipsWidget"));
    setStyleSheet(QStringLiteral("#deleteTipsWidget {background-color: #282828;border-radius: 10px;}"));

    m_label->setAlignment(Qt::AlignCenter);
    m_label->setWordWrap(true);
    m_label->setStyleSheet(QStringLiteral("color: white; font-size: 16px;"));
    m_checkBox->setStyleSheet(QStringLiteral("color: white; font-size: 14px;"));
    for (QPushButton *button : {m_okButton, m_cancelButton}) {
        button->setFixedSize(80, 32);
        button->setStyleSheet(UiStyleSheets::whiteButton());
    }
    connect(m_okButton, &QPushButton::clicked, this, &DeleteTipsWidget::onOkClicked);
    connect(m_cancelButton, &QPushButton::clicked, this, &DeleteTipsWidget::onCancelClicked);

    auto *buttons = new QHBoxLayout;
    buttons->setSpacing(16);
    buttons->addStretch();
    buttons->addWidget(m_okButton);
    buttons->addWidget(m_cancelButton);
    buttons->addStretch();

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_tipsBar);
    layout->addSpacing(28);
    layout->addWidget(m_label);
    layout->addSpacing(27);
    layout->addWidget(m_checkBox, 0, Qt::AlignHCenter);
    layout->addSpacing(21);
    layout->addLayout(buttons);
    layout->addSpacing(20);
    layout->addStretch();
}

void DeleteTipsWidget::onOkClicked()
{
    if (m_checkBox->checkState() == Qt::Checked && !m_settingKey.isEmpty())
        setAskToDelete(m_settingKey, false);
    emit deleteItem(m_name);
    close();
}

void DeleteTipsWidget::onCancelClicked()
{
    close();
}

void DeleteTipsWidget::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(40, 40, 40));
    painter.drawRoundedRect(rect().adjusted(1, 1, -1, -1), 10, 10);
}
