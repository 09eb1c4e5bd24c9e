// The system's own tool for registry files.
#pragma once

#include <string>

// The name of the program that understands "import FILE" and "query KEY /v NAME".
std::string RegistryTool();
