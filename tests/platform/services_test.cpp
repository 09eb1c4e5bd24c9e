// The service manager, and the accounts that have a name of their own.
#include <shlobj.h>
#include <windows.h>

#include <vector>

#include "tests/support/machine.h"

namespace {

constexpr Account kStranger{12345, 12345};
constexpr DWORD kAllRights = SERVICE_QUERY_STATUS | SERVICE_START | SERVICE_STOP;

class ServiceTest : public MachineTest {
  protected:
    SC_HANDLE OpenManager(DWORD rights) { return OpenSCManagerW(nullptr, nullptr, rights); }
    SC_HANDLE Open(const WCHAR* name, DWORD rights) { return OpenServiceW(manager_, name, rights); }
    SC_HANDLE Create(const WCHAR* name) {
        const SC_HANDLE manager = OpenManager(SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE);
        const SC_HANDLE service = CreateServiceW(
            manager, name, nullptr, kAllRights, SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
            SERVICE_ERROR_NORMAL, TEXT("service.exe"), nullptr, nullptr, nullptr, nullptr, nullptr);
        const DWORD error = GetLastError();
        CloseServiceHandle(manager);
        SetLastError(error);
        return service;
    }
    DWORD State(const WCHAR* name) {
        const SC_HANDLE service = Open(name, SERVICE_QUERY_STATUS);
        SERVICE_STATUS status = {};
        EXPECT_TRUE(QueryServiceStatus(service, &status));
        CloseServiceHandle(service);
        return status.dwCurrentState;
    }
    void ExpectNoService(SC_HANDLE service, DWORD error) {
        EXPECT_EQ(service, nullptr);
        EXPECT_EQ(GetLastError(), error);
    }
    void ExpectFailure(BOOL result, DWORD error) {
        EXPECT_FALSE(result);
        EXPECT_EQ(GetLastError(), error);
    }

    SC_HANDLE manager_ = OpenManager(SC_MANAGER_CONNECT);
};

TEST_F(ServiceTest, RunsFromItsStartToItsStopForEveryProcess) {
    SKIP_UNLESS_ADMINISTRATOR();
    if (Role() == "observer") {
        EXPECT_EQ(State(TEXT("sn_TEST")), SERVICE_RUNNING);
        return;
    }
    const SC_HANDLE service = Create(TEXT("SN_Test"));
    ASSERT_NE(service, nullptr);
    SERVICE_STATUS status = {};
    EXPECT_EQ(State(TEXT("SN_Test")), SERVICE_STOPPED);
    ExpectFailure(ControlService(service, SERVICE_CONTROL_STOP, &status), ERROR_SERVICE_NOT_ACTIVE);
    EXPECT_TRUE(StartServiceW(service, 0, nullptr));
    ExpectFailure(StartServiceW(service, 0, nullptr), ERROR_SERVICE_ALREADY_RUNNING);
    EXPECT_EQ(RunRole("observer").exitCode, 0);
    EXPECT_TRUE(ControlService(service, SERVICE_CONTROL_STOP, &status));
    EXPECT_EQ(status.dwCurrentState, SERVICE_STOPPED);
    EXPECT_EQ(State(TEXT("SN_Test")), SERVICE_STOPPED);
}

TEST_F(ServiceTest, TellsWhyThereIsNone) {
    SKIP_UNLESS_ADMINISTRATOR();
    ASSERT_NE(Create(TEXT("SN_Test")), nullptr);
    ExpectNoService(Create(TEXT("sn_test")), ERROR_SERVICE_EXISTS);
    ExpectNoService(Open(TEXT("SN_Missing"), SERVICE_QUERY_STATUS), ERROR_SERVICE_DOES_NOT_EXIST);
    // A name must not lead out of the place where services are kept.
    for (const WCHAR* name : {TEXT(""), TEXT("a\\b"), TEXT("../SN_Test")}) {
        ExpectNoService(Open(name, SERVICE_QUERY_STATUS), ERROR_INVALID_NAME);
    }
    const SC_HANDLE service = Open(TEXT("SN_Test"), SERVICE_QUERY_STATUS);
    ExpectFailure(StartServiceW(service, 0, nullptr), ERROR_ACCESS_DENIED);
    EXPECT_TRUE(CloseServiceHandle(service));
    ExpectFailure(CloseServiceHandle(service), ERROR_INVALID_HANDLE);
}

TEST_F(ServiceTest, StrangersMayOnlyLook) {
    if (Role() == "stranger") {
        EXPECT_FALSE(IsUserAnAdmin());
        EXPECT_EQ(State(TEXT("SN_Test")), SERVICE_RUNNING);
        ExpectNoService(Open(TEXT("SN_Test"), SERVICE_STOP), ERROR_ACCESS_DENIED);
        ExpectNoService(OpenManager(SC_MANAGER_CREATE_SERVICE), ERROR_ACCESS_DENIED);
        return;
    }
    SKIP_UNLESS_ADMINISTRATOR();
    EXPECT_TRUE(IsUserAnAdmin());
    ASSERT_TRUE(StartServiceW(Create(TEXT("SN_Test")), 0, nullptr));
    ProcessOptions options;
    options.account = kStranger;
    const ProcessResult result = RunRole("stranger", options);
    EXPECT_EQ(result.exitCode, 0) << result.output;
}

TEST_F(ServiceTest, WellKnownIdentifiersAreMadeInTheirSize) {
    DWORD size = 0;
    ExpectFailure(CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, nullptr, &size),
                  ERROR_INSUFFICIENT_BUFFER);
    std::vector<BYTE> sid(size);
    ASSERT_TRUE(CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, sid.data(), &size));
    const std::vector<BYTE> administrators = {1, 2, 0, 0, 0, 0, 0, 5, 32, 0, 0, 0, 0x20, 2, 0, 0};
    EXPECT_EQ(sid, administrators);
    BOOL isMember = 7;
    ASSERT_TRUE(CheckTokenMembership(nullptr, sid.data(), &isMember));
    EXPECT_EQ(isMember, IsUserAnAdmin());
}

}  // namespace
