#pragma once

#include <QWidget>

class SettingMiddleWdg;

// The group settings window of the settings menu: a window of its own, owned by the main window
// and reused each time it is opened.
class SettingWindow : public QWidget
{
    Q_OBJECT

public:
    explicit SettingWindow(QWidget *parent = nullptr);

    SettingMiddleWdg *middleWidget() const { return m_middle; }

private:
    SettingMiddleWdg *m_middle = nullptr;
};
