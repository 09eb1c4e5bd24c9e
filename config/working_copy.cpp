#include "config/working_copy.h"

#include <windows.h>
//
#include <io.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string_view>

#include "app/services/notifications.h"
#include "app/services/run_settings.h"
#include "app/services/user_context.h"
#include "common/file.h"
#include "config/config_file.h"
#include "config/password_decryption.h"
#include "protect/built_in_secrets.h"
#include "protect/data_protect.h"

namespace {

// The content of a file: zeroed memory that the system hands out page by page as it is touched, so
// that the room left at its end costs nothing. What lies in the first `expected` bytes does not
// reach the page file, as far as the system allows. Wiped at the end as far as it was used.
class Content {
  public:
    bool Allocate(std::size_t capacity, std::size_t expected) {
        bytes_.reset(static_cast<BYTE*>(std::calloc(capacity + 1, 1)));
        capacity_ = bytes_ ? capacity : 0;
        locked_ = bytes_ && VirtualLock(bytes_.get(), expected) ? expected : 0;
        return bytes_ != nullptr;
    }
    Content() = default;
    Content(const Content&) = delete;
    Content& operator=(const Content&) = delete;
    ~Content() {
        WipeMemory(bytes_.get(), size_);
        if (locked_ != 0) VirtualUnlock(bytes_.get(), locked_);
    }

    BYTE* Bytes() { return bytes_.get(); }
    DWORD Capacity() const { return static_cast<DWORD>(capacity_); }
    DWORD Size() const { return static_cast<DWORD>(size_); }
    void Resize(std::size_t size) { size_ = size; }
    std::string_view Text() const { return {reinterpret_cast<const char*>(bytes_.get()), size_}; }

