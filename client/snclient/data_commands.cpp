// Commands that make what the configuration tool reads: encrypted arguments, files and values.
#include <utilsdll.h>

#include <algorithm>
#include <limits>

#include "client/snclient/commands.h"
#include "common/console_text.h"
#include "common/handles.h"
#include "cryptd/crypto_log.h"
#include "protect/built_in_secrets.h"
#include "protect/data_protect.h"
#include "protect/encrypted_forms.h"

namespace {

// --- Files --------------------------------------------------------------------------------------

bool ReadWholeFile(const WCHAR* path, SecureBytes& content) {
    const UniqueHandle file(CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size = {};
    if (!file || !GetFileSizeEx(file.get(), &size)) return false;
    constexpr LONGLONG kMaxSize = std::numeric_limits<int>::max();
    if (size.QuadPart > kMaxSize) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return false;
    }
    content.resize(static_cast<std::size_t>(size.QuadPart));
    DWORD got = 0;
    if (!ReadFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &got, nullptr)) {
        return false;
    }
    content.resize(got);
    return true;
}

bool WriteDraft(const WCHAR* path, const std::vector<BYTE>& content) {
    const UniqueHandle file(CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    return file && WriteFile(file.get(), content.data(), static_cast<DWORD>(content.size()),
                             &written, nullptr);
}

// The folder that a file is in; empty, with the last error set, when the path names no file.
WString FolderOfFile(const WCHAR* path) {
    WCHAR whole[MAX_PATH] = {};
    WCHAR* fileName = nullptr;
    const DWORD length = GetFullPathNameW(path, MAX_PATH, whole, &fileName);
    if (length != 0 && length < MAX_PATH && fileName != nullptr) return {whole, fileName};
    if (length != 0) SetLastError(ERROR_BAD_PATHNAME);
    return {};
}

// The file holds its old content or the whole new one, whatever happens.
bool ReplaceFileContent(const WCHAR* path, const std::vector<BYTE>& content) {
    const WString folder = FolderOfFile(path);
    WCHAR draft[MAX_PATH] = {};
    if (folder.empty() || GetTempFileNameW(folder.c_str(), TEXT("enc"), 0, draft) == 0) {
        return false;
    }
    if (WriteDraft(draft, content) &&
        MoveFileExW(draft, path, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        return true;
    }
    const DWORD error = GetLastError();
    DeleteFileW(draft);
    SetLastError(error);
    return false;
}

// --- Encrypted files ----------------------------------------------------------------------------

constexpr BYTE kMarker[] = {'E', 'n', 'c', ' '};
constexpr DWORD kCipherOverhead = 28;  // bytes that encrypt_buffer adds

bool Encrypt(const SecureBytes& plain, const SecureText& password, bool marked,
             std::vector<BYTE>& form) {
    const std::size_t start = marked ? sizeof kMarker : 0;
    form.resize(start + plain.size() + kCipherOverhead);
    std::copy_n(kMarker, start, form.begin());
    auto size = static_cast<DWORD>(form.size() - start);
    return encrypt_buffer(plain.data(), static_cast<DWORD>(plain.size()), form.data() + start,
                          &size, password.c_str()) == 0;
}

// Prints an encrypted form on a line of its own.
int PrintForm(const WString& form) {
    if (form.empty()) return Failed(TEXT("cannot encrypt: the text may be too long"));
    WriteConsoleText(form + TEXT("\n"));
    return kExitOk;
}

// --- Values -------------------------------------------------------------------------------------

// A registry key by its name as `reg` writes it: "HKLM\..." or "HKCU\...".
UniqueRegKey OpenNamedKey(WStringView name) {
    const auto separator = name.find('\\');
    const WStringView hive = name.substr(0, separator);
    const HKEY root = hive == TEXT("HKLM")   ? HKEY_LOCAL_MACHINE
                      : hive == TEXT("HKCU") ? HKEY_CURRENT_USER
                                             : nullptr;
    if (root == nullptr || separator == WStringView::npos) return {};
    return UniqueRegKey(reg_openkeyW(root, WString(name.substr(separator + 1)).c_str()));
}

}  // namespace

int EncryptPassword(Arguments arguments) {
    const auto password = PasswordArgument(arguments[0]);
    if (!password) return kExitFailed;
    DecodeBuiltInSecrets();
    return PrintForm(EncryptPasswordArgument(password->c_str()));
}

int EncryptProcessId(Arguments arguments) {
    const WStringView digits = arguments[0];
    const std::int32_t processId = LeadingNumber(digits);
    if (processId <= 0 || digits.find_first_not_of(TEXT("0123456789")) != WStringView::npos) {
        return WrongArgument(TEXT("%s is no process id"), arguments[0]);
    }
    return PrintForm(EncryptProcessIdArgument(static_cast<DWORD>(processId)));
}

int EncryptFileContent(Arguments arguments) {
    const bool isMarked = !arguments[3].empty();
    const auto password = PasswordArgument(arguments[2]);
    if (!password) return kExitFailed;
    SecureBytes plain;
    if (!ReadWholeFile(arguments[0].c_str(), plain)) {
        return Failed(TEXT("cannot read %s (error %lu)"), arguments[0], GetLastError());
    }
    std::vector<BYTE> form;
    if (!Encrypt(plain, *password, isMarked, form)) {
        return Failed(TEXT("cannot encrypt %s"), arguments[0]);
    }
    if (!ReplaceFileContent(arguments[1].c_str(), form)) {
        return Failed(TEXT("cannot write %s (error %lu)"), arguments[1], GetLastError());
    }
    return kExitOk;
}

bool PrepareDataProtection() {
    DecodeBuiltInSecrets();
    CryptdLogInit();
    return DataProtectInit();
}

int ProtectFile(Arguments arguments) {
    const auto scope =
        arguments[1] == TEXT("machine") ? ProtectionScope::kMachine : ProtectionScope::kUser;
    if (!PrepareDataProtection() || DataProtectFile(arguments[0].c_str(), scope) != kDataOk) {
        return Failed(TEXT("cannot protect %s"), arguments[0]);
    }
    return kExitOk;
}

int MaskFile(Arguments arguments) {
    if (!PrepareDataProtection() || DataMaskFile(arguments[0].c_str()) != kDataOk) {
        return Failed(TEXT("cannot mask %s"), arguments[0]);
    }
    return kExitOk;
}

int ProtectValue(Arguments arguments) {
    const WStringView keyName = arguments[0];
    const WCHAR* const valueName = arguments[1].c_str();
    const UniqueRegKey key = OpenNamedKey(keyName);
    WCHAR* text = nullptr;
    if (!key || !reg_getstringW(key.get(), valueName, &text, nullptr)) {
        return Failed(TEXT("no string value %s in that key"), valueName);
    }
    // In the user's own hive for the user alone, elsewhere for the machine.
    const bool isProtected = keyName.starts_with(TEXT("HKCU"))
                                 ? reg_setstring_enc_cuW(key.get(), valueName, text)
                                 : reg_setstring_encW(key.get(), valueName, text);
    reg_free(text);
    return isProtected ? kExitOk : Failed(TEXT("cannot write %s"), valueName);
}
