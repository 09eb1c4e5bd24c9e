// The string resources of the platform tests; see test_strings.h.
#include "tests/support/test_strings.h"

#include <platform_strings.h>

#include <iterator>

namespace {

const platform_string kStrings[] = {
    {0x0411, kStringInAll, TEXT("Japanese")}, {0x0411, kStringInJapanese, TEXT("only Japanese")},
    {0x0407, kStringInAll, TEXT("German")},   {0x0409, kStringInAll, TEXT("English")},
    {0x040C, kStringInAll, TEXT("French")},   {0x0414, kStringInAll, TEXT("Norwegian")},
};

}  // namespace

extern "C" const platform_strings platform_string_table = {kStrings, std::size(kStrings)};
