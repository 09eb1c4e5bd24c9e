// The reader of the user's section of a configuration file: whatever the section says, nothing but
// values below the user's product key is written.
#include <product_registry.h>
#include <windows.h>

#include <tinyxml.h>
#include <utilsdll.h>

#include "common/handles.h"
#include "common/registry_access.h"
#include "fuzz/machine.h"
#include "protect/encrypted_forms.h"
#include "registry/registry.h"
#include "registry/user_configuration.h"

namespace {

// The keys on the way to the product key, which has no values of its own here.
bool NothingBesideProductKey() {
    UniqueRegKey key;
    WString path;
    for (const WString& name : SplitText(kProductKey, TEXT("\\"))) {
        std::vector<WString> keys;
        DWORD values = 0;
        RegOpenKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, KEY_READ, key.put());
        if (!SubkeyNames(key.get(), keys) || keys.size() != 1) return false;
        if (!reg_getvaluecount(key.get(), &values, 0) || values != 0) return false;
        path.append(path.empty() ? TEXT("") : TEXT("\\")).append(name);
    }
    return true;
}

// The input with one salt in all of its encrypted values: every other one would cost a key stretch.
std::string WithOneSalt(std::string input) {
    constexpr std::string_view kSalt = "0011223344556677";
    for (std::size_t at = input.find(kEncryptedValueMarker); at != std::string::npos;
         at = input.find(kEncryptedValueMarker, at + 1)) {
        const std::size_t salt = at + kEncryptedValueMarker.size();
        input.replace(salt, std::min(kSalt.size(), input.size() - salt), kSalt);
    }
    return input;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto path = InputFile(WithOneSalt({reinterpret_cast<const char*>(data), size}));
    CRegistry(false, false).DeleteKeyTree(kProductKey, false);
    const UniqueRegKey product(reg_createkeyW(HKEY_CURRENT_USER, kProductKey));
    const SecureText password(TEXT("fuzz password"));
    ImportUserConfiguration(path.generic_string<WCHAR>(), password, 0);
    Promise(NothingBesideProductKey(), "nothing beside the product key is written");
    TiXmlElement root("sentrel_configuration");
    ExportUserConfiguration(&root, password, 0);
    Promise(root.FirstChildElement(kUserConfigurationElement) != nullptr,
            "what was restored can be backed up");
    return 0;
}
