#include "common/client_folder.h"

#include "common/security.h"

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD kFolderFlags = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT;

bool Refuse() {
    SetLastError(ERROR_ACCESS_DENIED);
    return false;
}

// Whether an opened object is what its name says: no link, of that kind, under that name alone.
bool IsItself(HANDLE object, bool isFolder) {
    BY_HANDLE_FILE_INFORMATION facts = {};
    if (!GetFileInformationByHandle(object, &facts)) return false;
    const DWORD kind = isFolder ? FILE_ATTRIBUTE_DIRECTORY : 0;
    constexpr DWORD kKinds = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
    return (facts.dwFileAttributes & kKinds) == kind && (isFolder || facts.nNumberOfLinks == 1);
}

struct OpenedObject {
    UniqueHandle handle;
    bool mayChangeList = false;
};

// Opens the object itself, not what it leads to; with the right to change its access list where the
// caller has it.
OpenedObject OpenItself(const WString& path, DWORD access, DWORD disposition, DWORD flags,
                        SECURITY_ATTRIBUTES* attributes) {
    OpenedObject object;
    for (const DWORD right : {DWORD{WRITE_DAC}, DWORD{0}}) {
        object.handle.reset(CreateFileW(path.c_str(), access | READ_CONTROL | right, kShareAll,
                                        attributes, disposition, flags, nullptr));
        object.mayChangeList = object.handle && right != 0;
        if (object.handle || GetLastError() != ERROR_ACCESS_DENIED) break;
    }
    return object;
}

// Verifies who owns the object and what it is, and only then gives it the access list.
bool Secure(const OpenedObject& object, bool isFolder, AccessList& access) {
    if (!object.handle) return false;
    if (!IsItself(object.handle.get(), isFolder) ||
        !IsOwnedByClient(object.handle.get(), SE_FILE_OBJECT)) {
        return Refuse();
    }
    return !object.mayChangeList || access.ApplyTo(object.handle.get());
}

}  // namespace

bool PrepareClientFolder(const WString& path) {
    AccessList access(kEveryoneLooks);
    if (access.get() == nullptr) return false;
    const auto open = [&] {
        return OpenItself(path, FILE_READ_ATTRIBUTES, OPEN_EXISTING, kFolderFlags, nullptr);
    };
    OpenedObject folder = open();
    if (!folder.handle && GetLastError() == ERROR_FILE_NOT_FOUND) {
        if (!IsAdministrator()) return Refuse();
        CreateDirectoryW(path.c_str(), access.get());
        folder = open();
    }
    return Secure(folder, true, access);
}

UniqueHandle OpenClientFile(const WString& path, DWORD access, DWORD disposition,
                            const WCHAR* list) {
    AccessList accessList(list);
    if (accessList.get() == nullptr) return {};
    OpenedObject file =
        OpenItself(path, access | FILE_READ_ATTRIBUTES, disposition,
                   FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, accessList.get());
    return Secure(file, false, accessList) ? std::move(file.handle) : UniqueHandle();
}
