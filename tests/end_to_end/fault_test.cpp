// A backup and a restore, struck at every call by which they change files: killed just before it,
// or refused by a full disk or for want of rights.
//
// A run that is killed cannot tidy up: its files, readable by its owner alone, stay until the next
// run, and after a restore some settings may be old, some new. The registry is locked.
#include <utilsdll.h>

#include <algorithm>
#include <functional>
#include <regex>
#include <set>
#include <tuple>

#include "common/handles.h"
#include "common/xml_file.h"
#include "tests/end_to_end/client_machine.h"
#include "tests/support/faults.h"

namespace {

namespace fs = std::filesystem;

constexpr int kShards = 8;  // a fault's calls are divided among so many cases
constexpr const char* kNames[] = {"Killed", "DiskFull", "AccessDenied"};
const std::vector<std::string> kModules = {"-m", "av vpn"};
constexpr const char* kUnlockPassword = "open sesame";

// A backup without what differs from one to the next.
std::string Comparable(const std::string& backup) {
    static const std::regex differing(
        "authentication=\"[0-9A-F]*\"|EncX [0-9A-Fa-f]*|<date>[0-9/]*</date>");
    return std::regex_replace(backup, differing, "");
}

using Strike = std::tuple<Fault, int>;  // the fault, and the shard

class FaultTest : public ClientMachine, public testing::WithParamInterface<Strike> {
  protected:
    // Strikes at each of the shard's calls in turn. `prepare` makes the state before a run, `check`
    // looks at what a run left, and `isDone` tells whether all of the work was done.
    void StrikeAtEach(const std::vector<std::string>& arguments,
                      const std::function<void()>& prepare,
                      const std::function<void(const ProcessResult& result)>& check,
                      const std::function<bool()>& isDone) {
        auto at = static_cast<std::size_t>(std::get<1>(GetParam()));
        for (;; at += kShards) {
            // 1. A machine on which the program makes its folders anew.
            for (const auto& file : Leftovers()) fs::remove(file);
            for (const auto& entry : fs::directory_iterator(TemporaryFolder())) {
                fs::remove_all(entry);
            }
            fs::remove_all(LogFolder());
            prepare();
            // 2. The run that is struck.
            const auto [result, calls] = RunWithFault(fault_, at, "SNConfig", arguments);
            if (calls.size() <= at) break;
            SCOPED_TRACE("call " + std::to_string(at) + ", " + calls[at]);
            EXPECT_EQ(result.signal != 0, isKill_) << result.signal;
            EXPECT_FALSE(result.timedOut);
            EXPECT_EQ(result.errors, "");
            EXPECT_TRUE(isKill_ || std::set({0, 1, 2, 3, 5}).contains(result.exitCode));
            for (const char* bypass : kBypasses) EXPECT_FALSE(Exists(bypass)) << bypass;
            check(result);
            const bool hasFailed = !isKill_ && (result.exitCode > 0 || !result.output.empty() ||
                                                Log().find(" ERROR ") != std::string::npos);
            // 3. What a killed run left, the next one removes.
            if (isKill_) ExpectRun(Tool(arguments), 0, "");
            EXPECT_EQ(Leftovers(), std::set<fs::path>());
            EXPECT_TRUE(hasFailed || isDone());
        }
        EXPECT_GT(at, std::size_t{3 * kShards}) << "a run makes more calls than that";
    }

    const Fault fault_ = std::get<0>(GetParam());
    const bool isKill_ = fault_ == Fault::kKill;

