#include "client/utilsdll/own_folder.h"

#include <windows.h>

#include "common/path.h"

namespace utilsdll {

WString OwnFolder() {
    HMODULE own = nullptr;
    WCHAR path[MAX_PATH] = {};
    if (!GetModuleHandleExW(
            GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
            reinterpret_cast<const WCHAR*>(&OwnFolder), &own)) {
        return {};
    }
    const DWORD length = GetModuleFileNameW(own, path, MAX_PATH);
    return length == 0 || length == MAX_PATH ? WString() : FolderOfPath(path);
}

}  // namespace utilsdll
