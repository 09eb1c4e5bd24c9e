#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include "tests/support/memory_scan.h"

namespace {

constexpr unsigned char kChange = 0xA5;

// True when the block holds the pattern that the changed bytes stand for.
bool Holds(const std::vector<char>& block, const std::string& changed) {
    const auto plain = [&](std::size_t i) { return static_cast<char>(changed[i] ^ kChange); };
    const char* const end = block.data() + block.size();
    const char* at = block.data();
    while ((at = static_cast<const char*>(
                std::memchr(at, plain(0), static_cast<std::size_t>(end - at)))) != nullptr) {
        std::size_t same = 1;
        while (same < changed.size() && at + same < end && at[same] == plain(same)) ++same;
        if (same == changed.size()) return true;
        ++at;
    }
    return false;
}

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
        constexpr unsigned long kLargest = 1UL << 28;  // more is address space, not memory in use
        if (std::sscanf(line.c_str(), "%lx-%lx %4s", &from, &to, access) != 3 || access[1] != 'w' ||
            line.find("[v") != std::string::npos || to - from > kLargest) {
            continue;
        }
        block.resize(to - from);
        memory.clear();
        memory.seekg(static_cast<std::streamoff>(from));
        memory.read(block.data(), static_cast<std::streamsize>(block.size()));
        if (Holds(block, changed_)) return true;
    }
    return false;
}
