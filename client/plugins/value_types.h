// How a registry value stands in a configuration file:
//
//   <value name="Timeout" type="4" data="30" />
//   <value name="Secret" type="1" data="EncX 0B5E..." enc="1" />
//   <value name="List" type="7" data="61000000" data-encoding="hex" />
//
// `type` is the registry's number. `data` is the text of a string, the unsigned decimal of a
// number, and for everything else - also for a string or number whose stored bytes are not quite
// one, or that XML cannot carry - the stored bytes in hexadecimal, with data-encoding="hex". A
// string that the registry holds protected is "EncX " and the hexadecimal of its UTF-16LE text
// encrypted under the run's password, with enc="1".
#pragma once

#include <tinyxml.h>

#include "common/registry_access.h"
#include "common/secure_text.h"

// Sets an attribute to a text: UTF-8 or, for a text that XML cannot carry, the hexadecimal of its
// UTF-16LE units and <attribute>-encoding="hex".
void SetTextAttribute(TiXmlElement& element, const std::string& attribute, WStringView text);
// Reads it back; false when the attribute is missing.
bool GetTextAttribute(const TiXmlElement& element, const std::string& attribute, WString& text);

// Adds the element of a value to `parent`; false, with nothing added, when a protected value cannot
// be carried over.
bool ValueToXml(const RegistryValue& value, const WCHAR* password, TiXmlElement& parent);

// A value on its way back into the registry.
struct ValueToWrite {
    enum class Form {
        kStored,     // `value.data` is what the registry stores
        kPlain,      // `text`, for the utility library to store
        kProtected,  // `text`, to be kept protected
    };
    RegistryValue value;
    Form form = Form::kStored;
    SecureText text;
};

// Reads the element of a value; false when it is not one that ValueToXml writes, or its encrypted
// data does not open with the password.
bool ValueFromXml(const TiXmlElement& element, const WCHAR* password, ValueToWrite& value);

// Encrypts the data of a protected value's element with another password; leaves any other element
// as it is. False, with nothing changed, when that fails.
bool ReencryptValue(TiXmlElement& element, const WCHAR* oldPassword, const WCHAR* newPassword);

// Writes it into the key; false when that fails.
bool WriteValue(HKEY key, const ValueToWrite& value);
