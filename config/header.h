// The header that every exported configuration file begins with: the root element's attributes and
// the elements that say where and when the file was made.
#pragma once

#include <tinyxml.h>

#include "common/secure_text.h"

// Writes the attributes `generatedby`, `policy` and, with a password, `authentication` to the root
// element and appends the seven header elements to it.
void WriteHeader(TiXmlElement* root, const SecureText& password);
