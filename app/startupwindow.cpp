#include "startupwindow.h"

#include "devicemgr.h"

#include <QCoreApplication>
#include <QDebug>
#include <QLabel>
#include <QTimer>
#include <QVBoxLayout>

StartupWindow::StartupWindow(QWidget *parent)
    : QWidget(parent)
{
    setWindowTitle(QCoreApplication::applicationName());
    resize(610, 400);
    auto *layout = new QVBoxLayout(this);
    auto *label = new QLabel(QCoreApplication::applicationName() + QLatin1Char(' ')
                                 + QCoreApplication::applicationVersion(),
                             this);
    label->setAlignment(Qt::AlignCenter);
    label->setStyleSheet(QStringLiteral("color: #FFFFFF;"));
    layout->addWidget(label);

    // Bring the stored lights up to date once the window is up, as the main window does.
    if (DeviceMgrSingleton::instance()->deviceCount() > 0)
        QTimer::singleShot(200, this, [] { DeviceMgrSingleton::instance()->refreshDevices(); });
}

void StartupWindow::onMessageReceived(const QString &message)
{
    if (message != QLatin1String("Show"))
        return;
    qDebug() << "[StartupWindow::onMessageReceived]: message:" << message;
    showNormal();
    activateWindow();
    raise();
}
