#include "client/utilsdll/temp_file.h"

#include <bcrypt.h>
#include <sddl.h>

#include <exception>
#include <list>
#include <mutex>
#include <vector>

#include "common/handles.h"
#include "common/hex.h"
#include "common/path.h"
#include "common/security.h"

namespace utilsdll {
namespace {

constexpr const WCHAR* kFolderPrefix = TEXT("SNC-");
constexpr std::size_t kNameBytes = 16;  // of a folder's random name
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD kFolderItself = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT;

// kOwnerAlone for a folder, and for what is made in it.
constexpr const WCHAR* kFolderAccess = TEXT("D:P(A;OICI;GA;;;OW)(A;OICI;GA;;;SY)(A;OICI;GA;;;BA)");
// For an account besides: to pass through a folder, and to read and write a file's data, but not to
// delete or rename it or to change who may use it.
constexpr const WCHAR* kPass = TEXT("(A;;0x1000a0;;;");
constexpr const WCHAR* kReadAndWrite = TEXT("(A;;0x12019f;;;");

// The text of the identifier of a token's account; empty when it cannot be told.
WString AccountOf(HANDLE token) {
    std::vector<BYTE> user(sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE);
    auto size = static_cast<DWORD>(user.size());
    LPWSTR text = nullptr;
    if (!GetTokenInformation(token, TokenUser, user.data(), size, &size) ||
        !ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(user.data())->User.Sid, &text)) {
        return {};
    }
    WString account(text);
    LocalFree(text);
    return account;
}

// While it lives the thread acts as the process, whomever it impersonates.
class AsProcess {
  public:
    AsProcess() {
        constexpr DWORD kAccess = TOKEN_QUERY | TOKEN_DUPLICATE | TOKEN_IMPERSONATE;
        if (OpenThreadToken(GetCurrentThread(), kAccess, TRUE, token_.put())) RevertToSelf();
    }
    AsProcess(const AsProcess&) = delete;
    AsProcess& operator=(const AsProcess&) = delete;
    ~AsProcess() {
        // A thread must not go on with rights that it had given up.
        if (token_ && !ImpersonateLoggedOnUser(token_.get())) std::terminate();
    }

    // The account that the thread impersonates; empty for the process's own.
    WString Impersonated() const {
        UniqueHandle own;
        if (!token_ || !OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, own.put())) return {};
        const WString account = AccountOf(token_.get());
        return account == AccountOf(own.get()) ? WString() : account;
    }

  private:
    UniqueHandle token_;
};

// An access list with an entry for the account, where there is one.
WString WithEntry(const WCHAR* list, const WCHAR* entry, const WString& account) {
    WString text = list;
    if (!account.empty()) text.append(entry).append(account).append(TEXT(")"));
    return text;
}

// Random digits; empty when the system has none to give.
WString RandomName(std::size_t bytes) {
    std::vector<BYTE> random(bytes);
    if (!BCRYPT_SUCCESS(BCryptGenRandom(nullptr, random.data(), static_cast<ULONG>(bytes),
                                        BCRYPT_USE_SYSTEM_PREFERRED_RNG))) {
        return {};
    }
    return Utf8ToWide(BytesToHex(random.data(), bytes));
}

struct SearchKind {
    using Type = HANDLE;
    static bool IsOpen(HANDLE search) {
        return search != nullptr && search != INVALID_HANDLE_VALUE;
    }
    static void Close(HANDLE search) { FindClose(search); }
};

// The names in a folder that begin with `prefix`, of folders or of what is none. A link to a folder
// is none.
std::vector<WString> NamesIn(const WString& folder, const WString& prefix, bool ofFolders) {
    std::vector<WString> names;
    WIN32_FIND_DATAW found = {};
    const UniqueResource<SearchKind> search(
        FindFirstFileW(JoinPath(folder, prefix + TEXT("*")).c_str(), &found));
    for (BOOL more = search ? TRUE : FALSE; more; more = FindNextFileW(search.get(), &found)) {
        const bool isFolder =
            (found.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) ==
            FILE_ATTRIBUTE_DIRECTORY;
        if (isFolder == ofFolders) names.emplace_back(found.cFileName);
    }
    return names;
}

