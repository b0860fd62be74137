#include "applanguage.h"

#include <windows.h>

QString probeSystemLocaleName()
{
    wchar_t buffer[85] = {};
    const LANGID language = GetUserDefaultUILanguage();
    if (LCIDToLocaleName(MAKELCID(language, SORT_DEFAULT), buffer, 85, 0) == 0)
        return QString();
    return QString::fromWCharArray(buffer);
}
