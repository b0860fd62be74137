// The five catalogues are complete and agree with the texts in the sources.

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>

namespace {

const QStringList kTags = {QStringLiteral("en_US"), QStringLiteral("zh_CN"), QStringLiteral("de_DE"),
                           QStringLiteral("ja_JP"), QStringLiteral("zh_HK")};

using Key = QPair<QString, QString>; // context, source

struct Entry
{
    Key key;
    QString type; // the translation's type attribute: "", "unfinished", "vanished", "obsolete"
    QString translation;
};

struct Catalogue
{
    QString version;
    QString language;
    QList<Entry> entries;
    QString error;
};

Catalogue readCatalogue(const QString &path)
{
    Catalogue cat;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        cat.error = file.errorString();
        return cat;
    }
    QXmlStreamReader xml(&file);
    QString context;
    Entry entry;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        const auto name = xml.name();
        if (name == QLatin1String("TS")) {
            cat.version = xml.attributes().value(QLatin1String("version")).toString();
            cat.language = xml.attributes().value(QLatin1String("language")).toString();
        } else if (name == QLatin1String("name")) {
            context = xml.readElementText();
        } else if (name == QLatin1String("message")) {
            entry = Entry();
            entry.key.first = context;
        } else if (name == QLatin1String("source")) {
            entry.key.second = xml.readElementText();
        } else if (name == QLatin1String("translation")) {
            entry.type = xml.attributes().value(QLatin1String("type")).toString();
            entry.translation = xml.readElementText();
            cat.entries << entry;
        }
    }
    if (xml.hasError())
        cat.error = xml.errorString();
    return cat;
}

QString cataloguePath(const QString &tag)
{
    return QStringLiteral(BRIVON_SOURCE_DIR "/resource/translations/") + tag + QStringLiteral(".ts");
}

QSet<Key> keysOf(const Catalogue &cat)
{
    QSet<Key> keys;
    for (const Entry &entry : cat.entries)
        keys.insert(entry.key);
    return keys;
}

QString describe(const QSet<Key> &keys)
{
    QStringList lines;
    for (const Key &key : keys)
        lines << key.first + QStringLiteral(" / \"") + key.second + QLatin1Char('"');
    lines.sort();
    return lines.join(QStringLiteral("; "));
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
    void everyEntryFinished_data()
    {
        QTest::addColumn<QString>("tag");
        for (const QString &tag : kTags)
            QTest::newRow(qPrintable(tag)) << tag;
    }

    void everyEntryFinished()
    {
        QFETCH(QString, tag);
        const Catalogue cat = readCatalogue(cataloguePath(tag));
        QVERIFY2(cat.error.isEmpty(), qPrintable(cat.error));
        QCOMPARE(cat.version, QStringLiteral("2.1"));
        QCOMPARE(cat.language, tag);
        QVERIFY(!cat.entries.isEmpty());
        QCOMPARE(keysOf(cat).size(), cat.entries.size()); // no pair twice
        for (const Entry &e : cat.entries) {
            const QByteArray where = (e.key.first + QStringLiteral(" / ") + e.key.second).toUtf8();
            QVERIFY2(!e.key.first.isEmpty() && !e.key.second.isEmpty(), where);
            QVERIFY2(e.type.isEmpty(), where + " is " + e.type.toUtf8());
            QVERIFY2(!e.translation.trimmed().isEmpty(), where + " has no translation");
            // The code joins some texts with version numbers and appends "[1]"/"[2]" to others.
            QVERIFY2(placeholders(e.translation) == placeholders(e.key.second), where + ": placeholders differ");
            QVERIFY2(e.translation.count(QLatin1Char('&')) == e.key.second.count(QLatin1Char('&')),
                     where + ": accelerator lost");
            QVERIFY2(e.translation.endsWith(QLatin1Char(' ')) == e.key.second.endsWith(QLatin1Char(' ')),
                     where + ": trailing space differs");
            // A no-break space may stand for a leading space, keeping a period off the line start.
            QVERIFY2(!e.key.second.startsWith(QLatin1Char(' ')) || e.translation.at(0).isSpace(),
                     where + ": leading space lost");
            QVERIFY2(!e.translation.contains(QRegularExpression(QStringLiteral("\\[\\d\\]"))),
                     where + ": holds a marker the code appends");
        }
    }

    void allCataloguesHoldTheSameTexts()
    {
        const QSet<Key> reference = keysOf(readCatalogue(cataloguePath(kTags.first())));
        QVERIFY(!reference.isEmpty());
        for (const QString &tag : kTags.mid(1)) {
            const QSet<Key> keys = keysOf(readCatalogue(cataloguePath(tag)));
            QVERIFY2(keys == reference, qPrintable(tag + QStringLiteral(" differs: ")
                                                   + describe((keys - reference) + (reference - keys))));
        }
    }

    // lupdate over the sources finds no text the catalogues lack, and no catalogue keeps a stale one.
    void sourcesAndCataloguesAgree()
    {
        QString lupdate = QStringLiteral("/usr/lib/qt6/bin/lupdate");
        if (!QFile::exists(lupdate))
            lupdate = QStandardPaths::findExecutable(QStringLiteral("lupdate"));
        if (lupdate.isEmpty())
            QSKIP("lupdate not found (neither /usr/lib/qt6/bin/lupdate nor on PATH): sources not compared");

        QTemporaryDir tmp;
        QVERIFY(tmp.isValid());
        const QString ts = tmp.filePath(QStringLiteral("scan.ts"));
        QProcess run;
        run.setWorkingDirectory(QStringLiteral(BRIVON_SOURCE_DIR));
        run.setProcessChannelMode(QProcess::MergedChannels);
        run.start(lupdate, {QStringLiteral("app"), QStringLiteral("device"), QStringLiteral("ble"),
                            QStringLiteral("hue"), QStringLiteral("pluginserver"), QStringLiteral("update"),
                            QStringLiteral("ui"), QStringLiteral("-ts"), ts, QStringLiteral("-locations"),
                            QStringLiteral("none"), QStringLiteral("-no-obsolete")});
        QVERIFY(run.waitForFinished(60000));
        const QByteArray output = run.readAll();
        QVERIFY2(run.exitStatus() == QProcess::NormalExit && run.exitCode() == 0, output);

        const Catalogue scanned = readCatalogue(ts);
        QVERIFY2(scanned.error.isEmpty(), qPrintable(scanned.error));
        const QSet<Key> inSources = keysOf(scanned);
        QVERIFY2(!inSources.isEmpty(), output);
        for (const QString &tag : kTags) {
            const QSet<Key> committed = keysOf(readCatalogue(cataloguePath(tag)));
            QVERIFY2((inSources - committed).isEmpty(),
                     qPrintable(tag + QStringLiteral(" lacks: ") + describe(inSources - committed)));
            QVERIFY2((committed - inSources).isEmpty(),
                     qPrintable(tag + QStringLiteral(" keeps stale: ") + describe(committed - inSources)));
        }
    }
};

QTEST_GUILESS_MAIN(TestCatalogues)
#include "tst_catalogues.moc"
