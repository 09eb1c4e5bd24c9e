#include "protect/data_protect.h"

#include <openssl/rand.h>
#include <utilsdll.h>

#include <algorithm>

#include "common/file.h"
#include "common/secure_text.h"
#include "cryptd/providers.h"
#include "protect/file_mask.h"
#include "protect/mapped_file.h"

namespace {

constexpr DWORD kEntropyOffset = 1;
constexpr DWORD kBlobOffset = kEntropyOffset + kSlotSize;

// A blob that the system allocated, wiped and freed at the end.
class SystemBlob {
  public:
    SystemBlob() = default;
    SystemBlob(const SystemBlob&) = delete;
    SystemBlob& operator=(const SystemBlob&) = delete;
    ~SystemBlob() {
        Wipe();
        LocalFree(blob_.pbData);
    }

    void Wipe() {
        if (blob_.pbData != nullptr) WipeMemory(blob_.pbData, blob_.cbData);
    }
    DATA_BLOB* put() { return &blob_; }
    const BYTE* Bytes() const { return blob_.pbData; }
    DWORD Size() const { return blob_.cbData; }

  private:
    DATA_BLOB blob_ = {};
};

DWORD FlagsOf(ProtectionScope scope) {
    return scope == ProtectionScope::kMachine ? CRYPTPROTECT_LOCAL_MACHINE
                                              : CRYPTPROTECT_UI_FORBIDDEN;
}

// Makes the file that long. On a full disk it fails before anything has been overwritten.
bool TakeRoom(HANDLE file, LONGLONG size) {
    LARGE_INTEGER end = {};
    end.QuadPart = size;
    return SetFilePointerEx(file, end, nullptr, FILE_BEGIN) && SetEndOfFile(file);
}

// The entropy of one protection. A failed derivation is made good with fresh random bytes: the
// entropy travels in the file, so any value can be read again, but a guessable one would add
// nothing.
bool MakeEntropy(ProtectionScope scope, BYTE (&entropy)[kSlotSize]) {
    KeyMaterial& material = KeyMaterialOf(scope);
    return DataDeriveEntropy(material.key, material.salt, entropy) ||
           RAND_bytes(entropy, int{kSlotSize}) == 1;
}

// Replaces the file's content by its protected form, still unmasked.
bool ProtectContent(const WCHAR* path, ProtectionScope scope, BYTE (&entropy)[kSlotSize]) {
    MappedFile file;
    if (!file.Open(path, MappedFile::Sharing::kRead) || !file.Map()) return false;

    DATA_BLOB plain = {file.Size(), file.Bytes()};
    DATA_BLOB entropyBlob = {kSlotSize, entropy};
    SystemBlob blob;
    if (!CryptProtectData(&plain, nullptr, &entropyBlob, nullptr, nullptr, FlagsOf(scope),
                          blob.put())) {
        return false;
    }

    // The blob is longer than the plain content: the writes replace all of it.
    file.Unmap();
    const auto scopeByte = static_cast<BYTE>(scope);
    return TakeRoom(file.File(), LONGLONG{kBlobOffset} + blob.Size()) && GoToStart(file.File()) &&
           WriteAll(file.File(), &scopeByte, sizeof scopeByte) &&
           WriteAll(file.File(), entropy, kSlotSize) &&
           WriteAll(file.File(), blob.Bytes(), blob.Size());
}

bool UnprotectContent(const MappedFile& file, SystemBlob& plain) {
    BYTE* const bytes = file.Bytes();
    const auto scope = bytes[0] != 0 ? ProtectionScope::kUser : ProtectionScope::kMachine;
    DATA_BLOB entropy = {kSlotSize, bytes + kEntropyOffset};
    DATA_BLOB blob = {file.Size() - kBlobOffset, bytes + kBlobOffset};
    return CryptUnprotectData(&blob, nullptr, &entropy, nullptr, nullptr, FlagsOf(scope),
                              plain.put()) != FALSE;
}

int MaskContent(MappedFile& file) {
    if (!file.Map()) return kDataFailed;
    ApplyFileMask(file.Bytes(), file.Size());
    return kDataOk;
}

}  // namespace

bool DataProtectInit() {
    static const bool isPrepared = [] {
        BuildFileMask();
        // From here on the crypto service serves OpenSSL's random bytes.
        if (cfg_is_fips_mode_enabled() != 0) CryptdLoadProviders();
        return PrepareKeyMaterial();
    }();
    return isPrepared;
}

int DataProtectFile(const WCHAR* path, ProtectionScope scope) {
    if (path == nullptr) return kDataFailed;
    BYTE entropy[kSlotSize] = {};
    const bool isProtected = MakeEntropy(scope, entropy) && ProtectContent(path, scope, entropy);
    WipeMemory(entropy, sizeof entropy);
    if (!isProtected) return kDataFailed;
    MappedFile file;
    if (!file.Open(path, MappedFile::Sharing::kRead)) return kDataNotReopened;
    return MaskContent(file);
}

int DataUnprotectFile(const WCHAR* path) {
    MappedFile file;
    if (path == nullptr || !file.Open(path, MappedFile::Sharing::kNone) || !file.Map()) {
        return kDataFailed;
    }
    ApplyFileMask(file.Bytes(), file.Size());

    SystemBlob plain;
    if (file.Size() >= kBlobOffset && UnprotectContent(file, plain)) {
        file.Unmap();
        const bool isWhole = GoToStart(file.File()) &&
                             WriteAll(file.File(), plain.Bytes(), plain.Size()) &&
                             SetEndOfFile(file.File());
        // What could not be written whole is no document: its reader finds zeros.
        plain.Wipe();
        if (!isWhole && GoToStart(file.File())) {
            WriteAll(file.File(), plain.Bytes(), plain.Size());
        }
    }
    return kDataOk;
}

int DataMaskFile(const WCHAR* path) {
    MappedFile file;
    if (path == nullptr || !file.Open(path, MappedFile::Sharing::kRead)) return kDataFailed;
    return MaskContent(file);
}

int DataMaskBuffer(void* buffer, DWORD length) {
    return ApplyFileMask(static_cast<BYTE*>(buffer), length) ? 1 : 0;
}
