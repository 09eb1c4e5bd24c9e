#include "client/utilsdll/client_state.h"

#include <cstring>

#include "common/handles.h"

namespace utilsdll {
namespace {

constexpr const WCHAR* kStateKey = TEXT("software\\Verdane\\Sentrel\\SA_STATE");
constexpr DWORD kLongestState = 256;  // bytes

StateBytes Read(const WCHAR* name, DWORD wantedType, std::vector<BYTE>& bytes) {
    UniqueRegKey key;
    std::vector<BYTE> data(kLongestState);
    DWORD type = REG_NONE;
    DWORD size = kLongestState;
    LSTATUS result = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kStateKey, 0, KEY_QUERY_VALUE, key.put());
    if (result == ERROR_SUCCESS) {
        result = RegQueryValueExW(key.get(), name, nullptr, &type, data.data(), &size);
    }
    if (result == ERROR_FILE_NOT_FOUND) return StateBytes::kNone;
    if (result != ERROR_SUCCESS || type != wantedType) return StateBytes::kUnreadable;
    data.resize(size);
    bytes.swap(data);
    return StateBytes::kRead;
}

bool Write(const WCHAR* name, DWORD type, const void* data, std::size_t size) {
    UniqueRegKey key;
    return RegCreateKeyExW(HKEY_LOCAL_MACHINE, kStateKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
                           KEY_SET_VALUE, nullptr, key.put(), nullptr) == ERROR_SUCCESS &&
           RegSetValueExW(key.get(), name, 0, type, static_cast<const BYTE*>(data),
                          static_cast<DWORD>(size)) == ERROR_SUCCESS;
}

}  // namespace

bool ReadStateFlag(const WCHAR* name) {
    std::vector<BYTE> bytes;
    const StateBytes state = Read(name, REG_DWORD, bytes);
    DWORD flag = 0;
    if (state != StateBytes::kRead || bytes.size() != sizeof flag) {
        return state != StateBytes::kNone;
    }
    std::memcpy(&flag, bytes.data(), sizeof flag);
    return flag != 0;
}

bool WriteStateFlag(const WCHAR* name, bool on) {
    const DWORD flag = on ? 1 : 0;
    return Write(name, REG_DWORD, &flag, sizeof flag);
}

StateBytes ReadStateBytes(const WCHAR* name, std::vector<BYTE>& bytes) {
    return Read(name, REG_BINARY, bytes);
}

bool WriteStateBytes(const WCHAR* name, const std::vector<BYTE>& bytes) {
    return Write(name, REG_BINARY, bytes.data(), bytes.size());
}

bool RemoveState(const WCHAR* name) {
    UniqueRegKey key;
    LSTATUS result = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kStateKey, 0, KEY_SET_VALUE, key.put());
    if (result == ERROR_SUCCESS) result = RegDeleteValueW(key.get(), name);
    return result == ERROR_SUCCESS || result == ERROR_FILE_NOT_FOUND;
}

}  // namespace utilsdll
