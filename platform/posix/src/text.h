// Text of the layer itself: UTF-16 at the calls, bytes at the file system.
#pragma once

#include <minwindef.h>

#include <string>
#include <string_view>

namespace platform {

// UTF-8 to UTF-16 and back without loss: a byte that is not valid UTF-8 becomes the unpaired
// surrogate 0xDC00 + byte, and such a unit becomes that byte again. So every file name, argument
// and environment value of the system can pass through the wide calls unharmed. Any other unpaired
// surrogate becomes U+FFFD.
std::u16string WideOf(std::string_view bytes);
std::string BytesOf(std::u16string_view text);

// Takes one character off the front of a text that is not empty; kInvalidText for an invalid
// sequence, which ends with the byte that makes it impossible, but before a byte that cannot
// continue any sequence. An unpaired surrogate is invalid.
inline constexpr char32_t kInvalidText = 0xFFFFFFFF;
inline constexpr char32_t kReplacement = 0xFFFD;
char32_t TakeCharacter(std::string_view& text);
char32_t TakeCharacter(std::u16string_view& text);
void Append(std::string& text, char32_t character);
void Append(std::u16string& text, char32_t character);

// A path in the file system's form: BytesOf with every backslash turned into a slash.
std::string NativePath(const WCHAR* path);

// Case-insensitive order of names (registry keys and values, environment variables): simple upper
// case by the C library's tables of the C.UTF-8 locale.
std::u16string UpperCase(std::u16string_view text);
char16_t UpperCase(char16_t unit);

}  // namespace platform
