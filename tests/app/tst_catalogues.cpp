// The five catalogues are complete and agree with the texts in the sources: lupdate run over the
// sources into a copy of each catalogue adds no text and drops none, and every entry is translated
// with the placeholders, accelerators and edge spaces of its source.
#include <QFile>
#include <QProcess>
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

private:
    static QString path(const QString &tag)
    {
        return QStringLiteral(BRIVON_SOURCE_DIR "/resource/translations/") + tag + QStringLiteral(".ts");
    }

    QTemporaryDir m_tmp;
    bool m_updated = false;
};

QTEST_GUILESS_MAIN(TestCatalogues)
#include "tst_catalogues.moc"
