#include "messageboxwidget.h"

#include "tipsbar.h"
#include "uistylesheets.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

MessageBoxWidget::MessageBoxWidget(QWidget *parent)
    : QDialog(parent, Qt::Dialog | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint)
    , m_label(new QLabel(this))
    , m_okButton(new QPushButton(tr("确认"), this))
    , m_tipsBar(new TipsBar(this))
{
    resize(358, 214);
    setAttribute(Qt::WA_TranslucentBackground);
    setObjectName(QStringLiteral("messageBoxWidget"));
    setStyleSheet(QStringLiteral("#messageBoxWidget {background-color: #282828;border-radius: 10px;}"));

    m_label->setWordWrap(true);
    m_label->setAlignment(Qt::AlignCenter);
    m_label->setStyleSheet(QStringLiteral("color: white; font-size: 16px;"));

    m_okButton->setFixedSize(80, 32);
    m_okButton->setStyleSheet(UiStyleSheets::whiteButton());
    connect(m_okButton, &QPushButton::clicked, this, &QDialog::close);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_tipsBar);
    layout->addSpacing(28);
    auto *textLayout = new QHBoxLayout;
    textLayout->setContentsMargins(20, 0, 20, 0);
    textLayout->addWidget(m_label);
    layout->addLayout(textLayout, 1);
    layout->addWidget(m_okButton, 0, Qt::AlignHCenter);
    layout->addSpacing(28);
}

void MessageBoxWidget::setText(const QString &text)
{
    m_label->setText(text);
}

QString MessageBoxWidget::text() const
{
    return m_label->text();
}

void MessageBoxWidget::paintEvent(QPaintEvent *)
{
    // A translucent window gets no style-sheet background: the rounded body is painted here.
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(QStringLiteral("#282828")));
    painter.drawRoundedRect(rect().adjusted(1, 1, -1, -1), 10, 10);
}
