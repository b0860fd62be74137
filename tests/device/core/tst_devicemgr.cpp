#include "devicemgr.h"
#include "testhome.h"

#include <QSignalSpy>
#include <QTest>

#include <memory>

namespace {

// A transport that records the calls routed to it.
class RecordingTransport : public BaseDevice
{
public:
    void startScan() override { calls << QStringLiteral("startScan"); }
    bool reconnectDevice(const QString &addr) override { return (calls << QStringLiteral("reconnect ") + addr, true); }
    void setAdjusting(const QString &addr, bool on) override { record("adjusting", addr, QString::number(on)); }
    void powerOn(const QString &addr) override { calls << QStringLiteral("on ") + addr; }
    void setBrightness(const QString &addr, int v) override { record("brightness", addr, QString::number(v)); }
    void setLightEffect(const QString &addr, const QString &e) override { record("effect", addr, e); }
    void setColor(const QString &addr, const QColor &c) override { record("color", addr, c.name()); }
    void record(const char *op, const QString &addr, const QString &value)
    {
        calls << QStringLiteral("%1 %2 %3").arg(QLatin1String(op), addr, value);
    }

    void discover(const QString &addr)
    {
        DevData dev;
        dev.addr = addr;
        emit sigDeviceDiscovered(dev);
    }

    QStringList calls;
};

DevData stored(const QString &addr, int protocol, int min = 0, int max = 100)
{
    DevData dev;
    dev.addr = addr;
    dev.protocol = protocol;
    dev.brightnessMin = min;
    dev.brightnessMax = max;
    return dev;
}

} // namespace

class TestDeviceMgr : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_home = std::make_unique<TestHome>();
        m_ble = std::make_shared<RecordingTransport>();
        m_hue = std::make_shared<RecordingTransport>();
        m_mgr = std::make_unique<DeviceMgr>([this](std::shared_ptr<DevDataMgr>) { return m_ble; },
                                            [this](std::shared_ptr<DevDataMgr>) { return m_hue; });
    }

    void cleanup() { m_mgr.reset(), m_ble.reset(), m_hue.reset(), m_home.reset(); }

    void routesByStoredProtocol_data()
    {
        QTest::addColumn<int>("protocol");
        QTest::addColumn<QString>("transport");
        QTest::newRow("zero") << 0 << "";
        QTest::newRow("first BLE") << 1 << "ble";
        QTest::newRow("55 AA light") << 1001 << "ble";
        QTest::newRow("just above BLE") << 1002 << "";
        QTest::newRow("Hue") << 2001 << "hue";
        QTest::newRow("above Hue") << 2002 << "";
    }

    void routesByStoredProtocol()
    {
        QFETCH(int, protocol);
        QFETCH(QString, transport);
        m_mgr->addDev(stored(QStringLiteral("L"), protocol));
        const bool reconnected = m_mgr->reconnectDevice(QStringLiteral("L"));
        m_mgr->powerOn(QStringLiteral("L"));
        m_mgr->setColor(QStringLiteral("L"), QColor(Qt::red));
        m_mgr->setAdjusting(QStringLiteral("L"), true);
        // Unknown addresses never reach a transport.
        m_mgr->powerOn(QStringLiteral("not stored"));
        QVERIFY(!m_mgr->reconnectDevice(QStringLiteral("not stored")));

        const QStringList expected{"reconnect L", "on L", "color L #ff0000", "adjusting L 1"};
        QCOMPARE(m_ble->calls, transport == QLatin1String("ble") ? expected : QStringList());
        QCOMPARE(m_hue->calls, transport == QLatin1String("hue") ? expected : QStringList());
        QCOMPARE(reconnected, !transport.isEmpty());
    }

    // Only the light's own effects are passed on; a brightness ratio is rounded to the nearest step of
    // the light's range (29 % of 0..100 is 28.999... in binary and must still reach the light as 29).
    void valuesPassedOnAsTheLightTakesThem()
    {
        m_mgr->effectData().load(R"({"2": [{"cmd": "4", "name": {"en_US": "Police Car"}}],
                                     "1001": [{"cmd": "A-1", "name": {"en_US": "Police Car"}}]})", QStringLiteral("en_US"));
        m_mgr->addDev(stored(QStringLiteral("V"), 2, 10, 100));
        m_mgr->addDev(stored(QStringLiteral("Q"), 1001));
        m_mgr->addDev(stored(QStringLiteral("W"), 2, 0, 255));
        for (const QString &addr : {QStringLiteral("V"), QStringLiteral("Q")}) {
            for (const QString &effect : {QStringLiteral("4"), QStringLiteral("A-1"), QStringLiteral("1"), QString()})
                m_mgr->setLightEffect(addr, effect);
        }
        m_mgr->setBrightnessByRatio(QStringLiteral("V"), 0.5);
        m_mgr->setBrightnessByRatio(QStringLiteral("Q"), 0.29);
        m_mgr->setBrightnessByRatio(QStringLiteral("W"), 0.5);
        QCOMPARE(m_ble->calls, (QStringList{"effect V 4", "effect Q A-1", "brightness V 55", "brightness Q 29",
                                            "brightness W 128"}));
    }

    // Each light is reported once per scan, whichever transport hears it; a reconnection is relayed,
    // a removal from a group deliberately not.
    void discoveryIsReportedOncePerScan()
    {
        QSignalSpy discovered(m_mgr.get(), &BaseDevice::sigDeviceDiscovered);
        QSignalSpy reconnect(m_mgr.get(), &BaseDevice::sigReconnectDevice);
        QSignalSpy removeFromGroup(m_mgr.get(), &BaseDevice::sigRemoveDeviceFromGroup);
        m_mgr->addDev(stored(QStringLiteral("known"), 2));
        m_mgr->startScan();
        QCOMPARE(m_ble->calls, QStringList{QStringLiteral("startScan")});
        QCOMPARE(m_hue->calls, QStringList{QStringLiteral("startScan")});
        const std::pair<RecordingTransport *, const char *> sightings[] = {
            {m_ble.get(), "A"}, {m_ble.get(), "A"}, {m_hue.get(), "A"}, {m_hue.get(), "B"}, {m_ble.get(), "known"}};
        for (const auto &[transport, addr] : sightings)
            transport->discover(QLatin1String(addr));
        QCOMPARE(discovered.size(), 2);
        QCOMPARE(discovered.at(0).at(0).value<DevData>().addr, QStringLiteral("A"));
        QCOMPARE(discovered.at(1).at(0).value<DevData>().addr, QStringLiteral("B"));

        emit m_hue->sigReconnectDevice(QStringLiteral("X"));
        emit m_ble->sigRemoveDeviceFromGroup(QStringLiteral("G"), QStringLiteral("X"));
        QCOMPARE(reconnect.at(0).at(0).toString(), QStringLiteral("X"));
        QCOMPARE(removeFromGroup.size(), 0);
    }

private:
    std::unique_ptr<TestHome> m_home;
    std::shared_ptr<RecordingTransport> m_ble;
    std::shared_ptr<RecordingTransport> m_hue;
    std::unique_ptr<DeviceMgr> m_mgr;
};

QTEST_GUILESS_MAIN(TestDeviceMgr)
#include "tst_devicemgr.moc"
