#include "client/plugins/feature.h"

const Feature kFeature = {PLUGIN_ELEMENT, TEXT("software\\Verdane\\Sentrel\\" PLUGIN_KEY),
                          PLUGIN_FEATURE, TEXT(PLUGIN_SECTIONS)};
