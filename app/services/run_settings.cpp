#include "app/services/run_settings.h"

RunSettings g_RunSettings;
