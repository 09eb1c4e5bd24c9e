// Messages of the utility library's cipher.
#pragma once

#include <gtest/gtest.h>
#include <utilsdll.h>

#include <string>

constexpr DWORD kCipherOverhead = 28;  // bytes of a message beside its text

inline std::string Encrypted(const std::string& plain, const WCHAR* passPhrase) {
    std::string message(plain.size() + kCipherOverhead, '\0');
    auto size = static_cast<DWORD>(message.size());
    EXPECT_EQ(encrypt_buffer(plain.data(), static_cast<DWORD>(plain.size()), message.data(), &size,
                             passPhrase),
              0);
    EXPECT_EQ(size, message.size());
    return message;
}

// The plain text, or "(failed)". A failure must not touch the output.
inline std::string Decrypted(const std::string& message, const WCHAR* passPhrase,
                             DWORD capacity = 300) {
    std::string plain(capacity, '#');
    DWORD size = capacity;
    if (decrypt_buffer(message.data(), static_cast<DWORD>(message.size()), plain.data(), &size,
                       passPhrase) != 0) {
        EXPECT_EQ(plain.find_first_not_of(std::string_view("#\0", 2)), std::string::npos);
        EXPECT_EQ(size, capacity);
        return "(failed)";
    }
    return plain.substr(0, size);
}
