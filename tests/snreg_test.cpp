#include "reg_file.h"
#include "tests/support/machine.h"

namespace {

using namespace std::string_literals;
using Bytes = std::vector<BYTE>;

const std::string kStart = "Windows Registry Editor Version 5.00\r\n\r\n";
const std::string kKeyLine = "[HKEY_LOCAL_MACHINE\\Software\\Test]\r\n";

// The line of a file's error; 0 when it has none.
std::size_t ErrorLine(const std::string& bytes) {
    try {
        ParseRegFile(bytes);
        return 0;
    } catch (const RegFileError& error) {
        EXPECT_FALSE(error.what.empty());
        return error.line;
    }
}

std::string Utf16File(const std::string& text) {
    return RegFileBytes(Utf8ToWide(text));
}

TEST(RegFile, ReadsKeysValuesAndDeletionsInEveryEncoding) {
    const std::string text =
        kStart +
        "; a comment\r\n"
        "[hkey_local_machine\\Software\\A[1]\\]  ; the last bracket ends it\r\n"
        "@=\"default\"\r\n"
        "  \"n\\\\a\\\"me\" = dword:0000002A ; answer\r\n"
        "\"gone\"=-\r\n"
        "\r\n"
        "[-HKEY_CURRENT_USER\\Software\\Größe]\r\n";
    std::string withLf = text;
    std::erase(withLf, '\r');
    for (const std::string& file :
         {text, withLf, "\xEF\xBB\xBF" + text, Utf16File(text), Utf16File(withLf)}) {
        const auto operations = ParseRegFile(file);
        ASSERT_EQ(operations.size(), 5u);
        EXPECT_EQ(operations[0].action, RegAction::kOpenKey);
        EXPECT_EQ(operations[0].key.root, HKEY_LOCAL_MACHINE);
        EXPECT_EQ(operations[0].key.path, TEXT("Software\\A[1]"));
        EXPECT_EQ(operations[1].value.name, TEXT(""));
        EXPECT_EQ(operations[1].value.data.size(), 16u);
        EXPECT_EQ(operations[2].value.name, TEXT("n\\a\"me"));
        EXPECT_EQ(operations[2].value.type, static_cast<DWORD>(REG_DWORD));
        EXPECT_EQ(operations[2].value.data, (Bytes{0x2A, 0, 0, 0}));
        EXPECT_EQ(operations[3].action, RegAction::kDeleteValue);
        EXPECT_EQ(operations[4].action, RegAction::kDeleteKey);
        EXPECT_EQ(operations[4].key.full, TEXT("HKEY_CURRENT_USER\\Software\\Größe"));
    }
}

TEST(RegFile, NamesTheLineOfAnError) {
    EXPECT_EQ(ErrorLine(""), 1u);
    EXPECT_EQ(ErrorLine("REGEDIT4\r\n"), 1u);
    EXPECT_EQ(ErrorLine("Windows Registry Editor Version 5.001\r\n"), 1u);
    EXPECT_EQ(ErrorLine(kStart + "@=\"value without key\""), 3u);
    EXPECT_EQ(ErrorLine(kStart + "[-HKEY_LOCAL_MACHINE\\x]\n\n@=\"deleted key\""), 5u);
    for (const std::string& line :
         {"[HKEY_LOCAL_MACHINE\\x"s, "[HKLM\\x]"s, "[HKEY_LOCAL_MACHINE\\a\\\\b]"s,
          "[-HKEY_LOCAL_MACHINE]"s, "[HKEY_LOCAL_MACHINE\\x] y"s,
          "[HKEY_LOCAL_MACHINE\\" + std::string(256, 'x') + "]", "\"v=\"x\""s, "\"v\"=x"s,
          "\"v\"=\"x\\"s, "\"v\"=\"x\" y"s, "\"v\"=dword:123456789"s, "\"v\"=hex:100"s,
          "\"v\"=hex:1,,2"s, "\"v\"=hex(3:1"s, "\"v\"=hex:1,\\"s, "\"\xFF\"=dword:1"s,
          "\"\0\"=dword:1"s, "\"" + std::string(16384, 'n') + "\"=-", "junk"s}) {
        EXPECT_EQ(ErrorLine(kStart + kKeyLine + line), 4u) << line;
        EXPECT_EQ(ErrorLine(kStart + "\n[HKEY_USERS\\1]\n" + line + "\n@=-\n"),
                  line == "\"v\"=hex:1,\\" ? 6u : 5u)
            << line;
    }
    EXPECT_EQ(ErrorLine(Utf16File(kStart) + "\n"), 1u) << "half a character";
}

class Snreg : public MachineTest {
  protected:
    // Runs the tool and gives what it printed.
    static std::string Run(const std::vector<std::string>& arguments, int exitCode = 0) {
        const ProcessResult result = RunProgram("snreg", arguments);
        EXPECT_EQ(result.exitCode, exitCode) << result.output << result.errors;
        return exitCode == 0 ? result.output : result.errors;
    }
    const std::string done_ = "The operation completed successfully.\n";
    const std::string missing_ =
        "ERROR: The system was unable to find the specified registry key or value.\n";
};

TEST_F(Snreg, ImportsAllOrNothingAndExportsWhatItImported) {
    const std::string file = (ScratchFolder() / "in.reg").string();
    const std::string copy = (ScratchFolder() / "out.reg").string();
    const std::string text = kStart +
                             "[HKEY_CURRENT_USER\\Software\\Test]\r\n"
                             "\"b\"=\"second, made first\"\r\n"
                             "\"a\"=dword:00000001\r\n\r\n"
                             "[HKEY_CURRENT_USER\\Software\\Test\\Sub]\r\n"
                             "@=hex(2):25,00,78,00,00,00\r\n"
                             "\"\\\\\\\"; =[x]\"=hex:01,ff\r\n"
                             "\"short\"=hex(4):01\r\n\"open\"=hex(1):61,00\r\n\r\n";
    WriteWholeFile(file, text + "\"broken\r\n");
    const std::string refusal = Run({"import", file}, 1);
    EXPECT_NE(refusal.find("line 13: "), std::string::npos) << refusal;
    EXPECT_EQ(Run({"query", "HKCU\\Software\\Test"}, 1), missing_);

    WriteWholeFile(file, text);
    EXPECT_EQ(Run({"import", file}), done_);
    EXPECT_EQ(Run({"export", "HKCU\\Software\\Test", copy}), done_);
    EXPECT_EQ(ReadWholeFile(copy), Utf16File(text));
    EXPECT_EQ(Run({"export", "HKCU\\Software\\Test\\Sub", copy}, 1),
              "ERROR: The file exists: give /y to go on.\n");
    EXPECT_EQ(ReadWholeFile(copy), Utf16File(text));
    EXPECT_EQ(Run({"add", "HKCU\\Software\\Test", "/v", "B", "/d", "x"}, 1),
              "ERROR: The value exists: give /f to go on.\n");

    WriteWholeFile(file, kStart +
                             "[HKEY_CURRENT_USER\\Software\\Test]\n\"a\"=-\n\"never\"=-\n"
                             "[-HKEY_CURRENT_USER\\Software\\Test\\Sub]\n"
                             "[-HKEY_CURRENT_USER\\Software\\Never]\n");
    EXPECT_EQ(Run({"import", file}), done_);
    EXPECT_EQ(Run({"query", "HKCU\\Software\\Test", "/s"}),
              "\nHKEY_CURRENT_USER\\Software\\Test\n    b    REG_SZ    second, made first\n\n");
}

}  // namespace
