// Who may change the client's configuration from a file: every operation in every state of the
// machine, and what each leaves behind.
#include <utilsdll.h>

#include <algorithm>
#include <regex>
#include <tuple>

#include "common/handles.h"
#include "common/security.h"
#include "tests/end_to_end/client_machine.h"
#include "tests/support/file_facts.h"
#include "tests/support/machine_port.h"
#include "tests/support/object_remains.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kLockPassword = "open sesame";
constexpr const WCHAR* kFinished =
    TEXT("Global\\_SNCONFIG_EVT_SAVING_FINISH_{F55B18CA-E475-4049-95FC-0D9889C1CD1E}");
constexpr const char* kContent =
    "<?xml version=\"1.0\"?><sentrel_configuration><!-- note --><av /></sentrel_configuration>";

// --- What is expected ---------------------------------------------------------------------------

struct Operation {
    const char* name;
    bool isGuarded;
    bool locksAgain;
    const char* call;  // to the plug-in
};
constexpr Operation kOperations[] = {
    {"import", true, true, "cfmav ImportFromXml"},
    {"import_push_config", true, true, "cfmav AdvancedOp gwy_import"},
    {"import_gwyip_config", true, false, "cfmav AdvancedOp import_gwyip_config"},
    {"import_installer_config", true, true, "cfmav AdvancedOp import_installer_config"},
    {"import_settings", false, true, "cfmav ImportFromXml"},
    {"export", false, false, "cfmav ExportToXml"},
    {"whatever", false, false, "cfmav AdvancedOp whatever"},
};
constexpr int kExport = 5;

struct State {
    bool isAdministrator;
    bool isParentTrusted;
    bool isManaged;
    bool schedulerRuns;
    bool hasLockPassword;
    bool isLocked;
    std::string unlock;  // given with -k; empty: nothing is
};

// A letter for each: administrator, trusted parent, managed with its scheduler running, lock
// password, locked - y or n - and what is given with -k: - nothing, w a wrong password, r the
// right.
std::string TextOf(const State& s) {
    const auto letter = [](bool is) { return is ? 'y' : 'n'; };
    return {letter(s.isAdministrator),
            letter(s.isParentTrusted),
            letter(s.isManaged && s.schedulerRuns),
            letter(s.hasLockPassword),
            letter(s.isLocked),
            s.unlock.empty() ? '-' : (s.unlock == kLockPassword ? 'r' : 'w')};
}

// What becomes of a guarded import: the first row whose letters fit decides, "*" fits all.
struct Decision {
    const char* state;
    int exitCode;
    const char* output;
};
constexpr Decision kDecisions[] = {
    {"n*****", 3, "Admin rights are required to import configuration files.\n"},
    {"yny***", 2, "The configuration settings are protected with registration. \n"},
    {"y**n**", 0, ""},
    {"yy*yn*", 0, ""},
    {"y**y*-", 2,
     "The configuration settings are protected with lock. You must use the -k option to install "
     "configurations.\n"},
    {"y**y*w", 1, "Incorrect password.\n"},
    {"y**y*r", 0, ""},
};
constexpr Decision kUnguarded = {"******", 0, ""};

const Decision& Expected(const Operation& operation, const State& state) {
    if (!operation.isGuarded) return kUnguarded;
    const std::string text = TextOf(state);
    return *std::ranges::find_if(kDecisions, [&](const Decision& row) {
        return std::ranges::equal(std::string_view(row.state), text, [](char wanted, char is) {
            return wanted == '*' || wanted == is;
        });
    });
}

// --- The machine --------------------------------------------------------------------------------

class Guards : public ClientMachine {
  protected:
    // A client's folder with everything but the plug-ins: of these there is one that tells.
    Guards() {
        SetText("", "InstallDir", client_.string());
        if (!Role().empty()) return;
        fs::create_directory(client_);
        fs::permissions(client_, fs::perms::all);
        for (const auto& entry : fs::directory_iterator(ProgramFolder())) {
            const fs::path name = entry.path().filename();
            if (!name.string().starts_with("cfm")) LinkFile(entry.path(), client_ / name);
        }
        InstallLibrary("probe_plugin", client_, "cfmav");
    }

    // Goes on with the running test in a process of that file name.
    void GoOnAs(const std::string& fileName, const std::string& role) {
        fs::copy_file(PathOfThisProgram(), client_ / fileName);
        RunRole(role, {}, client_ / fileName);
        fs::remove(client_ / fileName);  // which may be the next one's, in other letters
    }

