#pragma once

#include <QWidget>

// The window start-up shows while the full main window is not part of the program yet.
// It answers the single-instance "Show" message the way the main window does.
class StartupWindow : public QWidget
{
    Q_OBJECT

public:
    explicit StartupWindow(QWidget *parent = nullptr);

public slots:
    void onMessageReceived(const QString &message);
};
