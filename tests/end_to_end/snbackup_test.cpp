// What snbackup says of a file, beside what a restore makes of it.
#include <windows.h>

#include "tests/end_to_end/client_machine.h"

namespace {

namespace fs = std::filesystem;

class BackupToolTest : public ClientMachine {
  protected:
    BackupToolTest() { WriteWholeFile(passwordFile_, std::string(kPassword) + "\n"); }

    int Run(std::vector<std::string> words) const {
        words.insert(words.end(), {"--password-file", passwordFile_.string()});
        const ProcessResult result = RunProgram("snbackup", words);
        EXPECT_EQ(result.signal, 0);
        return result.exitCode;
    }
    // Whether a restore of the bytes sets both modules back without an error line in the log.
    bool DoesRestore(const std::string& bytes) {
        fs::remove_all(LogFolder());
        WriteWholeFile(file_, bytes);
        SetProfile("lax");
        SetText(kOffice, "password", "Taube-8");
        return Restore({"-q"}).exitCode == 0 && Log().find(" ERROR ") == std::string::npos &&
               Profile() == "strict" && Text(kOffice, "password") == "Kranich-7";
    }

    const fs::path passwordFile_ = ScratchFolder() / "password.txt";
    const std::vector<std::string> modules_ = {"-q", "-m", "av vpn"};
};

TEST_F(BackupToolTest, WhatIsGoodRestoresAndWhatIsNotDoesNot) {
    ASSERT_EQ(Backup(modules_).exitCode, 0);
    const std::string whole = BackupContent();
    const auto agrees = [&](const std::string& what, const std::string& bytes) {
        const bool restores = DoesRestore(bytes);
        WriteWholeFile(file_, bytes);
        EXPECT_EQ(Run({"verify", file_.string()}) == 0, restores) << what;
        return restores;
    };
    EXPECT_TRUE(agrees("whole", whole));
    // One digit of each encrypted text, at its start, in its middle and at its end.
    int changed = 0;
    for (const char* start : {"authentication=\"", "EncX "}) {
        const std::size_t from = whole.find(start) + std::string(start).size();
        const std::size_t to = whole.find('"', from);
        for (const std::size_t at : {from, from + 20, (from + to) / 2, to - 1}) {
            std::string bytes = whole;
            bytes[at] = bytes[at] == '0' ? '1' : '0';
            EXPECT_FALSE(agrees("digit " + std::to_string(at), bytes));
            ++changed;
        }
    }
    EXPECT_EQ(changed, 8);
    const std::size_t end = whole.rfind("</sentrel_configuration>");
    for (std::size_t size = 0; size < end; size += whole.size() / 12) {
        EXPECT_FALSE(agrees("cut to " + std::to_string(size), whole.substr(0, size)));
    }
    EXPECT_FALSE(agrees("cut in the last tag", whole.substr(0, end + 10)));
}

TEST_F(BackupToolTest, AnInterruptedOrRefusedRekeyLeavesTheFileAlone) {
    ASSERT_EQ(Backup(modules_).exitCode, 0);
    const std::string before = BackupContent();
    const fs::path draft = file_.string() + ".snbackup-draft";
    const std::vector<std::string> rekey = {"rekey", file_.string(), "--new-password-file",
                                            (ScratchFolder() / "new.txt").string()};
    WriteWholeFile(ScratchFolder() / "new.txt", "another one\n");
    // A folder of the draft's name cannot be replaced.
    fs::create_directory(draft);
    EXPECT_EQ(Run(rekey), 5);
    EXPECT_EQ(BackupContent(), before);
    fs::remove(draft);
    // What a killed run left can be.
    WriteWholeFile(draft, "a draft");
    EXPECT_EQ(Run(rekey), 0);
    EXPECT_FALSE(fs::exists(draft));
    EXPECT_NE(BackupContent(), before);
    EXPECT_EQ(Run({"verify", file_.string()}), 3);
}

}  // namespace
