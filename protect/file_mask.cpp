#include "protect/file_mask.h"

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
    const BYTE* const mask = opened.Bytes();
    // Whole masks first: a loop of constant length, which the compiler turns into wide operations.
    std::size_t at = 0;
    for (; size - at >= kFileMaskSize; at += kFileMaskSize) {
        BYTE* const block = bytes + at;
        for (std::size_t i = 0; i < kFileMaskSize; ++i) block[i] ^= mask[i];
    }
    for (; at < size; ++at) bytes[at] ^= mask[at % kFileMaskSize];
    return opened.Close();
}
