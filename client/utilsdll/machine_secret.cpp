#include "client/utilsdll/machine_secret.h"

#include "client/utilsdll/data_folder.h"
#include "client/utilsdll/random.h"
#include "common/client_folder.h"
#include "common/format.h"
#include "common/handles.h"
#include "common/path.h"
#include "common/security.h"

namespace utilsdll {
namespace {

constexpr DWORD kSecretSize = 32;

UniqueHandle OpenSecretFile(const WString& path) {
    return OpenClientFile(path, GENERIC_READ, OPEN_EXISTING, kOwnerAlone);
}

bool ReadSecret(HANDLE file, SecureBytes& secret) {
    SecureBytes bytes(kSecretSize + 1);
    DWORD got = 0;
    if (!ReadFile(file, bytes.data(), kSecretSize + 1, &got, nullptr) || got != kSecretSize) {
        return false;
    }
    bytes.resize(kSecretSize);
    secret.swap(bytes);
    return true;
}

// The folder's own access list would let every user read what is made in it.
bool WriteNewSecret(const WString& path) {
    SecureBytes secret(kSecretSize);
    OwnerAccess ownerAlone;
    if (ownerAlone.get() == nullptr || !DrawRandom(secret)) return false;
    const UniqueHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, ownerAlone.get(),
                                        CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    return file && WriteFile(file.get(), secret.data(), kSecretSize, &written, nullptr) &&
           written == kSecretSize && FlushFileBuffers(file.get());
}

// Makes the secret under a name of its own and gives it the real name only when it is complete:
// of several makers the first one to get there wins, and nobody ever reads half a secret.
void MakeSecretFile(const WString& folder, const WString& path) {
    const WString draft =
        JoinPath(folder, FormatWide(TEXT("machine-%u.key"), GetCurrentThreadId()));
    DeleteFileW(draft.c_str());  // of an earlier thread of this number that was killed
    if (!WriteNewSecret(draft) ||
        !MoveFileExW(draft.c_str(), path.c_str(), MOVEFILE_WRITE_THROUGH)) {
        DeleteFileW(draft.c_str());
    }
}

}  // namespace

bool MachineSecret(SecureBytes& secret) {
    const WString folder = DataFolder();
    if (folder.empty()) return false;
    const WString path = JoinPath(folder, TEXT("machine.key"));
    UniqueHandle file = OpenSecretFile(path);
    if (!file && GetLastError() == ERROR_FILE_NOT_FOUND) {
        MakeSecretFile(folder, path);
        file = OpenSecretFile(path);
    }
    return file && ReadSecret(file.get(), secret);
}

}  // namespace utilsdll
