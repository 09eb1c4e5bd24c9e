// What snbackup says of a file, beside what a restore makes of it.
#include <windows.h>

#include <algorithm>

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

TEST_F(BackupToolTest, AFolderKeepsTheNewestBackupsOfThisHost) {
    const fs::path folder = ScratchFolder() / "backups";
    fs::create_directory(folder);
    const auto files = [&] {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder)) {
            names.push_back(entry.path().filename().string());
        }
        std::ranges::sort(names);
        return names;
    };
    ASSERT_EQ(Run({"create", folder.string(), "-m", "av"}), 0);
    ASSERT_EQ(files().size(), 1U);
    const std::string first = files()[0];
    ASSERT_GT(first.size(), 20U);
    const std::string host = first.substr(0, first.size() - 20);
    // Older ones of this host, and files that only look like it.
    const std::vector<std::string> others = {host + "-2020.xml", host + "-20200101-00000x.xml",
                                             "other-20200101-000000.xml"};
    for (const auto& name : others) WriteWholeFile(folder / name, "");
    WriteWholeFile(folder / (host + "-20200101-000000.xml"), "");
    WriteWholeFile(folder / (host + "-20200102-000000.xml"), "");
    // A name of the future does not push out what was just made.
    WriteWholeFile(folder / (host + "-20990101-000000.xml"), "");
    while (fs::exists(folder / first) && files().size() == 7) {
        ASSERT_EQ(Run({"create", folder.string(), "-m", "av", "--keep", "2"}), 0);
    }
    std::vector<std::string> left = files();
    std::erase_if(
        left, [&](const auto& name) { return std::ranges::find(others, name) != others.end(); });
    ASSERT_EQ(left.size(), 2U);
    EXPECT_NE(left[0].substr(host.size(), 5), "-2020");
    EXPECT_EQ(left[1], host + "-20990101-000000.xml");
}

TEST_F(BackupToolTest, AModuleThatFailsKeepsTheOldBackupAndIsRolledBack) {
    ASSERT_EQ(Run({"create", file_.string()}), 0);
    const std::string before = BackupContent();
    std::string changed = before;
    changed.replace(changed.find("strict"), 6, "lax");
    const fs::path changedFile = ScratchFolder() / "changed.xml";
    WriteWholeFile(changedFile, changed);
    // An installation that lacks a plug-in.
    const fs::path program = CopyOf(FileOfBuild("snbackup"));
    const fs::path plugin = FileOfBuild("cfmpam").filename();
    ASSERT_TRUE(fs::remove(program.parent_path() / plugin));
    const auto run = [&](std::vector<std::string> words) {
        words.insert(words.end(), {"--password-file", passwordFile_.string()});
        return RunProgram(program.string(), words);
    };
    const ProcessResult refused = run({"create", file_.string()});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.output.find("plug-in missing"), std::string::npos);
    EXPECT_EQ(BackupContent(), before);

    const ProcessResult failed = run({"restore", changedFile.string()});
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_NE(failed.output.find("to go back: snbackup restore "), std::string::npos);
    EXPECT_EQ(Profile(), "lax");
    SetProfile("strict");
    const ProcessResult back = run({"restore", changedFile.string(), "--rollback"});
    EXPECT_EQ(back.exitCode, 1);
    EXPECT_NE(back.errors.find("the machine is as it was before"), std::string::npos);
    EXPECT_EQ(Profile(), "strict");
}

}  // namespace
