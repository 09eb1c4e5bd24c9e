// An account in whose session the tool works, and which does its worst to the run's temporary files
// and to the file that the run writes.
#include <cstdlib>
#include <fstream>

#include "tests/end_to_end/client_machine.h"
#include "tests/support/accounts.h"
#include "tests/support/file_facts.h"

namespace {

namespace fs = std::filesystem;

class SessionUserTest : public ClientMachine {
  protected:
    static constexpr unsigned kUser = 54321;
    // Of runs under attack in one test; SENTREL_TEST_ATTACKS asks for more.
    static int Tries() {
        const char* const number = std::getenv("SENTREL_TEST_ATTACKS");
        return number == nullptr ? 4 : std::atoi(number);
    }
    static inline const std::string kForged =
        "<?xml version=\"1.0\"?><sentrel_configuration><av><value name=\"profile\" type=\"1\" "
        "data=\"forged\" /></av></sentrel_configuration>";

    // Plays the user until it is killed: overwrites, renames, links and replaces whatever of the
    // run's files it is told of, which is more than it could find by itself.
    [[noreturn]] void Attack() const {
        std::error_code ignored;
        for (int i = 0;; ++i) {
            fs::remove(destination_, ignored);
            fs::create_symlink(precious_, destination_, ignored);
            std::ifstream paths(paths_);
            for (std::string path; std::getline(paths, path);) {
                std::ofstream(own_ / "seen") << path;
                const fs::path aside = own_ / std::to_string(i);
                fs::create_hard_link(path, aside, ignored);
                fs::rename(path, aside, ignored);
                fs::remove(path, ignored);
                fs::create_symlink(precious_, path, ignored);
                const fs::path folder = fs::path(path).parent_path();
                fs::rename(folder, folder.string() + "-", ignored);
                std::ofstream(path, std::ios::binary) << kForged;
                std::ofstream(aside, std::ios::binary) << kForged;
            }
        }
    }

    // Runs the tool beside the attack.
    template <typename Check>
    void RunUnderAttack(const std::vector<std::string>& arguments, Check check) {
        LogOn(EndpointFolder(), 7, std::to_string(kUser));
        fs::create_directory(own_);
        fs::permissions(own_, fs::perms::all);
        WriteWholeFile(precious_, "precious");
        fs::permissions(precious_, fs::perms(0600));
        BackgroundProcess user = StartRole("user", As(kUser));
        for (int i = 0; i < Tries(); ++i) {
            BackgroundProcess tool("SNConfig", arguments);
            while (tool.IsRunning()) TellOfFiles();
            check();
            EXPECT_EQ(ReadWholeFile(precious_), "precious");
            EXPECT_EQ(OwnerOf(precious_), 0U);
            EXPECT_TRUE(OnlyOwnerMayUse(precious_));
            EXPECT_TRUE(FilesInTemporaryFolder().empty());
        }
        user.Kill();
        EXPECT_TRUE(fs::exists(own_ / "seen")) << "nothing was attacked";
    }

    const fs::path own_ = ScratchFolder() / "own";
    const fs::path destination_ = own_ / "backup.xml";

  private:
    void TellOfFiles() const {
        std::string text;
        std::error_code gone;
        for (fs::recursive_directory_iterator entry(TemporaryFolder(), gone), end;
             !gone && entry != end; entry.increment(gone)) {
            if (entry->is_regular_file(gone)) text += entry->path().string() + "\n";
        }
        WriteWholeFile(ScratchFolder() / "draft", text);
        fs::permissions(ScratchFolder() / "draft", fs::perms(0644), gone);
        fs::rename(ScratchFolder() / "draft", paths_, gone);
    }

    const fs::path paths_ = ScratchFolder() / "paths";
    const fs::path precious_ = ScratchFolder() / "precious";
};

TEST_F(SessionUserTest, GetsNothingOfItsOwnIntoARestore) {
    SKIP_UNLESS_ADMINISTRATOR();
    if (Role() == "user") Attack();
    ASSERT_EQ(Backup().exitCode, 0);
    fs::permissions(file_, fs::perms(0644));
    RunUnderAttack(BackupArguments({"-o", "import", "-i", "7"}),
                   [] { EXPECT_EQ(Profile(), "strict"); });
    SetProfile("lax");
    EXPECT_EQ(Restore({"-i", "7"}).exitCode, 0);
    EXPECT_EQ(Profile(), "strict");
}

TEST_F(SessionUserTest, GetsNothingOfOthersThroughABackup) {
    SKIP_UNLESS_ADMINISTRATOR();
    if (Role() == "user") Attack();
    file_ = destination_;
    RunUnderAttack(BackupArguments({"-u", "-i", "7"}), [] {});
    fs::remove(file_);
    EXPECT_EQ(Backup({"-u", "-i", "7"}).exitCode, 0);
    EXPECT_NE(BackupContent().find("<user_configuration"), std::string::npos);
    EXPECT_EQ(OwnerOf(file_), 0U) << "the user's rights had ended";
}

}  // namespace
