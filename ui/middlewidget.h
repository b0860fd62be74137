#pragma once

#include <QWidget>

class QPushButton;

// The page shown while no light is stored: it invites the user to add one.
class MiddleWidget : public QWidget
{
    Q_OBJECT

public:
    // When the parent has an onSwitchControlInterface() slot (the main window), the add button
    // is connected to it; addDeviceClicked() is emitted either way.
    explicit MiddleWidget(QWidget *parent = nullptr);

    QPushButton *addButton() const { return m_addButton; }

signals:
    void addDeviceClicked();

private:
    QPushButton *m_addButton = nullptr;
};
