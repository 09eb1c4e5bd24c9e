#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include "tests/support/memory_scan.h"

namespace {

constexpr unsigned char kChange = 0xA5;

}  // namespace

HiddenPattern::HiddenPattern(const void* bytes, std::size_t size) {
    const auto* next = static_cast<const unsigned char*>(bytes);
    for (std::size_t i = 0; i < size; ++i) changed_ += static_cast<char>(next[i] ^ kChange);
}

bool HiddenPattern::StandsInMemory() const {
    std::ifstream maps("/proc/self/maps");
    std::ifstream memory("/proc/self/mem", std::ios::binary);
    std::string line;
    std::vector<char> block;
    while (std::getline(maps, line)) {
        unsigned long from = 0;
        unsigned long to = 0;
        char access[5] = {};
        if (std::sscanf(line.c_str(), "%lx-%lx %4s", &from, &to, access) != 3 || access[1] != 'w' ||
            line.find("[v") != std::string::npos) {
            continue;
        }
        block.resize(to - from);
        memory.clear();
        memory.seekg(static_cast<std::streamoff>(from));
        memory.read(block.data(), static_cast<std::streamsize>(block.size()));
        // The copy is changed before it is searched, so that it never holds what it looks for
        // twice.
        for (char& c : block) c = static_cast<char>(c ^ kChange);
        if (memmem(block.data(), block.size(), changed_.data(), changed_.size()) != nullptr) {
            return true;
        }
    }
    return false;
}
