// Encrypted text as it stands in configuration files and on the command line. The cipher is the
// utility library's (encrypt_buffer, decrypt_buffer).
#pragma once

#include <configuration_format.h>

#include <optional>
#include <string>
#include <string_view>

#include "common/secure_text.h"

// Ciphertexts and plaintexts of registry strings hold this many bytes at most.
inline constexpr DWORD kEncryptedValueCapacity = 2048;

// The "EncX " form of a text under a password, of the ciphertext of its UTF-16LE bytes without
// terminator; empty when the encryption fails.
std::string EncryptValue(WStringView text, const WCHAR* password);

// Reads an "EncX " form back; its first five characters are passed over whatever they are. False,
// with `text` unchanged, when the rest does not decode or decrypt with the password.
bool DecryptValue(std::string_view form, const WCHAR* password, SecureText& text);

// The encrypted form of a password on the command line: hexadecimal of its ciphertext under the
// built-in pass phrase B. Empty when the encryption fails.
WString EncryptPasswordArgument(const WCHAR* password);

// Reads an encrypted password; its plain text may be UTF-16LE or UTF-8. False, with `password`
// unchanged, when the argument is no such ciphertext.
bool DecryptPasswordArgument(const WCHAR* argument, SecureText& password);

// Decrypts a hexadecimal argument under a pass phrase (null: the default key of this machine). The
// result is a zero-filled buffer of 260 bytes that begins with the plain bytes, of which 259 are
// kept. Nothing when the argument does not decrypt.
std::optional<SecureBytes> DecryptArgument(const WCHAR* argument, const WCHAR* passPhrase);

// The same form of a process id, under the default key: with it a process proves to the tool that
// it started it. Empty when the encryption fails.
WString EncryptProcessIdArgument(DWORD processId);
