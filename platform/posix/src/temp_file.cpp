#include <fcntl.h>
#include <fileapi.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>

#include "descriptor.h"
#include "last_error.h"
#include "paths.h"
#include "text.h"
#include "thread_identity.h"

using namespace platform;

namespace {

std::string CommonTempFolder() {
    const char* const variable = std::getenv("TMPDIR");
    const std::string folder = variable == nullptr || *variable == '\0' ? "/tmp" : variable;
    std::error_code ignored;
    return std::filesystem::absolute(folder, ignored).lexically_normal().string();
}

// Whether the folder is the account's own and no other account can do more in it than pass through.
bool IsOwn(const struct stat& info, uid_t account) {
    return S_ISDIR(info.st_mode) && info.st_uid == account && (info.st_mode & 0066) == 0;
}

// Whether no other account can put something else in the place of what stands in the folder.
bool KeepsPlaces(const std::string& folder, uid_t account) {
    struct stat info {};
    return stat(folder.c_str(), &info) == 0 && (info.st_uid == 0 || info.st_uid == account) &&
           ((info.st_mode & 0022) == 0 || (info.st_mode & S_ISVTX) != 0);
}

// The process's own folder in the common one, safe from every other account, also from one that
// made a folder or a link of this name first. Empty, with the last error set, when it is not.
std::string OwnTempFolder() {
    const ActAsProcess process;
    const uid_t account = ThreadAccount();
    const std::string common = CommonTempFolder();
    const std::string folder =
        common + (common.ends_with('/') ? "sentrel-" : "/sentrel-") + std::to_string(account);
    const bool isNew = mkdir(folder.c_str(), 0711) == 0;
    if (!isNew && errno != EEXIST) return FailOnPath<std::string>(errno, folder);
    struct stat info {};
    const UniqueDescriptor opened(
        open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!opened || fstat(opened.get(), &info) != 0 || !IsOwn(info, account) ||
        !KeepsPlaces(common, account) ||
        ((info.st_mode & 0777) != 0711 && fchmod(opened.get(), 0711) != 0)) {
        return Fail<std::string>(ERROR_ACCESS_DENIED);
    }
    return folder + "/";
}

// The name of a number: as Windows', up to three characters of the prefix, up to four
// hexadecimal digits, ".tmp".
std::string TempFilePath(const std::string& folder, const std::string& prefix, UINT number) {
    std::array<char, 8> digits{};
    std::snprintf(digits.data(), digits.size(), "%x", number & 0xFFFF);
    return folder + prefix + digits.data() + ".tmp";
}

// Creates the first file whose name is free, beginning at a random number; 0 on failure.
UINT CreateTempFile(const std::string& folder, const std::string& prefix) {
    constexpr UINT kNumbers = 0xFFFF;  // 1 to 0xFFFF
    const UINT start = std::random_device()() % kNumbers;
    for (UINT i = 0; i < kNumbers; ++i) {
        const UINT number = (start + i) % kNumbers + 1;
        const std::string path = TempFilePath(folder, prefix, number);
        const UniqueDescriptor file(
            open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (file) return number;
        if (errno != EEXIST) {
            return FailOnPath<UINT>(errno, path);
        }
    }
    return Fail<UINT>(ERROR_FILE_EXISTS);
}

}  // namespace

extern "C" DWORD WINAPI GetTempPathW(DWORD nBufferLength, LPWSTR lpBuffer) {
    const std::u16string path = WideOf(OwnTempFolder());
    if (path.empty()) return 0;
    if (lpBuffer == nullptr || path.size() >= nBufferLength) {
        return static_cast<DWORD>(path.size()) + 1;
    }
    *std::ranges::copy(path, lpBuffer).out = 0;
    return static_cast<DWORD>(path.size());
}

extern "C" UINT WINAPI GetTempFileNameW(LPCWSTR lpPathName, LPCWSTR lpPrefixString, UINT uUnique,
                                        LPWSTR lpTempFileName) {
    // 1. The folder and the prefix.
    std::string folder = PathOf(lpPathName);
    struct stat info {};
    if (stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode))
        return static_cast<UINT>(Fail(ERROR_DIRECTORY));
    if (!folder.ends_with('/')) folder += '/';
    const std::u16string_view prefix = lpPrefixString == nullptr ? u"" : lpPrefixString;
    const std::string shortPrefix = BytesOf(prefix.substr(0, 3));
    // 2. Room for the longest name, before a file is made.
    constexpr std::size_t kMaxNameSize = 3 + 4 + 4;
    if (WideOf(folder).size() + kMaxNameSize >= MAX_PATH) {
        return static_cast<UINT>(Fail(ERROR_BUFFER_OVERFLOW));
    }
    // 3. The file, or with a number of the caller's its name alone.
    const UINT number = uUnique != 0 ? uUnique : CreateTempFile(folder, shortPrefix);
    if (number == 0) return 0;
    const auto path = WideOf(TempFilePath(folder, shortPrefix, number));
    *std::ranges::copy(path, lpTempFileName).out = 0;
    return number;
}
