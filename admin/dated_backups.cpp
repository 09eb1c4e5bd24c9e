#include "admin/dated_backups.h"

#include <windows.h>

#include <algorithm>
#include <functional>
#include <vector>

#include "admin/report.h"
#include "common/format.h"
#include "common/handles.h"
#include "common/path.h"

namespace {

constexpr DWORD kHostCapacity = 256;  // characters
constexpr WStringView kExtension = TEXT(".xml");
constexpr WStringView kDate = TEXT("########-######");  // "#": a digit

constexpr const WCHAR* kNoHost = TEXT("the name of this host cannot be read");

struct FindHandleKind {
    using Type = HANDLE;
    static bool IsOpen(HANDLE find) { return find != nullptr && find != INVALID_HANDLE_VALUE; }
    static void Close(HANDLE find) { FindClose(find); }
};

WString HostName() {
    WCHAR name[kHostCapacity] = {};
    DWORD size = kHostCapacity;
    if (!GetComputerNameExW(ComputerNameDnsHostname, name, &size) || size == 0) {
        throw Failure(ExitCode::kInaccessible, kNoHost);
    }
    return name;
}

bool IsDatedBackup(WStringView name, WStringView host) {
    if (name.size() != host.size() + 1 + kDate.size() + kExtension.size() ||
        !name.starts_with(host) || !name.ends_with(kExtension)) {
        return false;
    }
    return std::ranges::equal(name.substr(host.size() + 1, kDate.size()), kDate,
                              [](WCHAR is, WCHAR pattern) {
                                  return pattern == '#' ? is >= '0' && is <= '9' : is == pattern;
                              });
}

}  // namespace

WString NameDatedBackup(const WString& folder) {
    SYSTEMTIME now = {};
    GetSystemTime(&now);
    return JoinPath(
        folder, FormatWide(TEXT("%s-%04d%02d%02d-%02d%02d%02d.xml"), HostName().c_str(), now.wYear,
                           now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond));
}

int KeepNewestBackups(const WString& folder, const WString& newest, int count) {
    const WString host = HostName();
    std::vector<WString> names;
    WIN32_FIND_DATAW found = {};
    const UniqueResource<FindHandleKind> find(
        FindFirstFileW(JoinPath(folder, host + TEXT("-*.xml")).c_str(), &found));
    for (bool more = static_cast<bool>(find); more; more = FindNextFileW(find.get(), &found)) {
        if (IsDatedBackup(found.cFileName, host) && found.cFileName != FileNameOfPath(newest)) {
            names.emplace_back(found.cFileName);
        }
    }
    std::ranges::sort(names, std::greater<>());
    int deleted = 0;
    for (auto i = static_cast<std::size_t>(count - 1); i < names.size(); ++i) {
        if (DeleteFileW(JoinPath(folder, names[i]).c_str())) ++deleted;
    }
    return deleted;
}
