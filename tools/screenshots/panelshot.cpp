// Renders the control panel over simulated lights into a PNG for a look by eye: an FF colour light
// in an effect, a 55 AA light, a light that is off, a light that is out of reach, and a group.
// panelshot <panel.png> [<effects.png> <colour.png> [<whole panel.png>]]
#include "controlitemwidget.h"
#include "controlwidget.h"
#include "devicemgr.h"
#include "lighteffectsetdialog.h"
#include "processutil.h"
#include "simlights.h"
#include "testhome.h"

#include <QApplication>
#include <QColorDialog>
#include <QGroupBox>
#include <QMenu>
#include <QPushButton>
#include <QTimer>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 2) {
        qWarning("usage: panelshot <panel.png> [<effects.png> <colour.png> [<whole panel.png>]]");
        return 2;
    }
    TestHome home;
    SimLights::select(R"({
      "timing": { "discoverFirstMs": 30, "discoverStepMs": 20, "scanMs": 300, "connectMs": 60, "replyMs": 10 },
      "lights": [
        { "addr": "AA:00:00:00:00:02", "name": "Brivon V80C RGB", "protocol": 2, "power": true, "brightness": 80,
          "temperature": 5600, "mode": 9 },
        { "addr": "AA:00:00:00:00:10", "name": "Brivon Q300 COB", "protocol": 1001, "power": true, "brightness": 45,
          "temperature": 3200, "mode": 1 },
        { "addr": "AA:00:00:00:00:01", "name": "Brivon V60 Bi-Color", "protocol": 1, "power": true,
          "brightness": 30, "temperature": 4300, "mode": 2 }
      ]
    })",
                      false);
    if (!SimLights::addAndConnectAll(3)) {
        qWarning("the simulated lights did not come up");
        return 1;
    }
    DeviceMgr *mgr = DeviceMgrSingleton::instance();
    mgr->powerOff(QStringLiteral("AA:00:00:00:00:01"));

    DevData away;
    away.addr = QStringLiteral("AA:00:00:00:00:07");
    away.name = QStringLiteral("Brivon V120C RGB, Studio B left stand");
    away.protocol = 7;
    away.colorLightEnable = true;
    away.lightEffectEnable = true;
    mgr->addDev(away);

    const QString group = mgr->addGroup(QStringLiteral("Interview set"));
    mgr->addDevToGroup(group, SimLights::stored(QStringLiteral("AA:00:00:00:00:02")));
    mgr->addDevToGroup(group, SimLights::stored(QStringLiteral("AA:00:00:00:00:10")));
    waitUntil([] { return false; }, 300);

    ControlWidget panel;
    panel.resize(610, 800);
    panel.show();
    waitUntil([] { return false; }, 500);
    bool ok = panel.grab().save(args.at(1));

    if (args.size() >= 4) {
        ControlItemWidget *card = ControlWidget::card(panel.sections().at(0), QStringLiteral("AA:00:00:00:00:02"));
        if (card) {
            // The drop-downs as the user sees them: opened from their buttons, grabbed while open.
            const auto grabPopup = [&ok](QPushButton *button, const QString &file) {
                QTimer::singleShot(500, [&ok, file] {
                    QWidget *popup = QApplication::activePopupWidget();
                    ok = popup && popup->grab().save(file) && ok;
                    if (popup)
                        popup->close();
                });
                button->showMenu();
            };
            grabPopup(card->effectButton(), args.at(2));
            grabPopup(card->colorButton(), args.at(3));
        }
    }
    if (args.size() >= 5) {
        // Tall enough for every section at once.
        panel.resize(610, 8 + panel.findChild<QGroupBox *>()->parentWidget()->sizeHint().height());
        waitUntil([] { return false; }, 300);
        ok = panel.grab().save(args.at(4)) && ok;
    }
    return ok ? 0 : 1;
}
