// Not a test: renders, in the language the environment selects, the dialogs whose texts the other
// galleries fill with fixed Chinese literals: the Bluetooth notices, the delete confirmations, the
// settings menu and an update offer.   l10n_dialogshot <folder>
#include "applanguage.h"
#include "deletetipswidget.h"
#include "messageboxwidget.h"
#include "modifytitlebar.h"
#include "testhome.h"
#include "updatecheck.h"
#include "updatedialog.h"

#include <QApplication>
#include <QDir>
#include <QMenu>
#include <QPainter>

namespace {

QString g_out;

void save(QWidget *widget, const QString &name)
{
    if (!widget->isVisible())
        widget->show();
    QApplication::processEvents();
    const QPixmap shot = widget->grab();
    QImage image(shot.size(), QImage::Format_ARGB32);
    image.fill(QColor(0x80, 0x80, 0x80)); // rounded, translucent corners show on grey
    QPainter painter(&image);
    painter.drawPixmap(0, 0, shot);
    painter.end();
    image.save(g_out + QLatin1Char('/') + name + QStringLiteral(".png"));
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    if (argc < 2)
        return 2;
    TestHome home;
    g_out = QString::fromLocal8Bit(argv[1]);
    QDir().mkpath(g_out);
    loadTranslations();

    const struct
    {
        const char *context;
        const char *text;
        const char *name;
    } notices[] = {{"ModifyWindow", "蓝牙未打开，请先在系统设置中打开蓝牙", "message-bluetooth-off"},
                   {"ModifyWindow", "蓝牙不存在", "message-no-bluetooth"}};
    for (const auto &notice : notices) {
        MessageBoxWidget box;
        box.setText(QCoreApplication::translate(notice.context, notice.text));
        save(&box, QString::fromLatin1(notice.name));
    }
    DeleteTipsWidget deviceTips(QCoreApplication::translate("DevInfoWidget", "确认删除该设备？"));
    save(&deviceTips, QStringLiteral("delete-device"));
    DeleteTipsWidget groupTips(QCoreApplication::translate("DevNameGroupWidget", "确认删除该群组？"));
    save(&groupTips, QStringLiteral("delete-group"));

    ModifyTitleBar bar(nullptr, QCoreApplication::translate("ModifyWindow", "Brivon Lumen"));
    bar.resize(610, 44);
    save(&bar, QStringLiteral("titlebar"));
    bar.settingMenu()->popup(QPoint(0, 0));
    save(bar.settingMenu(), QStringLiteral("settings-menu"));
    bar.settingMenu()->close();

    UpdateDialog update;
    VersionData offer;
    offer.version = QStringLiteral("1.1.0");
    offer.versionInfo = QStringLiteral("1.1.0\n- Hue bridges pair faster\n- New light effects");
    update.onVersionMessage(offer);
    save(&update, QStringLiteral("update-offer"));
    return 0;
}
