#pragma once

#include <QHash>
#include <QList>
#include <QObject>
#include <QString>

// One light effect as offered for a kind of light: its display name and the command text that the
// BLE manager turns into a frame.
struct EffectItem
{
    QString name;
    QString cmd;
};

// The effect catalogue read from data/effect.json beside the program.
class EffectData : public QObject
{
    Q_OBJECT

public:
    explicit EffectData(QObject *parent = nullptr);

    void readConfig();
    QList<EffectItem> effects(int protocolType) const;

    // Names exist in "zh_CN" and "en_US" only; this picks one for a program language tag.
    static QString effectLanguage(const QString &languageTag);
    // Replaces the catalogue with the contents of a file's bytes, names taken in the given language.
    void load(const QByteArray &bytes, const QString &effectLanguage);
    static QString filePath();

private:
    QHash<int, QList<EffectItem>> m_effects;
};
