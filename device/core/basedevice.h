#pragma once

#include "devdata.h"

#include <QBluetoothDeviceDiscoveryAgent>
#include <QColor>
#include <QObject>
#include <QString>

// The one interface through which lights are driven, whatever their transport. Every operation
// does nothing by default; an implementation overrides what its transport supports.
// The order of the virtual operations is shared by all implementations: do not reorder.
class BaseDevice : public QObject
{
    Q_OBJECT

public:
    explicit BaseDevice(QObject *parent = nullptr);
    ~BaseDevice() override;

    virtual void refreshDevices() {}
    virtual void startScan() {}
    virtual void stopScan() {}
    virtual void connectToDevice(const QString &addr) { Q_UNUSED(addr) }
    virtual bool reconnectDevice(const QString &addr) { Q_UNUSED(addr) return false; }
    virtual void removeDevice(const QString &addr) { Q_UNUSED(addr) }
    virtual void setAdjusting(bool on) { Q_UNUSED(on) }
    virtual void delDev(const QString &groupUuid, const QString &addr) { Q_UNUSED(groupUuid) Q_UNUSED(addr) }
    virtual void powerOn(const QString &addr) { Q_UNUSED(addr) }
    virtual void powerOff(const QString &addr) { Q_UNUSED(addr) }
    virtual void setTemperature(const QString &addr, int value) { Q_UNUSED(addr) Q_UNUSED(value) }
    virtual void setBrightness(const QString &addr, int value) { Q_UNUSED(addr) Q_UNUSED(value) }
    virtual void setLightEffect(const QString &addr, const QString &effect) { Q_UNUSED(addr) Q_UNUSED(effect) }
    virtual void setColor(const QString &addr, const QColor &color) { Q_UNUSED(addr) Q_UNUSED(color) }
    // The adjusting state of one light: a transport that holds back reports during a drag keeps
    // it per light, so that dragging one light never stalls the others. Added after the operations
    // above so that their order stays as it was.
    virtual void setAdjusting(const QString &addr, bool on) { Q_UNUSED(addr) setAdjusting(on); }

signals:
    void sigDeviceDiscovered(DevData devData);
    void sigDeviceDiscoveredErrorOccurred(QBluetoothDeviceDiscoveryAgent::Error error);
    void sigDeviceDiscoveredFinished();
    void sigReconnectDevice(QString devAddr);
    void sigRemoveDeviceFromGroup(QString groupName, QString devAddr);
    // A light's lost link is being tried again on its own (true) or that has ended (false).
    void sigReconnecting(QString devAddr, bool active);
};
