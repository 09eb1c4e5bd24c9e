#include "client/sncryptd/configuration_digest.h"

#include <openssl/evp.h>
#include <product_registry.h>
#include <utilsdll.h>

#include "common/handles.h"
#include "common/openssl_owner.h"
#include "common/registry_access.h"
#include "common/text.h"

namespace {

// Below it; what the client keeps there about itself changes without a configuration change.
constexpr const WCHAR* kStateKeys[] = {TEXT("SA_LOCK"), TEXT("SA_SNCRYPTD"), TEXT("SA_STATE")};

// Others may change the configuration while it is read: then it is read again.
constexpr int kFurtherTries = 20;
constexpr DWORD kPauseMilliseconds = 10;

// Whether a path is, or lies below, a key that holds the client's own state.
bool IsState(WStringView path) {
    path.remove_prefix(std::min(path.size(), WStringView(kProductKey).size() + 1));
    const WStringView first = path.substr(0, path.find('\\'));
    for (const WCHAR* key : kStateKeys) {
        if (EqualIgnoringCase(first, key)) return true;
    }
    return false;
}

class Digest {
  public:
    Digest() { isSound_ = EVP_DigestInit_ex2(context_.get(), EVP_sha256(), nullptr) == 1; }

    // Takes in a key: its path and its values.
    void AddKey(HKEY key, WStringView path) {
        Add(path.data(), path.size() * sizeof(WCHAR));
        std::vector<RegistryValue> values;
        isSound_ = isSound_ && ReadValues(key, values);
        for (const RegistryValue& value : values) {
            Add(value.name.data(), value.name.size() * sizeof(WCHAR));
            Add(&value.type, sizeof value.type);
            Add(value.data.data(), value.data.size());
        }
    }

    std::vector<BYTE> Result() {
        std::vector<BYTE> digest(32);
        isSound_ = isSound_ && EVP_DigestFinal_ex(context_.get(), digest.data(), nullptr) == 1;
        return isSound_ ? digest : std::vector<BYTE>();
    }

  private:
    // A piece with its size, so that no two lists of pieces look the same.
    void Add(const void* bytes, std::size_t size) {
        isSound_ = isSound_ && EVP_DigestUpdate(context_.get(), &size, sizeof size) == 1 &&
                   EVP_DigestUpdate(context_.get(), bytes, size) == 1;
    }

    UniqueOpenSsl<EVP_MD_CTX, EVP_MD_CTX_free> context_{EVP_MD_CTX_new()};
    bool isSound_ = false;
};

// Empty also when a key or a value went or grew while it was read.
std::vector<BYTE> DigestAtOnce() {
    Digest digest;
    UniqueRegKey product;
    const LSTATUS opened =
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, kProductKey, 0, KEY_READ, product.put());
    if (opened == ERROR_FILE_NOT_FOUND) return digest.Result();
    if (opened != ERROR_SUCCESS) return {};
    digest.AddKey(product.get(), kProductKey);
    const auto addKey = [](HKEY key, const WCHAR* path, void* context) {
        if (!IsState(path)) static_cast<Digest*>(context)->AddKey(key, path);
        return true;
    };
    if (!reg_walk2W(product.get(), kProductKey, addKey, &digest)) return {};
    return digest.Result();
}

}  // namespace

std::vector<BYTE> ConfigurationDigest() {
    std::vector<BYTE> digest = DigestAtOnce();
    for (int i = 0; digest.empty() && i < kFurtherTries; ++i) {
        Sleep(kPauseMilliseconds);
        digest = DigestAtOnce();
    }
    return digest;
}
