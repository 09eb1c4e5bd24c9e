#include "admin/safety_copy.h"

#include <windows.h>
// (after the types)
#include <shlobj.h>

#include "admin/dated_backups.h"
#include "admin/draft_file.h"
#include "common/client_folder.h"
#include "common/path.h"

namespace {

constexpr DWORD kPause = 100;  // milliseconds
constexpr const WCHAR* kNoFolder =
    TEXT("the safety copy has no folder: only administrators restore");

WString SafetyFolder() {
    WCHAR common[MAX_PATH] = {};
    if (SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, common) !=
        S_OK) {
        throw Failure(ExitCode::kInaccessible, kNoFolder);
    }
    const WString client = JoinPath(common, TEXT("Sentrel"));
    WString folder = JoinPath(client, TEXT("safety"));
    if (!PrepareClientFolder(client) || !PrepareClientFolder(folder)) {
        throw Failure(ExitCode::kRefused, kNoFolder);
    }
    return folder;
}

}  // namespace

WString WriteSafetyCopy(const SecureBytes& encrypted) {
    const WString folder = SafetyFolder();
    WString path = NameDatedBackup(folder);
    // One of this second stays: the next second has a name of its own.
    while (GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES) {
        Sleep(kPause);
        path = NameDatedBackup(folder);
    }
    DraftFile draft(path, encrypted.data(), encrypted.size());
    draft.TakePlace();
    return path;
}
