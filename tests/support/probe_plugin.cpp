// A plug-in that does nothing but tell, in the file "calls" beside itself, how it was called. Its
// own file name says which library it stands for. It fails when a file "fail" lies beside it. Where
// a test made the events, it sets "Global\SN_PROBE_CALLED" and goes on when "Global\SN_PROBE_GO_ON"
// is set: the test looks at the machine meanwhile.
#include <client_export.h>
#include <config_plugin.h>

#include <filesystem>
#include <fstream>

#include "common/handles.h"
#include "common/text.h"

#define PROBE_EXPORT extern "C" CLIENT_EXPORT

namespace {

const int anchor = 0;

std::filesystem::path OwnPath() {
    HMODULE self = nullptr;
    WCHAR path[1024] = {};
    GetModuleHandleExW(
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
        reinterpret_cast<LPCWSTR>(&anchor), &self);
    GetModuleFileNameW(self, path, 1024);
    return path;
}

void LetTheTestLook() {
    constexpr DWORD kMaxLook = 30'000;  // milliseconds
    const UniqueHandle called(
        OpenEventW(EVENT_MODIFY_STATE, FALSE, TEXT("Global\\SN_PROBE_CALLED")));
    const UniqueHandle goOn(OpenEventW(SYNCHRONIZE, FALSE, TEXT("Global\\SN_PROBE_GO_ON")));
    if (called && goOn && SetEvent(called.get())) WaitForSingleObject(goOn.get(), kMaxLook);
}

int Tell(const WString& call) {
    const std::filesystem::path self = OwnPath();
    std::ofstream(self.parent_path() / "calls", std::ios::app | std::ios::binary)
        << self.stem().string() << " " << WideToUtf8(call) << "\n";
    LetTheTestLook();
    return std::filesystem::exists(self.parent_path() / "fail") ? 1 : 0;
}

}  // namespace

#ifndef PROBE_WITHOUT_IMPORT
PROBE_EXPORT int WINAPI ImportFromXml(const WCHAR*, const WCHAR* sessionId, const WCHAR* password) {
    return Tell(WString(TEXT("ImportFromXml ")) + sessionId + TEXT(" ") + password);
}
#endif
PROBE_EXPORT int WINAPI ExportToXml(const WCHAR*, const WCHAR* sessionId, const WCHAR* password) {
    return Tell(WString(TEXT("ExportToXml ")) + sessionId + TEXT(" ") + password);
}
PROBE_EXPORT int WINAPI AdvancedOp(const WCHAR*, const WCHAR* operation, const WCHAR* sessionId,
                                   const WCHAR* password) {
    return Tell(WString(TEXT("AdvancedOp ")) + operation + TEXT(" ") + sessionId + TEXT(" ") +
                password);
}
