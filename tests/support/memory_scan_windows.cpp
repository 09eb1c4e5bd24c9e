#include <windows.h>

#include <algorithm>
#include <stdexcept>

#include "tests/support/memory_scan.h"

bool AnyWritableBlock(const std::function<bool(const std::vector<char>&)>& take) {
    constexpr DWORD kWritable = PAGE_READWRITE | PAGE_EXECUTE_READWRITE | PAGE_WRITECOPY;
    MEMORY_BASIC_INFORMATION info{};
    std::vector<char> block;
    for (const char* at = nullptr; VirtualQuery(at, &info, sizeof info) != 0;
         at += info.RegionSize) {
        at = static_cast<const char*>(info.BaseAddress);
        if (info.State != MEM_COMMIT || (info.Protect & kWritable) == 0) continue;
        SIZE_T size = 0;
        block.resize(info.RegionSize);
        ReadProcessMemory(GetCurrentProcess(), at, block.data(), block.size(), &size);
        block.resize(size);
        const bool isTaken = take(block);
        std::ranges::fill(block, char{0});
        if (isTaken) return true;
    }
    return false;
}

bool IsLocked(const void*) {
    throw std::logic_error("Wine does not tell");
}
