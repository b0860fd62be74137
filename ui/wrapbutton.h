#pragma once

#include <QPushButton>

// A push button whose text wraps onto several lines (long effect names in a square button).
class WrapButton : public QPushButton
{
    Q_OBJECT

public:
    explicit WrapButton(const QString &text, QWidget *parent = nullptr);

protected:
    void paintEvent(QPaintEvent *event) override;
};
