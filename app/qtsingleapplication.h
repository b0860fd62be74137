#pragma once

#include <QApplication>
#include <QPointer>
#include <QWidget>

class QtLocalPeer;

// A QApplication of which only one instance runs per user and id. A later instance can hand its
// message to the running one, which receives it through messageReceived.
class QtSingleApplication : public QApplication
{
    Q_OBJECT

public:
    QtSingleApplication(const QString &id, int &argc, char **argv);

    bool isRunning();
    bool sendMessage(const QString &message, int timeout = 5000);
    QString id() const;

    // The window to bring forward; with activateOnMessage false the caller decides when.
    void setActivationWindow(QWidget *window, bool activateOnMessage = true);
    QWidget *activationWindow() const { return m_activationWindow; }

public slots:
    void activateWindow();

signals:
    void messageReceived(const QString &message);

private:
    QtLocalPeer *m_peer = nullptr;
    QPointer<QWidget> m_activationWindow;
};
