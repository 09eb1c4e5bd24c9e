#include "tests/support/memory_scan.h"

#include <algorithm>

static constexpr char kChange = 0x25;

HiddenPattern::HiddenPattern(const void* bytes, std::size_t size) {
    const auto* next = static_cast<const char*>(bytes);
    for (std::size_t i = 0; i < size; ++i) changed_ += static_cast<char>(next[i] ^ kChange);
}

bool HiddenPattern::StandsInMemory() const {
    return AnyWritableBlock([this](const std::vector<char>& block) {
        const auto isSame = [](char plain, char changed) { return (changed ^ kChange) == plain; };
        return std::search(block.begin(), block.end(), changed_.begin(), changed_.end(), isSame) !=
               block.end();
    });
}
