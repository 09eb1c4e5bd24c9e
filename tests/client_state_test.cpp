// The utility library's calls about management, rights and the user interface.
#include <gui_message.h>
#include <utilsdll.h>

#include <algorithm>

#include "common/handles.h"
#include "common/pipe_call.h"
#include "common/text.h"
#include "tests/support/machine.h"
#include "tests/support/registry.h"

namespace {

namespace fs = std::filesystem;

constexpr const WCHAR* kStateKey = TEXT("software\\Verdane\\Sentrel\\SA_STATE");
constexpr const WCHAR* kGuiOfSession3 =
    TEXT("\\\\.\\pipe\\SN_{8264D419-EBF5-4727-9E4C-AC4EB4EF54F3}_3");

class ClientStateTest : public MachineTest {
  protected:
    static std::vector<BYTE> LockRecord() {
        return RawValue(HKEY_LOCAL_MACHINE, kStateKey, TEXT("lock_password"));
    }
    // Whether the bytes stand in any file of the machine.
    bool MachineHolds(const std::string& bytes) const {
        const auto files = fs::recursive_directory_iterator(EndpointFolder());
        return std::any_of(begin(files), end(files), [&](const fs::directory_entry& entry) {
            return entry.is_regular_file() &&
                   ReadWholeFile(entry.path()).find(bytes) != std::string::npos;
        });
    }
};

// --- Management ---------------------------------------------------------------------------------

TEST_F(ClientStateTest, LockPasswordIsComparedButNotKept) {
    constexpr const WCHAR* kPassword = TEXT("K\u00F6ln-7 fliegt");
    if (Role() == "other process") {
        EXPECT_TRUE(cfg_sentrelmanager_cmp_pwd(kPassword));
        return;
    }
    EXPECT_TRUE(cfg_sentrelmanager_cmp_pwd(TEXT("")));
    EXPECT_FALSE(cfg_sentrelmanager_cmp_pwd(kPassword));

    ASSERT_TRUE(cfg_sentrelmanager_set_pwd(kPassword));
    EXPECT_TRUE(cfg_sentrelmanager_cmp_pwd(kPassword));
    for (const WCHAR* wrong : {TEXT(""), TEXT("K\u00F6ln-7 flieg"), TEXT("k\u00F6ln-7 fliegt"),
                               TEXT("K\u00F6ln-7 fliegt ")}) {
        EXPECT_FALSE(cfg_sentrelmanager_cmp_pwd(wrong));
    }
    RunRole("other process");

    const WStringView text = kPassword;
    EXPECT_FALSE(MachineHolds(WideToUtf8(text)));
    EXPECT_FALSE(
        MachineHolds({reinterpret_cast<const char*>(text.data()), text.size() * sizeof(WCHAR)}));
    const auto first = LockRecord();
    ASSERT_TRUE(cfg_sentrelmanager_set_pwd(kPassword));
    EXPECT_NE(LockRecord(), first);  // a salt of its own each time

    ASSERT_TRUE(cfg_sentrelmanager_set_pwd(TEXT("")));
    EXPECT_TRUE(cfg_sentrelmanager_cmp_pwd(TEXT("")));
    EXPECT_FALSE(cfg_sentrelmanager_cmp_pwd(kPassword));
}

TEST_F(ClientStateTest, StateInDoubtProtects) {
    ASSERT_TRUE(cfg_sentrelmanager_set_pwd(TEXT("secret")));
    auto record = LockRecord();
    record.pop_back();
    SetRaw(HKEY_LOCAL_MACHINE, kStateKey, TEXT("lock_password"), REG_BINARY, record);
    EXPECT_FALSE(cfg_sentrelmanager_cmp_pwd(TEXT("secret")));
    EXPECT_FALSE(cfg_sentrelmanager_cmp_pwd(TEXT("")));

    constexpr const WCHAR* kLockKey = TEXT("software\\Verdane\\Sentrel\\SA_LOCK");
    EXPECT_FALSE(sec_is_registry_locked());
    for (const DWORD type : {DWORD{REG_BINARY}, DWORD{REG_DWORD}}) {
        SetRaw(HKEY_LOCAL_MACHINE, kLockKey, TEXT("registry_locked"), type, {0});
        EXPECT_TRUE(sec_is_registry_locked()) << type;
    }
    EXPECT_EQ(cfg_is_managed_by_cms(), 0);
    SetRaw(HKEY_LOCAL_MACHINE, kStateKey, TEXT("managed"), REG_DWORD, {0});
    EXPECT_NE(cfg_is_managed_by_cms(), 0);
    SetRaw(HKEY_LOCAL_MACHINE, kStateKey, TEXT("fips_mode"), REG_BINARY, {0, 0, 0, 0});
    EXPECT_NE(cfg_is_fips_mode_enabled(), 0);
}

TEST_F(ClientStateTest, SchedulerHearsOfAChange) {
    constexpr const WCHAR* kEvent = TEXT("Global\\SN_CONFIG_CHANGED");
    signal_scheduler();
    SetLastError(ERROR_SUCCESS);
    const UniqueHandle event(CreateEventW(nullptr, FALSE, FALSE, kEvent));
    EXPECT_NE(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});  // nobody else makes it
    EXPECT_EQ(WaitForSingleObject(event.get(), 0), WAIT_TIMEOUT);
    signal_scheduler();
    EXPECT_EQ(WaitForSingleObject(event.get(), 0), WAIT_OBJECT_0);
}

