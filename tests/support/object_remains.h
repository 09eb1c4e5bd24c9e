// What a named object leaves behind, by which a test learns whether one was made in between,
// however briefly.
#pragma once

#include <filesystem>
#include <string>

// Leaves the remains of an object of every account ("Global\NAME"), as a process does that is
// killed while it holds one.
void LeaveObjectRemains(const std::filesystem::path& endpoint, const std::string& name);

// True when nobody has made the object of that name since.
bool AreObjectRemainsUntouched(const std::filesystem::path& endpoint, const std::string& name);