  private:
    // Files that a finished run should not have left.
    std::set<fs::path> Leftovers() const {
        const auto temporary = FilesInTemporaryFolder();
        std::set<fs::path> files(temporary.begin(), temporary.end());
        for (const auto& entry : fs::directory_iterator(ScratchFolder())) {
            if (entry.path() != file_) files.insert(entry.path());
        }
        return files;
    }
    // Somebody else on the machine knows of the mutex, so that runs take it.
    const UniqueHandle mutex_{CreateMutexW(nullptr, FALSE, kConfigurationMutex)};
};

TEST_P(FaultTest, ABackupIsTheOldOneOrTheWholeNewOne) {
    SKIP_WITHOUT(kFaults);
    // The new file takes several writes, and the old one is longer: half of one shows.
    SetText("SA_AV", "exclusions", std::string(70'000, 'x'));
    ASSERT_EQ(Backup(kModules).exitCode, 0);
    const std::string whole = Comparable(BackupContent());
    const std::string old(200'000, 'o');
    const auto isDone = [&] { return Comparable(BackupContent()) == whole; };
    const auto check = [&](const ProcessResult& result) {
        EXPECT_LE(result.exitCode, 0);
        if (BackupContent() == old || isDone()) return;
        // What could not be backed up is missing in an otherwise good file.
        TiXmlDocument document;
        EXPECT_TRUE(!isKill_ && LoadXmlFile(Wide(file_), document));
    };
    StrikeAtEach(
        BackupArguments(kModules), [&] { WriteWholeFile(file_, old); }, check, isDone);
}

TEST_P(FaultTest, ARestoreLeavesEverySettingOldOrNewAndTheRegistryLocked) {
    SKIP_WITHOUT(kFaults);
    const struct {
        std::string key;
        const char* name;
        const char* before;
        const char* restored;
    } settings[] = {
        {"SA_AV", "profile", "lax", "strict"},
        {"SA_AV", "made later", "x", ""},
        {kOffice, "server", "elsewhere", "vpn.example.net"},
        {kOffice, "password", "Taube-8", "Kranich-7"},
        {"SA_VPN\\sslvpn\\options", "dtls", "no", "yes"},
    };
    ASSERT_EQ(Backup(kModules).exitCode, 0);
    const std::string source = BackupContent();
    Client({"set-lock-password", kUnlockPassword});

    const auto prepare = [&] {
        for (const auto& s : settings) SetText(s.key, s.name, s.before);
        ASSERT_TRUE(sec_set_sa_registry_lock(true));
    };
    const auto check = [&](const ProcessResult& result) {
        for (const auto& s : settings) {
            const std::string now = Text(s.key, s.name);
            EXPECT_TRUE(now == s.before || (now == s.restored && result.exitCode <= 0))
                << s.name << now;
        }
        EXPECT_EQ(BackupContent(), source);
        EXPECT_TRUE(sec_is_registry_locked());
    };
    StrikeAtEach(BackupArguments({"-o", "import", "-k", kUnlockPassword}), prepare, check, [&] {
        return std::ranges::all_of(settings,
                                   [](const auto& s) { return Text(s.key, s.name) == s.restored; });
    });
}

TEST_F(ClientMachine, AFileThatCannotGrowIsNotProtectedButWhole) {
    SKIP_WITHOUT(kFaults);
    const auto protect = [&](std::size_t at) {
        WriteWholeFile(file_, "plain");
        return RunWithFault(Fault::kDiskFull, at, "snclient",
                            {"protect-file", file_.string(), "machine"});
    };
    protect(SIZE_MAX);  // makes the machine's key
    const std::vector<std::string> calls = protect(SIZE_MAX).calls;
    const auto growth = std::ranges::find(calls, "fallocate");
    ASSERT_NE(growth, calls.end());
    EXPECT_NE(protect(static_cast<std::size_t>(growth - calls.begin())).result.exitCode, 0);
    EXPECT_EQ(BackupContent(), "plain");
}

INSTANTIATE_TEST_SUITE_P(EveryCall, FaultTest,
                         testing::Combine(testing::Values(Fault::kKill, Fault::kDiskFull,
                                                          Fault::kAccessDenied),
                                          testing::Range(0, kShards)),
                         [](const testing::TestParamInfo<Strike>& strike) {
                             return kNames[static_cast<int>(std::get<0>(strike.param))] +
                                    std::to_string(std::get<1>(strike.param));
                         });

}  // namespace
