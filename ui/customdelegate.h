#pragma once

#include <QStyledItemDelegate>

// Paints the rounded dark card behind each light row of the group settings. The row's content is
// a DeviceItem widget placed over it, so only the background is drawn here.
class CustomDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    static constexpr int kRowHeight = 60;

    explicit CustomDelegate(QObject *parent = nullptr);

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
};

// Paints the rows of the group list (name on a dark row, the selected one in the accent colour)
// and gives the rename editor the same look, with a bounded name length.
class CustomItemDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    static constexpr int kRowHeight = 40;
    static constexpr int kMaxNameLength = 32;

    explicit CustomItemDelegate(QObject *parent = nullptr);

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    QWidget *createEditor(QWidget *parent, const QStyleOptionViewItem &option,
                          const QModelIndex &index) const override;
    void updateEditorGeometry(QWidget *editor, const QStyleOptionViewItem &option,
                              const QModelIndex &index) const override;
};
