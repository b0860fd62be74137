#pragma once

#include <QFrame>
#include <QPoint>

// The grey strip on top of the frameless small dialogs; dragging it moves the dialog.
class TipsBar : public QFrame
{
    Q_OBJECT

public:
    explicit TipsBar(QWidget *parent = nullptr);

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;

private:
    QPoint m_offset;
};
