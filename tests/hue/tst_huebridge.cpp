// Reply parsing, conversions, the stored bridge table and the store writes of the Hue manager:
// everything that needs no bridge on the network.
#include "devdatamgr.h"
#include "huebridge.h"
#include "huedevicemgr.h"
#include "huemdns.h"
#include "mdnsresponder.h"
#include "testhome.h"

#include <QSettings>
#include <QSignalSpy>
#include <QTest>

#include <memory>

namespace {

// A Hue lamp put in the store as a light the bridge reports.
DevData storedLamp(DevDataMgr &store, const QString &addr, bool on, int linkState)
{
    DevData dev;
    dev.addr = addr;
    dev.protocol = 2001;
    dev.brightness = 80;
    dev.temperature = 366;
    dev.colorLight = QStringLiteral("#ffffff");
    store.addDev(dev);
    dev.switchState = on;
    dev.linkState = quint8(linkState);
    store.updateDev(dev);
    return dev;
}

} // namespace

class TestHueBridge : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_home = std::make_unique<TestHome>();
        QVERIFY(m_home->isValid());
        // Nothing here may reach the public discovery service.
        qputenv("BRIVON_HUE_DISCOVERY_URL", "http://127.0.0.1:9/");
    }

    void init()
    {
        programSettings("philipshue").clear();
    }

    void kelvinToMirek_data()
    {
        QTest::addColumn<int>("kelvin");
        QTest::addColumn<int>("mirek");
        QTest::newRow("negative") << -1 << 153;
        QTest::newRow("truncates 3000 K") << 3000 << 333;
        QTest::newRow("beyond any light") << 1000001 << 0;
    }

    void kelvinToMirek()
    {
        QFETCH(int, kelvin);
        QFETCH(int, mirek);
        QCOMPARE(HueBridge::kelvinToMirek(kelvin), mirek);
    }

    void parseLight_data();
    void parseLight()
    {
        QFETCH(QByteArray, body);
        QStringList lights;
        for (const Light &light : HueBridge::parseLightList(body))
            lights << QStringLiteral("%1 '%2' on=%3 %4% %5 mirek %6-%7 K").arg(light.id, light.name).arg(light.on)
                          .arg(light.brightness).arg(light.mirek).arg(light.temperatureMin).arg(light.temperatureMax);
        QTEST(lights.join(QLatin1String("; ")), "lights");
    }

    void setStateResponse_data();
    void setStateResponse()
    {
        QFETCH(QByteArray, body);
        HueBridge bridge;
        QString rid;
        QTEST(bridge.recieveSetStateResponse(body, rid), "accepted");
        QTEST(rid, "rid");
    }

    void colorToXy_data()
    {
        QTest::addColumn<QColor>("color");
        QTest::addColumn<double>("x");
        QTest::addColumn<double>("y");
        QTest::addColumn<QString>("back"); // the colour the bridge's x and y give back at full brightness
        // sRGB -> linear -> XYZ through the wide-gamut matrix -> x, y, worked out by hand.
        QTest::newRow("white") << QColor(255, 255, 255) << 0.3227 << 0.3290 << "#ffffff";
        QTest::newRow("black") << QColor(0, 0, 0) << 0.0 << 0.0 << "#000000";
        QTest::newRow("blue") << QColor(0, 0, 255) << 0.1355 << 0.0399 << "#0000ff";
        QTest::newRow("green") << QColor(0, 255, 0) << 0.1724 << 0.7468 << "#00ff00";
        QTest::newRow("yellow-green") << QColor(128, 255, 0) << 0.2707 << 0.6635 << "#80ff00";
        // 10/255 lies on the linear part of the curve: only the ratio of the channels matters.
        QTest::newRow("dark grey") << QColor(10, 10, 10) << 0.3227 << 0.3290 << "#ffffff";
    }

    void colorToXy()
    {
        QFETCH(QColor, color);
        QFETCH(double, x);
        QFETCH(double, y);
        float xy[2] = {-1.0f, -1.0f};
        HueDeviceMgr::colorToXy(color, xy);
        QVERIFY2(qAbs(xy[0] - x) < 1e-4, qPrintable(QString::number(xy[0])));
        QVERIFY2(qAbs(xy[1] - y) < 1e-4, qPrintable(QString::number(xy[1])));
        QTEST(HueDeviceMgr::xyToColorName(x, y), "back");
    }

    // Some responders leave out the PTR record and answer with the bridge's own records only.
    void mdnsAnswerWithoutPointer()
    {
        const QByteArray answer = MdnsResponder::answer(7, QStringLiteral("ecb5fafffe1a2b3c"),
                                                        QHostAddress(QStringLiteral("192.168.1.20")), 8443, false);
        const QList<Bridge> bridges = HueMdns::parseResponse(answer, QHostAddress(QStringLiteral("10.0.0.7")));
        QCOMPARE(bridges.size(), 1);
        QCOMPARE(bridges.first().id + QLatin1Char(' ') + bridges.first().ip,
                 QStringLiteral("ecb5fafffe1a2b3c 192.168.1.20:8443"));
    }

    void storedBridgesSkipMalformedEntries()
    {
        {
            QSettings settings = programSettings("philipshue");
            settings.setValue(QStringLiteral("bridge/10.0.0.1/abc"), QStringLiteral("user1/key1"));
            settings.setValue(QStringLiteral("bridge/10.0.0.2:8443/def"), QStringLiteral("user2/"));
            settings.setValue(QStringLiteral("bridge/10.0.0.3"), QStringLiteral("user3/key3"));
            settings.setValue(QStringLiteral("bridge/10.0.0.4/ghi"), QStringLiteral("nokey"));
            settings.setValue(QStringLiteral("bridge/10.0.0.5/jkl"), QStringLiteral("a/b/c"));
            settings.setValue(QStringLiteral("bridge/10.0.0.6/x/y"), QStringLiteral("user6/key6"));
        }
        HueBridge bridge;
        const HueBridge::BridgeTable &paired = bridge.pairedBridges();
        QCOMPARE(paired.size(), 2);
        const Bridge first = paired.value({QStringLiteral("10.0.0.1"), QStringLiteral("abc")});
        QCOMPARE(first.username + QLatin1Char('|') + first.clientkey, QStringLiteral("user1|key1"));
        const Bridge second = paired.value({QStringLiteral("10.0.0.2:8443"), QStringLiteral("def")});
        QCOMPARE(second.username + QLatin1Char('|') + second.clientkey, QStringLiteral("user2|"));
    }

    void storeWritesOnlyWhenPowered_data()
    {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<bool>("powered");
        QTest::addColumn<int>("brightness");
        QTest::addColumn<int>("temperature");
        QTest::addColumn<QString>("color");

        // The bridge below is not paired, so nothing goes out; the store is written all the same.
        QTest::newRow("brightness, on") << "brightness" << true << 42 << 366 << "#ffffff";
        QTest::newRow("temperature, on") << "temperature" << true << 80 << 4000 << "#ffffff";
        QTest::newRow("temperature, off") << "temperature" << false << 80 << 366 << "#ffffff";
        QTest::newRow("colour, on") << "color" << true << 80 << 366 << "#12ab34";
    }

    void storeWritesOnlyWhenPowered()
    {
        QFETCH(QString, operation);
        QFETCH(bool, powered);
        auto store = std::make_shared<DevDataMgr>();
        const DevData dev = storedLamp(*store, QStringLiteral("10.9.9.9/unpaired/light-1"), powered, 0);
        HueDeviceMgr mgr(store);
        QSignalSpy updates(store.get(), &DevDataMgr::onUpdateDev);

        if (operation == QLatin1String("brightness"))
            mgr.setBrightness(dev.addr, 42);
        else if (operation == QLatin1String("temperature"))
            mgr.setTemperature(dev.addr, 4000);
        else
            mgr.setColor(dev.addr, QColor(0x12, 0xab, 0x34));

        QCOMPARE(updates.size(), powered ? 1 : 0);
        const DevData *stored = store->findDev(dev.addr);
        QVERIFY(stored);
        QTEST(stored->brightness, "brightness");
        QTEST(stored->temperature, "temperature");
        QTEST(stored->colorLight, "color");
    }

    // A bridge that stops answering takes its own lamps offline, not those of another bridge, even
    // one at the same address.
    void outageTakesOnlyTheBridgesLampsOffline()
    {
        auto store = std::make_shared<DevDataMgr>();
        const QStringList lamps{"10.9.9.1/bridge-a/l1", "10.9.9.2/bridge-b/l2", "10.9.9.1/bridge-b/l3"};
        for (const QString &addr : lamps)
            storedLamp(*store, addr, true, 1);
        HueDeviceMgr mgr(store);
        mgr.onBridgeOnline(Bridge{QStringLiteral("bridge-a"), QStringLiteral("10.9.9.1"), {}, {}, {}}, false);
        QList<int> links;
        for (const QString &addr : lamps)
            links << store->findDev(addr)->linkState;
        QCOMPARE(links, (QList<int>{0, 1, 1}));
    }

    void addressesThatAreNotHueAreIgnored()
    {
        auto store = std::make_shared<DevDataMgr>();
        HueDeviceMgr mgr(store);
        QSignalSpy reconnects(&mgr, &BaseDevice::sigReconnectDevice);
        // Two or four parts name no Hue light; the operation does nothing but still answers true.
        QVERIFY(mgr.reconnectDevice(QStringLiteral("AA:BB:CC:DD:EE:FF")));
        QVERIFY(mgr.reconnectDevice(QStringLiteral("1.2.3.4/bridge/light/extra")));
        QCOMPARE(reconnects.size(), 0);
        QVERIFY(mgr.reconnectDevice(QStringLiteral("1.2.3.4/bridge/light")));
        QCOMPARE(reconnects.size(), 1);
        QCOMPARE(reconnects.first().first().toString(), QStringLiteral("1.2.3.4/bridge/light"));
    }

