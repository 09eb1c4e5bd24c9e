#include "common/file.h"

#include <algorithm>

namespace {

constexpr DWORD kPause = 20;       // milliseconds between two attempts...
constexpr DWORD kPatience = 1000;  // ... and for all of them

bool IsBusy(DWORD error) {
    return error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION ||
           error == ERROR_LOCK_VIOLATION;
}

}  // namespace

bool RetryWhileBusy(const std::function<bool()>& attempt) {
    for (DWORD waited = 0;; waited += kPause) {
        if (attempt()) return true;
        const DWORD error = GetLastError();
        if (!IsBusy(error) || waited >= kPatience) return false;
        Sleep(kPause);
    }
}

UniqueHandle OpenDiskFile(const WString& path, DWORD access, DWORD disposition) {
    UniqueHandle file;
    const auto open = [&] {
        file.reset(CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                               disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
        return static_cast<bool>(file);
    };
    // A file of that name may still be going.
    if (disposition == OPEN_EXISTING) {
        open();
    } else {
        RetryWhileBusy(open);
    }
    if (file && !IsDiskFile(file.get())) return {};
    return file;
}

bool IsDiskFile(HANDLE file) {
    LARGE_INTEGER size = {};
    return GetFileType(file) == FILE_TYPE_DISK && GetFileSizeEx(file, &size) &&
           size.QuadPart <= kMaxFileSize;
}

bool ReadAll(HANDLE file, std::string& content) {
    LARGE_INTEGER size = {};
    if (!GetFileSizeEx(file, &size) || size.QuadPart > kMaxFileSize || !GoToStart(file)) {
        return false;
    }
    content.resize(static_cast<std::size_t>(size.QuadPart));
    DWORD read = 0;
    return ReadFile(file, content.data(), static_cast<DWORD>(content.size()), &read, nullptr) &&
           read == content.size();
}

bool WriteAll(HANDLE file, const void* bytes, std::size_t size) {
    DWORD written = 0;
    return WriteFile(file, bytes, static_cast<DWORD>(size), &written, nullptr) && written == size;
}

bool GoToStart(HANDLE file) {
    return SetFilePointerEx(file, LARGE_INTEGER{}, nullptr, FILE_BEGIN) != FALSE;
}

bool Rewrite(HANDLE file, const void* bytes, std::size_t size) {
    return GoToStart(file) && WriteAll(file, bytes, size) && SetEndOfFile(file);
}
