#include "client/sncryptd/crypto_state.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "common/registry_access.h"
#include "cryptd/SNCryptdAPI.h"

namespace {

constexpr KeptValues kValues = {kCryptdStateKey};
constexpr const WCHAR* kFipsError = TEXT("fips_error");
constexpr const WCHAR* kOpenChanges = TEXT("open_changes");
constexpr const WCHAR* kCommitted = TEXT("committed_configuration");

constexpr std::size_t kMaxMessage = 8'191;  // characters
constexpr DWORD kMaxValue = 65'536;         // bytes

// The units of a value: none where it is missing, nothing at all when it cannot be read.
template <typename Unit>
std::optional<std::vector<Unit>> Read(const WCHAR* name, DWORD wantedType) {
    std::vector<BYTE> bytes;
    if (kValues.Read(name, wantedType, kMaxValue, bytes) == KeptValues::State::kUnreadable) {
        return std::nullopt;
    }
    std::vector<Unit> units(bytes.size() / sizeof(Unit));
    if (!units.empty()) std::memcpy(units.data(), bytes.data(), units.size() * sizeof(Unit));
    return units;
}

}  // namespace

WString FipsError() {
    const auto units = Read<WCHAR>(kFipsError, REG_SZ);
    if (!units) return TEXT("(the message cannot be read)");
    return {units->begin(), std::find(units->begin(), units->end(), WCHAR{0})};
}

bool SetFipsError(WStringView message) {
    const WString text(message.substr(0, kMaxMessage));
    return kValues.Write(kFipsError, REG_SZ, text.c_str(), (text.size() + 1) * sizeof(WCHAR));
}

bool ClearFipsError() {
    return kValues.Remove(kFipsError);
}

std::vector<OpenChange> OpenChanges() {
    return Read<OpenChange>(kOpenChanges, REG_BINARY).value_or(std::vector<OpenChange>());
}

bool SetOpenChanges(const std::vector<OpenChange>& changes) {
    return kValues.Write(kOpenChanges, REG_BINARY, changes.data(),
                         changes.size() * sizeof(OpenChange));
}

std::vector<BYTE> CommittedConfiguration() {
    return Read<BYTE>(kCommitted, REG_BINARY).value_or(std::vector<BYTE>());
}

bool SetCommittedConfiguration(const std::vector<BYTE>& digest) {
    return kValues.Write(kCommitted, REG_BINARY, digest.data(), digest.size());
}
