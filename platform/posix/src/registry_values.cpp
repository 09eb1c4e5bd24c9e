#include <algorithm>
#include <cstring>

#include "registry_keys.h"

using namespace platform;

namespace {

constexpr std::size_t kMaxValueName = 16383;
constexpr DWORD kMaxData = 64u << 20;

// Gives a value's type and data to the caller's places, each of which may be null.
void DeliverData(const HiveValue& value, LPDWORD type, LPBYTE data, LPDWORD size) {
    if (type != nullptr) *type = value.type;
    if (size == nullptr) return;
    const DWORD capacity = *size;
    *size = static_cast<DWORD>(value.data.size());
    if (data == nullptr) return;
    if (capacity < *size) Throw(ERROR_MORE_DATA);
    std::copy(value.data.begin(), value.data.end(), data);
}

}  // namespace

extern "C" {

LSTATUS WINAPI RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType,
                                LPBYTE lpData, LPDWORD lpcbData) {
    if (lpReserved != nullptr || (lpData != nullptr && lpcbData == nullptr)) {
        return ERROR_INVALID_PARAMETER;
    }
    return Report([&] {
        const KeyPlace key = KeyWithRight(hKey, KEY_QUERY_VALUE);
        DeliverData(key.hive->Read(key.id, NameOf(lpValueName)), lpType, lpData, lpcbData);
    });
}

LSTATUS WINAPI RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD Reserved, DWORD dwType,
                              const BYTE* lpData, DWORD cbData) {
    if (Reserved != 0) return ERROR_INVALID_PARAMETER;
    if (lpData == nullptr && cbData != 0) return ERROR_NOACCESS;
    if (cbData > kMaxData) return ERROR_NO_SYSTEM_RESOURCES;
    return Report([&] {
        std::u16string name = NameOf(lpValueName);
        if (name.size() > kMaxValueName) Throw(ERROR_INVALID_PARAMETER);
        const KeyPlace key = KeyWithRight(hKey, KEY_SET_VALUE);
        key.hive->Write(key.id, {std::move(name), dwType, {lpData, lpData + cbData}});
    });
}

LSTATUS WINAPI RegDeleteValueW(HKEY hKey, LPCWSTR lpValueName) {
    return Report([&] {
        const KeyPlace key = KeyWithRight(hKey, KEY_SET_VALUE);
        key.hive->DeleteValue(key.id, NameOf(lpValueName));
    });
}

LSTATUS WINAPI RegEnumValueW(HKEY hKey, DWORD dwIndex, LPWSTR lpValueName, LPDWORD lpcchValueName,
                             LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData) {
    if (lpValueName == nullptr || lpcchValueName == nullptr || lpReserved != nullptr ||
        (lpData != nullptr && lpcbData == nullptr)) {
        return ERROR_INVALID_PARAMETER;
    }
    return Report([&] {
        const KeyPlace key = KeyWithRight(hKey, KEY_QUERY_VALUE);
        const HiveValue value = key.hive->ValueAt(key.id, dwIndex);
        DemandRoom(value.name, lpcchValueName);
        DeliverData(value, lpType, lpData, lpcbData);
        DeliverName(value.name, lpValueName, lpcchValueName);
    });
}
}
