#include "devdatamgr.h"
#include "testhome.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>

#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

DevData light(const QString &addr, const QString &name = QStringLiteral("Key light"), int protocol = 2)
{
    DevData dev;
    dev.addr = addr;
    dev.name = name;
    dev.protocol = protocol;
    return dev;
}

ino_t inodeOf(const QString &path)
{
    struct stat info {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_ino : 0;
}

QJsonArray fileArray(const QString &path, const char *key)
{
    return QJsonDocument::fromJson(readFile(path)).object().value(QLatin1String(key)).toArray();
}

int brightnessIn(const QJsonValue &dev)
{
    return dev.toObject().value(QLatin1String("brightness")).toObject().value(QLatin1String("value")).toInt();
}

} // namespace

class TestDevDataMgr : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_home = std::make_unique<TestHome>();
        QVERIFY(m_home->isValid());
    }

    void cleanup() { m_home.reset(); }

    // What a file gives, light "A" read field by field (power switch, brightness value, min, max,
    // ratio, then the same for temperature) and each group as name=members; loading alone never
    // rewrites the file, and an unreadable one is kept beside the new one on the first change.
    void loading_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<int>("devices");
        QTest::addColumn<QStringList>("groups");
        QTest::addColumn<QVariantList>("lightA");
        QTest::addColumn<bool>("kept");
        const auto devs = [](const char *device) { return "{\"devs\":[" + QByteArray(device) + "],\"groups\":[]}"; };
        const QVariantList defaults{true, -1, 0, 100, 1, -1, 2700, 6500, 100};
        const QStringList none;
        QTest::newRow("no addr") << devs(R"({"name":"x"})") << 0 << none << QVariantList() << false;
        QTest::newRow("bare addr takes defaults") << devs(R"({"addr":"A"})") << 1 << none << defaults << false;
        QTest::newRow("enablePower not a bool") << devs(R"({"addr":"A","enablePower":"yes"})") << 1 << none
                                                << QVariantList{false, -1, 0, 100, 1, -1, 2700, 6500, 100} << false;
        QTest::newRow("range keys given replace the defaults")
            << devs(R"({"addr":"A","brightness":{"value":40,"max":80},
                        "temperature":{"value":5600,"min":3200,"max":5600,"ratio":50}})")
            << 1 << none << QVariantList{true, 40, 0, 80, 1, 5600, 3200, 5600, 50} << false;
        QTest::newRow("not json") << QByteArray("{\"devs\": [ {\"addr\": \"A\", ") << 0 << none << QVariantList() << true;
        // Members only as text; a group needs a uuid, the later of two wins, the built-in one is not read.
        QTest::newRow("non-object elements") << QByteArray(R"({"devs":[1,"A",null,true,[],{},{"addr":"A"}],"groups":[
            {"name":"G","uuid":"{g1}","devs":["a",1,null,"b",{"x":1},"a"]}, {"name":"no uuid","devs":["a"]},
            {"name":"old","uuid":"{g2}","devs":[]}, {"name":"new","uuid":"{g2}"},
            {"name":"built-in","uuid":"{0ce896be-5b8b-4234-99bb-c5a4b1b35140}","devs":["a"]}, 7, [], {}, null]})")
            << 1 << QStringList{"G=a,b,a", "new="} << defaults << false;
        QByteArray many = "{\"devs\":[";
        for (int i = 0; i < DevDataMgr::kMaxDevices + 500; ++i)
            many += "{\"addr\":\"D" + QByteArray::number(i) + "\"},";
        QTest::newRow("huge device array") << many + "{}]}" << DevDataMgr::kMaxDevices << none << QVariantList() << false;
    }

    void loading()
    {
        QFETCH(QByteArray, content);
        QFETCH(QVariantList, lightA);
        QFETCH(bool, kept);
        QVERIFY(writeFile(m_home->configFile(), content));
        DevDataMgr store;
        store.readConfig();
        QTEST(int(store.devices().size()), "devices");
        QStringList groups;
        for (const GroupData &group : store.groups())
            groups << group.name + u'=' + group.devs.join(u',');
        QTEST(groups, "groups");
        QCOMPARE(readFile(m_home->configFile()), content);
        if (!lightA.isEmpty()) {
            const DevData *dev = store.findDev("A");
            QVERIFY(dev);
            QCOMPARE((QVariantList{dev->enablePower, int(dev->brightness), dev->brightnessMin, dev->brightnessMax,
                                   dev->brightnessRatio, int(dev->temperature), dev->temperatureMin, dev->temperatureMax,
                                   dev->temperatureRatio}), lightA);
        }
        store.addDev(light("B"));
        QVERIFY(readFile(m_home->configFile()).contains("\"B\""));
        QCOMPARE(readFile(m_home->configFile() + QStringLiteral(".bak")), kept ? content : QByteArray());
    }

    // Every change is announced (adding once; deleting from the list takes the light out of every
    // group first; updates for every group holding the light) and written; the changes that
    // change nothing are neither.
    void changesAreAnnouncedAndWritten()
    {
        DevDataMgr store;
        QSignalSpy added(&store, &DevDataMgr::onAddDev);
        QSignalSpy deleted(&store, &DevDataMgr::onDelDev);
        QSignalSpy updated(&store, &DevDataMgr::onUpdateDev);
        QSignalSpy ranges(&store, &DevDataMgr::onUpdateDevParamRange);
        QSignalSpy renamed(&store, &DevDataMgr::onUpdateGroup);
        QSignalSpy deletedGroup(&store, &DevDataMgr::onDelGroup);
        store.addDev(light("A"));
        QCOMPARE(added.at(0).mid(0, 2), (QVariantList{defaultGroupUuid(), DevDataMgr::tr("设备列表")}));
        // A second add of the same address changes nothing, not even the file; nor does a missing group.
        QVERIFY(QFile::remove(m_home->configFile()));
        store.addDev(light("A", "Other name"));
        store.addDevToGroup("{missing}", light("A"));
        QCOMPARE(added.size(), 1);
        QVERIFY(!QFile::exists(m_home->configFile()));
        QCOMPARE(store.findDev("A")->name, QStringLiteral("Key light"));

        store.addDev(light("B"));
        const QString g1 = store.addGroup("Same");
        const QString g2 = store.addGroup("Same"); // what a new group and a renamed one show: tst_groupsettings
        store.renameGroup(g1, "One");
        QCOMPARE(renamed, (QList<QVariantList>{{g1, QStringLiteral("One")}}));
        store.addDevToGroup(g1, light("A"));
        store.addDevToGroup(g1, light("B"));
        store.addDevToGroup(g2, light("A"));

        // The transport's view replaces the live state, never the name or the user's switches.
        DevData live = light("A", "renamed by transport", 7);
        live.enablePower = false;
        live.colorLightEnable = true;
        live.brightness = 80;
        live.switchState = true;
        live.brightnessMax = 90;
        store.updateDev(live);
        const DevData *stored = store.findDev("A");
        QCOMPARE(stored->name, QStringLiteral("Key light"));
        QCOMPARE((QList<int>{stored->enablePower, stored->colorLightEnable, stored->protocol, stored->brightness,
                             stored->brightnessMax, stored->switchState}),
                 (QList<int>{true, false, 7, 80, 90, true}));
        QCOMPARE(updated.size(), 3);
        QCOMPARE(updated.at(1).mid(0, 2), (QVariantList{g1, QStringLiteral("One")}));
        store.updateDevParamRange(live);
        QCOMPARE(ranges.size(), 1);

        store.delDev(defaultGroupUuid(), "A");
        QCOMPARE(deleted.size(), 3);
        QCOMPARE((QSet<QString>{deleted.at(0).at(0).toString(), deleted.at(1).at(0).toString()}), (QSet<QString>{g1, g2}));
        QCOMPARE(deleted.at(2).at(0).toString(), defaultGroupUuid());
        QCOMPARE(store.groups().value(g1).devs, QStringList{"B"});
        // Taken out of a group that does not list it, or of an unknown group: no signal, the light stays.
        store.delDev(g2, "B");
        store.delDev("{unknown}", "B");
        store.delDev(defaultGroupUuid(), "nobody");
        QCOMPARE(deleted.size(), 3);
        QVERIFY(store.findDev("B"));

        store.delGroup(g1);
        store.delGroup(defaultGroupUuid());
        QCOMPARE(deletedGroup.size(), 1);
        DevDataMgr reloaded;
        reloaded.readConfig();
        QCOMPARE(reloaded.groups().keys(), QList<QString>{g2});
        QCOMPARE(reloaded.groupDevices(defaultGroupUuid()).size(), 1); // the lights stay
    }

    // What is stored survives a restart in the order the user made, with every stored field; the
    // run-time state does not.
    void orderSurvivesRestartAndWrites()
    {
        // Added neither by name nor by address, and enough of them that a hash would reorder them.
        QStringList addrs;
        for (int i = 0; i < 40; ++i)
            addrs << QStringLiteral("AA:%1").arg((i * 17) % 40, 2, 10, QLatin1Char('0'));
        QStringList groups;
        {
            DevDataMgr store;
            for (const QString &addr : qAsConst(addrs))
                store.addDev(light(addr));
            for (const char *name : {"Zeta", "Alpha", "Mid"})
                groups << store.addGroup(QString::fromLatin1(name));
            store.addDevToGroup(groups.at(1), light(addrs.at(5)));
            store.addDevToGroup(groups.at(1), light(addrs.at(2)));
            // Members that are not stored lights are kept as they are.
            store.addDevToGroup(groups.at(1), light("not-stored"));
            // The others keep their places when one goes.
            store.delDev(defaultGroupUuid(), addrs.takeAt(3));
            DevData dev = light(QStringLiteral("C4:2A:00:11:22:33"), QStringLiteral("Fill 灯"), 1001);
            dev.enablePower = false;
            dev.colorLightEnable = true;
            dev.colorLight = QStringLiteral("#12ab34");
            dev.lightEffect = QStringLiteral("B-3");
            dev.lightEffectEnable = true;
            dev.brightness = 55;
            dev.oldBrightness = 40;
            dev.temperature = 4300;
            dev.temperatureMin = 2900;
            dev.linkState = 2;
            dev.switchState = true;
            dev.devCurModel = 2;
            dev.auxValue1 = 7;
            store.addDev(dev);
            addrs << dev.addr;
        }

        DevDataMgr store;
        store.readConfig();
        QCOMPARE(store.devices().keys(), addrs);
        QCOMPARE(store.groups().keys(), groups);
        QCOMPARE(store.groups().value(groups.at(1)).devs, (QStringList{addrs.at(4), addrs.at(2), "not-stored"}));
        QCOMPARE(store.groupDevices(groups.at(1)).size(), 2);
        const DevData *dev = store.findDev(addrs.last());
        QCOMPARE((QVariantList{dev->name, dev->protocol, dev->enablePower, dev->colorLightEnable, dev->colorLight,
                               dev->lightEffect, dev->lightEffectEnable, dev->brightness, dev->oldBrightness,
                               dev->temperature, dev->temperatureMin}),
                 (QVariantList{QStringLiteral("Fill 灯"), 1001, false, true, QStringLiteral("#12ab34"),
                               QStringLiteral("B-3"), true, 55, 40, 4300, 2900}));
        const QList<int> runTime{dev->linkState, dev->switchState, dev->devCurModel, dev->auxValue1};
        QCOMPARE(runTime, (QList<int>{0, 0, -1, -1}));
        // The built-in group is never written as a group.
        QCOMPARE(fileArray(m_home->configFile(), "groups").size(), 3);

        // The file lists them in that order, also after a write of live state.
        DevData changed = *store.findDev(addrs.at(7));
        changed.brightness = 33;
        store.updateDev(changed);
        store.flush();
        QStringList inFile;
        const QJsonArray devs = fileArray(m_home->configFile(), "devs");
        for (const QJsonValue &dev : devs)
            inFile << dev.toObject().value(QLatin1String("addr")).toString();
        QCOMPARE(inFile, addrs);
        QCOMPARE(brightnessIn(devs.at(7)), 33);
    }

    // The file is replaced whole, never rewritten in place, and only when its bytes change; live
    // state is written at most twice a second, structural changes at once.
    void writesAreWholeAndCoalesced()
    {
        const QString path = m_home->configFile();
        {
            DevDataMgr store;
            store.addDev(light("A"));
            const QByteArray before = readFile(path);
            // A second name for the old file: an in-place rewrite would change what it shows,
            // a write-then-rename leaves it whole.
            const QString snapshot = path + QStringLiteral(".old");
            QVERIFY(::link(QFile::encodeName(path).constData(), QFile::encodeName(snapshot).constData()) == 0);
            store.addDev(light("B"));
            QCOMPARE(readFile(snapshot), before);
            const ino_t written = inodeOf(path);
            QVERIFY(written != inodeOf(snapshot));
            // Writing the same bytes again is skipped.
            store.writeConfig();
            QCOMPARE(inodeOf(path), written);

            QSignalSpy updated(&store, &DevDataMgr::onUpdateDev);
            DevData live = light("A");
            for (int value = 1; value <= 20; ++value) {
                live.brightness = value;
                store.updateDev(live);
            }
            // Every change is announced at once, but the file is not rewritten twenty times.
            QCOMPARE(updated.size(), 20);
            QCOMPARE(inodeOf(path), written);
            QTRY_VERIFY_WITH_TIMEOUT(!store.hasPendingWrite(), 2000);
            QCOMPARE(brightnessIn(fileArray(path, "devs").at(0)), 20);

            // A structural change writes at once and takes the pending live state with it.
            live.brightness = 33;
            store.updateDev(live);
            store.addDev(light("C"));
            QVERIFY(!store.hasPendingWrite());
            QCOMPARE(brightnessIn(fileArray(path, "devs").at(0)), 33);
            // What is still pending when the store goes is written on the way out.
            live.temperature = 5100;
            store.updateDev(live);
            QVERIFY(store.hasPendingWrite());
        }
        DevDataMgr reloaded;
        reloaded.readConfig();
        QCOMPARE(reloaded.findDev("A")->temperature, 5100);
    }

private:
    std::unique_ptr<TestHome> m_home;
};

QTEST_GUILESS_MAIN(TestDevDataMgr)
#include "tst_devdatamgr.moc"
