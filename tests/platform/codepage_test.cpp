#include <gtest/gtest.h>
#include <windows.h>

#include <string>

namespace {

using Units = std::basic_string<WCHAR>;

Units Widen(const std::string& bytes, DWORD flags = 0) {
    WCHAR units[64] = {};
    const int count = MultiByteToWideChar(CP_UTF8, flags, bytes.data(),
                                          static_cast<int>(bytes.size()), units, 64);
    return {units, static_cast<std::size_t>(count)};
}

std::string Narrow(const Units& units, DWORD flags = 0) {
    char bytes[64] = {};
    const int count = WideCharToMultiByte(
        CP_UTF8, flags, units.data(), static_cast<int>(units.size()), bytes, 64, nullptr, nullptr);
    return {bytes, static_cast<std::size_t>(count)};
}

struct Case {
    const char* bytes;
    Units units;
};

}  // namespace

TEST(CodePage, ConvertsEveryLengthOfSequenceBothWays) {
    const Case cases[] = {
        {"A\x7F", {0x41, 0x7F}},
        {"\xC2\x80\xDF\xBF", {0x80, 0x7FF}},
        {"\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", {0x800, 0xD7FF, 0xE000, 0xFFFF}},
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", {0xD800, 0xDC00, 0xDBFF, 0xDFFF}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Widen(c.bytes, MB_ERR_INVALID_CHARS), c.units) << c.bytes;
        EXPECT_EQ(Narrow(c.units, WC_ERR_INVALID_CHARS), c.bytes);
    }
}

TEST(CodePage, InvalidSequencesAreReplacedOrRefused) {
    constexpr WCHAR kBad = 0xFFFD;
    const Case cases[] = {
        {"a\xFFz", {'a', kBad, 'z'}},
        {"a\x80\xBFz", {'a', kBad, kBad, 'z'}},                // nothing to continue
        {"a\xC0\x80z", {'a', kBad, kBad, 'z'}},                // overlong
        {"a\xE2\x82z", {'a', kBad, 'z'}},                      // cut short
        {"a\xF0\x9F\x98", {'a', kBad}},                        // cut short by the end
        {"a\xED\xA0\x80z", {'a', kBad, kBad, 'z'}},            // a surrogate
        {"a\xF4\x90\x80\x80z", {'a', kBad, kBad, kBad, 'z'}},  // beyond the last character
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Widen(c.bytes), c.units) << c.bytes;
        EXPECT_EQ(Widen(c.bytes, MB_ERR_INVALID_CHARS), Units());
        EXPECT_EQ(GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
    }
    for (const Units& units : {Units{0xD800, 'x'}, Units{0xDC00, 'x'}, Units{0xDC80, 'x'}}) {
        EXPECT_EQ(Narrow(units), "\xEF\xBF\xBDx");
        EXPECT_EQ(Narrow(units, WC_ERR_INVALID_CHARS), "");
        EXPECT_EQ(GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
    }
}
