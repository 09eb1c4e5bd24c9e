// Secrets whose copies in memory can be counted: nothing but what is tested holds one.
#pragma once

#include <filesystem>

#include "common/handles.h"
#include "common/secure_text.h"
#include "tests/support/memory_scan.h"

// A text of 800 letters, by its number. It is made at run time, so that the program's constants do
// not hold it.
inline SecureText MadeSecret(unsigned number) {
    WCHAR text[801] = {};
    for (int i = 0; i < 800; ++i) {
        number = number * 1'103'515'245 + 12'345;
        text[i] = static_cast<WCHAR>('a' + (number >> 16) % 26);
    }
    SecureText made(text);
    SecureZeroMemory(text, sizeof text);
    return made;
}

// A part of a made secret. It stands neither where given back memory is overwritten anyway, nor is
// it so short that the processor's registers hold it.
inline HiddenPattern PartOf(const SecureText& secret) {
    return {secret.c_str() + 500, 100 * sizeof(WCHAR)};
}

// Writes bytes to a file without a copy in between.
inline void WriteSecret(const std::filesystem::path& path, const void* bytes, std::size_t size) {
    const UniqueHandle file(CreateFileW(path.string<WCHAR>().c_str(), GENERIC_WRITE, 0, nullptr,
                                        CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    WriteFile(file.get(), bytes, static_cast<DWORD>(size), &written, nullptr);
}