// Whoever made a folder holds it open as one that may be deleted; who denies that finds it in use.
UniqueHandle Hold(const WString& folder) {
    return UniqueHandle(CreateFileW(folder.c_str(), DELETE | SYNCHRONIZE, kShareAll, nullptr,
                                    OPEN_EXISTING, kFolderItself, nullptr));
}
UniqueHandle HoldUnlessInUse(const WString& folder) {
    return UniqueHandle(CreateFileW(folder.c_str(), FILE_READ_DATA | READ_CONTROL | SYNCHRONIZE,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                    kFolderItself, nullptr));
}

// Removes the folders of processes that ended without doing so themselves. Who made one of such a
// name for the process to find is not obeyed: the folder could lead elsewhere.
void RemoveLeftFolders(const WString& base) {
    const std::size_t length = WStringView(kFolderPrefix).size() + 2 * kNameBytes;
    for (const WString& name : NamesIn(base, kFolderPrefix, true)) {
        const WString folder = JoinPath(base, name);
        if (name.size() != length) continue;
        {
            const UniqueHandle held = HoldUnlessInUse(folder);
            if (!held || !IsOwnedByTrusted(held.get())) continue;
            for (const WString& file : NamesIn(folder, {}, false)) {
                DeleteFileW(JoinPath(folder, file).c_str());
            }
        }
        RemoveDirectoryW(folder.c_str());
    }
}

// A folder of this process's own, for the files of one account.
class RunFolder {
  public:
    RunFolder(const WString& base, const WString& account) : base_(base), account_(account) {
        const WString name = RandomName(kNameBytes);
        AccessList access(WithEntry(kFolderAccess, kPass, account).c_str());
        if (name.empty() || access.get() == nullptr) return;
        path_ = JoinPath(base, kFolderPrefix + name);
        if (!CreateDirectoryW(path_.c_str(), access.get())) return;
        held_ = Hold(path_);
    }
    RunFolder(const RunFolder&) = delete;
    RunFolder& operator=(const RunFolder&) = delete;
    ~RunFolder() {
        held_.reset();
        if (!path_.empty()) RemoveDirectoryW(path_.c_str());
    }

    bool IsFor(const WString& base, const WString& account) const {
        return base == base_ && account == account_;
    }

    // A new file in it; empty when none can be made.
    WString MakeFile(const WString& prefix) const {
        constexpr std::size_t kFileNameBytes = 8;
        const WString name = RandomName(kFileNameBytes);
        AccessList access(WithEntry(kOwnerAlone, kReadAndWrite, account_).c_str());
        if (!held_ || name.empty() || access.get() == nullptr) return {};
        WString path = JoinPath(path_, prefix + name + TEXT(".tmp"));
        const UniqueHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, access.get(),
                                            CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
        return file ? path : WString();
    }

  private:
    WString base_;
    WString account_;
    WString path_;
    UniqueHandle held_;
};

}  // namespace

WString MakeTempFile(const WString& folder, const WString& prefix) {
    static std::mutex mutex;
    static std::list<RunFolder> runFolders;
    const AsProcess process;
    const WString account = process.Impersonated();
    const std::lock_guard lock(mutex);
    // A folder that is there may be removed with its last file, and one that is new may be taken
    // for a left one before it is held.
    constexpr int kTries = 4;
    for (int i = 0; i < kTries; ++i) {
        for (const RunFolder& known : runFolders) {
            if (!known.IsFor(folder, account)) continue;
            if (WString path = known.MakeFile(prefix); !path.empty()) return path;
        }
        runFolders.remove_if([&](const RunFolder& known) { return known.IsFor(folder, account); });
        RemoveLeftFolders(folder);
        runFolders.emplace_back(folder, account);
    }
    return {};
}

}  // namespace utilsdll