    // Puts the machine into the state, apart from the lock password.
    void Prepare(const State& state, bool isExport) {
        cfg_set_managed_by_cms(state.isManaged);
        if ((cfg_is_scheduler_running() != 0) != state.schedulerRuns) {
            Client({"service", "SA_Scheduler", state.schedulerRuns ? "start" : "stop"});
        }
        EXPECT_EQ(sec_set_sa_registry_lock(state.isLocked),
                  state.hasLockPassword || !state.isLocked);
        fs::remove_all(file_);
        if (!isExport) {
            WriteWholeFile(file_, kContent);
            fs::permissions(file_, fs::perms(0666));
        }
        fs::remove(client_ / "calls");
        for (const auto& entry : fs::directory_iterator(TemporaryFolder())) fs::remove_all(entry);
        for (const char* bypass : kBypasses) LeaveObjectRemains(EndpointFolder(), bypass);
    }

    BackgroundProcess Start(const Operation& operation, const State& state) {
        std::vector<std::string> arguments = {"-o", operation.name, "-m",
                                              "av", "-f",           file_.string()};
        if (!operation.isGuarded) arguments.insert(arguments.end(), {"-p", kPassword});
        if (!state.unlock.empty()) arguments.insert(arguments.end(), {"-k", state.unlock});
        return {"SNConfig", arguments, state.isAdministrator ? ProcessOptions() : As(54321)};
    }

    // While the plug-in waits in the middle of the operation.
    void LookMeanwhile(BackgroundProcess& run, const State& state) {
        for (int i = 0; WaitForSingleObject(called_.get(), 50) != WAIT_OBJECT_0; ++i) {
            if (!run.IsRunning()) return;
            ASSERT_LT(i, 600) << "it hangs";
        }
        for (const char* bypass : kBypasses) {
            EXPECT_EQ(Exists(bypass), state.isAdministrator) << bypass;
        }
        // What the run unlocks, it unlocks for itself alone.
        EXPECT_EQ(sec_is_registry_locked(), state.isLocked);
    }

    void Check(const Operation& operation, const State& state) {
        SCOPED_TRACE(operation.name + (" " + TextOf(state)));
        const Decision& expected = Expected(operation, state);
        const bool isAllowed = expected.exitCode == 0;
        // A standard user's run has no right to the lock.
        const bool locksAgain =
            isAllowed && operation.locksAgain && state.hasLockPassword && state.isAdministrator;
        Prepare(state, &operation == &kOperations[kExport]);
        BackgroundProcess run = Start(operation, state);
        if (isAllowed) LookMeanwhile(run, state);
        SetEvent(goOn_.get());
        const ProcessResult result = run.Wait();
        ResetEvent(goOn_.get());

        ExpectRun(result, expected.exitCode, expected.output);
        EXPECT_EQ(sec_is_registry_locked(), state.isLocked || locksAgain);
        for (const char* bypass : kBypasses) {
            EXPECT_FALSE(Exists(bypass)) << bypass;
            EXPECT_TRUE(isAllowed || AreObjectRemainsUntouched(EndpointFolder(), bypass)) << bypass;
        }
        const std::string calls = ReadWholeFile(client_ / "calls");
        EXPECT_EQ(std::count(calls.begin(), calls.end(), '\n'), isAllowed ? 1 : 0) << calls;
        EXPECT_TRUE(!isAllowed || calls.starts_with(operation.call + std::string(" "))) << calls;
        // A guarded import works on a copy, an export makes the file, others change it in place.
        EXPECT_EQ(BackupContent() == kContent, operation.isGuarded);
        EXPECT_EQ(BackupContent().find("<!--") != std::string::npos, operation.isGuarded);
        EXPECT_TRUE(FilesInTemporaryFolder().empty());
        EXPECT_TRUE(expected.exitCode != 3 || fs::is_empty(TemporaryFolder()));
    }

    const fs::path client_ = ScratchFolder() / "client";
    UniqueHandle called_{
        CreateEventW(EveryoneAccess().get(), FALSE, FALSE, TEXT("Global\\SN_PROBE_CALLED"))};
    UniqueHandle goOn_{
        CreateEventW(EveryoneAccess().get(), TRUE, FALSE, TEXT("Global\\SN_PROBE_GO_ON"))};
};

// --- Every state --------------------------------------------------------------------------------

using Cell = std::tuple<int, bool>;  // the operation, and whether a trusted parent starts it

class GuardMatrix : public Guards, public testing::WithParamInterface<Cell> {};