private:
    std::unique_ptr<TestHome> m_home;
};

// Defined outside the class: moc cannot skip bodies that hold raw string literals.
void TestHueBridge::parseLight_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("lights");

    // A colour bulb and an ambiance lamp, read from the fake bridge, are checked in tst_hueflow.
    QTest::newRow("xy mode keeps bounds, no mirek")
        << QByteArray(R"({"data":[{"id":"l3","color_temperature":{"mirek":null,"mirek_valid":false,
            "mirek_schema":{"mirek_minimum":153,"mirek_maximum":500}}}]})") << "l3 '' on=0 0% 0 mirek 2000-6500 K";
    QTest::newRow("brightness truncates") << QByteArray(R"({"data":[{"id":"l4","dimming":{"brightness":99.6}}]})")
                                          << "l4 '' on=0 99% 0 mirek 0-0 K";
    QTest::newRow("fractional mirek and schema fall back")
        << QByteArray(R"({"data":[{"id":"l6","color_temperature":{"mirek":366.5,"mirek_valid":true,
            "mirek_schema":{"mirek_minimum":"x","mirek_maximum":1.5}}}]})") << "l6 '' on=0 0% 153 mirek 2000-6500 K";
    QTest::newRow("huge brightness is bounded") << QByteArray(R"({"data":[{"id":"l8","dimming":{"brightness":1e300}}]})")
                                                << "l8 '' on=0 2147483647% 0 mirek 0-0 K";
    QTest::newRow("empty objects skipped") << QByteArray(R"({"data":[{},7,"x",{"id":"l9"}]})")
                                           << "l9 '' on=0 0% 0 mirek 0-0 K";
    QTest::newRow("array root") << QByteArray(R"([{"id":"l1"}])") << "";
}

void TestHueBridge::setStateResponse_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<QString>("rid");

    QTest::newRow("last rid wins") << QByteArray(R"({"data":[{"rid":"a"},{},{"rid":"b"}]})") << true << "b";
    QTest::newRow("null data") << QByteArray(R"({"data":null})") << true << "";
    QTest::newRow("errors only") << QByteArray(R"({"errors":[{"description":"unauthorized user"}]})") << false << "";
    QTest::newRow("array") << QByteArray(R"([{"data":[]}])") << false << "";
}

QTEST_MAIN(TestHueBridge)
#include "tst_huebridge.moc"
