// What the machine fixture needs from the system.
#pragma once

#include <filesystem>
#include <string>

// Takes away what earlier tests left in the machine, where it outlives its endpoint.
void MakeFreshMachine();
// Names the endpoint to this process and to those that it starts.
void NameEndpoint(const std::filesystem::path& endpoint);

// Makes the file known by another name, too, where it stays as long as the test.
void LinkFile(const std::filesystem::path& file, const std::filesystem::path& name);

// Environment of this process; reading a variable that is not set gives an empty text.
void SetVariable(const std::string& name, const std::string& value);
std::string ReadVariable(const std::string& name);
