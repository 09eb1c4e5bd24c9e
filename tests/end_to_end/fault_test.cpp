// A backup and a restore, struck at every call by which they change files: killed just before it,
// or refused by a full disk or for want of rights.
//
// A run that is killed cannot tidy up. It may leave its files in the temporary folder - the working
// copy among them, readable by its owner alone - and beside the destination, and a restore may
// leave the registry unlocked and some settings old, some new. None of it is in the way of the next
// run.
#include <utilsdll.h>

#include <algorithm>
#include <functional>
#include <regex>
#include <set>
#include <tuple>

#include "common/handles.h"
#include "common/xml_file.h"
#include "registry/registry.h"
#include "tests/end_to_end/client_machine.h"
#include "tests/support/faults.h"
#include "tests/support/wide.h"

namespace {

namespace fs = std::filesystem;

constexpr int kShards = 8;  // a fault's calls are divided among so many cases
constexpr const char* kNames[] = {"Killed", "DiskFull", "AccessDenied"};
const std::vector<std::string> kModules = {"-m", "av vpn"};
constexpr const char* kOffice = "SA_VPN\\sslvpn\\connections\\Office";
constexpr const char* kUnlockPassword = "open sesame";

// The setting as it is kept or, when it is kept encrypted, its plain text.
std::string PlainText(const char* key, const char* name) {
    CRegistry registry(true, true);
    WString text;
    registry.OpenKey(TEXT("software\\Verdane\\Sentrel\\") + Wide(key));
    registry.GetString(Wide(name), text);
    return fs::path(text).string();
}

struct Setting {
    const char* key;
    const char* name;
    const char* changed;   // before the restore...
    const char* restored;  // ... and after it
};
constexpr Setting kSettings[] = {
    {"SA_AV", "profile", "lax", "strict"},
    {"SA_AV", "made later", "x", ""},
    {kOffice, "server", "elsewhere", "vpn.example.net"},
    {kOffice, "password", "Taube-8", "Kranich-7"},
    {"SA_VPN\\sslvpn\\options", "dtls", "no", "yes"},
};

bool AreAll(const char* Setting::*state) {
    return std::ranges::all_of(
        kSettings, [&](const Setting& s) { return PlainText(s.key, s.name) == s.*state; });
}

// A backup without what differs from one to the next.
std::string Comparable(const std::string& backup) {
    static const std::regex differing(
        "authentication=\"[0-9A-F]*\"|EncX [0-9A-Fa-f]*|<date>[0-9/]*</date>");
    return std::regex_replace(backup, differing, "");
}

using Strike = std::tuple<Fault, int>;  // the fault, and the shard

class FaultTest : public ClientMachine, public testing::WithParamInterface<Strike> {
  protected:
    // Strikes at each of the shard's calls in turn.
    void StrikeAtEach(const std::vector<std::string>& arguments,
                      const std::function<void()>& prepare,
                      const std::function<void(const FaultyRun& run)>& check) {
        auto at = static_cast<std::size_t>(std::get<1>(GetParam()));
        for (;; at += kShards) {
            ForgetLastRun();
            prepare();
            const FaultyRun run = RunWithFault(fault_, at, "SNConfig", arguments);
            if (run.calls.size() <= at) break;
            struckCall_ = run.calls[at];
            SCOPED_TRACE("call " + std::to_string(at) + ", " + struckCall_);
            CheckEnd(run.result);
            check(run);
        }
        EXPECT_GT(at, std::size_t{3 * kShards}) << "a run makes more calls than that";
    }

    bool IsKill() const { return fault_ == Fault::kKill; }

    // What the run said went wrong.
    bool HasReported(const FaultyRun& run) const {
        return !run.result.output.empty() || Log().find(" ERROR ") != std::string::npos;
    }

    // Files that a finished run should not have left.
    std::set<fs::path> Leftovers() const {
        const auto temporary = FilesInTemporaryFolder();
        std::set<fs::path> files(temporary.begin(), temporary.end());
        for (const auto& entry : fs::directory_iterator(ScratchFolder())) {
            if (entry.path() != file_) files.insert(entry.path());
        }
        return files;
    }
    void ExpectTidy() const {
        // A file that could not be removed stays.
        EXPECT_TRUE(Leftovers().empty() || struckCall_.starts_with("unlink"));
    }
    // A run on what a killed one left. Of its own it leaves nothing.
    void ExpectNextRun(const std::vector<std::string>& arguments) {
        const auto before = Leftovers();
        ExpectRun(Tool(arguments), 0, "");
        EXPECT_EQ(Leftovers(), before);
    }

