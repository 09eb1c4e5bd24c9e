// What a backup holds: its header, the values of its modules and of the user section.
#pragma once

#include <tinyxml.h>

#include <string>
#include <utility>
#include <vector>

#include "client/plugins/feature_settings.h"
#include "common/secure_text.h"

// One value as a restore would write it. Equal values are equal in all of this.
struct ContentValue {
    WString key;  // below the module's key, or below the product key of the user
    WString name;
    DWORD type = REG_NONE;
    bool isProtected = false;
    SecureBytes data;
};

// A module, or the user section.
struct ContentModule {
    std::string name;                  // of its element
    const Feature* feature = nullptr;  // none: the user section
    std::vector<WString> keys;         // that a restore makes, below the module's key
    std::vector<ContentValue> values;  // that a restore would write
    std::vector<UnreadableValue> damaged;
};

enum class Verifier { kNone, kGood, kWrong };

struct BackupContent {
    std::vector<std::pair<std::string, std::string>> header;  // what the file says of itself
    std::vector<ContentModule> modules;                       // in the file's order
    std::vector<std::string> missing;                         // modules without an element
    std::vector<std::string> unknown;                         // elements that no restore reads
    Verifier verifier = Verifier::kNone;

    std::size_t CountDamaged() const;
    std::size_t CountProtected() const;  // that could be read
};

// The element of the user section among the modules.
extern const char* const kUserSection;

// Whether a restore reads settings of a user from it.
bool HasUserSection(const BackupContent& content);

// How many values an element holds, without reading them.
struct ValueCount {
    std::size_t all = 0;
    std::size_t isProtected = 0;
};
ValueCount CountValues(const TiXmlElement& element);

// Whether anything in the document is made with a password.
bool NeedsPassword(const TiXmlElement& root);

// The header, and the names of what is there and what is not; no values.
BackupContent ListContent(TiXmlElement& root);

// All of it, with protected values decrypted.
BackupContent ReadContent(TiXmlElement& root, const SecureText& password);

// Encrypts what is made with the old password with the new one, in place: the verifier and every
// protected value. False when something cannot be encrypted.
bool ChangePassword(TiXmlElement& root, const SecureText& oldPassword,
                    const SecureText& newPassword);
