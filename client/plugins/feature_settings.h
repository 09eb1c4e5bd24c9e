// The settings of a feature as its element of a configuration file gives them.
#pragma once

#include <tinyxml.h>

#include <vector>

#include "client/plugins/feature.h"
#include "client/plugins/value_types.h"

// What a key is to become.
struct KeyPlan {
    WString path;  // below the feature's key
    std::vector<ValueToWrite> values;
    std::vector<KeyPlan> subkeys;
};

// A value or key of the element that cannot be restored.
struct UnreadableValue {
    WString path;
    WString name;
};

// The path of a subkey or of what lies below it.
WString Subpath(const WString& path, const WString& name);

// The element name of the section at a path below the feature's key; empty when it is none.
WString SectionElement(const Feature& feature, WStringView path);

// True when there are sections below the path. A key that has some is merged with what it holds;
// every other key is made what the file says.
bool HasSections(const Feature& feature, WStringView path);

// Reads the plan for the feature's key from its element. Where a value cannot be read: false at
// once, or with `unreadable` all of them are listed and the plan holds the others.
bool ReadFeature(const Feature& feature, const TiXmlElement& element, const WCHAR* password,
                 KeyPlan& plan, std::vector<UnreadableValue>* unreadable = nullptr);

// Encrypts every protected value of a feature's element with another password, in place. False,
// with the element in between, when one does not decrypt with the old one or cannot be encrypted.
bool ReencryptFeature(const Feature& feature, TiXmlElement& element, const WCHAR* oldPassword,
                      const WCHAR* newPassword, const WString& path = {});
