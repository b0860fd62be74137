#pragma once

#include "basedevice.h"
#include "huebridge.h"

#include <QColor>
#include <QString>
#include <memory>

class DevDataMgr;

// Philips Hue lights behind the common device interface. A Hue light's address is
// bridge ip + "/" + bridge id + "/" + light id; what the bridges report goes into the store.
class HueDeviceMgr : public BaseDevice
{
    Q_OBJECT

public:
    static constexpr int kProtocol = 2001;

    explicit HueDeviceMgr(std::shared_ptr<DevDataMgr> store, QObject *parent = nullptr);
    ~HueDeviceMgr() override;

    void refreshDevices() override;
    void startScan() override;
    void connectToDevice(const QString &addr) override;
    bool reconnectDevice(const QString &addr) override;
    void powerOn(const QString &addr) override;
    void powerOff(const QString &addr) override;
    void setTemperature(const QString &addr, int value) override;
    void setBrightness(const QString &addr, int value) override;
    void setColor(const QString &addr, const QColor &color) override;

    // The pairing dialog talks to the same bridge client.
    std::shared_ptr<HueBridge> hueBridge() const { return m_bridge; }

    // CIE 1931 xy of an sRGB colour, in single precision; black gives (0, 0).
    static void colorToXy(const QColor &color, float xy[2]);
    static QString deviceAddress(const QString &ip, const QString &id, const QString &light);
    // The sRGB colour of a CIE xy point at full brightness, as "#rrggbb".
    static QString xyToColorName(double x, double y);

public slots:
    void onDiscoverLight(Bridge bridge, QList<Light> lights);
    void onUpdateLightState(Bridge bridge, Light light);
    void onUpdatePower(Bridge bridge, QString light, bool on);
    void onUpdateBrightness(Bridge bridge, QString light, int brightness);
    void onUpdateTemperature(Bridge bridge, QString light, int temperature);
    void onBridgeOnline(Bridge bridge, bool online);
    void onLightEvent(Bridge bridge, QString light, QJsonObject resource);
    void onBridgeMoved(QString oldIp, Bridge bridge);

private:
    // The stored Hue lamps of one bridge, by address.
    QStringList lampsOf(const QString &ip, const QString &id) const;

    std::shared_ptr<HueBridge> m_bridge;
    std::shared_ptr<DevDataMgr> m_store;
};
