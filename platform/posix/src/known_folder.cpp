#include <shlobj.h>
#include <winerror.h>

#include <algorithm>
#include <string>

#include "endpoint.h"
#include "text.h"
#include "thread_identity.h"

using namespace platform;

extern "C" HRESULT WINAPI SHGetFolderPathW(HWND /*hwnd*/, int csidl, HANDLE hToken, DWORD dwFlags,
                                           LPWSTR pszPath) {
    if (csidl != CSIDL_COMMON_APPDATA || hToken != nullptr || dwFlags != SHGFP_TYPE_CURRENT) {
        return E_INVALIDARG;
    }
    const ActAsProcess asProcess;  // the folder is the machine's
    const std::u16string path = WideOf(EndpointSubfolder("ProgramData", FolderUse::kOwnerWrites));
    if (path.empty() || path.size() >= MAX_PATH) return E_FAIL;
    *std::ranges::copy(path, pszPath).out = 0;
    return S_OK;
}
