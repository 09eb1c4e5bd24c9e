#include "admin/file_content.h"

#include <configuration_format.h>
#include <utilsdll.h>

#include <algorithm>

#include "admin/report.h"
#include "common/file.h"

namespace {

constexpr DWORD kCipherOverhead = 28;  // bytes

constexpr const WCHAR* kNotRead = TEXT("the temporary copy cannot be read");
constexpr const WCHAR* kNotEncrypted = TEXT("the backup cannot be encrypted with the password");

}  // namespace

SecureBytes ReadContentOf(const WString& path) {
    const UniqueHandle file = OpenDiskFile(path, GENERIC_READ, OPEN_EXISTING);
    LARGE_INTEGER size = {};
    DWORD read = 0;
    if (!file || !GetFileSizeEx(file.get(), &size)) {
        throw Failure(ExitCode::kInaccessible, kNotRead);
    }
    SecureBytes content(static_cast<std::size_t>(size.QuadPart));
    if (!ReadFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &read, nullptr) ||
        read != content.size()) {
        throw Failure(ExitCode::kInaccessible, kNotRead);
    }
    return content;
}

SecureBytes EncryptContent(const SecureBytes& plain, const SecureText& password) {
    SecureBytes file(kEncryptedFileMarker.size() + plain.size() + kCipherOverhead);
    std::ranges::copy(kEncryptedFileMarker, file.begin());
    auto size = static_cast<DWORD>(plain.size() + kCipherOverhead);
    if (encrypt_buffer(plain.data(), static_cast<DWORD>(plain.size()),
                       file.data() + kEncryptedFileMarker.size(), &size, password.c_str()) != 0) {
        throw Failure(ExitCode::kInaccessible, kNotEncrypted);
    }
    return file;
}