    const Fault fault_ = std::get<0>(GetParam());
    std::string struckCall_;

  private:
    // A machine on which the program makes its folders anew.
    void ForgetLastRun() {
        for (const auto& file : Leftovers()) fs::remove(file);
        for (const auto& entry : fs::directory_iterator(TemporaryFolder())) fs::remove_all(entry);
        fs::remove_all(LogFolder());
    }

    void CheckEnd(const ProcessResult& result) const {
        EXPECT_EQ(result.signal != 0, IsKill()) << result.signal;
        EXPECT_FALSE(result.timedOut);
        EXPECT_EQ(result.errors, "");
        EXPECT_TRUE(IsKill() || std::set({0, 1, 2, 3, 5}).contains(result.exitCode))
            << result.exitCode;
        for (const WCHAR* bypass :
             {TEXT("Global\\SN_BYPASS_FSFILTER"), TEXT("Global\\SN_BYPASS_GUARDLET")}) {
            EXPECT_FALSE(UniqueHandle(OpenEventW(SYNCHRONIZE, FALSE, bypass)));
        }
    }

    // Somebody else on the machine knows of the mutex, so that runs take it.
    const UniqueHandle mutex_{
        CreateMutexW(nullptr, FALSE, TEXT("Global\\SN_{2C264CC9-7890-4A5D-A626-F868BBFD200F}"))};
};

TEST_P(FaultTest, ABackupIsTheOldOneOrTheWholeNewOne) {
    SKIP_WITHOUT(kFaults);
    // The new file takes several writes, and the old one is longer: half of one shows.
    SetText("SA_AV", "exclusions", std::string(70'000, 'x'));
    ASSERT_EQ(Backup(kModules).exitCode, 0);
    const std::string whole = Comparable(BackupContent());
    const std::string old(200'000, 'o');
    std::vector<std::string> backup = {"-f", file_.string(), "-p", kPassword};
    backup.insert(backup.end(), kModules.begin(), kModules.end());

    StrikeAtEach(
        backup, [&] { WriteWholeFile(file_, old); },
        [&](const FaultyRun& run) {
            const std::string content = BackupContent();
            if (IsKill()) {
                EXPECT_TRUE(content == old || Comparable(content) == whole);
                ExpectNextRun(backup);
                EXPECT_TRUE(Comparable(BackupContent()) == whole);
                return;
            }
            if (!HasReported(run)) {
                EXPECT_TRUE(Comparable(content) == whole);
            } else if (content != old) {
                // What could not be backed up is missing in an otherwise good file.
                TiXmlDocument document;
                EXPECT_TRUE(LoadXmlFile(file_.string(), document));
            }
            ExpectTidy();
        });
}

TEST_P(FaultTest, ARestoreLeavesEverySettingOldOrNewAndTheRegistryLocked) {
    SKIP_WITHOUT(kFaults);
    ASSERT_EQ(Backup(kModules).exitCode, 0);
    const std::string source = BackupContent();
    // Without a lock password a run spares the time to check it, but is asked to unlock all the
    // same.
    const bool isLockedAgain = !IsKill();
    if (isLockedAgain) Client({"set-lock-password", kUnlockPassword});
    const std::vector<std::string> restore = {"-o", "import",  "-f", file_.string(),
                                              "-p", kPassword, "-k", kUnlockPassword};

    const auto prepare = [] {
        for (const Setting& s : kSettings) SetText(s.key, s.name, s.changed);
        ASSERT_TRUE(sec_set_sa_registry_lock(true));
    };
    StrikeAtEach(restore, prepare, [&](const FaultyRun& run) {
        for (const Setting& setting : kSettings) {
            const std::string now = PlainText(setting.key, setting.name);
            EXPECT_TRUE(now == setting.changed || now == setting.restored) << setting.name << now;
        }
        EXPECT_EQ(BackupContent(), source);
        if (IsKill()) {
            ExpectNextRun(restore);
            EXPECT_TRUE(AreAll(&Setting::restored));
        } else {
            if (run.result.exitCode != 0) {
                EXPECT_TRUE(AreAll(&Setting::changed));
            } else if (!HasReported(run)) {
                EXPECT_TRUE(AreAll(&Setting::restored));
            }
            ExpectTidy();
        }
        EXPECT_EQ(sec_is_registry_locked(), isLockedAgain);
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
