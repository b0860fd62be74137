#pragma once

#include <QString>

// The program's language tag: one of "en_US", "zh_CN", "de_DE", "ja_JP", "zh_HK".
// Probed once from the system and cached.
QString systemLanguage();

// Maps a system locale name in dashed BCP-47 form ("zh-Hant-TW", "de-DE") to a language tag.
QString languageTagForLocaleName(const QString &localeName);
// The name of Qt's own catalogue for a tag ("qt_de"); "qt_en_US" for an unknown tag.
QString qtTranslationName(const QString &tag);
// The dashed form of a tag ("de-DE") for the update check; "en_US" for an unknown tag.
QString dashedLanguageName(const QString &tag);

// Installs the program's and Qt's translators for systemLanguage() on the application.
void loadTranslations();
// Registers a font file and makes its first family the application font at 18 pt.
// Returns the registration id, or -1 when the font could not be loaded.
int loadApplicationFont(const QString &path);

// Platform probe: the user's interface language as a dashed locale name ("zh-TW"), or an empty
// string when the system does not say.
QString probeSystemLocaleName();
// Turns a POSIX locale value ("zh_TW.UTF-8", "zh_Hant_HK", "de_DE@euro") into dashed form.
QString dashedLocaleName(const QString &posixLocale);
