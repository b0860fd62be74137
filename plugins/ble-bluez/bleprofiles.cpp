#include "bleprofiles.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>

bool BleProfile::matches(const QString &advertisedName) const
{
    const QString name = BleProfiles::cleanName(advertisedName);
    if (name.isEmpty())
        return false;
    for (const QString &prefix : namePrefixes) {
        if (name.startsWith(prefix, Qt::CaseInsensitive))
            return true;
    }
    return !namePattern.pattern().isEmpty() && namePattern.match(name).hasMatch();
}

bool BleProfiles::loadFile(const QString &path)
{
    m_profiles.clear();
    m_problems.clear();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return fail(QStringLiteral("cannot open %1: %2").arg(path, file.errorString()));
    if (file.size() > MaxFileBytes)
        return fail(QStringLiteral("%1 is larger than %2 bytes").arg(path).arg(MaxFileBytes));
    // Read one byte past the limit so that a file that grows while being read is still caught.
    const QByteArray bytes = file.read(MaxFileBytes + 1);
    if (bytes.size() > MaxFileBytes)
        return fail(QStringLiteral("%1 is larger than %2 bytes").arg(path).arg(MaxFileBytes));
    return parse(bytes);
}

bool BleProfiles::loadFiles(const QStringList &paths)
{
    QList<BleProfile> all;
    QStringList problems;
    bool any = false;
    for (const QString &path : paths) {
        const bool ok = loadFile(path);
        any = any || ok;
        for (const QString &problem : std::as_const(m_problems))
            problems << path + QStringLiteral(": ") + problem;
        all += m_profiles;
    }
    m_profiles = all.mid(0, MaxProfiles);
    m_problems = problems;
    return any;
}

bool BleProfiles::parse(const QByteArray &json)
{
    m_profiles.clear();
    m_problems.clear();
    if (json.size() > MaxFileBytes)
        return fail(QStringLiteral("the table is larger than %1 bytes").arg(MaxFileBytes));
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError)
        return fail(QStringLiteral("not valid JSON at offset %1: %2").arg(error.offset).arg(error.errorString()));
    if (!doc.isObject())
        return fail(QStringLiteral("the top level is not an object"));
    const QJsonValue list = doc.object().value(QLatin1String("profiles"));
    if (!list.isArray())
        return fail(QStringLiteral("\"profiles\" is missing or not an array"));
    const QJsonArray entries = list.toArray();
    if (entries.size() > MaxProfiles)
        m_problems << QStringLiteral("only the first %1 of %2 profiles are used").arg(MaxProfiles).arg(entries.size());
    for (int i = 0; i < entries.size() && i < MaxProfiles; ++i) {
        BleProfile profile;
        if (readProfile(entries.at(i), i, &profile))
            m_profiles.append(profile);
    }
    return true;
}

const BleProfile *BleProfiles::match(const QString &advertisedName) const
{
    for (const BleProfile &profile : m_profiles) {
        if (profile.matches(advertisedName))
            return &profile;
    }
    return nullptr;
}

QBluetoothUuid BleProfiles::parseUuid(const QString &text)
{
    QString hex = text.trimmed();
    if (hex.startsWith(QLatin1String("0x"), Qt::CaseInsensitive))
        hex.remove(0, 2);
    if (hex.size() == 4 || hex.size() == 8) {
        bool ok = false;
        const uint value = hex.toUInt(&ok, 16);
        // toUInt accepts a sign; a UUID never has one.
        if (!ok || hex.contains(QLatin1Char('+')) || hex.contains(QLatin1Char('-')) || value == 0)
            return QBluetoothUuid();
        return hex.size() == 4 ? QBluetoothUuid(quint16(value)) : QBluetoothUuid(quint32(value));
    }
    if (text.trimmed().size() != 36 && text.trimmed().size() != 38)
        return QBluetoothUuid();
    const QUuid uuid = QUuid::fromString(text.trimmed());
    return uuid.isNull() ? QBluetoothUuid() : QBluetoothUuid(uuid);
}

