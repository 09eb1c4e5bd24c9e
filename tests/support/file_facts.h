// Facts about files that each system tells in its own way.
#pragma once

#include <filesystem>

// True when nobody but the file's owner (and the administrator) may read or write it.
bool OnlyOwnerMayUse(const std::filesystem::path& path);

// True when every account may read and write it.
bool EveryoneMayWrite(const std::filesystem::path& path);

// The number of the account that owns it, where accounts have numbers.
unsigned OwnerOf(const std::filesystem::path& path);
