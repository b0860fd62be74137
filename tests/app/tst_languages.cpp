// Each language's translators installed the way the program does it: the card finds and hides the
// colour dialog's screen picker by its translated text.

#include "applanguage.h"
#include "controlitemwidget.h"
#include "testhome.h"

#include <QColorDialog>
#include <QPushButton>
#include <QTest>
#include <QTranslator>

#include <memory>

class TestLanguages : public QObject
{
    Q_OBJECT

private slots:
    void screenPickerHidden_data()
    {
        QTest::addColumn<QString>("tag");
        QTest::addColumn<QString>("pickScreen");
        QTest::newRow("en_US") << "en_US" << "&Pick Screen Color";
        QTest::newRow("zh_CN") << "zh_CN" << "拾取屏幕颜色(&P)";
        QTest::newRow("de_DE") << "de_DE" << "&Farbe vom Bildschirm wählen";
        QTest::newRow("ja_JP") << "ja_JP" << "スクリーンの色を取得(&P)";
        QTest::newRow("zh_HK") << "zh_HK" << "擷取螢幕顏色(&P)";
    }

    void screenPickerHidden()
    {
        QFETCH(QString, tag);
        // The program's catalogue, then Qt's, as loadTranslations() installs them.
        std::vector<std::unique_ptr<QTranslator>> translators;
        for (const QString &name : {tag, qtTranslationName(tag)}) {
            translators.push_back(std::make_unique<QTranslator>());
            QVERIFY(translators.back()->load(QStringLiteral(":/resource/translations/") + name + QStringLiteral(".qm")));
            // Qt's English catalogue holds no message: installing it is refused, as in the program.
            QCoreApplication::installTranslator(translators.back().get());
        }
        const QString pickText = QColorDialog::tr("&Pick Screen Color");
        QTEST(pickText, "pickScreen");

        ControlItemWidget card;
        int found = 0;
        const QList<QPushButton *> buttons = card.colorDialog()->findChildren<QPushButton *>();
        for (const QPushButton *button : buttons) {
            if (button->text() == pickText) {
                ++found;
                QVERIFY(button->isHidden());
            }
        }
        QCOMPARE(found, 1);
        for (const auto &translator : translators)
            QCoreApplication::removeTranslator(translator.get());
    }

private:
    TestHome m_home;
};

QTEST_MAIN(TestLanguages)
#include "tst_languages.moc"
