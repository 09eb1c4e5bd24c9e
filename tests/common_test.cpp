// Text conversions, hexadecimal text, formatting, passwords that are read, and XML files.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <thread>

#include "common/arguments.h"
#include "common/format.h"
#include "common/hex.h"
#include "common/password_input.h"
#include "common/xml_file.h"
#include "tests/support/machine.h"
#include "tests/support/memory_scan.h"
#include "tests/support/secrets.h"
#include "tests/support/wide.h"

namespace {

TEST(Text, ConvertsUpToTheFirstTerminator) {
    using namespace std::string_literals;
    EXPECT_EQ(Utf8ToWide("Grüße 🔒"), TEXT("Grüße 🔒"));
    EXPECT_EQ(WideToUtf8(TEXT("Grüße 🔒")), "Grüße 🔒");
    EXPECT_EQ(Utf8ToWide("ab\0cd"s), TEXT("ab"));
    EXPECT_EQ(WideToUtf8(WString{'a', 0, 'b'}), "a");
    const std::pair<const char*, const WCHAR*> damaged[] = {
        {"x\xFFy", TEXT("x\uFFFDy")},
        {"a\xC0\x80z", TEXT("a\uFFFD\uFFFDz")},              // overlong
        {"a\xE2\x82z", TEXT("a\uFFFDz")},                    // cut short
        {"a\xED\xA0\x80z", TEXT("a\uFFFD\uFFFDz")},          // a surrogate
        {"a\xF4\x90\x80\x80", TEXT("a\uFFFD\uFFFD\uFFFD")},  // beyond the last character
    };
    for (const auto& [bytes, text] : damaged) EXPECT_EQ(Utf8ToWide(bytes), text) << bytes;
    EXPECT_EQ(WideToUtf8(WString{0xD800, 'x', 0xDC00}), "\xEF\xBF\xBDx\xEF\xBF\xBD");
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

TEST(Arguments, AreUtf8WithoutLossOrRefused) {
    WString words[] = {TEXT("program"), TEXT(""), TEXT("Zürich \uFFFD 🔒"), {'x', 0xDCE9}};
    WCHAR* const argv[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data()};
    const std::vector<std::string> expected = {"", "Zürich \xEF\xBF\xBD 🔒"};
    EXPECT_EQ(ReadArguments(3, argv).words, expected);
    EXPECT_EQ(ReadArguments(4, argv).fault, TEXT("argument 3 is not valid Unicode text"));
    EXPECT_EQ(ReadArguments(4, argv).words.size(), 0U);
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

TEST(SecureText, IsWipedWhereverItWas) {
    const HiddenPattern pattern = PartOf(MadeSecret(1));
    SecureText text = MadeSecret(1);
    EXPECT_TRUE(pattern.StandsInMemory());
    const SecureText moved = std::move(text);
    text = moved.c_str();
    text = TEXT("another");
    EXPECT_TRUE(pattern.StandsInMemory());
    text = SecureText();
    const_cast<SecureText&>(moved) = TEXT("");
    EXPECT_FALSE(pattern.StandsInMemory());
}

TEST(SecureText, LiesInLockedMemory) {
    SKIP_WITHOUT(kLockedMemory);
    const SecureBytes large(100'000);
    EXPECT_TRUE(IsLocked(&large.back()));
    const void* text = nullptr;
    {
        const SecureText small(TEXT("secret"));
        text = small.c_str();
        EXPECT_TRUE(IsLocked(text));
    }
    EXPECT_FALSE(IsLocked(text)) << "the last one has gone";
}

// Of any size, beside each other, from several threads, and given back in any order.
TEST(SecureText, SecretsDoNotShareMemory) {
    const auto work = [](BYTE mark) {
        std::minstd_rand random(mark);
        std::vector<SecureBytes> held(100);
        for (int i = 0; i < 20'000; ++i) {
            SecureBytes& bytes = held[random() % held.size()];
            EXPECT_EQ(std::ranges::count(bytes, mark), std::ssize(bytes));
            bytes = SecureBytes(random() % (i % 100 == 0 ? 10'000 : 700), mark);
        }
    };
    std::thread other(work, BYTE{1});
    work(2);
    other.join();
}

class PasswordInput : public MachineTest {
  protected:
    // The password, or what is wrong in angle brackets.
    static std::string Shown(const PasswordResult& result) {
        return result.password ? WideToUtf8(result.password->c_str())
                               : "<" + WideToUtf8(result.fault) + ">";
    }
    std::string FromFile(const std::string& bytes) const {
        WriteWholeFile(ScratchFolder() / "password", bytes);
        return Shown(PasswordFromFile(Wide(ScratchFolder() / "password")));
    }
};

TEST_F(PasswordInput, IsTheFirstLineOfAFileInUtf8) {
    using namespace std::string_literals;
    for (const char* bytes :
         {"Öffne dich\nmore", "Öffne dich\r\n", "Öffne dich", "\xEF\xBB\xBFÖffne dich\n"}) {
        EXPECT_EQ(FromFile(bytes), "Öffne dich") << bytes;
    }
    EXPECT_EQ(FromFile(std::string(4'095, 'x')), std::string(4'095, 'x'));
    for (const std::string& bytes : {std::string(4'096, 'x'), std::string(4'095, 'x') + '\n'}) {
        EXPECT_EQ(FromFile(bytes), "<the password is too long>");
    }
    for (const char* bytes : {"\n", "\xEF\xBB\xBF\r\n", ""}) {
        EXPECT_EQ(FromFile(bytes), "<the password is empty>") << bytes;
    }
    for (const std::string& bytes : {"\xD6x\n"s, "\xFF\xFEo\0"s}) {
        EXPECT_EQ(FromFile(bytes), "<the password is not in UTF-8>") << bytes;
    }
    EXPECT_EQ(FromFile("o\0f\n"s), "<the password holds a NUL>");

    const auto missing = ScratchFolder() / TEXT("no \u0142");
    EXPECT_EQ(Shown(PasswordFromFile(Wide(missing))),
              "<cannot read " + WideToUtf8(Wide(missing)) + " (error 2)>");
}

TEST_F(PasswordInput, TakesALineOfItsOwnFromStandardInput) {
    if (Role() == "reader") {
        for (int i = 0; i < 4; ++i) Say(Shown(PasswordFromStandardInput()));
        Say(Shown(PasswordFromConsole(TEXT("?"))));
        return;
    }
    ProcessOptions options;
    options.input = ScratchFolder() / "input";
    WriteWholeFile(options.input, "one\r\n\ntwo \nthree");
    const ProcessResult result = RunRole("reader", options);
    EXPECT_NE(result.output.find("one\n<the password is empty>\ntwo \nthree\n"
                                 "<there is no terminal to ask on>\n"),
              std::string::npos)
        << result.output;
}

class XmlFile : public MachineTest {
  protected:
    const std::filesystem::path path_ = ScratchFolder() / "file.xml";

    // What a file with this content holds after one load and save; "refused" when it does not load.
    std::string RoundTrip(const std::string& content) {
        WriteWholeFile(path_, content);
        TiXmlDocument document;
        if (!LoadXmlFile(Wide(path_), document)) return "refused";
        EXPECT_TRUE(SaveXmlFile(Wide(path_), document));
        return ReadWholeFile(path_);
    }
    // The same with TinyXML's own functions.
    std::string Reference(const std::string& content) {
        WriteWholeFile(path_, content);
        TiXmlDocument document;
        if (!document.LoadFile(path_.string())) return "refused";
        EXPECT_TRUE(document.SaveFile(path_.string()));
        return ReadWholeFile(path_);
    }

    static std::string Nested(int depth) {
        std::string text;
        for (int i = 0; i < depth; ++i) text += "<e>";
        for (int i = 0; i < depth; ++i) text += "</e>";
        return text;
    }
};

TEST_F(XmlFile, IsReadAndLaidOutAsTinyXmlDoesIt) {
    std::string attributes;
    for (int i = 0; i < 3000; ++i) attributes += " a" + std::to_string(i) + "='1'";
    const std::string utf8 = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>";
    const std::string documents[] = {
        "<r>\n <a>  two  blanks\r\n</a><b>   </b>one\rtwo<c/>mixed\n\nlines</r>",
        "<r a='&quot;' b=bare c = \"'\"><![CDATA[ <x> & ]]>&#x41;&#65;&lt;&amp;#x41;</r>",
        "<!DOCTYPE r [<!ENTITY e 'x'>]><r/>",
        "<!DOCTYPE r><?xml-stylesheet href='a>b'?><r><?go on?></r><?end?>",
        "<r/>junk behind the root " + Nested(600),
        "<r" + attributes + "/>",
        std::string("<r>a</r>\n\0<e>", 12),
        std::string("<r>a\0b</r>", 10),
        "\xEF\xBB\xBF<r>&#8364;</r>",
        utf8 + "<r><!-- <a> --><!--> -- > c -->&#8364;\u20AC &#160;&#0;</r>",
        utf8 + "<r a='\xF6' b='&#65;'>\xFCx \xE4xy</r>",
        "<?XML version='1.0' encoding='utf-8'?><r>&#228;</r>",
        "<?xml version='1.0' encoding='iso-8859-1'?><r>&#xE4;\xE4</r>",
        "<r>&#228;</r>",
        utf8 + "<r><\xEF\xBB\xBF/></r>",
        "<r></x></r>",
        "<r><a></r>",
        "<r a></r>",
        "<r a='1' a='2'/>",
        "<r a='<e>'><b c=\"/>\"/></r >",
        "<r>open",
        "<!-- open",
        "text",
        "",
        Nested(kMaxXmlDepth),
    };
    for (const std::string& document : documents) {
        const std::string reference = Reference(document);
        EXPECT_EQ(RoundTrip(document), reference) << document.substr(0, 100);
    }
}

TEST_F(XmlFile, KeepsWhatTinyXmlLoses) {
    const auto kept = [&](const std::string& content, const std::string& equivalent) {
        EXPECT_EQ(RoundTrip(content), Reference(equivalent)) << content;
    };
    kept("<r a='&b;&amp;'>R&D &lt;& &#; &#x; &#xG; &#12 <b>&</b>&</r>",
         "<r a='&amp;b;&amp;'>R&amp;D &lt;&amp; &amp;#; &amp;#x; &amp;#xG; &amp;#12 "
         "<b>&amp;</b>&amp;</r>");
    kept("<r>&#x110000;&#99999999999;</r>", "<r>&amp;#x110000;&amp;#99999999999;</r>");
    // Bytes that are no UTF-8 hide nothing behind them and change nothing elsewhere.
    const std::string utf8 = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>";
    std::string expected = Reference(utf8 + "<r a=\"@\" b=\"\u20AC\">\u00E4@</r>");
    std::ranges::replace(expected, '@', '\xE4');
    EXPECT_EQ(RoundTrip(utf8 + "<r a=\"\xE4\" b=\"&#8364;\">&#xE4;\xE4</r>"), expected);
}

TEST_F(XmlFile, NestedTooDeepIsRefusedHoweverItIsHidden) {
    for (const char* disguise :
         {"", "<?xml version=\"><!-- \"?>", "<1 \">", "<!-->-->", "</x></x></x>", "<!\"'>",
          "<\xEF\xBB\xBF a='>'>", "\xEF\xBB\xBF"}) {
        EXPECT_EQ(RoundTrip(disguise + Nested(100'000)), "refused") << disguise;
    }
    EXPECT_EQ(RoundTrip("<r a='\"' b=\"'\" c=d\"e'/>" + Nested(600)), "refused");
    EXPECT_EQ(RoundTrip("<r>" + Nested(kMaxXmlDepth) + "</r>"), "refused");
}

TEST_F(XmlFile, IsNamedByItsWidePath) {
    TiXmlDocument document;
    document.Parse("<r a='1'/>");
    WriteWholeFile(path_, std::string(1000, 'x'));
    for (const WCHAR* name : {TEXT("\u0161 \u0142 \u0416 \u65E5\u672C.xml"), TEXT("file.xml")}) {
        const WString path = Wide(ScratchFolder() / name);
        EXPECT_TRUE(SaveXmlFile(path, document));
        EXPECT_TRUE(LoadXmlFile(path, document));
        EXPECT_EQ(ReadWholeFile(path).substr(0, 11), "<r a=\"1\" />") << "cut behind its end";
        EXPECT_LE(std::filesystem::file_size(path), 13U);
    }
    EXPECT_FALSE(LoadXmlFile(Wide(ScratchFolder()), document)) << "a folder";
}

TEST_F(XmlFile, IsNamedByAnyBytesButNotTooMany) {
    SKIP_WITHOUT(kBytesAsNames);
    TiXmlDocument document;
    document.Parse("<r a='1'/>");
    const auto folder = ScratchFolder() / std::string(250, 'f');
    std::filesystem::create_directory(folder);
    EXPECT_FALSE(SaveXmlFile(Wide(folder / "file.xml"), document)) << "more than 260 bytes";
    const WString anyBytes = Wide(ScratchFolder()) + WString{'/', 0xDCE9};
    EXPECT_TRUE(SaveXmlFile(anyBytes, document));
    EXPECT_TRUE(std::filesystem::exists(ScratchFolder() / "\xE9"));
}

}  // namespace
