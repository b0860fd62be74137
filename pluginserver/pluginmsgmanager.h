#pragma once

#include "devdata.h"

#include <QJsonObject>
#include <QObject>
#include <QString>

class DeviceMgr;
class WebSocketServer;

// The JSON protocol of control-deck plug-ins: lists lights and groups, applies control requests
// as if the user had moved the controls, and pushes notices when lights or groups change.
// Malformed requests are dropped without a reply.
class PluginMsgManager : public QObject
{
    Q_OBJECT

public:
    static constexpr int kCmdControl = 10000;
    static constexpr int kCmdQuery = 20000;
    static constexpr int kCmdNotice = 30000;

    explicit PluginMsgManager(QObject *parent = nullptr);
    ~PluginMsgManager() override;

    WebSocketServer *server() const { return m_server; }
    // The "listdevice" object: lights, groups and the effect list.
    QJsonObject deviceList() const;

public slots:
    void onReceiveMessage(QString message);
    void updateDeviceListNotice();

private:
    void handleControl(const QString &subCmd, const QJsonObject &param);
    void onDeviceUpdated(const QString &uuid, const DevData &info);
    void send(int cmd, const QString &subCmd, const QJsonObject &param);
    bool groupIsOn(const QString &uuid) const;

    DeviceMgr *m_deviceMgr = nullptr;
    WebSocketServer *m_server = nullptr;
};
