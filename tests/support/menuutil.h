#pragma once

#include "processutil.h"

#include <QApplication>
#include <QMenu>
#include <QTest>
#include <QTimer>

// Runs showMenu, which pops up a context menu; returns the texts of the menu that popped up (empty
// when none did) and triggers the action named choose, or closes the menu.
inline QStringList runContextMenu(const std::function<void()> &showMenu, const QString &choose = QString())
{
    QStringList texts;
    bool seen = false;
    QTimer::singleShot(0, [&] {
        auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
        seen = true;
        if (!menu)
            return;
        for (QAction *action : menu->actions()) {
            texts << action->text();
            if (action->text() == choose) {
                menu->setActiveAction(action);
                QTest::keyClick(menu, Qt::Key_Return);
                return;
            }
        }
        menu->close();
    });
    showMenu();
    waitUntil([&] { return seen; }, 2000);
    return texts;
}
