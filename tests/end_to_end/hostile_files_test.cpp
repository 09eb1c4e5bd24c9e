// Files that no backup wrote, given to a restore: each ends with the documented code, and nothing
// but what the file rightly holds is changed.
#include <atomic>
#include <thread>

#include "tests/end_to_end/client_machine.h"

namespace {

namespace fs = std::filesystem;

constexpr int kRefused = 5;

const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>";
const std::string kSettings =
    "<av><value name=\"profile\" type=\"1\" data=\"from the file\" /></av>";

std::string Root(const std::string& content) {
    return "<sentrel_configuration>" + content + "</sentrel_configuration>";
}

std::string Utf16(const std::string& text, bool isLittleEndian) {
    std::string wide = isLittleEndian ? "\xFF\xFE" : "\xFE\xFF";
    for (const char c : text) wide += isLittleEndian ? std::string{c, '\0'} : std::string{'\0', c};
    return wide;
}

class HostileFileTest : public ClientMachine {
  protected:
    ~HostileFileTest() override { EXPECT_TRUE(FilesInTemporaryFolder().empty()); }

    int RestoreOf(const fs::path& file, std::size_t mostMemory = SIZE_MAX) {
        const ProcessResult result =
            Tool({"-o", "import", "-m", "av", "-f", file.string(), "-p", kPassword});
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.signal, 0);
        EXPECT_LT(result.peakMemory, mostMemory);
        return result.exitCode;
    }
    int RestoreOfBytes(const std::string& bytes) {
        WriteWholeFile(file_, bytes);
        return RestoreOf(file_);
    }
    static std::string Profile() { return Text("SA_AV", "profile"); }
};

TEST_F(HostileFileTest, ContentThatIsNoConfigurationIsRefused) {
    std::string attributes;
    std::string nested;
    for (int i = 0; i < 100'000; ++i) {
        attributes += " a" + std::to_string(i) + "=\"1\"";
        nested += "<e>";
    }
    const std::string whole = kDeclaration + Root(kSettings);
    const std::pair<const char*, std::string> files[] = {
        {"nothing", ""},
        {"nested too deep", kDeclaration + Root(nested)},
        {"a megabyte of attributes", kDeclaration + Root("<e" + attributes + " />")},
        {"UTF-16, little end first", Utf16(whole, true)},
        {"UTF-16, big end first", Utf16(whole, false)},
        {"cut off", whole.substr(0, whole.size() / 2)},
        {"random bytes", std::string(100, '\xA7')},
        {"only the marker", "Enc "},
    };
    for (const auto& [name, bytes] : files) {
        EXPECT_EQ(RestoreOfBytes(bytes), kRefused) << name;
        EXPECT_EQ(Profile(), "strict") << name;
    }
}

// What is odd but readable is read by XML's rules; a root that is no configuration holds nothing.
TEST_F(HostileFileTest, OddContentCountsForWhatItIs) {
    const std::string entities =
        "<av><value name=\"profile\" type=\"1\" data=\"&lt;&#x41;&#66;&amp;&#169;&unknown;\" "
        "/></av>";
    const struct {
        const char* name;
        std::string bytes;
        std::string profile;
    } files[] = {
        {"another root", kDeclaration + "<other>" + kSettings + "</other>", "strict"},
        {"a declaration alone", kDeclaration, "strict"},
        {"no root behind the declaration", kDeclaration + "<!-- nothing -->", "strict"},
        {"two roots", kDeclaration + Root("") + Root(kSettings), "strict"},
        {"a megabyte in one attribute",
         kDeclaration + Root("<e a=\"" + std::string(1 << 20, 'x') + "\" />" + kSettings),
         "from the file"},
        {"entities", kDeclaration + Root(entities), "<AB&\u00A9&unknown;"},
    };
    for (const auto& [name, bytes, profile] : files) {
        SetText("SA_AV", "profile", "strict");
        EXPECT_EQ(RestoreOfBytes(bytes), 0) << name;
        EXPECT_EQ(Profile(), profile) << name;
    }
    // A byte order mark makes the file no plain one: it is taken for a protected file.
    SetText("SA_AV", "profile", "strict");
    EXPECT_EQ(RestoreOfBytes("\xEF\xBB\xBF" + kDeclaration + Root(kSettings)), kRefused);
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
    WriteWholeFile(file_, kDeclaration + Root(kSettings));
    EXPECT_EQ(RestoreOf(ScratchFolder() / "link"), 0) << "a link to a file";
    EXPECT_EQ(Profile(), "from the file");
    EXPECT_TRUE(fs::is_symlink(ScratchFolder() / "link"));
}

// Whatever the restore meets of a file that grows, shrinks and vanishes, it works on one copy.
TEST_F(HostileFileTest, AFileThatChangesIsReadAsItOnceWas) {
    const std::string whole = kDeclaration + Root(kSettings);
    std::atomic<bool> isOver = false;
    std::thread writer([&] {
        for (int i = 0; !isOver; ++i) {
            WriteWholeFile(file_, whole.substr(0, whole.size() / 2));
            WriteWholeFile(file_,
                           whole + std::string(static_cast<std::size_t>(i % 3) * 70'000, '\n'));
            std::error_code ignored;
            if (i % 5 == 0) fs::remove(file_, ignored);
        }
    });
    for (int i = 0; i < 20; ++i) {
        SetText("SA_AV", "profile", "strict");
        const int code = RestoreOf(file_);
        EXPECT_EQ(Profile(), code == 0 ? "from the file" : "strict");
        EXPECT_TRUE(code == 0 || code == kRefused) << code;
    }
    isOver = true;
    writer.join();
}

}  // namespace
