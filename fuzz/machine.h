// A machine of its own for a fuzzing process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string_view>

// The fresh folder of this process, which is its endpoint and its temporary folder; it is made, and
// named to the environment, by the first call, and removed at the end of the process.
const std::filesystem::path& MachineFolder();

// Writes the input to a file of the machine and returns its path.
std::filesystem::path InputFile(std::string_view input);

// Ends the process with a finding when a promise does not hold.
void Promise(bool holds, const char* promise);
