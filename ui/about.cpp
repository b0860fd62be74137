#include "about.h"

#include <QLabel>
#include <QVBoxLayout>

About::About(QWidget *parent)
    : QDialog(parent)
    , m_versionLabel(new QLabel(this))
    , m_noticeLabel(new QLabel(this))
{
    setWindowTitle(tr("关于"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 40, 20, 40);

    // The same version the update check reports to the server.
    m_versionLabel->setText(tr("Version: %1").arg(QStringLiteral(BRIVON_VERSION)));
    m_versionLabel->setAlignment(Qt::AlignCenter);
    m_noticeLabel->setText(tr("版权所有 © Brivon，保留所有权利。"));
    m_noticeLabel->setAlignment(Qt::AlignCenter);
    m_noticeLabel->setWordWrap(true);
    layout->addStretch();
    layout->addWidget(m_versionLabel);
    layout->addSpacing(12);
    layout->addWidget(m_noticeLabel);
    layout->addStretch();

    setStyleSheet(QStringLiteral(
        "QDialog {background-color: rgba(40, 40, 40, 255);}"
        "QLabel {color: white; font-size: 13px;}"
        "QPushButton {background-color: #4B4C4E; color: white; height: 24px; border: none; border-radius: 4px;}"));
    setFixedSize(500, 400);
}
