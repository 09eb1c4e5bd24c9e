#include <product_registry.h>
#include <shlobj.h>

#include "client/include/utilsdll.h"
#include "client/utilsdll/boundary.h"
#include "client/utilsdll/data_folder.h"
#include "client/utilsdll/own_folder.h"
#include "client/utilsdll/temp_file.h"
#include "common/client_folder.h"
#include "common/handles.h"
#include "common/path.h"

namespace utilsdll {
namespace {

WString InstallFolderValue() {
    UniqueRegKey key;
    WCHAR* text = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kProductKey, 0, KEY_READ, key.put()) != ERROR_SUCCESS ||
        !reg_getstringW(key.get(), TEXT("InstallDir"), &text, nullptr)) {
        return {};
    }
    WString folder(text);
    reg_free(text);
    return folder;
}

WString InstallFolder() {
    WString folder = InstallFolderValue();
    if (folder.empty()) folder = OwnFolder();
    while (folder.size() > 1 && (folder.back() == '\\' || folder.back() == kPathSeparator)) {
        folder.pop_back();
    }
    return folder;
}

}  // namespace

WString DataFolder() {
    WCHAR common[MAX_PATH] = {};
    if (SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, common) !=
        S_OK) {
        return {};
    }
    WString folder = JoinPath(common, TEXT("Sentrel"));
    return PrepareClientFolder(folder) ? folder : WString();
}

WString DataSubfolder(const WCHAR* name) {
    WString folder = DataFolder();
    if (folder.empty()) return {};
    folder = JoinPath(folder, name);
    return PrepareClientFolder(folder) ? folder : WString();
}

}  // namespace utilsdll

extern "C" const WCHAR* cfg_get_install_dir() {
    return Guarded<const WCHAR*>(TEXT(""), [] {
        static const WString folder = utilsdll::InstallFolder();
        return folder.c_str();
    });
}

extern "C" int fs_get_temp_file_path(const WCHAR* folder, const WCHAR* prefix, WCHAR* path,
                                     DWORD capacity) {
    return Guarded(0, [&] {
        if (folder == nullptr || path == nullptr) return 0;
        const WString made =
            utilsdll::MakeTempFile(folder, prefix == nullptr ? TEXT("SNC") : prefix);
        if (made.empty()) return 0;
        if (made.size() >= capacity) {
            DeleteFileW(made.c_str());
            return 0;
        }
        path[made.copy(path, made.size())] = 0;
        return 1;
    });
}
