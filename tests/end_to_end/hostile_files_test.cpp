// Files that no backup wrote, given to a restore: each ends with the documented code, and nothing
// but what the file rightly holds is changed.
#include <atomic>
#include <map>
#include <thread>

#include "tests/end_to_end/client_machine.h"

namespace {

namespace fs = std::filesystem;

constexpr int kRefused = 5;

const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>";

std::string Root(const std::string& content) {
    return "<sentrel_configuration>" + content + "</sentrel_configuration>";
}
std::string Settings(const std::string& profile) {
    return "<av><value name=\"profile\" type=\"1\" data=\"" + profile + "\" /></av>";
}
const std::string kSettings = Settings("from the file");
const std::string kWhole = kDeclaration + Root(kSettings);

std::string Utf16(const std::string& text, bool isLittleEndian) {
    std::string wide = isLittleEndian ? "\xFF\xFE" : "\xFE\xFF";
    for (const char c : text) wide += isLittleEndian ? std::string{c, '\0'} : std::string{'\0', c};
    return wide;
}

class HostileFileTest : public ClientMachine {
  protected:
    int RestoreOf(const fs::path& file, std::size_t mostMemory = SIZE_MAX) {
        const ProcessResult result =
            Tool({"-o", "import", "-m", "av", "-f", file.string(), "-p", kPassword});
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.signal, 0);
        EXPECT_LT(result.peakMemory, mostMemory);
        return result.exitCode;
    }
};

// What is odd but readable is read; a root that is no configuration holds nothing.
TEST_F(HostileFileTest, ContentCountsForWhatItIs) {
    std::string attributes;
    std::string nested;
    for (int i = 0; i < 3'000; ++i) attributes += " a" + std::to_string(i) + "=\"1\"";
    for (int i = 0; i < 100'000; ++i) nested += "<e>";
    const struct {
        const char* name;
        std::string bytes;
        int exitCode;
        std::string profile;
    } files[] = {
        {"nothing", "", kRefused, "strict"},
        {"nested too deep", kDeclaration + Root(nested), kRefused, "strict"},
        {"thousands of attributes", kDeclaration + Root("<e" + attributes + " />" + kSettings), 0,
         "from the file"},
        {"a document type", kDeclaration + "<!DOCTYPE x><?xml-go on?>" + Root(kSettings), 0,
         "from the file"},
        {"UTF-16, little end first", Utf16(kWhole, true), kRefused, "strict"},
        {"UTF-16, big end first", Utf16(kWhole, false), kRefused, "strict"},
        {"a byte order mark: no plain file", "\xEF\xBB\xBF" + kWhole, kRefused, "strict"},
        {"cut off", kWhole.substr(0, kWhole.size() / 2), kRefused, "strict"},
        {"random bytes", std::string(100, '\xA7'), kRefused, "strict"},
        {"only the marker", "Enc ", kRefused, "strict"},
        {"another root", kDeclaration + "<other>" + kSettings + "</other>", 0, "strict"},
        {"a declaration alone", kDeclaration, 0, "strict"},
        {"no root behind the declaration", kDeclaration + "<!-- nothing -->", 0, "strict"},
        {"two roots", kDeclaration + Root("") + Root(kSettings), 0, "strict"},
        {"a megabyte in one attribute",
         kDeclaration + Root("<e a=\"" + std::string(1 << 20, 'x') + "\" />" + kSettings), 0,
         "from the file"},
        {"entities", kDeclaration + Root(Settings("&lt;&#x41;&#66;&amp;&#169;&unknown;")), 0,
         "<AB&\u00A9&unknown;"},
        {"a policy's name in another code page",
         kDeclaration + "<sentrel_configuration policy=\"Universit\xE4t\">" + Settings("&#8364;") +
             "</sentrel_configuration>",
         0, "\u20AC"},
    };
    for (const auto& [name, bytes, exitCode, profile] : files) {
        SetProfile("strict");
        WriteWholeFile(file_, bytes);
        EXPECT_EQ(RestoreOf(file_), exitCode) << name;
        EXPECT_EQ(Profile(), profile) << name;
    }
}

TEST_F(HostileFileTest, ALargeFileNeedsMemoryInProportion) {
    constexpr std::size_t kSize = std::size_t{256} << 20;
    WriteWholeFile(file_,
                   kDeclaration + Root("<e>" + std::string(kSize, 'x') + "</e>" + kSettings));
    EXPECT_EQ(RestoreOf(file_, 6 * kSize), 0);
    EXPECT_EQ(Profile(), "from the file");
}

TEST_F(HostileFileTest, WhatIsNoFileIsRefused) {
    EXPECT_EQ(RestoreOf(ScratchFolder()), kRefused) << "a folder";
    EXPECT_EQ(RestoreOf(file_), kRefused) << "missing";
    SKIP_WITHOUT(kSymbolicLinks);
    EXPECT_EQ(RestoreOf("/dev/null"), kRefused) << "a device";
    fs::create_symlink(file_, ScratchFolder() / "link");
    EXPECT_EQ(RestoreOf(ScratchFolder() / "link"), kRefused) << "a link to nothing";
    WriteWholeFile(file_, kWhole);
    EXPECT_EQ(RestoreOf(ScratchFolder() / "link"), 0) << "a link to a file";
    EXPECT_EQ(Profile(), "from the file");
    EXPECT_TRUE(fs::is_symlink(ScratchFolder() / "link"));
}

// Whatever the restore meets of a file that grows, shrinks and vanishes, it works on one copy.
TEST_F(HostileFileTest, AFileThatChangesIsReadAsItOnceWas) {
    std::atomic<bool> isOver = false;
    std::thread writer([&] {
        for (std::size_t i = 0; !isOver; ++i) {
            WriteWholeFile(file_, kWhole.substr(0, kWhole.size() / 2));
            std::this_thread::sleep_for(std::chrono::milliseconds(3));
            WriteWholeFile(file_, kWhole + std::string(i % 3 * 70'000, '\n'));
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            std::error_code ignored;
            if (i % 5 == 0) fs::remove(file_, ignored);
        }
    });
    std::map<int, int> ends;
    while (ends[0] < 5 || ends[kRefused] < 5) {
        SetProfile("strict");
        const int code = RestoreOf(file_);
        EXPECT_EQ(Profile(), code == 0 ? "from the file" : "strict");
        if (++ends[code] == 100) break;
    }
    isOver = true;
    writer.join();
    EXPECT_GT(ends[0], 0);
    EXPECT_GT(ends[kRefused], 0);
    EXPECT_EQ(ends.size(), 2U);
}

}  // namespace
