#include "qtsingleapplication.h"

#include "qtlocalpeer.h"

QtSingleApplication::QtSingleApplication(const QString &id, int &argc, char **argv)
    : QApplication(argc, argv)
    , m_peer(new QtLocalPeer(this, id))
{
    connect(m_peer, &QtLocalPeer::messageReceived, this, &QtSingleApplication::messageReceived);
}

bool QtSingleApplication::isRunning()
{
    return m_peer->isClient();
}

bool QtSingleApplication::sendMessage(const QString &message, int timeout)
{
    return m_peer->sendMessage(message, timeout);
}

QString QtSingleApplication::id() const
{
    return m_peer->applicationId();
}

void QtSingleApplication::setActivationWindow(QWidget *window, bool activateOnMessage)
{
    m_activationWindow = window;
    if (activateOnMessage)
        connect(m_peer, &QtLocalPeer::messageReceived, this, &QtSingleApplication::activateWindow,
                Qt::UniqueConnection);
    else
        disconnect(m_peer, &QtLocalPeer::messageReceived, this, &QtSingleApplication::activateWindow);
}

void QtSingleApplication::activateWindow()
{
    if (!m_activationWindow)
        return;
    m_activationWindow->setWindowState(m_activationWindow->windowState() & ~Qt::WindowMinimized);
    m_activationWindow->raise();
    m_activationWindow->activateWindow();
}
