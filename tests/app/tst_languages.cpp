// Each language's translators installed the way the program does it: known texts come out
// translated, and the markers the update check appends survive.

#include "applanguage.h"
#include "controlitemwidget.h"
#include "fakeupdateserver.h"
#include "modifytitlebar.h"
#include "processutil.h"
#include "settingwindow.h"
#include "testhome.h"
#include "updatecheck.h"
#include "updatedialog.h"

#include <QApplication>
#include <QColorDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTranslator>

#include <memory>

namespace {

struct Language
{
    const char *tag;
    const char *groupSettings; // the group settings window's title bar and its entry in the settings menu
    const char *offer;       // the update dialog's offer, %1 the new and %2 the current version
    const char *cancel;      // Qt's standard Cancel button
    const char *pickScreen;  // the colour dialog's screen picker
    const char *incomplete;  // the update check's complaint that gets a marker appended
};

const Language kLanguages[] = {
    {"en_US", "Group Settings",
     "Brivon Lumen %1 is now available -- your current version is %2\u00A0. Would you like to install it now?",
     "Cancel", "&Pick Screen Color", "The update data received is incomplete"},
    {"zh_CN", "群组设置", "Brivon Lumen %1现在可用 -- 您的当前版本是 %2 . 是否要立即安装？", "取消",
     "拾取屏幕颜色(&P)", "返回的更新数据不完整"},
    {"de_DE", "Gruppeneinstellungen",
     "Brivon Lumen %1 ist jetzt verfügbar -- Ihre aktuelle Version ist %2\u00A0. Möchten Sie es jetzt installieren?",
     "Abbrechen", "&Farbe vom Bildschirm wählen", "Die empfangenen Update-Daten sind unvollständig"},
    {"ja_JP", "グループ設定",
     "Brivon Lumen %1が利用可能になりました -- 現在のバージョンは %2\u00A0. 今すぐインストールしますか？", "キャンセル",
     "スクリーンの色を取得(&P)", "受信した更新データが不完全です"},
    {"zh_HK", "群組設定", "Brivon Lumen %1現已推出 -- 您目前的版本是 %2\u00A0. 是否要立即安裝？", "取消",
     "擷取螢幕顏色(&P)", "傳回的更新資料不完整"},
};

const Language &language(const QString &tag)
{
    for (const Language &lang : kLanguages) {
        if (tag == QLatin1String(lang.tag))
            return lang;
    }
    qFatal("unknown tag");
}

} // namespace

class TestLanguages : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        QVERIFY(m_server.listen());
        qputenv("BRIVON_UPDATE_URL", m_server.baseUrl().toUtf8());
    }

    void cleanup()
    {
        for (const auto &translator : m_translators)
            QCoreApplication::removeTranslator(translator.get());
        m_translators.clear();
    }

    void knownTextsTranslated_data() { tags(); }
    void knownTextsTranslated()
    {
        const Language &lang = install();
        if (QTest::currentTestFailed())
            return;

        UpdateDialog update;
        VersionData offer;
        offer.version = QStringLiteral("9.9.9");
        update.onVersionMessage(offer);
        auto *desc = update.findChild<QLabel *>(QStringLiteral("label_desc"));
        QVERIFY(desc);
        QCOMPARE(desc->text(), QString::fromUtf8(lang.offer).arg(offer.version, QLatin1String(kCurrentVersion)));

        SettingWindow settings;
        QCOMPARE(settings.windowTitle(), QString::fromUtf8(lang.groupSettings));
        ModifyTitleBar bar(nullptr, QStringLiteral("Brivon Lumen"));
        QVERIFY(!bar.settingMenu()->actions().isEmpty());
        QCOMPARE(bar.settingMenu()->actions().first()->text(), QString::fromUtf8(lang.groupSettings));

        QDialogButtonBox box(QDialogButtonBox::Cancel);
        QCOMPARE(box.button(QDialogButtonBox::Cancel)->text(), QString::fromUtf8(lang.cancel));
    }

    // The card hides the colour dialog's screen picker by its translated text, in every language.
    void screenPickerHidden_data() { tags(); }
    void screenPickerHidden()
    {
        const Language &lang = install();
        if (QTest::currentTestFailed())
            return;
        const QString pickText = QColorDialog::tr("&Pick Screen Color");
        QCOMPARE(pickText, QString::fromUtf8(lang.pickScreen));

        ControlItemWidget card;
        QVERIFY(card.colorDialog());
        int found = 0;
        const QList<QPushButton *> buttons = card.colorDialog()->findChildren<QPushButton *>();
        for (const QPushButton *button : buttons) {
            if (button->text() == pickText) {
                ++found;
                QVERIFY(button->isHidden());
            }
        }
        QCOMPARE(found, 1);
    }

    void updateMarkersSurvive_data()
    {
        QTest::addColumn<QString>("tag");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("marker");
        const QByteArray ok = R"("succ": true, "code": 200, "message": "ok")";
        // One marker per language is enough: the code appends either the same way.
        for (const Language &lang : kLanguages)
            QTest::addRow("%s", lang.tag) << QString::fromLatin1(lang.tag) << "{" + ok + R"(, "data": {}})" << QStringLiteral("[1]");
        QTest::newRow("zh_CN [2]") << QStringLiteral("zh_CN") << QByteArray(R"({"succ": false, "code": 200, "message": "ok", "data": {}})")
                                   << QStringLiteral("[2]");
    }

    void updateMarkersSurvive()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, marker);
        const Language &lang = install();
        if (QTest::currentTestFailed())
            return;
        m_server.setCheckReply(body);
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression(QStringLiteral("^missing data")));
        UpdateCheck check;
        QSignalSpy error(&check, &UpdateCheck::errorMessage);
        check.checkVersion();
        QVERIFY(waitUntil([&] { return error.size() == 1; }, 10000));
        QCOMPARE(error.first().first().toString(), QString::fromUtf8(lang.incomplete) + marker);
    }

private:
    static void tags()
    {
        QTest::addColumn<QString>("tag");
        for (const Language &lang : kLanguages)
            QTest::newRow(lang.tag) << QString::fromLatin1(lang.tag);
    }

    // Loads and installs the program's catalogue, then Qt's, as loadTranslations() does.
    const Language &install()
    {
        QFETCH(QString, tag);
        for (const QString &name : {tag, qtTranslationName(tag)}) {
            auto translator = std::make_unique<QTranslator>();
            const QString path = QStringLiteral(":/resource/translations/") + name + QStringLiteral(".qm");
            if (!translator->load(path)) {
                QTest::qFail(qPrintable(path + QStringLiteral(" does not load")), __FILE__, __LINE__);
                break;
            }
            // Qt's English catalogue holds no message: installing it is refused, as in the program.
            QCoreApplication::installTranslator(translator.get());
            m_translators.push_back(std::move(translator));
        }
        return language(tag);
    }

    TestHome m_home;
    FakeUpdateServer m_server;
    std::vector<std::unique_ptr<QTranslator>> m_translators;
};

QTEST_MAIN(TestLanguages)
#include "tst_languages.moc"
