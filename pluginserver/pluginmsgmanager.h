#pragma once

#include "coalescer.h"
#include "devdata.h"

#include <QHash>
#include <QJsonObject>
#include <QObject>
#include <QString>

#include <functional>

class DeviceMgr;
class WebSocketServer;

// The JSON protocol of control-deck plug-ins: lists lights and groups, applies control requests
// as if the user had moved the controls, and pushes notices when lights or groups change.
// A refused control request is answered to its sender with the reason; requests carried out get
// no reply. Requests are paced per light and per kind, so a deck that floods a light sends it at
// most one frame per interval, always ending with the latest value.
class PluginMsgManager : public QObject
{
    Q_OBJECT

public:
    static constexpr int kCmdControl = 10000;
    static constexpr int kCmdQuery = 20000;
    static constexpr int kCmdNotice = 30000;
    // Requests per light and kind, and "state" notices per light, at most one per interval.
    static constexpr int kPaceMs = 100;

    explicit PluginMsgManager(QObject *parent = nullptr);
    ~PluginMsgManager() override;

    WebSocketServer *server() const { return m_server; }
    // The "listdevice" object: lights, groups and the effect list.
    QJsonObject deviceList() const;
    // One light as listed and as sent in "state" notices.
    QJsonObject lightObject(const DevData &dev) const;

public slots:
    void onReceiveMessage(QString message);
    void updateDeviceListNotice();

private:
    enum class Kind { Power, Brightness, Temperature, Color, Effect };

    // What a deck sees change in a light: a "state" notice goes out when this differs.
    struct LightState
    {
        bool on = false;
        int brightness = 0;
        int temperature = 0;
        QString color;
        QString effect;
        bool linked = false;
        bool operator==(const LightState &o) const
        {
            return on == o.on && brightness == o.brightness && temperature == o.temperature && color == o.color
                && effect == o.effect && linked == o.linked;
        }
        bool operator!=(const LightState &o) const { return !(*this == o); }
    };
    static LightState stateOf(const DevData &dev);

    void handleControl(const QString &subCmd, const QJsonValue &paramValue);
    // Why a light refuses a request of this kind, or an empty text when it takes it.
    QString refusal(const DevData &dev, Kind kind, const QString &effect) const;
    // The power a light will have once its waiting power request has gone out.
    bool effectivePower(const DevData &dev) const;
    void enqueue(const QString &addr, Kind kind, std::function<void()> action);
    void refuse(const QString &id, const QString &subCmd, const QString &reason);

    void onDeviceUpdated(const QString &uuid, const DevData &info);
    void onStoreChanged();
    void sendState(const QString &addr);
    void send(int cmd, const QString &subCmd, const QJsonObject &param);
    bool groupIsOn(const QString &uuid) const;

    DeviceMgr *m_deviceMgr = nullptr;
    WebSocketServer *m_server = nullptr;
    Coalescer m_requests;
    Coalescer m_stateNotices;
    QHash<QString, bool> m_powerTarget;      // lights with a waiting power request
    QHash<QString, LightState> m_announced;  // the state last sent per light
    QHash<QString, bool> m_powerFlag;        // the power last told in a "switch" notice
    QHash<QString, bool> m_groupOn;          // the combined power last told per group
};
