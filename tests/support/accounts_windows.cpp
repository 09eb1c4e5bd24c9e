#include "tests/support/accounts.h"

#include <stdexcept>

namespace fs = std::filesystem;

// Tests ask for the capabilities first.
namespace {
[[noreturn]] void Refuse() {
    throw std::logic_error("no accounts and sessions by choice");
}
}  // namespace

void LogOn(const fs::path&, unsigned, const std::string&) {
    Refuse();
}

void SwitchVirtualizationOn(const fs::path&) {
    Refuse();
}

unsigned OwnerOf(const fs::path&) {
    Refuse();
}

void HideFromStrangers(const fs::path&) {
    Refuse();
}

std::vector<unsigned> GroupsOfThread() {
    Refuse();
}

BackgroundProcess StartWaitingProgram(const fs::path&, const ProcessOptions&) {
    Refuse();
}

std::pair<std::string, std::string> SessionVariable(unsigned) {
    Refuse();
}
