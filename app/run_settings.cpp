#include "app/run_settings.h"

RunSettings g_RunSettings;
