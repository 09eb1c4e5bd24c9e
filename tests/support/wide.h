// Paths of the test's file system as arguments of the wide calls.
#pragma once

#include <minwindef.h>

#include <filesystem>
#include <string>

inline std::basic_string<WCHAR> Wide(const std::filesystem::path& path) {
    return path.string<WCHAR>();
}
