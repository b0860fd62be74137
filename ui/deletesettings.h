#pragma once

#include <QString>

// Whether deleting a light or a group asks for confirmation first. Both default to true until the
// user ticks "don't ask again" in the confirmation.
bool askToDeleteDevice();
bool askToDeleteGroup();
void setAskToDelete(const QString &key, bool value);
