#include "wrapbutton.h"

#include <QStyleOptionButton>
#include <QStylePainter>

WrapButton::WrapButton(const QString &text, QWidget *parent)
    : QPushButton(text, parent)
{
}

void WrapButton::paintEvent(QPaintEvent *)
{
    QStylePainter painter(this);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    QStyleOptionButton option;
    initStyleOption(&option);
    // The style draws frame and background only; the text is drawn here so that it can wrap.
    option.text = QString();
    painter.drawControl(QStyle::CE_PushButton, option);
    const QRect contents = style()->subElementRect(QStyle::SE_PushButtonContents, &option, this);
    style()->drawItemText(&painter, contents, Qt::AlignCenter | Qt::TextWordWrap, option.palette, isEnabled(),
                          text(), QPalette::ButtonText);
}
