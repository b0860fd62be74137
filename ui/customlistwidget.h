#pragma once

#include <QListWidget>

// A list that drops its selection when the user clicks into the empty space below the items.
class CustomListWidget : public QListWidget
{
    Q_OBJECT

public:
    explicit CustomListWidget(QWidget *parent = nullptr);

protected:
    void mousePressEvent(QMouseEvent *event) override;
};
