#pragma once

#include <QPoint>
#include <QString>
#include <QWidget>

class About;
class CloseButton;
class MinButton;
class ModifyWindow;
class QHBoxLayout;
class QLabel;
class QMenu;
class QPushButton;

// The title bar of the frameless main window: add, title, the settings menu, minimise and close.
// The window is dragged by it with the left button.
class ModifyTitleBar : public QWidget
{
    Q_OBJECT

public:
    ModifyTitleBar(QWidget *parent, const QString &title);

    QPushButton *addButton() const { return m_addButton; }
    QPushButton *settingButton() const { return m_settingButton; }
    QMenu *settingMenu() const { return m_settingMenu; }
    MinButton *minButton() const { return m_minButton; }
    CloseButton *closeButton() const { return m_closeButton; }
    About *aboutBox() const { return m_about; }

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void initMenu();
    void initConnections();

    QHBoxLayout *m_layout = nullptr;
    QPoint m_dragOffset;
    QWidget *m_window = nullptr;
    QLabel *m_title = nullptr;
    QPushButton *m_addButton = nullptr;
    QPushButton *m_settingButton = nullptr;
    QMenu *m_settingMenu = nullptr;
    MinButton *m_minButton = nullptr;
    CloseButton *m_closeButton = nullptr;
    About *m_about = nullptr;
};
