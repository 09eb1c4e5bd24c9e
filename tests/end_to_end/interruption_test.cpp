// Runs that are ended from outside, at any moment: by Ctrl-C, the end of the session, or without a
// chance to tidy up.
#include <utilsdll.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <random>
#include <thread>

#include "tests/end_to_end/client_machine.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

class InterruptionTest : public ClientMachine {
  protected:
    static constexpr const char* kUnlockPassword = "open sesame";
    static constexpr int kKill = 9;  // SIGKILL, which Windows has no name for
    // Of runs that are ended in one test; SENTREL_TEST_KILLS asks for more.
    static int Kills() {
        const char* const number = std::getenv("SENTREL_TEST_KILLS");
        return number == nullptr ? 24 : std::atoi(number);
    }

    // Neither files nor folders of a run.
    std::size_t Leftovers() const {
        std::size_t count = 0;
        for (const auto& folder : fs::directory_iterator(TemporaryFolder())) {
            for (const auto& entry : fs::directory_iterator(folder)) count += entry.exists();
        }
        return count;
    }
    bool IsWhole(const fs::path& file) const {
        const std::string content = ReadWholeFile(file);
        return content == "old" || content.ends_with("</sentrel_configuration>\n");
    }
};

TEST_F(InterruptionTest, LeavesNoTornFileNothingBehindAndTheRegistryLocked) {
    SKIP_WITHOUT(kFaults);
    const fs::path source = ScratchFolder() / "good.xml";
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(Tool({"-f", source.string(), "-p", kPassword}).exitCode, 0);
    const auto span = std::chrono::steady_clock::now() - start;
    WriteWholeFile(file_, "old");
    Client({"set-lock-password", kUnlockPassword});
    ASSERT_TRUE(sec_set_sa_registry_lock(true));

    std::mt19937 random(std::random_device{}());
    const std::vector<std::string> backup = BackupArguments();
    const std::vector<std::string> restore = {"-o", "import",  "-f", source.string(),
                                              "-p", kPassword, "-k", kUnlockPassword};
    bool hasKilled = false;
    for (int i = 0; i < Kills(); ++i) {
        // First those after which a run tidies up itself.
        const int signal = i < Kills() / 3 ? std::array{SIGTERM, SIGINT}[random() % 2]
                                           : std::array{kKill, SIGTERM, SIGINT}[random() % 3];
        std::vector<BackgroundProcess> runs;
        for (unsigned run = 0; run <= random() % 2; ++run) {
            runs.emplace_back("SNConfig", random() % 2 == 0 ? backup : restore);
        }
        std::this_thread::sleep_for(span * (random() % 1000) / 800);
        for (BackgroundProcess& run : runs) run.SendSignal(signal);
        for (BackgroundProcess& run : runs) {
            const ProcessResult result = run.Wait();
            EXPECT_TRUE(result.signal == signal || result.exitCode == 0) << result.exitCode;
        }
        ASSERT_TRUE(IsWhole(file_));
        ASSERT_TRUE(sec_is_registry_locked());
        hasKilled = hasKilled || signal == kKill;
        ASSERT_TRUE(hasKilled || Leftovers() == 0) << "a run tidies up itself";
    }
    EXPECT_EQ(Backup().exitCode, 0);
    EXPECT_EQ(Leftovers(), 0U) << "the next run removes what others left";
    EXPECT_EQ(Tool(restore).exitCode, 0);
    EXPECT_EQ(Profile(), "strict");
    std::size_t files = 0;
    for (const auto& entry : fs::directory_iterator(ScratchFolder())) files += entry.exists();
    EXPECT_EQ(files, 2U) << "nothing beside the destination";
}

TEST_F(InterruptionTest, RemovesNothingThatOnlyLooksLikeALeftover) {
    SKIP_WITHOUT(kSymbolicLinks);
    WCHAR base[MAX_PATH] = {};
    ASSERT_NE(GetTempPathW(MAX_PATH, base), 0U);
    const auto plant = [&](char digit, unsigned length) {
        const fs::path folder = fs::path(WideToUtf8(base)) / ("SNC-" + std::string(length, digit));
        fs::create_directory(folder);
        WriteWholeFile(folder / "file", "kept");
        return folder;
    };
    const fs::path left = plant('A', 32);
    const fs::path other = plant('B', 31);
    const fs::path link = fs::path(left).replace_filename("SNC-" + std::string(32, 'C'));
    fs::create_directory_symlink(other, link);
    EXPECT_EQ(Backup().exitCode, 0);
    EXPECT_FALSE(fs::exists(left));
    for (const fs::path& kept : {link, other}) {
        EXPECT_TRUE(fs::exists(kept / "file"));
        fs::remove_all(kept);
    }
}

}  // namespace
