#include "client/utilsdll/registry_lock.h"

#include <product_registry.h>

#include <atomic>
#include <vector>

#include "client/include/utilsdll.h"
#include "client/utilsdll/boundary.h"
#include "client/utilsdll/bypass.h"
#include "client/utilsdll/lock_password.h"
#include "common/handles.h"
#include "common/text.h"

// The system's native call that knows a key's name, which programs find in ntdll by its name; the
// SDK's headers do not declare it.
enum KEY_INFORMATION_CLASS { KeyNameInformation = 3 };
using NtQueryKeyFunction = LONG(WINAPI*)(HANDLE key, KEY_INFORMATION_CLASS what, PVOID information,
                                         ULONG length, ULONG* resultLength);

namespace utilsdll {
namespace {

constexpr const WCHAR* kLockKey = TEXT(SENTREL_PRODUCT_KEY "\\SA_LOCK");
constexpr const WCHAR* kLockValue = TEXT("registry_locked");

// --- Keys ---------------------------------------------------------------------------------------

UniqueRegKey OpenKey(HKEY parent, const WCHAR* path) {
    UniqueRegKey key;
    RegOpenKeyExW(parent, path, 0, KEY_QUERY_VALUE, key.put());
    return key;
}

// A hive root such as HKEY_LOCAL_MACHINE is a number, not an open handle.
bool IsRoot(HKEY key) {
    return (static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(key)) & 0x80000000U) != 0;
}

// What KeyNameInformation gives.
struct KeyName {
    ULONG bytes;
    WCHAR text[1];
};

NtQueryKeyFunction QueryKeyFunction() {
    static const UniqueLibrary library(LoadLibraryW(TEXT("ntdll")));
    if (!library) return nullptr;
    return reinterpret_cast<NtQueryKeyFunction>(
        reinterpret_cast<void*>(GetProcAddress(library.get(), "NtQueryKey")));
}

// The name of an open key from the root of all hives down, as the registry stores it: two handles
// of one key give the same text. Empty when it cannot be learnt.
WString NameOfKey(HKEY key) {
    static const NtQueryKeyFunction query = QueryKeyFunction();
    if (query == nullptr) return {};
    ULONG size = 0;
    query(key, KeyNameInformation, nullptr, 0, &size);
    std::vector<ULONG> memory(size / sizeof(ULONG) + 1);
    const auto* name = reinterpret_cast<const KeyName*>(memory.data());
    if (size < sizeof(KeyName) || query(key, KeyNameInformation, memory.data(), size, &size) != 0) {
        return {};
    }
    return {name->text, name->bytes / sizeof(WCHAR)};
}

bool IsAtOrBelow(const WString& name, const WString& ancestor) {
    return name == ancestor || name.starts_with(ancestor + TEXT('\\'));
}

WStringView ParentPath(WStringView path) {
    const auto separator = path.find_last_of(TEXT('\\'));
    return separator == WStringView::npos ? WStringView() : path.substr(0, separator);
}

// --- The lock's state ---------------------------------------------------------------------------

// In doubt the lock is stored.
bool IsLockStored() {
    UniqueRegKey key;
    const LSTATUS opened =
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, kLockKey, 0, KEY_QUERY_VALUE, key.put());
    if (opened != ERROR_SUCCESS) return opened != ERROR_FILE_NOT_FOUND;
    DWORD state = 0;
    DWORD type = 0;
    DWORD size = sizeof state;
    const LSTATUS read = RegQueryValueExW(key.get(), kLockValue, nullptr, &type,
                                          reinterpret_cast<BYTE*>(&state), &size);
    if (read != ERROR_SUCCESS) return read != ERROR_FILE_NOT_FOUND;
    return type != REG_DWORD || size != sizeof state || state != 0;
}

bool StoreLock(bool lock) {
    UniqueRegKey key;
    const LSTATUS opened =
        lock ? RegCreateKeyExW(HKEY_LOCAL_MACHINE, kLockKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
                               KEY_SET_VALUE, nullptr, key.put(), nullptr)
             : RegOpenKeyExW(HKEY_LOCAL_MACHINE, kLockKey, 0, KEY_SET_VALUE, key.put());
    if (opened != ERROR_SUCCESS) return !lock && opened == ERROR_FILE_NOT_FOUND;
    const DWORD state = lock ? 1 : 0;
    return RegSetValueExW(key.get(), kLockValue, 0, REG_DWORD,
                          reinterpret_cast<const BYTE*>(&state), sizeof state) == ERROR_SUCCESS;
}

bool DoesLockCount() {
    return IsLockStored() && IsLockPasswordSet();
}

bool MayPassLock() {
    return HoldsBypasses() && IsLockPasswordConfirmed();
}

std::atomic<bool> hasLease = false;
// The tick of the system's clock in which the lock was last seen not to count; 0 for none. Until
// the next tick the writes of a restore do not look it up again, each of them.
std::atomic<ULONGLONG> unlockedTick = 0;

}  // namespace

bool IsRegistryLocked() {
    return DoesLockCount() && !(hasLease && MayPassLock());
}

bool SetRegistryLock() {
    hasLease = false;
    unlockedTick = 0;
    return IsLockPasswordSet() && StoreLock(true);
}

bool UnsetRegistryLock() {
    if (!MayPassLock()) return ClearRegistryLock();
    hasLease = true;
    return true;
}

bool ClearRegistryLock() {
    return StoreLock(false);
}

bool MayWriteSettings() {
    const ULONGLONG now = GetTickCount64();
    if (now == unlockedTick) return true;
    if (DoesLockCount()) return MayPassLock();
    unlockedTick = now;
    return true;
}

bool MayWrite(HKEY key) {
    if (MayWriteSettings() || IsRoot(key)) return true;
    const UniqueRegKey product = OpenKey(HKEY_LOCAL_MACHINE, kProductKey);
    if (!product) return false;
    const WString name = NameOfKey(key);
    const WString productName = NameOfKey(product.get());
    return !name.empty() && !productName.empty() && !IsAtOrBelow(name, productName);
}

bool MayCreate(HKEY parent, const WCHAR* path) {
    if (MayWriteSettings() || OpenKey(parent, path)) return true;
    // The new key goes below the deepest key of the path that exists; the product key does.
    for (WString above(ParentPath(path)); !above.empty(); above = ParentPath(above)) {
        if (const UniqueRegKey key = OpenKey(parent, above.c_str())) return MayWrite(key.get());
    }
    return MayWrite(parent);
}

}  // namespace utilsdll

extern "C" bool sec_is_registry_locked() {
    return Guarded(true, [] { return utilsdll::IsRegistryLocked(); });
}

extern "C" bool sec_set_sa_registry_lock(bool lock) {
    return Guarded(false, [lock] {
        return lock ? utilsdll::SetRegistryLock() : utilsdll::UnsetRegistryLock();
    });
}

extern "C" bool sec_may_write_registry() {
    return Guarded(false, [] { return utilsdll::MayWriteSettings(); });
}
