// What a named object leaves behind, by which a test learns whether one was made in between,
// however briefly. Whoever makes the object takes over its file and changes the file's size; on
// Windows, where an object goes with its last handle, nobody knows the file.
#pragma once

#include "tests/support/machine.h"

inline constexpr const char* kRemains = "remains";

inline std::filesystem::path RemainsOf(const std::filesystem::path& endpoint,
                                       const std::string& name) {
    return endpoint / "run" / ("Global%5C" + name);
}

// Leaves the remains of an object of every account ("Global\NAME"), as a process does that is
// killed while it holds one.
inline void LeaveObjectRemains(const std::filesystem::path& endpoint, const std::string& name) {
    std::filesystem::create_directories(endpoint / "run");
    WriteWholeFile(RemainsOf(endpoint, name), kRemains);
    std::filesystem::permissions(RemainsOf(endpoint, name), std::filesystem::perms(0666));
}

// True when nobody has made the object of that name since.
inline bool AreObjectRemainsUntouched(const std::filesystem::path& endpoint,
                                      const std::string& name) {
    return ReadWholeFile(RemainsOf(endpoint, name)) == kRemains;
}
