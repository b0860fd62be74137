#include "customdelegate.h"

#include <QLineEdit>
#include <QPainter>

namespace {

// Rows keep a small gap between them so that each reads as its own card.
constexpr int kGap = 3;

} // namespace

CustomDelegate::CustomDelegate(QObject *parent)
    : QStyledItemDelegate(parent)
{
}

void CustomDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &) const
{
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setPen(Qt::NoPen);
    const bool selected = option.state & QStyle::State_Selected;
    const bool hovered = option.state & QStyle::State_MouseOver;
    painter->setBrush(QColor(selected ? "#3A3A3C" : hovered ? "#363636" : "#313131"));
    painter->drawRoundedRect(QRectF(option.rect).adjusted(0, kGap, 0, -kGap), 6, 6);
    painter->restore();
}

QSize CustomDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    return {QStyledItemDelegate::sizeHint(option, index).width(), kRowHeight + 2 * kGap};
}

CustomItemDelegate::CustomItemDelegate(QObject *parent)
    : QStyledItemDelegate(parent)
{
}

void CustomItemDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                               const QModelIndex &index) const
{
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setPen(Qt::NoPen);
    const QRectF card = QRectF(option.rect).adjusted(0, 2, 0, -2);
    if (option.state & QStyle::State_Selected)
        painter->setBrush(QColor("#0A84FF"));
    else if (option.state & QStyle::State_MouseOver)
        painter->setBrush(QColor("#333333"));
    else
        painter->setBrush(QColor("#1E1E1E"));
    painter->drawRoundedRect(card, 4, 4);

    QFont font = option.font;
    font.setPixelSize(14);
    painter->setFont(font);
    painter->setPen(QColor("#EBEBF5"));
    const QRect textRect = option.rect.adjusted(12, 0, -12, 0);
    const QString text = QFontMetrics(font).elidedText(index.data(Qt::DisplayRole).toString(),
                                                        Qt::ElideRight, textRect.width());
    painter->drawText(textRect, Qt::AlignVCenter | Qt::AlignLeft, text);
    painter->restore();
}

QSize CustomItemDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    return {QStyledItemDelegate::sizeHint(option, index).width(), kRowHeight};
}

QWidget *CustomItemDelegate::createEditor(QWidget *parent, const QStyleOptionViewItem &, const QModelIndex &) const
{
    auto *editor = new QLineEdit(parent);
    editor->setObjectName(QStringLiteral("groupNameEditor"));
    editor->setMaxLength(kMaxNameLength);
    editor->setStyleSheet(QStringLiteral("#groupNameEditor { background-color: #141414; color: #EBEBF5;"
                                         " font-size: 14px; border: 1px solid #0A84FF; border-radius: 4px;"
                                         " padding-left: 8px; }"));
    return editor;
}

void CustomItemDelegate::updateEditorGeometry(QWidget *editor, const QStyleOptionViewItem &option,
                                              const QModelIndex &) const
{
    editor->setGeometry(option.rect.adjusted(2, 4, -2, -4));
}
