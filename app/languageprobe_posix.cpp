#include "applanguage.h"

#include <QLocale>

// The language the user asked for, in the order the C library honours the variables.
QString probeSystemLocaleName()
{
    for (const char *variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const QString name = dashedLocaleName(qEnvironmentVariable(variable));
        if (!name.isEmpty())
            return name;
    }
    const QStringList uiLanguages = QLocale::system().uiLanguages();
    for (const QString &language : uiLanguages) {
        const QString name = dashedLocaleName(language);
        if (!name.isEmpty())
            return name;
    }
    return QString();
}
