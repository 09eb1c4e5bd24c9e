#include "registry_keys.h"

#include <unistd.h>

#include <algorithm>

#include "thread_identity.h"

namespace platform {
namespace {

constexpr std::size_t kMaxKeyName = 255;
constexpr REGSAM kRightsToWrite =
    KEY_SET_VALUE | KEY_CREATE_SUB_KEY | KEY_CREATE_LINK | DELETE | WRITE_DAC | WRITE_OWNER;

KeyPath SplitPath(std::u16string_view path) {
    KeyPath names;
    if (path.empty()) return names;
    if (path.front() == u'\\') Throw(ERROR_BAD_PATHNAME);
    while (!path.empty()) {
        const std::size_t end = std::min(path.find(u'\\'), path.size());
        if (end > kMaxKeyName) Throw(ERROR_INVALID_PARAMETER);
        if (end > 0) names.emplace_back(path.substr(0, end));
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return names;
}

bool IsPredefined(HKEY key) {
    return key == HKEY_LOCAL_MACHINE || key == HKEY_CURRENT_USER || key == HKEY_USERS ||
           key == HKEY_CLASSES_ROOT;
}

uid_t OwnAccount() {
    static const uid_t account = geteuid();
    return account;
}

// The account that a name below HKEY_USERS stands for.
uid_t AccountNamed(const std::u16string& name) {
    unsigned long long account = 0;
    for (const char16_t digit : name) {
        if (digit < u'0' || digit > u'9' || account > 0xFFFF'FFFFu) Throw(ERROR_FILE_NOT_FOUND);
        account = account * 10 + static_cast<unsigned>(digit - u'0');
    }
    if (account >= 0xFFFF'FFFFu) Throw(ERROR_FILE_NOT_FOUND);
    return static_cast<uid_t>(account);
}

REGSAM WithGenericRights(REGSAM desired) {
    const std::pair<REGSAM, REGSAM> generic[] = {{GENERIC_READ, KEY_READ},
                                                 {GENERIC_EXECUTE, KEY_READ},
                                                 {GENERIC_WRITE, KEY_WRITE},
                                                 {GENERIC_ALL, KEY_ALL_ACCESS}};
    for (const auto& [right, meaning] : generic) {
        if ((desired & right) != 0) desired = (desired & ~right) | meaning;
    }
    return desired;
}

// The rights that the thread's account is granted of the desired ones.
REGSAM Grant(const Hive& hive, REGSAM desired) {
    // 1. The view. There is one; asking for the 64-bit one by name changes nothing.
    if ((desired & KEY_WOW64_32KEY) != 0) {
        Throw((desired & KEY_WOW64_64KEY) != 0 ? ERROR_INVALID_PARAMETER : ERROR_NOT_SUPPORTED);
    }
    desired = WithGenericRights(desired & ~static_cast<REGSAM>(KEY_WOW64_64KEY));
    // 2. A handle without a right is not given out.
    if (desired == 0) Throw(ERROR_ACCESS_DENIED);
    DemandRead(hive);
    if ((desired & kRightsToWrite) != 0) DemandWrite(hive);
    // 3. All that the account may have.
    if ((desired & MAXIMUM_ALLOWED) == 0) return desired;
    return (desired & ~static_cast<REGSAM>(MAXIMUM_ALLOWED)) |
           static_cast<REGSAM>(hive.MayWrite() ? KEY_ALL_ACCESS : KEY_READ);
}

}  // namespace

void DemandRead(const Hive& hive) {
    if (!hive.MayRead()) Throw(ERROR_ACCESS_DENIED);
}

void DemandWrite(const Hive& hive) {
    if (!hive.MayWrite()) Throw(ERROR_ACCESS_DENIED);
}

void DemandRoom(std::u16string_view name, const DWORD* capacity) {
    if (name.size() >= *capacity) Throw(ERROR_MORE_DATA);
}

void DeliverName(std::u16string_view name, LPWSTR buffer, LPDWORD capacity) {
    DemandRoom(name, capacity);
    *std::copy(name.begin(), name.end(), buffer) = 0;
    *capacity = static_cast<DWORD>(name.size());
}

PathPlace Locate(HKEY key, LPCWSTR path) {
    KeyPath names = SplitPath(path == nullptr ? std::u16string_view() : path);
    if (key == HKEY_LOCAL_MACHINE) return {{Hive::OfMachine()}, std::move(names)};
    if (key == HKEY_CURRENT_USER) return {{Hive::OfAccount(OwnAccount())}, std::move(names)};
    if (key == HKEY_CLASSES_ROOT) {
        names.insert(names.begin(), {u"Software", u"Classes"});
        return {{Hive::OfMachine()}, std::move(names)};
    }
    if (key == HKEY_USERS) {
        if (names.empty()) Throw(ERROR_NOT_SUPPORTED);
        const uid_t account = AccountNamed(names.front());
        names.erase(names.begin());
        return {{Hive::OfAccount(account)}, std::move(names)};
    }
    const auto opened = ObjectOf<OpenedKey>(key);
    if (!opened) Throw(ERROR_INVALID_HANDLE);
    return {{opened->hive, opened->id}, std::move(names)};
}

KeyPlace Find(const PathPlace& place) {
    DemandRead(*place.start.hive);
    const auto id = place.start.hive->Find(place.start.id, place.path);
    if (!id) Throw(ERROR_FILE_NOT_FOUND);
    return {place.start.hive, *id};
}

KeyPlace KeyWithRight(HKEY key, REGSAM right) {
    if (IsPredefined(key)) {
        const PathPlace place = Locate(key, nullptr);
        DemandRead(*place.start.hive);
        if ((right & kRightsToWrite) != 0) DemandWrite(*place.start.hive);
        return Find(place);
    }
    const auto opened = ObjectOf<OpenedKey>(key);
    if (!opened) Throw(ERROR_INVALID_HANDLE);
    if ((opened->granted & right) != right) Throw(ERROR_ACCESS_DENIED);
    return {opened->hive, opened->id};
}

HKEY OpenKeyHandle(const KeyPlace& place, REGSAM desired) {
    const REGSAM granted = Grant(*place.hive, desired);
    return static_cast<HKEY>(
        OpenHandle(std::make_shared<OpenedKey>(place.hive, place.id, granted)));
}

}  // namespace platform

using namespace platform;

extern "C" {

LSTATUS WINAPI RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD ulOptions, REGSAM samDesired,
                             PHKEY phkResult) {
    if (phkResult == nullptr) return ERROR_INVALID_PARAMETER;
    if (ulOptions != 0) return ERROR_NOT_SUPPORTED;
    return Report([&] {
        *phkResult = IsPredefined(hKey) && NameOf(lpSubKey).empty()
                         ? hKey
                         : OpenKeyHandle(Find(Locate(hKey, lpSubKey)), samDesired);
    });
}

LSTATUS WINAPI RegCreateKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD Reserved, LPWSTR lpClass,
                               DWORD dwOptions, REGSAM samDesired,
                               SECURITY_ATTRIBUTES* lpSecurityAttributes, PHKEY phkResult,
                               LPDWORD lpdwDisposition) {
    if (phkResult == nullptr || lpSubKey == nullptr || Reserved != 0)
        return ERROR_INVALID_PARAMETER;
    if (!NameOf(lpClass).empty() || dwOptions != REG_OPTION_NON_VOLATILE ||
        lpSecurityAttributes != nullptr) {
        return ERROR_NOT_SUPPORTED;
    }
    return Report([&] {
        // 1. An existing key is opened: an account that may only read gets it too.
        const PathPlace place = Locate(hKey, lpSubKey);
        Hive& hive = *place.start.hive;
        DemandRead(hive);
        const auto found = hive.Find(place.start.id, place.path);
        Hive::Created key{found.value_or(kRootKey), false};
        // 2. A missing one is made, unless the handle would not be granted.
        if (!found) {
            Grant(hive, samDesired);
            DemandWrite(hive);
            key = hive.Create(place.start.id, place.path);
        }
        *phkResult = OpenKeyHandle({place.start.hive, key.key}, samDesired);
        if (lpdwDisposition != nullptr) {
            *lpdwDisposition = key.isNew ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
        }
    });
}

LSTATUS WINAPI RegOpenCurrentUser(REGSAM samDesired, PHKEY phkResult) {
    if (phkResult == nullptr) return ERROR_INVALID_PARAMETER;
    return Report(
        [&] { *phkResult = OpenKeyHandle({Hive::OfAccount(ThreadAccount())}, samDesired); });
}

LSTATUS WINAPI RegCloseKey(HKEY hKey) {
    if (IsPredefined(hKey)) return ERROR_SUCCESS;
    const bool closed = ObjectOf<OpenedKey>(hKey) && ReleaseHandle(hKey);
    return closed ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

LSTATUS WINAPI RegDeleteKeyW(HKEY hKey, LPCWSTR lpSubKey) {
    if (lpSubKey == nullptr) return ERROR_INVALID_PARAMETER;
    return Report([&] {
        const KeyPlace key = Find(Locate(hKey, lpSubKey));
        DemandWrite(*key.hive);
        key.hive->DeleteLeaf(key.id);
    });
}

LSTATUS WINAPI RegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcchName,
                             LPDWORD lpReserved, LPWSTR lpClass, LPDWORD lpcchClass,
                             LPFILETIME lpftLastWriteTime) {
    if (lpName == nullptr || lpcchName == nullptr || lpReserved != nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    if (lpClass != nullptr || lpcchClass != nullptr || lpftLastWriteTime != nullptr) {
        return ERROR_NOT_SUPPORTED;
    }
    return Report([&] {
        const KeyPlace key = KeyWithRight(hKey, KEY_ENUMERATE_SUB_KEYS);
        DeliverName(key.hive->SubkeyAt(key.id, dwIndex), lpName, lpcchName);
    });
}

LSTATUS WINAPI RegQueryInfoKeyW(HKEY hKey, LPWSTR lpClass, LPDWORD lpcchClass, LPDWORD lpReserved,
                                LPDWORD lpcSubKeys, LPDWORD lpcbMaxSubKeyLen,
                                LPDWORD lpcbMaxClassLen, LPDWORD lpcValues,
                                LPDWORD lpcbMaxValueNameLen, LPDWORD lpcbMaxValueLen,
                                LPDWORD lpcbSecurityDescriptor, LPFILETIME lpftLastWriteTime) {
    if (lpReserved != nullptr) return ERROR_INVALID_PARAMETER;
    const void* const others[] = {
        lpClass,          lpcchClass,          lpcSubKeys,      lpcbMaxSubKeyLen,
        lpcbMaxClassLen,  lpcbMaxValueNameLen, lpcbMaxValueLen, lpcbSecurityDescriptor,
        lpftLastWriteTime};
    if (!std::ranges::all_of(others, [](const void* place) { return place == nullptr; })) {
        return ERROR_NOT_SUPPORTED;
    }
    return Report([&] {
        const KeyPlace key = KeyWithRight(hKey, KEY_QUERY_VALUE);
        if (lpcValues != nullptr) *lpcValues = key.hive->CountValues(key.id);
    });
}
}
