#include "client/plugins/feature.h"

#include <product_registry.h>

const Feature kFeature = {PLUGIN_ELEMENT, TEXT(SENTREL_PRODUCT_KEY "\\" PLUGIN_KEY), PLUGIN_FEATURE,
                          TEXT(PLUGIN_SECTIONS)};
