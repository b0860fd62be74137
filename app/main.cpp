#include "appdatapaths.h"
#include "appidentity.h"
#include "applanguage.h"
#include "crashdump.h"
#include "devicemgr.h"
#include "modifywindow.h"
#include "pluginmsgmanager.h"
#include "qtsingleapplication.h"
#include "quitsignals.h"

#include <QFontDatabase>
#include <QTextCodec>

int main(int argc, char *argv[])
{
    QtSingleApplication app(QStringLiteral("com.brivon.Beamcrafter"), argc, argv);
    if (app.isRunning()) {
        app.sendMessage(QStringLiteral("Show"), 2000);
        return 0;
    }

    applyApplicationIdentity();
    addPrivatePluginFolder();

    installCrashHandler();
    installQuitSignals();
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("utf-8"));
    const int fontId = loadApplicationFont(QStringLiteral(":/resource/font/Roboto-Light-10.ttf"));
    loadTranslations();

    // The device manager comes into being here, on first use.
    auto *pluginMsgManager = new PluginMsgManager();
    // The store writes what is pending when the loop ends; a session that is ending may not wait
    // for that.
    QObject::connect(&app, &QGuiApplication::commitDataRequest, DeviceMgrSingleton::instance()->store(),
                     &DevDataMgr::flush);

    int exitCode = 0;
    {
        ModifyWindow window;
        app.setActivationWindow(&window, false);
        QObject::connect(&app, &QtSingleApplication::messageReceived, &window,
                         &ModifyWindow::onMessageReceived);
        window.setObjectName(QStringLiteral("mainWindow"));
        app.setStyleSheet(QStringLiteral("#mainWindow {    border-radius: 11px;    background-color: #282828;}"));
        window.show();
        exitCode = app.exec();
        if (fontId != -1)
            QFontDatabase::removeApplicationFont(fontId);
    }
    delete pluginMsgManager;
    return exitCode;
}
