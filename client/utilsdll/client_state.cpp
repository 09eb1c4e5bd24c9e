#include "client/utilsdll/client_state.h"

#include <product_registry.h>

#include <cstring>

namespace utilsdll {
namespace {

constexpr KeptValues kValues = {TEXT(SENTREL_PRODUCT_KEY "\\SA_STATE")};
constexpr DWORD kMaxState = 256;  // bytes

}  // namespace

bool ReadStateFlag(const WCHAR* name) {
    std::vector<BYTE> bytes;
    const StateBytes state = kValues.Read(name, REG_DWORD, kMaxState, bytes);
    DWORD flag = 0;
    if (state != StateBytes::kRead || bytes.size() != sizeof flag) {
        return state != StateBytes::kNone;
    }
    std::memcpy(&flag, bytes.data(), sizeof flag);
    return flag != 0;
}

bool WriteStateFlag(const WCHAR* name, bool on) {
    const DWORD flag = on ? 1 : 0;
    return kValues.Write(name, REG_DWORD, &flag, sizeof flag);
}

StateBytes ReadStateBytes(const WCHAR* name, std::vector<BYTE>& bytes) {
    return kValues.Read(name, REG_BINARY, kMaxState, bytes);
}

bool WriteStateBytes(const WCHAR* name, const std::vector<BYTE>& bytes) {
    return kValues.Write(name, REG_BINARY, bytes.data(), bytes.size());
}

bool RemoveState(const WCHAR* name) {
    return kValues.Remove(name);
}

}  // namespace utilsdll
