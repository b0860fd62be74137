// The five interface languages. The catalogues are complete and agree with the texts in the
// sources: lupdate run over the sources into a copy of each catalogue adds no text and drops none,
// and every entry is translated with the placeholders, accelerators and edge spaces of its source.
// The system locale picks one of the five, and its translators are installed the way the program
// does it: the card finds and hides the colour dialog's screen picker by its translated text.
#include "applanguage.h"
#include "controlitemwidget.h"
#include "testhome.h"

#include <QColorDialog>
#include <QFile>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>

namespace {

struct Entry
{
    QString source;
    QString type; // the translation's type attribute: "", "unfinished", "vanished", "obsolete"
    QString translation;
};

QList<Entry> readEntries(const QString &path, QString *language)
{
    QList<Entry> entries;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return entries;
    QXmlStreamReader xml(&file);
    Entry entry;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        if (xml.name() == QLatin1String("TS")) {
            *language = xml.attributes().value(QLatin1String("language")).toString();
        } else if (xml.name() == QLatin1String("source")) {
            entry.source = xml.readElementText();
        } else if (xml.name() == QLatin1String("translation")) {
            entry.type = xml.attributes().value(QLatin1String("type")).toString();
            entry.translation = xml.readElementText();
            entries << entry;
        }
    }
    return xml.hasError() ? QList<Entry>() : entries;
}

QStringList placeholders(const QString &text)
{
    static const QRegularExpression pattern(QStringLiteral("%L?\\d+"));
    QStringList found;
    for (auto it = pattern.globalMatch(text); it.hasNext();)
        found << it.next().captured();
    found.sort();
    return found;
}

} // namespace

class TestCatalogues : public QObject
{
    Q_OBJECT

private slots:
    // One lupdate run over the sources into copies of all catalogues.
    void initTestCase()
    {
        QString lupdate = QStringLiteral("/usr/lib/qt6/bin/lupdate");
        if (!QFile::exists(lupdate))
            lupdate = QStandardPaths::findExecutable(QStringLiteral("lupdate"));
        QVERIFY(m_tmp.isValid());
        QStringList arguments{QStringLiteral("app"), QStringLiteral("device"), QStringLiteral("ble"), QStringLiteral("hue"),
                              QStringLiteral("pluginserver"), QStringLiteral("update"), QStringLiteral("ui"),
                              QStringLiteral("-locations"), QStringLiteral("none"), QStringLiteral("-no-obsolete"),
                              QStringLiteral("-ts")};
        for (const char *tag : {"en_US", "zh_CN", "de_DE", "ja_JP", "zh_HK"}) {
            const QString copy = m_tmp.filePath(QLatin1String(tag) + QStringLiteral(".ts"));
            QVERIFY(QFile::copy(path(QLatin1String(tag)), copy));
            arguments << copy;
        }
        if (lupdate.isEmpty())
            return; // the sources are then not compared (see catalogue())
        QProcess run;
        run.setWorkingDirectory(QStringLiteral(BRIVON_SOURCE_DIR));
        run.setProcessChannelMode(QProcess::MergedChannels);
        run.start(lupdate, arguments);
        QVERIFY(run.waitForFinished(120000));
        QVERIFY2(run.exitStatus() == QProcess::NormalExit && run.exitCode() == 0, run.readAll().constData());
        m_updated = true;
    }

    void catalogue_data()
    {
        QTest::addColumn<QString>("tag");
        for (const char *tag : {"en_US", "zh_CN", "de_DE", "ja_JP", "zh_HK"})
            QTest::newRow(tag) << QString::fromLatin1(tag);
    }

