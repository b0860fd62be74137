#include "deletesettings.h"

#include <QSettings>

namespace {

const QString kOrganisation = QStringLiteral("brivon");
const QString kApplication = QStringLiteral("com.brivon.beamcrafter");

bool askFor(const QString &key)
{
    const QSettings settings(QSettings::NativeFormat, QSettings::UserScope, kOrganisation, kApplication);
    if (!settings.contains(key))
        return true;
    return settings.value(key, true).toBool();
}

} // namespace

bool askToDeleteDevice()
{
    return askFor(QStringLiteral("global/ask_to_delete_device"));
}

bool askToDeleteGroup()
{
    return askFor(QStringLiteral("global/ask_to_delete_group"));
}

void setAskToDelete(const QString &key, bool value)
{
    QSettings settings(QSettings::NativeFormat, QSettings::UserScope, kOrganisation, kApplication);
    settings.setValue(key, value);
}
