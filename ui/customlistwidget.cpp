#include "customlistwidget.h"

#include <QMouseEvent>

CustomListWidget::CustomListWidget(QWidget *parent)
    : QListWidget(parent)
{
}

void CustomListWidget::mousePressEvent(QMouseEvent *event)
{
    const QModelIndex index = indexAt(event->position().toPoint());
    if (!index.isValid() && !selectedItems().isEmpty()) {
        clearSelection();
        return;
    }
    QListWidget::mousePressEvent(event);
}
