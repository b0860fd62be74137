#pragma once

#include <QMetaType>
#include <QString>
#include <QStringList>

// One light and its last known state. Copied by value everywhere; the store holds the master copy.
struct DevData
{
    bool enablePower = true;
    bool colorLightEnable = false;
    bool lightEffectEnable = false;
    qint32 protocol = -1;
    qint32 temperature = -1;
    qint32 brightness = -1;
    qint32 oldBrightness = -1;
    qint32 auxValue1 = -1;   // run-time only
    qint32 auxValue2 = -1;   // run-time only
    quint8 linkState = 0;    // run-time only
    bool switchState = false; // run-time only
    qint32 devCurModel = -1;  // run-time only: 1 colour temperature, 2 effect, 3 colour
    QString name;
    QString addr;
    QString colorLight = QStringLiteral("#FFFFFF");
    QString lightEffect;
    qint32 brightnessMin = 0;
    qint32 brightnessMax = 100;
    qint32 brightnessRatio = 1;
    qint32 temperatureMin = 2700;
    qint32 temperatureMax = 6500;
    qint32 temperatureRatio = 100;
};

// A user-made group of lights, keyed by uuid. A light may belong to any number of groups.
struct GroupData
{
    QString name;
    QString uuid;
    QStringList devs;
};

// The built-in group that stands for every stored light; never written as a group.
inline const QString &defaultGroupUuid()
{
    static const QString uuid = QStringLiteral("{0ce896be-5b8b-4234-99bb-c5a4b1b35140}");
    return uuid;
}

Q_DECLARE_METATYPE(DevData)
Q_DECLARE_METATYPE(GroupData)

void registerDeviceMetaTypes();
