#pragma once

// A Qt plug-in that exports another interface id: the manager must refuse to cast it.

#include <QObject>
#include <QtPlugin>

class OtherLightInterface
{
public:
    virtual ~OtherLightInterface() = default;
    virtual void startScan() = 0;
};

#define OtherLightInterface_iid "org.example.OtherLightInterface"
Q_DECLARE_INTERFACE(OtherLightInterface, OtherLightInterface_iid)

class WrongIidPlugin : public QObject, public OtherLightInterface
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID OtherLightInterface_iid)
    Q_INTERFACES(OtherLightInterface)

public:
    void startScan() override {}

signals:
    // Same name as the BLE interface's signal; nothing may get connected to it.
    void sigDeviceDiscoveredFinished();
};
