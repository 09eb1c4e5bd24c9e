#include "protect/key_material.h"

#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/rand.h>
#include <product_registry.h>
#include <utilsdll.h>

#include <algorithm>

#include "common/handles.h"
#include "common/openssl_owner.h"
#include "common/secure_text.h"
#include "cryptd/SNCryptdAPI.h"

namespace {

constexpr const WCHAR* kNoEntropy = TEXT("FIPS Error: Failed to obtain entropy.");
constexpr char kInfo[] = {'D', 'a', 't', 'a'};
constexpr REGSAM kKeyAccess = KEY_READ | KEY_SET_VALUE | KEY_CREATE_SUB_KEY | KEY_WOW64_64KEY;

KeyMaterial machineMaterial;
KeyMaterial userMaterial;

using UniquePkeyContext = UniqueOpenSsl<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;

// A buffer of a slot's size that is wiped at the end.
struct SlotBytes {
    SlotBytes() = default;
    SlotBytes(const SlotBytes&) = delete;
    SlotBytes& operator=(const SlotBytes&) = delete;
    ~SlotBytes() { WipeMemory(bytes, sizeof bytes); }
    BYTE bytes[kSlotSize] = {};
};

// HMAC with SHA3-512, as long as a slot.
bool Hmac(const BYTE* key, std::size_t keySize, const BYTE* message, std::size_t messageSize,
          BYTE* result) {
    std::size_t size = 0;
    return EVP_Q_mac(nullptr, "HMAC", nullptr, "SHA3-512", nullptr, key, keySize, message,
                     messageSize, result, kSlotSize, &size) != nullptr &&
           size == kSlotSize;
}

// Sets every slot to its default of this run, from 8 random bytes. `mixer` becomes the message with
// which registry values are mixed.
bool SetDefaults(SlotBytes& mixer) {
    SecureBytes random(8);
    // Without random bytes the slots start as zeros and so does the mixer: never as whatever the
    // memory held. Entropy made from them still travels in the file that it protects.
    if (RAND_bytes(random.data(), static_cast<int>(random.size())) != 1) return true;
    const BYTE* const first = random.data();
    const BYTE* const second = random.data() + 4;

    SlotBytes salt;
    if (!Hmac(first, 4, second, 4, salt.bytes) || !Hmac(second, 4, first, 4, mixer.bytes)) {
        if (cfg_is_fips_mode_enabled() != 0) CryptdFipsEnterErrorMode(kNoEntropy);
        return false;
    }
    for (KeyMaterial* material : {&machineMaterial, &userMaterial}) {
        std::copy_n(salt.bytes, kSlotSize, material->salt.Bytes());
        std::copy_n(mixer.bytes, kSlotSize, material->key.Bytes());
    }
    return true;
}

// Mixes a registry value into a slot that is still plain. A value that is missing or no REG_BINARY
// leaves the slot at its default.
bool MixRegistryValue(HKEY key, const WCHAR* name, const SlotBytes& mixer, KeySlot& slot) {
    DWORD type = 0;
    DWORD size = 0;
    if (RegQueryValueExW(key, name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS ||
        type != REG_BINARY) {
        return true;
    }
    SlotBytes value;
    if (size > kSlotSize) {
        std::fill_n(slot.Bytes(), kSlotSize, BYTE{0});  // what does not fit counts as nothing
    } else if (RegQueryValueExW(key, name, nullptr, nullptr, value.bytes, &size) == ERROR_SUCCESS) {
        std::copy_n(value.bytes, size, slot.Bytes());
    } else {
        return true;
    }

    SlotBytes mixed;
    if (!Hmac(slot.Bytes(), kSlotSize, mixer.bytes, kSlotSize, mixed.bytes)) return false;
    std::copy_n(mixed.bytes, kSlotSize, slot.Bytes());
    return true;
}

bool MixRegistryValues(HKEY hive, const SlotBytes& mixer, KeyMaterial& material) {
    UniqueRegKey key;
    if (RegOpenKeyExW(hive, kProductKey, 0, kKeyAccess, key.put()) != ERROR_SUCCESS) return true;
    const bool isSaltMixed = MixRegistryValue(key.get(), kDataSaltValue, mixer, material.salt);
    const bool isKeyMixed = MixRegistryValue(key.get(), kDataKeyValue, mixer, material.key);
    return isSaltMixed && isKeyMixed;
}

}  // namespace

KeyMaterial& KeyMaterialOf(ProtectionScope scope) {
    return scope == ProtectionScope::kMachine ? machineMaterial : userMaterial;
}

bool PrepareKeyMaterial() {
    SlotBytes mixer;
    bool succeeded = SetDefaults(mixer);
    succeeded = MixRegistryValues(HKEY_LOCAL_MACHINE, mixer, machineMaterial) && succeeded;
    succeeded = MixRegistryValues(HKEY_CURRENT_USER, mixer, userMaterial) && succeeded;
    for (KeyMaterial* material : {&machineMaterial, &userMaterial}) {
        material->salt.Protect();
        material->key.Protect();
    }
    return succeeded;
}

bool DataDeriveEntropy(KeySlot& key, KeySlot& salt, BYTE (&entropy)[kSlotSize]) {
    SecureBytes output(2 * kSlotSize);
    const UniquePkeyContext context(EVP_PKEY_CTX_new_id(EVP_PKEY_HKDF, nullptr));
    if (!context || EVP_PKEY_derive_init(context.get()) != 1 ||
        EVP_PKEY_CTX_set_hkdf_md(context.get(), EVP_sha3_512()) != 1) {
        return false;
    }
    if (const OpenedMemory opened(salt);
        !opened ||
        EVP_PKEY_CTX_set1_hkdf_salt(context.get(), opened.Bytes(), int{kSlotSize}) != 1) {
        return false;
    }
    if (const OpenedMemory opened(key);
        !opened || EVP_PKEY_CTX_set1_hkdf_key(context.get(), opened.Bytes(), int{kSlotSize}) != 1) {
        return false;
    }
    std::size_t size = output.size();
    if (EVP_PKEY_CTX_add1_hkdf_info(context.get(), reinterpret_cast<const BYTE*>(kInfo),
                                    int{sizeof kInfo}) != 1 ||
        EVP_PKEY_derive(context.get(), output.data(), &size) != 1 || size != output.size()) {
        return false;
    }
    const OpenedMemory opened(salt);
    if (!opened) return false;
    std::copy_n(output.data(), kSlotSize, entropy);
    std::copy_n(output.data() + kSlotSize, kSlotSize, opened.Bytes());
    return true;
}
