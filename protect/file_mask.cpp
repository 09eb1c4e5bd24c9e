#include "protect/file_mask.h"

#include <cstdint>
#include <cstring>

#include "common/secure_text.h"
#include "protect/built_in_secrets.h"

namespace {

constexpr BYTE kStoredMaskByte = 0x5B;  // on every byte of the stored file mask

ProtectedMemory<kFileMaskSize> fileMask;
bool isBuilt = false;

}  // namespace

void BuildFileMask() {
    if (isBuilt) return;
    isBuilt = true;
    BYTE stored[kFileMaskSize];
    TakeStoredFileMask(stored);
    for (std::size_t i = 0; i < kFileMaskSize; ++i)
        fileMask.Bytes()[i] = stored[i] ^ kStoredMaskByte;
    fileMask.Protect();
    WipeMemory(stored, sizeof stored);
}

bool ApplyFileMask(BYTE* bytes, std::size_t size) {
    BuildFileMask();
    OpenedMemory opened(fileMask);
    if (!opened) return false;
    // Whole masks first, a machine word at a time.
    constexpr std::size_t kWords = kFileMaskSize / sizeof(std::uint64_t);
    std::uint64_t mask[kWords];
    std::memcpy(mask, opened.Bytes(), sizeof mask);
    std::size_t at = 0;
    for (; size - at >= kFileMaskSize; at += kFileMaskSize) {
        std::uint64_t block[kWords];
        std::memcpy(block, bytes + at, sizeof block);
        for (std::size_t i = 0; i < kWords; ++i) block[i] ^= mask[i];
        std::memcpy(bytes + at, block, sizeof block);
    }
    for (; at < size; ++at) bytes[at] ^= opened.Bytes()[at % kFileMaskSize];
    WipeMemory(mask, sizeof mask);
    return opened.Close();
}
