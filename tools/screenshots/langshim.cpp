// Not a test: the screenshot tools (panelshot, ui_gallery, uigallery) install no translators.
// Preloaded into one of them, this installs the program's and Qt's translators for the language
// the environment selects, exactly as the program does at start-up:
//   LD_PRELOAD=<build>/bin/tools/libl10n_langshim.so LANG=de_DE.UTF-8 <tool> <args>
#include "applanguage.h"

#include <QCoreApplication>

static void installProgramTranslators()
{
    loadTranslations();
}
Q_COREAPP_STARTUP_FUNCTION(installProgramTranslators)
