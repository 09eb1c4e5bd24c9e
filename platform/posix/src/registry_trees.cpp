#include <shlwapi.h>
#include <winternl.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "registry_keys.h"

using namespace platform;

namespace {

std::u16string FullName(const OpenedKey& key) {
    std::u16string name = u"\\REGISTRY\\" + key.hive->Name();
    for (const std::u16string& part : key.hive->PathOf(key.id)) name += u"\\" + part;
    return name;
}

}  // namespace

extern "C" {

DWORD WINAPI SHDeleteKeyW(HKEY hkey, LPCWSTR pszSubKey) {
    if (pszSubKey == nullptr) return ERROR_INVALID_PARAMETER;
    return static_cast<DWORD>(Report([&] {
        const KeyPlace key = Find(Locate(hkey, pszSubKey));
        DemandWrite(*key.hive);
        key.hive->DeleteTree(key.id);
    }));
}

// The tree is read whole before any of it is written: the destination may lie inside the source.
DWORD WINAPI SHCopyKeyW(HKEY hkeySrc, LPCWSTR wszSrcSubKey, HKEY hkeyDest, DWORD fReserved) {
    if (fReserved != 0) return ERROR_INVALID_PARAMETER;
    return static_cast<DWORD>(Report([&] {
        const KeyPlace source = Find(Locate(hkeySrc, wszSrcSubKey));
        const KeyPlace destination = KeyWithRight(hkeyDest, KEY_SET_VALUE | KEY_CREATE_SUB_KEY);
        destination.hive->WriteTree(destination.id, source.hive->ReadTree(source.id));
    }));
}

NTSTATUS WINAPI NtQueryKey(HANDLE KeyHandle, KEY_INFORMATION_CLASS KeyInformationClass,
                           PVOID KeyInformation, ULONG Length, ULONG* ResultLength) {
    if (KeyInformationClass != KeyNameInformation) return STATUS_NOT_SUPPORTED;
    if (ResultLength == nullptr) return STATUS_INVALID_PARAMETER;
    const auto key = ObjectOf<OpenedKey>(KeyHandle);
    if (!key) return STATUS_INVALID_HANDLE;
    std::u16string name;
    const LSTATUS result = Report([&] { name = FullName(*key); });
    if (result == ERROR_KEY_DELETED) return STATUS_KEY_DELETED;
    if (result != ERROR_SUCCESS) return STATUS_REGISTRY_IO_FAILED;

    constexpr std::size_t kHeader = offsetof(KEY_NAME_INFORMATION, Name);
    const std::size_t bytes = name.size() * sizeof(WCHAR);
    *ResultLength = static_cast<ULONG>(kHeader + bytes);
    if (KeyInformation == nullptr || Length < kHeader) return STATUS_BUFFER_TOO_SMALL;
    auto* const answer = static_cast<KEY_NAME_INFORMATION*>(KeyInformation);
    answer->NameLength = static_cast<ULONG>(bytes);
    std::memcpy(static_cast<BYTE*>(KeyInformation) + kHeader, name.data(),
                std::min(bytes, Length - kHeader));
    return Length < *ResultLength ? STATUS_BUFFER_OVERFLOW : STATUS_SUCCESS;
}
}
