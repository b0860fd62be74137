#include "applanguage.h"

#include <QCoreApplication>
#include <QFile>
#include <QTest>
#include <QTranslator>

class TestAppLanguage : public QObject
{
    Q_OBJECT

private slots:
    void tagForLocaleName_data();
    void tagForLocaleName();
    void posixLocaleToDashedName_data();
    void posixLocaleToDashedName();
    void mappedNames_data();
    void mappedNames();
    void systemLanguageProbesOnceAndInstallsTranslators();
};

void TestAppLanguage::tagForLocaleName_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("tag");
    QTest::newRow("en-US") << "en-US" << "en_US";
    QTest::newRow("de-AT") << "de-AT" << "de_DE";
    QTest::newRow("ja-JP") << "ja-JP" << "ja_JP";
    QTest::newRow("zh-CN") << "zh-CN" << "zh_CN";
    QTest::newRow("zh-TW") << "zh-TW" << "zh_HK";
    QTest::newRow("zh-SG") << "zh-SG" << "zh_HK";
    QTest::newRow("zh-Hans-SG") << "zh-Hans-SG" << "zh_CN";
    QTest::newRow("zh-Hant-CN") << "zh-Hant-CN" << "zh_HK";
    QTest::newRow("fr-FR") << "fr-FR" << "en_US";
    QTest::newRow("case-sensitive cn") << "zh-cn" << "zh_HK";
    QTest::newRow("empty") << "" << "en_US";
}

void TestAppLanguage::tagForLocaleName()
{
    QFETCH(QString, name);
    QTEST(languageTagForLocaleName(name), "tag");
}

void TestAppLanguage::posixLocaleToDashedName_data()
{
    QTest::addColumn<QString>("posix");
    QTest::addColumn<QString>("dashed");
    QTest::newRow("with codeset") << "zh_TW.UTF-8" << "zh-TW";
    QTest::newRow("script") << "zh_Hant_HK" << "zh-Hant-HK";
    QTest::newRow("codeset and modifier") << "ja_JP.eucJP@mod" << "ja-JP";
    QTest::newRow("C.UTF-8") << "C.UTF-8" << "";
    QTest::newRow("POSIX") << "POSIX" << "";
    QTest::newRow("empty") << "" << "";
}

void TestAppLanguage::posixLocaleToDashedName()
{
    QFETCH(QString, posix);
    QTEST(dashedLocaleName(posix), "dashed");
}

void TestAppLanguage::mappedNames_data()
{
    QTest::addColumn<QString>("tag");
    QTest::addColumn<QString>("qtName");
    QTest::addColumn<QString>("dashed");
    QTest::newRow("zh_CN") << "zh_CN" << "qt_zh_CN" << "zh-CN";
    QTest::newRow("de_DE") << "de_DE" << "qt_de" << "de-DE";
    QTest::newRow("ja_JP") << "ja_JP" << "qt_ja" << "ja-JP";
    // The fall-back of the dashed form is the underscore tag, on purpose.
    QTest::newRow("unknown") << "fr_FR" << "qt_en_US" << "en_US";
}

void TestAppLanguage::mappedNames()
{
    QFETCH(QString, tag);
    QTEST(qtTranslationName(tag), "qtName");
    QTEST(dashedLanguageName(tag), "dashed");
}

void TestAppLanguage::systemLanguageProbesOnceAndInstallsTranslators()
{
    qputenv("LC_ALL", "");
    qputenv("LC_MESSAGES", "de_AT.UTF-8");
    qputenv("LANG", "ja_JP.UTF-8");

    QTest::ignoreMessage(QtDebugMsg, "NSIS:Language is not exist");
    QTest::ignoreMessage(QtDebugMsg, "System Language is \"de-AT\"");
    QCOMPARE(systemLanguage(), QStringLiteral("de_DE"));
    // Cached: a changed environment and a second call log nothing and keep the tag.
    qputenv("LC_MESSAGES", "zh_CN.UTF-8");
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".*")));
    QCOMPARE(systemLanguage(), QStringLiteral("de_DE"));

    loadTranslations();
    QCOMPARE(QCoreApplication::instance()->property("language").toString(), QStringLiteral("de_DE"));
    QCOMPARE(QCoreApplication::translate("DevDataMgr", "设备列表"), QStringLiteral("Geräteliste"));
    QCOMPARE(QCoreApplication::translate("QPlatformTheme", "Cancel"), QStringLiteral("Abbrechen"));
}

QTEST_GUILESS_MAIN(TestAppLanguage)
#include "tst_applanguage.moc"
