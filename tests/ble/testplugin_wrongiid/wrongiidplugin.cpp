#include "wrongiidplugin.h"