  private:
    struct Free {
        void operator()(void* memory) const { std::free(memory); }
    };
    std::unique_ptr<BYTE, Free> bytes_;
    std::size_t capacity_ = 0;
    std::size_t locked_ = 0;
    std::size_t size_ = 0;
};

// The file that is to be copied, opened with the rights of whom the thread acts as. Others may do
// with it what they like.
UniqueHandle OpenSource(const WString& source) {
    UniqueHandle file(CreateFileW(source.c_str(), GENERIC_READ,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    return file && IsDiskFile(file.get()) ? std::move(file) : UniqueHandle();
}

// The copy is the tool's to read, change and delete, whatever the source's attributes are: one that
// the file system encrypted for the user, as it had the source, opens for nobody else.
void FreeFromAttributes(const WString& copy) {
    SetFileAttributesW(copy.c_str(), FILE_ATTRIBUTE_NORMAL);
    const DWORD attributes = GetFileAttributesW(copy.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_ENCRYPTED) != 0) {
        DecryptFileW(copy.c_str(), 0);
    }
}

// Reads the whole input copy through one handle.
bool ReadInput(const WString& path, Content& content) {
    const UniqueHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                        OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    LARGE_INTEGER size = {};
    if (!file || !IsDiskFile(file.get()) || !GetFileSizeEx(file.get(), &size) ||
        !content.Allocate(static_cast<std::size_t>(size.QuadPart),
                          static_cast<std::size_t>(size.QuadPart))) {
        return false;
    }
    DWORD read = 0;
    if (!ReadFile(file.get(), content.Bytes(), content.Capacity(), &read, nullptr)) return false;
    content.Resize(read);
    return read == content.Capacity();
}

// Whether the content is what the source holds.
bool IsContentOf(HANDLE source, const Content& content) {
    SecureBytes block(std::size_t{64} * 1024);
    std::string_view rest = content.Text();
    DWORD read = 0;
    do {
        if (!ReadFile(source, block.data(), static_cast<DWORD>(block.size()), &read, nullptr) ||
            !rest.starts_with({reinterpret_cast<const char*>(block.data()), read})) {
            return false;
        }
        rest.remove_prefix(read);
    } while (read != 0);
    return rest.empty();
}

bool WriteFileWhole(const WString& path, std::string_view text) {
    const UniqueHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
    return file && WriteAll(file.get(), text.data(), text.size());
}

bool CopyOver(const TemporaryFile& from, const TemporaryFile& to) {
    return CopyFileW(from.Path().c_str(), to.Path().c_str(), FALSE) != FALSE;
}

// Decrypts with the password; failing that, with the pass phrase that this program itself once
// encrypted files with. That one is handed the whole content, marker included: decrypt_buffer
// passes over the marker by itself.
bool Decrypt(Content& cipher, const SecureText& password, Content& plain) {
    const bool isMarked = cipher.Text().starts_with(kEncryptedFileMarker);
    const std::size_t start = isMarked ? kEncryptedFileMarker.size() : 0;
    DWORD size = 0;
    if (!DecryptWithPassword(cipher.Bytes() + start, static_cast<DWORD>(cipher.Size() - start),
                             plain.Bytes(), plain.Capacity(), password.c_str(), size)) {
        const OpenedPassPhrase builtIn(isMarked ? BuiltInPassPhrase::kB : BuiltInPassPhrase::kA);
        if (!builtIn || !DecryptWithPassword(cipher.Bytes(), cipher.Size(), plain.Bytes(),
                                             plain.Capacity(), builtIn.c_str(), size)) {
            return false;
        }
    }
    plain.Resize(size);
    return true;
}

// The document in a decrypted text: up to the end of the root element and to the first zero byte.
std::string_view DocumentIn(std::string_view text) {
    const std::size_t end = text.find(kRootEndTag);
    if (end != std::string_view::npos) text = text.substr(0, end + kRootEndTag.size());
    return text.substr(0, text.find('\0'));
}

bool DecryptInto(Content& cipher, const SecureText& password, DWORD sessionId,
                 const TemporaryFile& output) {
    Content plain;
    if (!plain.Allocate(2 * static_cast<std::size_t>(cipher.Size()), cipher.Size())) return false;
    if (!Decrypt(cipher, password, plain)) {
        NotifyGui(GuiCode::kWrongPassword, sessionId);
        return false;
    }
    return IsPlain(plain.Text()) && WriteFileWhole(output.Path(), DocumentIn(plain.Text()));
}

// Turns the input copy, in whatever form, into the plain output copy.
bool MakePlain(Content& content, const TemporaryFile& input, const TemporaryFile& output,
               DWORD sessionId, const SecureText& password) {
    if (IsPlain(content.Text())) return CopyOver(input, output);
    if (password.empty()) {
        return DataUnprotectFile(input.Path().c_str()) == kDataOk && CopyOver(input, output);
    }
    return DecryptInto(content, password, sessionId, output);
}

TemporaryFile PrepareConfigCopy(const WString& source, DWORD sessionId,
                                const SecureText& password) {
    // The copies, with the user's rights where the run impersonates.
    TemporaryFile input;
    TemporaryFile output;
    std::optional<SessionUserContext> asUser;
    if (g_RunSettings.bImpersonateUser) asUser.emplace(sessionId);
    const UniqueHandle original = OpenSource(source);
    if (!original) return {};
    input = TemporaryFile::Make();
    const bool isCopied =
        !input.Path().empty() && CopyFileW(source.c_str(), input.Path().c_str(), FALSE) != FALSE;
    if (isCopied) FreeFromAttributes(input.Path());
    output = TemporaryFile::Make();
    asUser.reset();
    if (!isCopied || output.Path().empty()) return {};

    // From here on nothing counts that the user could write: what was read is what the source
    // holds, and stands in files of the tool's own.
    Content content;
    if (!ReadInput(input.Path(), content) || !IsContentOf(original.get(), content) ||
        !ReplaceByOwnFile(input.Path(), content.Bytes(), content.Size()) ||
        !ReplaceByOwnFile(output.Path(), nullptr, 0) ||
        !MakePlain(content, input, output, sessionId, password)) {
        return {};
    }
    return output;
}

}  // namespace

WorkingCopy::WorkingCopy(const WString& source, DWORD sessionId, const SecureText& password)
    : copy_(PrepareConfigCopy(source, sessionId, password)), sessionId_(sessionId) {}

WorkingCopy::~WorkingCopy() {
    // What this account may not delete goes with its owner.
    const SessionUserContext asUser(sessionId_);
    _wunlink(Path().c_str());
}