TEST_F(ClientStateTest, RightsFollowTheAccount) {
    if (Role().empty()) {
        SKIP_UNLESS_ADMINISTRATOR();
        ASSERT_TRUE(cfg_set_managed_by_cms(true));
        ASSERT_TRUE(cfg_sentrelmanager_set_pwd(TEXT("secret")));
        ASSERT_TRUE(sec_set_sa_registry_lock(true));
        EXPECT_EQ(sec_get_account_type(), 2);
        EXPECT_EQ(sec_get_user_type(), 2);
        RunRole("user", As(12345));
        RunRole("guest", As(kStranger));
        EXPECT_NE(cfg_is_managed_by_cms(), 0);
        // An unlocked client whose state cannot be read is in doubt.
        ASSERT_TRUE(sec_set_sa_registry_lock(false));
        fs::permissions(EndpointFolder() / "registry", fs::perms::owner_all);
        RunRole("blind", As(kStranger));
        return;
    }
    EXPECT_TRUE(sec_is_registry_locked());
    EXPECT_EQ(sec_get_account_type(), 1);
    EXPECT_EQ(sec_get_user_type(), Role() == "user" ? 1 : 0);
    EXPECT_FALSE(cfg_set_managed_by_cms(false));
    EXPECT_FALSE(cfg_sentrelmanager_set_pwd(TEXT("mine")));
    EXPECT_FALSE(sec_set_sa_registry_lock(true));
    EXPECT_FALSE(sec_set_sa_registry_lock(false));
}

// --- User interface -----------------------------------------------------------------------------

class GuiTest : public ClientStateTest {
  protected:
    static BackgroundProcess StartGui(const std::vector<std::string>& arguments = {"3"}) {
        BackgroundProcess gui("sngui", arguments);
        EXPECT_TRUE(gui.WaitForOutput("listening"));
        return gui;
    }
    const std::string listening_ = "listening on " + WideToUtf8(kGuiOfSession3) + "\n";
};

TEST_F(GuiTest, ShowsCodesAndTrayTextsInTheirOrder) {
    ShowTrayIconNotification(TEXT("lost: no user interface was reached yet"), 0);
    BackgroundProcess gui = StartGui({"3", "--count", "5"});
    EXPECT_NE(PostMessageGui(kGuiOfSession3, 3, 0, 0, 0, 0), 0);
    EXPECT_NE(PostMessageGui(kGuiOfSession3, 1640, 1, 2, 3, 0xFFFFFFFF), 0);
    // A miss does not change where tray texts go.
    EXPECT_EQ(PostMessageGui(TEXT("\\\\.\\pipe\\SN_nobody"), 1, 0, 0, 0, 0), 0);
    ShowTrayIconNotification(TEXT("\u5099\u4EFD\u5B8C\u7562."), 0);
    ShowTrayIconNotification(TEXT("two\nlines"), 0);
    ShowTrayIconNotification(WString(600, TEXT('x')).c_str(), 0);
    const ProcessResult result = gui.Wait();
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, listening_ +
                                 "code 3 0 0 0 0\ncode 1640 1 2 3 4294967295\ntray 備份完畢.\n"
                                 "tray two\\x0Alines\ntray " +
                                 std::string(512, 'x') + "\n");
}

TEST_F(GuiTest, NobodyListensOrAnswers) {
    const auto timeOfPost = [] {
        const ULONGLONG start = GetTickCount64();
        EXPECT_EQ(PostMessageGui(kGuiOfSession3, 1, 0, 0, 0, 0), 0);
        return GetTickCount64() - start;
    };
    EXPECT_LT(timeOfPost(), 1000U);
    // It is there, but hangs.
    const UniqueHandle instance(CreateNamedPipeW(
        kGuiOfSession3, PIPE_ACCESS_DUPLEX, PIPE_TYPE_MESSAGE | PIPE_WAIT, 1, 0, 0, 0, nullptr));
    ASSERT_TRUE(instance);
    EXPECT_LT(timeOfPost(), 5000U);
}

TEST_F(GuiTest, HostileClientsDoNotDisturb) {
    BackgroundProcess gui = StartGui();
    UniqueHandle silent[7];
    for (UniqueHandle& client : silent) {
        client.reset(CreateFileW(kGuiOfSession3, GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                 OPEN_EXISTING, 0, nullptr));
        ASSERT_TRUE(client);
    }
    // No message, an unknown one, a code with a byte missing, half a character, and too much.
    const DWORD kind = static_cast<DWORD>(GuiMessageKind::kCode);
    for (const auto& [first, size] :
         {std::pair<DWORD, DWORD>{kind, 1}, {99, 24}, {kind, 23}, {2, 5}, {2, 100'000}}) {
        std::vector<BYTE> message(size + sizeof first);
        std::copy_n(reinterpret_cast<const BYTE*>(&first), sizeof first, message.begin());
        GuiReply reply = {0};
        DWORD replySize = sizeof reply;
        CallPipe(kGuiOfSession3, message.data(), size, &reply, replySize, 5000,
                 PipeServer::kAnyone);
        EXPECT_EQ(reply.taken, 0U) << size;
    }
    EXPECT_NE(PostMessageGui(kGuiOfSession3, 1, 0, 0, 0, 0), 0);
    EXPECT_TRUE(gui.WaitForOutput("code"));
    EXPECT_EQ(gui.Output(), listening_ + "code 1 0 0 0 0\n");
}

TEST_F(GuiTest, TakesMessagesOfEveryAccountAndServesItsPipeAlone) {
    if (Role() == "tool") {
        EXPECT_NE(PostMessageGui(kGuiOfSession3, 1639, 0, 0, 0, 0), 0);
        return;
    }
    SKIP_UNLESS_ADMINISTRATOR();
    BackgroundProcess gui = StartGui();
    RunRole("tool", As(12345));
    EXPECT_TRUE(gui.WaitForOutput("code 1639 0 0 0 0\n"));
    EXPECT_EQ(RunProgram("sngui", {"3"}).exitCode, 1);
}

}  // namespace
