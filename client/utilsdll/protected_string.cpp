#include "client/utilsdll/protected_string.h"

#include <windows.h>
// (after the types)
#include <dpapi.h>

#include <algorithm>

#include "client/include/utilsdll.h"
#include "common/hex.h"

namespace utilsdll {
namespace {

constexpr WStringView kMachineMarker = TEXT("SNP1 ");
constexpr WStringView kUserMarker = TEXT("SNP2 ");
constexpr WStringView kPlainMarker = TEXT("SNP0 ");

// Ties the blobs to this use: one that was made for another does not open here.
DATA_BLOB Purpose() {
    static BYTE text[] = "Sentrel protected registry string";
    return {sizeof text - 1, text};
}

// What the system's data protection returned: wiped and given back.
struct Blob : DATA_BLOB {
    Blob() : DATA_BLOB{0, nullptr} {}
    Blob(const Blob&) = delete;
    Blob& operator=(const Blob&) = delete;
    ~Blob() {
        if (pbData == nullptr) return;
        WipeMemory(pbData, cbData);
        LocalFree(pbData);
    }
};

DWORD ProtectionFlags(Protection protection) {
    return CRYPTPROTECT_UI_FORBIDDEN |
           (protection == Protection::kMachine ? CRYPTPROTECT_LOCAL_MACHINE : 0U);
}

bool HasAnyMarker(WStringView text) {
    return text.starts_with(kPlainMarker) || text.starts_with(kMachineMarker) ||
           text.starts_with(kUserMarker);
}

bool OpenBlob(WStringView digits, Protection protection, SecureText& text) {
    std::vector<BYTE> bytes(digits.size() / 2);
    auto size = static_cast<DWORD>(bytes.size());
    if (hex2bin(digits.data(), static_cast<DWORD>(digits.size()), bytes.data(), &size) != 0) {
        return false;
    }
    DATA_BLOB stored{size, bytes.data()};
    DATA_BLOB purpose = Purpose();
    Blob plain;
    if (!CryptUnprotectData(&stored, nullptr, &purpose, nullptr, nullptr,
                            ProtectionFlags(protection), &plain)) {
        return false;
    }
    const WStringView units(reinterpret_cast<const WCHAR*>(plain.pbData),
                            plain.cbData / sizeof(WCHAR));
    if (units.empty() || units.back() != 0) return false;
    text = units.substr(0, units.size() - 1);
    return true;
}

}  // namespace

bool ProtectString(WStringView text, Protection protection, WString& stored) {
    SecureText terminated(text);
    DATA_BLOB plain{static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR)),
                    const_cast<BYTE*>(reinterpret_cast<const BYTE*>(terminated.c_str()))};
    DATA_BLOB purpose = Purpose();
    Blob blob;
    if (!CryptProtectData(&plain, nullptr, &purpose, nullptr, nullptr, ProtectionFlags(protection),
                          &blob)) {
        return false;
    }
    stored = protection == Protection::kMachine ? kMachineMarker : kUserMarker;
    stored += Utf8ToWide(BytesToHex(blob.pbData, blob.cbData));
    return true;
}

WString StoreString(WStringView text) {
    WString stored(HasAnyMarker(text) ? kPlainMarker : WStringView());
    return stored.append(text);
}

bool IsProtectedString(WStringView stored) {
    if (!stored.starts_with(kMachineMarker) && !stored.starts_with(kUserMarker)) return false;
    const WStringView digits = stored.substr(kMachineMarker.size());
    return !digits.empty() && digits.size() % 2 == 0 &&
           digits.find_first_not_of(TEXT("0123456789ABCDEF")) == WStringView::npos;
}

bool ReadStoredString(WStringView stored, SecureText& text) {
    const WStringView rest = stored.substr(std::min(stored.size(), kPlainMarker.size()));
    if (IsProtectedString(stored)) {
        return OpenBlob(
            rest, stored.starts_with(kUserMarker) ? Protection::kUser : Protection::kMachine, text);
    }
    text = stored.starts_with(kPlainMarker) && HasAnyMarker(rest) ? rest : stored;
    return true;
}

}  // namespace utilsdll
