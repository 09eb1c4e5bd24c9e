// The values of a file's user_configuration section (registry/user_configuration.h) as a restore
// reads them.
#pragma once

#include <tinyxml.h>

#include <variant>
#include <vector>

#include "common/secure_text.h"

// One value on its way back into the registry. Of a type that is not restored only its key is made.
struct UserValue {
    struct Protected {
        SecureText text;
    };
    WString key;  // path from the root of the user's hive
    WString name;
    std::variant<std::monostate, DWORD, WString, Protected, std::vector<BYTE>> data;
};

// What can be made of one element.
enum class UserValueReading {
    kValue,
    kNothing,        // the element does not carry a value that can be restored
    kWrongPassword,  // its encrypted data does not decrypt: nothing of the section is restored
};
UserValueReading ReadUserValue(const TiXmlElement& element, const SecureText& password,
                               UserValue& value);

// Encrypts the data of an encrypted value's element with another password; leaves any other element
// as it is. False, with nothing changed, when that fails.
bool ReencryptUserValue(TiXmlElement& element, const SecureText& oldPassword,
                        const SecureText& newPassword);
