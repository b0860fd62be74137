#include "applanguage.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFont>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QRegularExpression>
#include <QTranslator>

namespace {

struct LanguageNames
{
    const char *tag;
    const char *qtName;
    const char *dashed;
};

constexpr LanguageNames kLanguages[] = {
    {"en_US", "qt_en_US", "en-US"},
    {"zh_CN", "qt_zh_CN", "zh-CN"},
    {"de_DE", "qt_de", "de-DE"},
    {"ja_JP", "qt_ja", "ja-JP"},
    {"zh_HK", "qt_zh_HK", "zh-HK"},
};

const LanguageNames *findLanguage(const QString &tag)
{
    for (const LanguageNames &names : kLanguages) {
        if (tag == QLatin1String(names.tag))
            return &names;
    }
    return nullptr;
}

const QString kTranslationFolder = QStringLiteral(":/resource/translations/");

} // namespace

QString languageTagForLocaleName(const QString &name)
{
    if (name.startsWith(QLatin1String("en")))
        return QStringLiteral("en_US");
    if (name.startsWith(QLatin1String("de")))
        return QStringLiteral("de_DE");
    if (name.startsWith(QLatin1String("ja")))
        return QStringLiteral("ja_JP");
    if (name.startsWith(QLatin1String("zh"))) {
        if (name.contains(QLatin1String("Hant")))
            return QStringLiteral("zh_HK");
        if (name.contains(QLatin1String("Hans")))
            return QStringLiteral("zh_CN");
        if (name.endsWith(QLatin1String("CN")))
            return QStringLiteral("zh_CN");
        return QStringLiteral("zh_HK");
    }
    return QStringLiteral("en_US");
}

QString systemLanguage()
{
    static QString cached;
    if (!cached.isEmpty())
        return cached;

    qDebug() << "NSIS:Language is not exist";
    QString name = probeSystemLocaleName();
    if (name.isEmpty())
        name = QStringLiteral("en-US");
    qDebug() << "System Language is" << name;
    cached = languageTagForLocaleName(name);
    return cached;
}

QString qtTranslationName(const QString &tag)
{
    const LanguageNames *names = findLanguage(tag);
    return QLatin1String(names ? names->qtName : "qt_en_US");
}

QString dashedLanguageName(const QString &tag)
{
    const LanguageNames *names = findLanguage(tag);
    return QLatin1String(names ? names->dashed : "en_US");
}

QString dashedLocaleName(const QString &posixLocale)
{
    QString name = posixLocale.trimmed();
    const int cut = name.indexOf(QRegularExpression(QStringLiteral("[.@]")));
    if (cut >= 0)
        name.truncate(cut);
    if (name == QLatin1String("C") || name == QLatin1String("POSIX"))
        return QString();
    name.replace(QLatin1Char('_'), QLatin1Char('-'));
    return name;
}

void loadTranslations()
{
    QCoreApplication *app = QCoreApplication::instance();
    const QString tag = systemLanguage();
    const QString qtName = qtTranslationName(tag);

    auto *appTranslator = new QTranslator(app);
    auto *qtTranslator = new QTranslator(app);
    app->setProperty("language", tag);

    if (appTranslator->load(kTranslationFolder + tag + QStringLiteral(".qm")))
        QCoreApplication::installTranslator(appTranslator);
    if (qtTranslator->load(kTranslationFolder + qtName + QStringLiteral(".qm")))
        QCoreApplication::installTranslator(qtTranslator);
}

int loadApplicationFont(const QString &path)
{
    const int id = QFontDatabase::addApplicationFont(path);
    if (id == -1)
        return -1;
    const QStringList families = QFontDatabase::applicationFontFamilies(id);
    if (families.isEmpty())
        return id;
    const QString family = families.first();
    qDebug() << "fontPath" << path << "fontName:" << family;
    QGuiApplication::setFont(QFont(family, 18));
    return id;
}