    void catalogue()
    {
        QFETCH(QString, tag);
        QString language;
        const QList<Entry> entries = readEntries(path(tag), &language);
        QCOMPARE(language, tag);
        QVERIFY(!entries.isEmpty());
        for (const Entry &e : entries) {
            const QByteArray where = e.source.toUtf8();
            QVERIFY2(e.type.isEmpty() && !e.translation.trimmed().isEmpty(), where + " has no translation");
            // The code joins some texts with version numbers and appends "[1]"/"[2]" to others.
            QVERIFY2(placeholders(e.translation) == placeholders(e.source), where + ": placeholders differ");
            QVERIFY2(!e.translation.contains(QRegularExpression(QStringLiteral("\\[\\d\\]"))), where + ": holds a marker");
            QVERIFY2(e.translation.count(QLatin1Char('&')) == e.source.count(QLatin1Char('&')), where + ": accelerator lost");
            QVERIFY2(e.translation.endsWith(QLatin1Char(' ')) == e.source.endsWith(QLatin1Char(' ')), where + ": trailing space");
            // A no-break space may stand for a leading space, keeping a period off the line start.
            QVERIFY2(!e.source.startsWith(QLatin1Char(' ')) || e.translation.at(0).isSpace(), where + ": leading space lost");
        }
        if (!m_updated)
            QSKIP("lupdate not found (neither /usr/lib/qt6/bin/lupdate nor on PATH): sources not compared");
        // A text new in the sources comes in unfinished; a text gone from them is dropped.
        const QList<Entry> updated = readEntries(m_tmp.filePath(tag + QStringLiteral(".ts")), &language);
        QCOMPARE(updated.size(), entries.size());
        for (const Entry &e : updated)
            QVERIFY2(e.type.isEmpty(), qPrintable(e.source + QStringLiteral(" is in the sources only")));
    }

    // From the locale variable to the tag, and on to the name the update server is given (the
    // whole way from LC_ALL=ja_JP.UTF-8 is in the update check's suite).
    void languageOfLocale_data()
    {
        QTest::addColumn<QString>("posix");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("tag");
        QTest::addColumn<QString>("requestName");
        QTest::newRow("en_US") << "en_US.UTF-8" << "en-US" << "en_US" << "en-US";
        QTest::newRow("zh_CN") << "zh_CN" << "zh-CN" << "zh_CN" << "zh-CN";
        QTest::newRow("zh_TW") << "zh_TW.UTF-8" << "zh-TW" << "zh_HK" << "zh-HK";
        QTest::newRow("zh_Hans_SG") << "zh_Hans_SG" << "zh-Hans-SG" << "zh_CN" << "zh-CN";
        QTest::newRow("zh_Hant_CN") << "zh_Hant_CN@mod" << "zh-Hant-CN" << "zh_HK" << "zh-HK";
        QTest::newRow("de_AT") << "de_AT" << "de-AT" << "de_DE" << "de-DE";
        QTest::newRow("fr_FR") << "fr_FR" << "fr-FR" << "en_US" << "en-US";
        QTest::newRow("C.UTF-8") << "C.UTF-8" << "" << "en_US" << "en-US";
    }
    void languageOfLocale()
    {
        QFETCH(QString, posix);
        const QString name = dashedLocaleName(posix);
        QTEST(name, "name");
        const QString tag = languageTagForLocaleName(name);
        QTEST(tag, "tag");
        QTEST(dashedLanguageName(tag), "requestName");
    }

    // Before anything else asks for the language: it is probed once per process.
    void systemLanguageProbesOnceAndInstallsTranslators()
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
        // The card finds the colour dialog's screen picker by its translated text, and hides it.
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^Failed to load BLE plugin: ")));
        ControlItemWidget card;
        QList<QPushButton *> picker = card.colorDialog()->findChildren<QPushButton *>();
        picker.removeIf([](const QPushButton *button) { return button->text() != "&Farbe vom Bildschirm wählen"; });
        QCOMPARE(picker.size(), 1);
        QVERIFY(picker.first()->isHidden());
    }

private:
    static QString path(const QString &tag)
    {
        return QStringLiteral(BRIVON_SOURCE_DIR "/resource/translations/") + tag + QStringLiteral(".ts");
    }

    QTemporaryDir m_tmp;
    bool m_updated = false;
    TestHome m_home;
};

QTEST_MAIN(TestCatalogues)
#include "tst_catalogues.moc"
