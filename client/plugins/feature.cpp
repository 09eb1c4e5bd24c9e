#include "client/plugins/feature.h"

#include <string_view>

namespace {

consteval std::size_t IndexOf(std::basic_string_view<WCHAR> library) {
    std::size_t index = 0;
    while (library != kFeatures[index].library) ++index;
    return index;
}

}  // namespace

const Feature& kFeature = kFeatures[IndexOf(TEXT(PLUGIN_LIBRARY))];
