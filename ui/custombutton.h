#pragma once

#include <QPushButton>

// The small caption buttons of the title bar: transparent until the pointer is over them.
class CustomButton : public QPushButton
{
    Q_OBJECT

public:
    explicit CustomButton(QWidget *parent = nullptr);
};

class MinButton : public CustomButton
{
    Q_OBJECT

public:
    explicit MinButton(QWidget *parent = nullptr);

protected:
    void enterEvent(QEnterEvent *event) override;
    void leaveEvent(QEvent *event) override;
};

class CloseButton : public CustomButton
{
    Q_OBJECT

public:
    explicit CloseButton(QWidget *parent = nullptr);

protected:
    void enterEvent(QEnterEvent *event) override;
    void leaveEvent(QEvent *event) override;
};