TEST_P(GuardMatrix, DecidesByTheRules) {
    SKIP_UNLESS_ADMINISTRATOR();
    const auto [index, isParentTrusted] = GetParam();
    const Operation& operation = kOperations[index];
    if (isParentTrusted && Role().empty()) {
        return GoOnAs(index % 2 == 0 ? "scheduler.exe" : "MSIEXEC.exe", "parent");
    }
    for (const bool hasLockPassword : {false, true}) {
        cfg_sentrelmanager_set_pwd(Wide(hasLockPassword ? kLockPassword : "").c_str());
        for (unsigned bits = 0; bits < 16; ++bits) {
            const bool isManaged = (bits & 1) != 0;
            const bool schedulerRuns = (bits & 2) != 0;
            // Each export stretches a key. A lock that is not there cannot refuse, so that central
            // management and scheduler together say all that one of them alone would.
            if (index == kExport && !(isManaged && schedulerRuns)) continue;
            const bool isLocked = (bits & 8) != 0;
            if (isLocked && !hasLockPassword) continue;
            for (const char* unlock : {"", "sesame", kLockPassword}) {
                Check(operation, {(bits & 4) != 0, isParentTrusted, isManaged, schedulerRuns,
                                  hasLockPassword, isLocked, unlock});
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    EveryState, GuardMatrix,
    testing::Combine(testing::Range(0, static_cast<int>(std::size(kOperations))), testing::Bool()),
    [](const testing::TestParamInfo<Cell>& cell) {
        return std::string(kOperations[std::get<0>(cell.param)].name) +
               (std::get<1>(cell.param) ? "_from_a_trusted_parent" : "");
    });

TEST_F(Guards, TrustAParentByItsWholeFileName) {
    SKIP_WITHOUT(kAdministrator);
    if (!Role().empty()) {
        const bool isTrusted = Role() == "trusted";
        return Check(kOperations[0], {true, isTrusted, true, true, false, false, ""});
    }
    for (const char* name : {"scheduler.exe", "SCHEDULER.EXE", "msiexec.exe", "MsiExec.Exe"}) {
        GoOnAs(name, "trusted");
    }
    for (const char* name : {"scheduler", "msiexec.exe.exe", "my scheduler.exe", "msiexec.ex"}) {
        GoOnAs(name, "other");
    }
}

// --- A locked client ----------------------------------------------------------------------------

TEST_F(Guards, RestoreALockedClientWithTheUnlockPassword) {
    SKIP_WITHOUT(kAdministrator);
    const auto restores = [&](const std::string& operation) {
        EXPECT_TRUE(sec_set_sa_registry_lock(true));
        SetProfile("lax");
        EXPECT_EQ(Backup({"-o", operation, "-m", "av", "-k", kLockPassword}).exitCode, 0);
        EXPECT_TRUE(sec_is_registry_locked());
        return Profile() == "strict";
    };
    if (!Role().empty()) {  // a trusted parent, for whom nothing is unlocked
        EXPECT_TRUE(restores("import"));
        EXPECT_TRUE(restores("import_installer_config"));
        return;
    }
    InstallLibrary("cfmav", client_, "cfmav");
    ASSERT_EQ(Backup({"-m", "av"}).exitCode, 0);
    Client({"set-lock-password", kLockPassword});
    for (const char* operation :
         {"import", "import_push_config", "import_gwyip_config", "import_installer_config"}) {
        EXPECT_TRUE(restores(operation)) << operation;
    }
    // It is not asked for the unlock password.
    EXPECT_FALSE(restores("import_settings"));
    Client({"unlock"});
    GoOnAs("msiexec.exe", "trusted parent");
}

// What other components see of a run: it works unvirtualized, its end is announced to every
// account, also that of one that is refused.
TEST_F(Guards, ARunIsSeenFromOutside) {
    SKIP_WITHOUT(kSetSessions);
    WriteWholeFile(EndpointFolder() / "virtualization", "");
    Prepare({true, false, false, false, false, false, ""}, false);
    for (const char* bypass : kBypasses) fs::remove(RemainsOf(EndpointFolder(), bypass));
    BackgroundProcess run = Start(kOperations[0], {true, false, false, false, false, false, ""});
    ASSERT_EQ(WaitForSingleObject(called_.get(), 20'000), WAIT_OBJECT_0);
    const UniqueHandle finished(OpenEventW(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, kFinished));
    EXPECT_EQ(WaitForSingleObject(finished.get(), 0), DWORD{WAIT_TIMEOUT});
    for (const auto& object : fs::directory_iterator(EndpointFolder() / "run")) {
        const std::string name = object.path().filename().string();
        if (!name.starts_with("Global")) continue;
        const bool isBypass = name.find("BYPASS") != std::string::npos;
        EXPECT_TRUE(isBypass ? OnlyOwnerMayUse(object) : EveryoneMayWrite(object)) << name;
    }
    const UniqueHandle process(OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, run.Id()));
    UniqueHandle token;
    DWORD isVirtualized = 1;
    DWORD size = 0;
    OpenProcessToken(process.get(), TOKEN_QUERY, token.put());
    EXPECT_TRUE(GetTokenInformation(token.get(), TokenVirtualizationEnabled, &isVirtualized,
                                    sizeof isVirtualized, &size));
    EXPECT_EQ(isVirtualized, 0U);
    SetEvent(goOn_.get());
    ExpectRun(run.Wait(), 0, "");
    EXPECT_EQ(WaitForSingleObject(finished.get(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(finished.get(), 0), WAIT_OBJECT_0) << "it stays signalled";

    // An event that is left over from the last run says nothing about this one.
    ResetEvent(goOn_.get());
    run = Start(kOperations[0], {true, false, false, false, false, false, ""});
    ASSERT_EQ(WaitForSingleObject(called_.get(), 20'000), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(finished.get(), 0), DWORD{WAIT_TIMEOUT});
    SetEvent(goOn_.get());
    EXPECT_EQ(run.Wait().exitCode, 0);
    ResetEvent(finished.get());
    EXPECT_EQ(Tool({"-o", "import", "-f", "missing"}).exitCode, 5);
    EXPECT_EQ(WaitForSingleObject(finished.get(), 0), WAIT_OBJECT_0);
}

// What an import that meets something wrong tells the user interface and the log.
TEST_F(Guards, TellWhatAnImportMeets) {
    SKIP_WITHOUT(kAdministrator);
    SetEvent(goOn_.get());
    BackgroundProcess gui("sngui", {"1"});
    ASSERT_TRUE(gui.WaitForOutput("listening"));
    const std::string rootless = "<?xml version=\"1.0\"?><!-- no root -->";
    const struct {
        const char* operation;
        std::string content;
        const char* code;
        const char* line;
    } cases[] = {
        {"import", "<?xml version=\"1.0\"?><open>", "code 1 0 0 0 0\n",
         " ERROR Failed to process the file ("},
        {"import_settings", "<open>", "code 1 0 0 0 0\n", " ERROR Failed to process the file ("},
        {"import", rootless, "code 4 0 0 0 0\n", " ERROR Failed to acquire root element ... ("},
        {"import", kContent, "code 1639 0 0 0 0\n", " DEBUG Comments removed from ("},
        {"import_settings", kContent, "", " DEBUG Comments removed from ("},
        {"whatever", "<open>", "", ""},
    };
    for (const auto& [operation, content, code, line] : cases) {
        const std::size_t shown = gui.Output().size();
        const std::size_t logged = Log().size();
        WriteWholeFile(file_, content);
        ExpectRun(Tool({"-o", operation, "-m", "av", "-f", file_.string(), "-i", "1"}), 0, "");
        EXPECT_TRUE(*code == 0 || gui.WaitForOutput(code));
        EXPECT_TRUE(gui.Output().substr(shown).starts_with(code)) << gui.Output();
        EXPECT_TRUE(*code != 0 || gui.Output().size() == shown);
        const std::string log = Log().substr(logged);
        EXPECT_NE(log.find(line), std::string::npos) << log;
        EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), *line == 0 ? 0 : 1) << log;
    }
}

// --- The file's password ------------------------------------------------------------------------

TEST_F(ClientMachine, FilePasswordIsCheckedBeforeTheLocks) {
    ASSERT_EQ(Backup({"-m", "av"}).exitCode, 0);
    const fs::path encrypted = ScratchFolder() / "encrypted";
    const fs::path unverified = ScratchFolder() / "empty verifier";
    WriteWholeFile(unverified,
                   std::regex_replace(BackupContent(), std::regex("authentication=\"[^\"]*"),
                                      "authentication=\""));
    Client({"encrypt-file", file_.string(), encrypted.string(), kPassword});
    Client({"set-lock-password", kLockPassword});
    BackgroundProcess gui("sngui", {"1"});
    ASSERT_TRUE(gui.WaitForOutput("listening"));
    const struct {
        fs::path file;
        std::vector<std::string> password;  // as arguments
        int exitCode;                       // 5: a wrong password, which is also shown
        bool isLogged;
    } cases[] = {{file_, {}, 2, false},
                 {file_, {"-p", kPassword}, 2, false},
                 {file_, {"-p", "wrong phrase"}, 5, true},
                 {unverified, {"-p", "wrong phrase"}, 2, false},
                 {encrypted, {"-p", kPassword}, 2, false},
                 {encrypted, {"-p", "wrong phrase"}, 5, false}};
    for (const auto& c : cases) {
        const std::size_t shown = gui.Output().size();
        const std::size_t logged = Log().size();
        auto arguments = c.password;
        arguments.insert(arguments.end(), {"-o", "import", "-f", c.file.string(), "-i", "1"});
        EXPECT_EQ(Tool(arguments).exitCode, c.exitCode);
        if (c.exitCode == 5) gui.WaitForOutput("code 3");
        EXPECT_EQ(gui.Output().substr(shown), c.exitCode == 5 ? "code 3 0 0 0 0\n" : "");
        EXPECT_EQ(Log().substr(logged).find("Incorrect password.") != std::string::npos,
                  c.isLogged);
    }
}

}  // namespace
