#include "effectdata.h"
#include "testhome.h"

#include <QRegularExpression>
#include <QTest>

class TestEffectData : public QObject
{
    Q_OBJECT

private slots:
    // Which entries become effects, in which language; a file that is not a catalogue gives none.
    void loadRules()
    {
        // Hong Kong reads the simplified names; any other language the English ones.
        QCOMPARE((QStringList{EffectData::effectLanguage("zh_CN"), EffectData::effectLanguage("zh_HK"),
                              EffectData::effectLanguage("de_DE")}),
                 (QStringList{"zh_CN", "zh_CN", "en_US"}));
        const QByteArray file = R"({"2": [
            {"cmd": "4", "name": {"zh_CN": "警车", "en_US": "Police Car"}}, {"cmd": "5", "name": {"zh_CN": "闪电"}},
            {"cmd": "6", "enable": false, "name": {"en_US": "Disabled"}},
            {"cmd": "7", "enable": "no", "name": {"en_US": "String enable counts as on"}},
            {"cmd": "8", "enable": true, "name": {"en_US": "Enabled"}}, {"name": {"en_US": "No command"}}, {"cmd": "9"},
            {"cmd": "", "name": {"en_US": "Empty command"}}, {"cmd": "10", "name": {"en_US": ""}},
            {"cmd": 11, "name": {"en_US": "Numeric command"}}, "not an object", {}],
            "1001": [{"cmd": "A-1", "name": {"en_US": "Fire Truck"}}], "7": []})";
        EffectData data;
        data.load(file, QStringLiteral("en_US"));
        QStringList entries;
        for (const EffectItem &effect : data.effects(2))
            entries << effect.cmd + QLatin1Char('=') + effect.name;
        QCOMPARE(entries, (QStringList{"4=Police Car", "7=String enable counts as on", "8=Enabled"}));
        QCOMPARE(data.effects(1001).value(0).cmd, QStringLiteral("A-1"));
        QVERIFY(data.effects(3).isEmpty());
        data.load(file, QStringLiteral("zh_CN"));
        QCOMPARE(data.effects(2).size(), 2);
        QCOMPARE(data.effects(2).at(1).name, QStringLiteral("闪电"));

        for (const char *bad : {"[1,2]", "{\"2\": ", "{\"2\": {\"cmd\": \"4\"}}"}) {
            data.load(bad, QStringLiteral("en_US"));
            QVERIFY2(data.effects(2).isEmpty(), bad);
        }
    }

    // Every light family gets effects whose commands it can be sent.
    void shippedCatalogueServesEveryLight()
    {
        EffectData data;
        data.load(readFile(QStringLiteral(BRIVON_SOURCE_DIR "/data/effect.json")), QStringLiteral("en_US"));
        const QRegularExpression letterNumber(QStringLiteral("^[A-Z]-[1-9][0-9]*$"));
        for (int protocol : {1, 2, 3, 5, 6, 7, 162, 163, 1001}) {
            const QList<EffectItem> effects = data.effects(protocol);
            QVERIFY2(effects.size() >= 5, qPrintable(QString::number(protocol)));
            for (const EffectItem &effect : effects) {
                const int number = effect.cmd.toInt();
                const bool sendable = protocol == 1001 ? letterNumber.match(effect.cmd).hasMatch()
                                                       : number >= 4 && number <= 255;
                QVERIFY2(sendable, qPrintable(effect.cmd));
            }
        }
    }
};

QTEST_GUILESS_MAIN(TestEffectData)
#include "tst_effectdata.moc"
