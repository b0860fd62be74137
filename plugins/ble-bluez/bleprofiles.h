#pragma once

// The table that tells which advertised names are lights and how to talk to each kind.
// It is read from data/ble-profiles.json, a file users edit, so everything in it is checked:
// a broken file yields no profiles, a broken entry is skipped, and the reasons are kept for the log.

#include <QBluetoothUuid>
#include <QByteArray>
#include <QJsonValue>
#include <QList>
#include <QRegularExpression>
#include <QString>
#include <QStringList>

struct BleProfile
{
    QString name;                   // label for the log only
    int protocolType = -1;
    QStringList namePrefixes;       // compared without regard to case
    QRegularExpression namePattern; // must match the whole name; empty when not given
    QBluetoothUuid service;         // null: the link picks the service after service discovery
    QBluetoothUuid writeCharacteristic;
    QBluetoothUuid notifyCharacteristic;

    bool matches(const QString &advertisedName) const;
};

class BleProfiles
{
public:
    // Limits that keep a huge or hostile file from costing memory or time.
    static constexpr qint64 MaxFileBytes = 256 * 1024;
    static constexpr int MaxProfiles = 256;
    static constexpr int MaxPrefixes = 64;
    static constexpr int MaxTextLength = 248; // longest name a light can advertise

    // Replace the table with the file's content. False (and an empty table) when the file is
    // missing, too large or not a valid table; entries that are wrong on their own are skipped.
    bool loadFile(const QString &path);
    // The profiles of several files in turn (earlier files win a match); false when none could
    // be read. Problems are prefixed with their file.
    bool loadFiles(const QStringList &paths);
    bool parse(const QByteArray &json);

    // The first profile, in file order, whose rules accept the name; null when none does.
    const BleProfile *match(const QString &advertisedName) const;

    const QList<BleProfile> &profiles() const { return m_profiles; }
    // Why loading failed, or one line per skipped entry.
    const QStringList &problems() const { return m_problems; }

    // "FFE0", "0xFFE0", "0000FFE0" (16 or 32 bits) or the full 128-bit form, braces allowed.
    // A null UUID when the text is none of these.
    static QBluetoothUuid parseUuid(const QString &text);
    // The protocol types of Bluetooth lights: the FF family and the 55 AA light.
    static bool isLightProtocol(int protocolType);
    // Advertised names may carry padding; compare what a person would read.
    static QString cleanName(const QString &advertisedName);

private:
    bool fail(const QString &why);
    bool readProfile(const QJsonValue &value, int index, BleProfile *out);

    QList<BleProfile> m_profiles;
    QStringList m_problems;
};
