#pragma once

#include <QWidget>

class DevInfoWidget;
class DevNameGroupWidget;

// The body of the group settings: the group list on the left, the lights of the selected group
// on the right.
class SettingMiddleWdg : public QWidget
{
    Q_OBJECT

public:
    explicit SettingMiddleWdg(QWidget *parent = nullptr);

    DevNameGroupWidget *groupWidget() const { return m_groupWidget; }
    DevInfoWidget *infoWidget() const { return m_infoWidget; }

private:
    DevNameGroupWidget *m_groupWidget = nullptr;
    QWidget *m_spaceWidget = nullptr;
    DevInfoWidget *m_infoWidget = nullptr;
};
