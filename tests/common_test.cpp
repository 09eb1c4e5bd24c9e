// Text conversions, hexadecimal text, formatting, and XML files that come back as they were.
#include <gtest/gtest.h>

#include "common/format.h"
#include "common/hex.h"
#include "common/secure_text.h"
#include "common/xml_file.h"
#include "tests/support/machine.h"

namespace {

TEST(Text, ConvertsUpToTheFirstTerminator) {
    using namespace std::string_literals;
    EXPECT_EQ(Utf8ToWide("Grüße 🔒"), TEXT("Grüße 🔒"));
    EXPECT_EQ(WideToUtf8(TEXT("Grüße 🔒")), "Grüße 🔒");
    EXPECT_EQ(Utf8ToWide("ab\0cd"s), TEXT("ab"));
    EXPECT_EQ(WideToUtf8(WString{'a', 0, 'b'}), "a");
    EXPECT_EQ(Utf8ToWide("x\xFFy"), TEXT("x\uFFFDy"));
    EXPECT_EQ(WideToUtf8({}), "");
}

TEST(Text, CutsAnAnsiBufferBetweenCharacters) {
    // Neither half a character of several bytes nor half a surrogate pair is left at the end. How
    // many bytes they have, the code page says.
    for (std::size_t capacity = 1; capacity < 12; ++capacity) {
        std::string whole;
        for (const WCHAR* character : {TEXT("a"), TEXT("ü"), TEXT("🔒"), TEXT("b")}) {
            if (whole.size() + WideToAnsi(character).size() >= capacity) break;
            whole += WideToAnsi(character);
        }
        EXPECT_EQ(WideToAnsi(TEXT("aü🔒b"), capacity), whole);
    }
}

TEST(Text, OrdersNamesByTheirUpperCase) {
    EXPECT_TRUE(LessIgnoringCase()(TEXT("ÄHREN"), TEXT("ähre_")));
    EXPECT_FALSE(LessIgnoringCase()(TEXT("ähren"), TEXT("ÄHREN")));
}

TEST(Text, ReadsTheLeadingNumber) {
    EXPECT_EQ(LeadingNumber(TEXT(" \t-7abc")), -7);
    EXPECT_EQ(LeadingNumber(TEXT("abc")), 0);
    EXPECT_EQ(LeadingNumber(TEXT("99999999999")), 2147483647);
    EXPECT_EQ(LeadingNumber(TEXT("-99999999999")), -2147483647 - 1);
}

TEST(Hex, ReadsPairsAsStrtolDoes) {
    const BYTE bytes[] = {0x00, 0xAB, 0x0F};
    EXPECT_EQ(BytesToHex(bytes, sizeof bytes), "00AB0F");

    const std::pair<const char*, std::vector<BYTE>> cases[] = {
        {"00ab0F", {0x00, 0xAB, 0x0F}}, {"ABC", {0xAB}}, {"1Gxx", {0x01, 0x00}},
        {" 7+8", {0x07, 0x08}},         {"", {}},        {"A", {}},
    };
    for (const auto& [text, expected] : cases) {
        std::vector<BYTE> decoded = {1, 2, 3};
        EXPECT_TRUE(HexToBytes(text, decoded));
        EXPECT_EQ(decoded, expected) << text;
    }
}

TEST(Format, FollowsWindowsConversions) {
    const WString wide = TEXT("weit");
    EXPECT_EQ(FormatWide(TEXT("%s|%S|%ws|%hs|%c"), wide.c_str(), "schmal", wide.c_str(), "h", 'x'),
              TEXT("weit|schmal|weit|h|x"));
    EXPECT_EQ(FormatWide(TEXT("[%5u,%5u] %04d/%02d %-4d| %02x %lu %I64d %%"), 7u, 123456u, 2026, 3,
                         5, 10u, 4294967295u, -5LL),
              TEXT("[    7,123456] 2026/03 5   | 0a 4294967295 -5 %"));
    EXPECT_EQ(FormatWide(TEXT("%6s|%-6s|%.2s|%*s"), wide.c_str(), wide.c_str(), wide.c_str(), 5,
                         wide.c_str()),
              TEXT("  weit|weit  |we| weit"));
    EXPECT_EQ(FormatWide(TEXT("%s"), static_cast<const WCHAR*>(nullptr)), TEXT("(null)"));
    EXPECT_EQ(FormatWide(TEXT("%6.2f %g %s"), 2.5, 0.25, wide.c_str()),
              TEXT("  2.50 0.25 ") + wide);
    EXPECT_EQ(FormatWide(TEXT("end %")), TEXT("end "));
    const WString huge(100'000, WCHAR{'x'});
    EXPECT_EQ(FormatWide(TEXT("%s"), huge.c_str()).size(), huge.size());
}

TEST(SecureText, KeepsNothingInsideTheObject) {
    const SecureText text(TEXT("hidden"));
    const auto place = reinterpret_cast<std::uintptr_t>(&text);
    EXPECT_GE(reinterpret_cast<std::uintptr_t>(text.c_str()) - place, sizeof text);
}

class XmlFile : public MachineTest {
  protected:
    std::string path_ = (ScratchFolder() / "file.xml").string();

    // What a file with this content holds after one load and save; "refused" when it does not load.
    std::string RoundTrip(const std::string& content) {
        WriteWholeFile(path_, content);
        TiXmlDocument document;
        if (!LoadXmlFile(path_, document)) return "refused";
        EXPECT_TRUE(SaveXmlFile(path_, document));
        return ReadWholeFile(path_);
    }

    static std::string Nested(int depth) {
        std::string text;
        for (int i = 0; i < depth; ++i) text += "<e>";
        for (int i = 0; i < depth; ++i) text += "</e>";
        return text;
    }
};

TEST_F(XmlFile, KeepsEveryText) {
    const char* const kept[] = {
        "<r>\n    <a>  two blanks, one behind </a>\n</r>\n",
        "<r>\n    <a>one&#x0A;two&#x0D;&#x09;three</a>\n</r>\n",
        "<r>\n    <a><![CDATA[ <x> & ]]></a>\n</r>\n",
        "<r>\n    <a>before<b />between <c>in</c> behind</a>\n</r>\n",
        "<r>\n    <a>before<![CDATA[<raw>]]>behind</a>\n</r>\n",
        "<r>\n    <a v='&#x0A;&amp;#x41;&quot;&apos;'>&amp;#x41; &amp;amp; &lt;</a>\n</r>\n",
        "<r>\n    <a><![CDATA[\n]]></a>\n    <a>&#x0D;&#x0A;</a>\n    <a>&#x01;</a>\n</r>\n",
        "<r>\n    <a><![CDATA[\xEF\xBB\xBF]]></a>\n    <?go on?>\n</r>\n",
        "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<!--> c -->\n<r>ü🔒</r>\n",
    };
    for (const char* content : kept) EXPECT_EQ(RoundTrip(content), content);
}

TEST_F(XmlFile, NormalisesOnlyWhatXmlSaysIsTheSame) {
    EXPECT_EQ(RoundTrip("<r>one\r\ntwo\rthree\nfour</r>"),
              "<r>one&#x0A;two&#x0A;three&#x0A;four</r>\n");
    EXPECT_EQ(RoundTrip("<r><a>  </a></r>"), "<r>\n    <a><![CDATA[  ]]></a>\n</r>\n");
    EXPECT_EQ(RoundTrip("<r><a>\n</a></r>"), "<r>\n    <a />\n</r>\n");
    EXPECT_EQ(RoundTrip("<r a='\xE4'/>"), "<r a=\"\xE4\" />\n") << "bytes that are no UTF-8";
    EXPECT_EQ(RoundTrip("<r a='&b;&amp;'>R&D &lt;&</r>"),
              "<r a=\"&amp;b;&amp;\">R&amp;D &lt;&amp;</r>\n");
    EXPECT_EQ(RoundTrip("<r a='&#0;&#xD800;&#xE4;&#x110000;'>&#x20;</r>"),
              "<r a=\"&amp;#0;&amp;#xD800;ä&amp;#x110000;\"><![CDATA[ ]]></r>\n");
    EXPECT_EQ(RoundTrip("<?xml version='1.0' encoding='iso-8859-1'?><r>&#xE4;&#x100;</r>"),
              "<?xml version=\"1.0\" encoding=\"iso-8859-1\" ?>\n<r>\xE4&amp;#x100;</r>\n");
    EXPECT_EQ(RoundTrip("<r />\n<!-- c -->\nbehind the root<r>"), "<r />\n<!-- c -->\n");
    EXPECT_EQ(RoundTrip("\xEF\xBB\xBF<r a='1'/>"), "<r a=\"1\" />\n");
    EXPECT_EQ(RoundTrip("<r><!-- <a> </a> --><a b='>'> </a></r>"),
              "<r>\n    <!-- <a> </a> -->\n    <a b=\"&gt;\"><![CDATA[ ]]></a>\n</r>\n");
}

TEST_F(XmlFile, RefusesWhatItCannotHold) {
    EXPECT_EQ(RoundTrip(std::string("<r>a\0b</r>", 10)), "refused");
    EXPECT_EQ(RoundTrip("<r><a></r>"), "refused");
    EXPECT_EQ(RoundTrip(Nested(kMaxXmlDepth + 1)), "refused");
    for (const char* disguise : {"", "<?xml version=\"><!-- \"?>", "<1 \">", "</x></x></x>"}) {
        EXPECT_EQ(RoundTrip(disguise + Nested(100'000)), "refused") << disguise;
    }
    EXPECT_NE(RoundTrip(Nested(kMaxXmlDepth)), "refused");
    // What the parser would end elsewhere or read as something else.
    for (const char* start : {"<?xml version=\"1.0;?>", "<?xml a\"=\"b\"?>", "<?xml a=\"b>?>\"?>",
                              "<?xml a=' version'?>", "<!DOCTYPE r>", "<!--", "text",
                              "<![CDATA[]]>", "<\xEF\xBB\xBFr/>", "<r/><?xml a='b'?>"}) {
        EXPECT_EQ(RoundTrip(std::string(start) + "<r a='\"'/>"), "refused") << start;
    }
}

}  // namespace
