#pragma once

#include <QPushButton>

// An on/off switch whose whole look comes from style-sheet rules on the property "choose".
class SwitchButton : public QPushButton
{
    Q_OBJECT
    Q_PROPERTY(bool choose READ choose WRITE setChoose NOTIFY chooseChanged)

public:
    explicit SwitchButton(QWidget *parent = nullptr);

    bool choose() const { return m_choose; }
    void setChoose(bool choose);

signals:
    void chooseChanged();

private:
    bool m_choose = false;
};