bool BleProfiles::isLightProtocol(int protocolType)
{
    switch (protocolType) {
    case 1: case 2: case 3: case 5: case 6: case 7: case 162: case 163: case 1001:
        return true;
    default:
        return false;
    }
}

QString BleProfiles::cleanName(const QString &advertisedName)
{
    QString name = advertisedName.left(MaxTextLength);
    // Some lights pad the name field with NUL bytes up to its fixed size.
    const qsizetype nul = name.indexOf(QChar(u'\0'));
    if (nul >= 0)
        name.truncate(nul);
    return name.trimmed();
}

bool BleProfiles::fail(const QString &why)
{
    m_profiles.clear();
    m_problems = QStringList{why};
    return false;
}

bool BleProfiles::readProfile(const QJsonValue &value, int index, BleProfile *out)
{
    const auto skip = [this, index](const QString &why) {
        m_problems << QStringLiteral("profile %1 skipped: %2").arg(index).arg(why);
        return false;
    };
    if (!value.isObject())
        return skip(QStringLiteral("not an object"));
    const QJsonObject obj = value.toObject();

    out->name = obj.value(QLatin1String("name")).toString().left(MaxTextLength);

    // toInt would turn 1.5 or "1" into a valid type; only a whole JSON number is accepted.
    const QJsonValue type = obj.value(QLatin1String("protocolType"));
    const double typeNumber = type.toDouble(-1);
    // The range check comes first: converting a double outside int's range is undefined.
    const bool whole = type.isDouble() && typeNumber >= 0 && typeNumber <= 65535
        && typeNumber == double(int(typeNumber));
    if (!whole || !isLightProtocol(int(typeNumber)))
        return skip(QStringLiteral("\"protocolType\" is not one of 1, 2, 3, 5, 6, 7, 162, 163, 1001"));
    out->protocolType = int(typeNumber);

    const QJsonValue prefixes = obj.value(QLatin1String("namePrefixes"));
    if (!prefixes.isUndefined()) {
        if (!prefixes.isArray())
            return skip(QStringLiteral("\"namePrefixes\" is not an array"));
        const QJsonArray list = prefixes.toArray();
        if (list.size() > MaxPrefixes)
            return skip(QStringLiteral("more than %1 name prefixes").arg(MaxPrefixes));
        for (const QJsonValue &prefix : list) {
            const QString text = prefix.toString().trimmed();
            // An empty prefix would claim every device in range.
            if (!prefix.isString() || text.isEmpty() || text.size() > MaxTextLength)
                return skip(QStringLiteral("a name prefix is not a non-empty text"));
            out->namePrefixes << text;
        }
    }

    const QJsonValue pattern = obj.value(QLatin1String("namePattern"));
    if (!pattern.isUndefined()) {
        if (!pattern.isString() || pattern.toString().isEmpty() || pattern.toString().size() > MaxTextLength)
            return skip(QStringLiteral("\"namePattern\" is not a non-empty text"));
        out->namePattern.setPattern(QRegularExpression::anchoredPattern(pattern.toString()));
        if (!out->namePattern.isValid())
            return skip(QStringLiteral("\"namePattern\" is not a valid regular expression: %1")
                            .arg(out->namePattern.errorString()));
    }
    if (out->namePrefixes.isEmpty() && out->namePattern.pattern().isEmpty())
        return skip(QStringLiteral("neither \"namePrefixes\" nor \"namePattern\" is given"));

    const struct { const char *key; QBluetoothUuid *target; } uuids[] = {
        {"service", &out->service},
        {"writeCharacteristic", &out->writeCharacteristic},
        {"notifyCharacteristic", &out->notifyCharacteristic},
    };
    // Without UUIDs the link picks the light's service itself; half a set is a mistake.
    int given = 0;
    for (const auto &entry : uuids)
        given += obj.contains(QLatin1String(entry.key)) ? 1 : 0;
    if (given == 0)
        return true;
    for (const auto &entry : uuids) {
        *entry.target = parseUuid(obj.value(QLatin1String(entry.key)).toString());
        if (entry.target->isNull())
            return skip(QStringLiteral("\"%1\" is not a UUID").arg(QLatin1String(entry.key)));
    }
    return true;
}
