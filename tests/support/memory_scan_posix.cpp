#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>

#include "tests/support/memory_scan.h"

bool AnyWritableBlock(const std::function<bool(const std::vector<char>&)>& take) {
    std::ifstream maps("/proc/self/maps");
    std::ifstream memory("/proc/self/mem", std::ios::binary);
    std::string line;
    constexpr unsigned long kLargest = 1UL << 28;  // more is address space, not memory in use
    std::vector<char> block;
    block.reserve(kLargest);  // which takes nothing of what was given back and is searched
    while (std::getline(maps, line)) {
        unsigned long from = 0;
        unsigned long to = 0;
        char access[5] = {};
        if (std::sscanf(line.c_str(), "%lx-%lx %4s", &from, &to, access) != 3 || access[1] != 'w' ||
            line.find("[v") != std::string::npos || to - from > kLargest) {
            continue;
        }
        block.resize(to - from);
        memory.clear();
        memory.seekg(static_cast<std::streamoff>(from));
        memory.read(block.data(), static_cast<std::streamsize>(block.size()));
        const bool isTaken = take(block);
        std::ranges::fill(block, char{0});
        if (isTaken) return true;
    }
    return false;
}

bool IsLocked(const void* address) {
    const auto place = reinterpret_cast<unsigned long>(address);
    std::ifstream maps("/proc/self/smaps");
    bool isHere = false;
    for (std::string line; std::getline(maps, line);) {
        unsigned long from = 0;
        unsigned long to = 0;
        if (std::sscanf(line.c_str(), "%lx-%lx ", &from, &to) == 2) {
            isHere = from <= place && place < to;
        } else if (isHere && line.starts_with("VmFlags:")) {
            return line.find(" lo ") != std::string::npos;
        }
    }
    return false;
}
