#include "protect/encrypted_forms.h"

#include <utilsdll.h>

#include <algorithm>

#include "common/hex.h"
#include "protect/built_in_secrets.h"

namespace {

constexpr DWORD kArgumentCapacity = 260;  // bytes, of ciphertext and of plain text

WStringView AsWide(const SecureBytes& bytes) {
    return {reinterpret_cast<const WCHAR*>(bytes.data()), bytes.size() / sizeof(WCHAR)};
}

// The password in a zero-filled buffer. With exactly one byte before the first zero byte the text
// is UTF-16LE, otherwise UTF-8.
SecureText PasswordText(const SecureBytes& plain) {
    const auto bytes = std::find(plain.begin(), plain.end(), BYTE{0}) - plain.begin();
    if (bytes == 1) {
        const WStringView wide = AsWide(plain);
        return SecureText(wide.substr(0, wide.find(WCHAR{0})));
    }
    // Converted inside a wiped buffer; UTF-8 has no more UTF-16 units than bytes.
    SecureBytes wide(plain.size() * sizeof(WCHAR));
    const int units = MultiByteToWideChar(
        CP_UTF8, 0, reinterpret_cast<const char*>(plain.data()), static_cast<int>(bytes),
        reinterpret_cast<WCHAR*>(wide.data()), static_cast<int>(plain.size()));
    return SecureText(AsWide(wide).substr(0, static_cast<std::size_t>(std::max(units, 0))));
}

WString EncryptArgument(const void* plain, std::size_t plainSize, const WCHAR* passPhrase) {
    BYTE cipher[kArgumentCapacity];
    DWORD size = sizeof cipher;
    if (plainSize > sizeof cipher ||
        encrypt_buffer(plain, static_cast<DWORD>(plainSize), cipher, &size, passPhrase) != 0) {
        return {};
    }
    return Utf8ToWide(BytesToHex(cipher, size));
}

}  // namespace

std::string EncryptValue(WStringView text, const WCHAR* password) {
    BYTE cipher[kEncryptedValueCapacity];
    DWORD size = sizeof cipher;
    const std::size_t plainSize = text.size() * sizeof(WCHAR);
    if (plainSize > kEncryptedValueCapacity ||
        encrypt_buffer(text.data(), static_cast<DWORD>(plainSize), cipher, &size, password) != 0) {
        return {};
    }
    return std::string(kEncryptedValueMarker) + BytesToHex(cipher, size);
}

bool DecryptValue(std::string_view form, const WCHAR* password, SecureText& text) {
    std::vector<BYTE> cipher;
    if (form.size() < kEncryptedValueMarker.size() ||
        !HexToBytes(form.substr(kEncryptedValueMarker.size()), cipher)) {
        return false;
    }
    SecureBytes plain(kEncryptedValueCapacity);
    DWORD size = kEncryptedValueCapacity;
    if (decrypt_buffer(cipher.data(), static_cast<DWORD>(cipher.size()), plain.data(), &size,
                       password) != 0) {
        return false;
    }
    text = AsWide(plain).substr(0, size / sizeof(WCHAR));
    return true;
}

std::optional<SecureBytes> DecryptArgument(const WCHAR* argument, const WCHAR* passPhrase) {
    const WStringView digits = argument;
    SecureBytes cipher(kArgumentCapacity);  // what is no ciphertext may be a password
    DWORD cipherSize = kArgumentCapacity;
    // What is no hexadecimal text does not decrypt either; saying so at once spares the key
    // stretch.
    if (hex2bin(argument, static_cast<DWORD>(digits.size()), cipher.data(), &cipherSize) != 0) {
        return std::nullopt;
    }
    SecureBytes plain(kArgumentCapacity);
    DWORD size = kArgumentCapacity;
    if (decrypt_buffer(cipher.data(), cipherSize, plain.data(), &size, passPhrase) != 0) {
        return std::nullopt;
    }
    plain.back() = 0;
    return plain;
}

WString EncryptPasswordArgument(const WCHAR* password) {
    const OpenedPassPhrase passPhrase(BuiltInPassPhrase::kB);
    if (!passPhrase) return {};
    const WStringView text = password;
    // UTF-8: what is read as UTF-16LE must have a first unit below 256. A unit has 3 bytes at most.
    SecureBytes plain(3 * text.size() + 1);
    const int size =
        text.empty() ? 0
                     : WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                           reinterpret_cast<char*>(plain.data()),
                                           static_cast<int>(plain.size()), nullptr, nullptr);
    return EncryptArgument(plain.data(), static_cast<std::size_t>(size), passPhrase.c_str());
}

WString EncryptProcessIdArgument(DWORD processId) {
    const std::string digits = std::to_string(processId);
    return EncryptArgument(digits.data(), digits.size(), nullptr);
}

bool DecryptPasswordArgument(const WCHAR* argument, SecureText& password) {
    const OpenedPassPhrase passPhrase(BuiltInPassPhrase::kB);
    if (!passPhrase) return false;
    const auto plain = DecryptArgument(argument, passPhrase.c_str());
    if (!plain) return false;
    password = PasswordText(*plain);
    return true;
}
