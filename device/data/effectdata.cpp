#include "effectdata.h"

#include "appdatapaths.h"
#include "applanguage.h"

#include <QDebug>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

EffectData::EffectData(QObject *parent)
    : QObject(parent)
{
}

QString EffectData::filePath()
{
    return programDataFile(QStringLiteral("effect.json"));
}

QString EffectData::effectLanguage(const QString &languageTag)
{
    if (languageTag == QLatin1String("zh_HK") || languageTag == QLatin1String("zh_CN"))
        return QStringLiteral("zh_CN");
    return QStringLiteral("en_US");
}

void EffectData::readConfig()
{
    m_effects.clear();
    QFile file(filePath());
    if (!file.exists()) {
        qDebug() << "[" << "EffectData::readConfig" << "]" << "effect.json is not existed";
        return;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        qDebug() << "[" << "EffectData::readConfig" << "]" << "effect.json is not opened";
        return;
    }
    const QByteArray bytes = file.readAll();
    file.close();
    if (bytes.isEmpty())
        return;
    load(bytes, effectLanguage(systemLanguage()));
}

void EffectData::load(const QByteArray &bytes, const QString &language)
{
    m_effects.clear();
    const QJsonObject root = QJsonDocument::fromJson(bytes).object();
    if (root.isEmpty())
        return;

    for (auto it = root.constBegin(); it != root.constEnd(); ++it) {
        const int protocolType = it.key().toInt(nullptr, 10);
        const QJsonArray list = it.value().toArray();
        if (list.isEmpty())
            continue;
        for (const QJsonValue &element : list) {
            const QJsonObject effect = element.toObject();
            if (effect.isEmpty())
                continue;
            if (effect.contains(QLatin1String("enable"))
                && !effect.value(QLatin1String("enable")).toBool(true))
                continue;
            if (!effect.contains(QLatin1String("cmd")) || !effect.contains(QLatin1String("name")))
                continue;
            const QString cmd = effect.value(QLatin1String("cmd")).toString();
            const QString name = effect.value(QLatin1String("name")).toObject().value(language).toString();
            if (!cmd.isEmpty() && !name.isEmpty())
                m_effects[protocolType].append(EffectItem{name, cmd});
        }
    }
}

QList<EffectItem> EffectData::effects(int protocolType) const
{
    return m_effects.value(protocolType);
}
