#include "registry/registry.h"

#include <shlwapi.h>
#include <utilsdll.h>

#include "common/handles.h"

namespace {

constexpr REGSAM kReadAccess = KEY_READ;
constexpr REGSAM kWriteAccess = KEY_READ | KEY_SET_VALUE | KEY_CREATE_SUB_KEY;
constexpr REGSAM kCopyAccess = KEY_SET_VALUE | KEY_CREATE_SUB_KEY | READ_CONTROL;

constexpr DWORD kNameCapacity = 1024;  // characters, for names of values and subkeys

HKEY RootOf(bool useLocalMachine) {
    return useLocalMachine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
}

WString WithoutTrailingBackslash(const WString& path) {
    WString trimmed = path;
    if (!trimmed.empty() && trimmed.back() == '\\') trimmed.pop_back();
    return trimmed;
}

}  // namespace

CRegistry::CRegistry(bool useLocalMachine, bool readOnly) : m_bReadOnly(readOnly ? TRUE : FALSE) {
    SetRoot(useLocalMachine);
}

CRegistry::CRegistry(HKEY root, bool readOnly) : m_bReadOnly(readOnly ? TRUE : FALSE) {
    SetRoot(root);
}

CRegistry::~CRegistry() {
    CloseKey();
}

void CRegistry::SetRoot(bool useLocalMachine) {
    SetRoot(RootOf(useLocalMachine));
}

void CRegistry::SetRoot(HKEY root) {
    m_hKey = root;
}

bool CRegistry::Record(LSTATUS result, DWORD type) {
    m_dwLastError = static_cast<DWORD>(result);
    m_dwLastType = type;
    return result == ERROR_SUCCESS;
}

bool CRegistry::Record(LSTATUS result, DWORD type, DWORD size) {
    m_dwLastSize = size;
    return Record(result, type);
}

// --- Keys -------------------------------------------------------------------------------------

bool CRegistry::OpenKey(const WString& path) {
    m_strPath = path;
    const HKEY previous = m_hKey;
    const LSTATUS result = RegOpenKeyExW(m_hKey, WithoutTrailingBackslash(path).c_str(), 0,
                                         m_bReadOnly ? kReadAccess : kWriteAccess, &m_hKey);
    if (result != ERROR_SUCCESS) m_hKey = previous;
    return Record(result, 0);
}

bool CRegistry::CreateKey(const WString& path) {
    if (m_bReadOnly) return false;
    HKEY created = nullptr;
    const LSTATUS result =
        RegCreateKeyExW(m_hKey, WithoutTrailingBackslash(path).c_str(), 0, nullptr,
                        REG_OPTION_NON_VOLATILE, kWriteAccess, nullptr, &created, nullptr);
    if (result == ERROR_SUCCESS) m_hKey = created;
    return Record(result, 0);
}

void CRegistry::CloseKey() {
    if (m_hKey != nullptr) RegCloseKey(m_hKey);
    m_hKey = nullptr;
}

bool CRegistry::DeleteKeyTree(const WString& path, bool useLocalMachine) {
    if (m_bReadOnly) return false;
    if (WithoutTrailingBackslash(path).empty()) return Record(ERROR_INVALID_PARAMETER, 0);
    return Record(static_cast<LSTATUS>(SHDeleteKeyW(RootOf(useLocalMachine),
                                                    WithoutTrailingBackslash(path).c_str())),
                  0);
}

bool CRegistry::DeleteSubKeyTree(const WString& name) {
    if (m_bReadOnly) return false;
    if (name.empty()) return Record(ERROR_INVALID_PARAMETER, 0);  // names the current key itself
    return Record(static_cast<LSTATUS>(SHDeleteKeyW(m_hKey, name.c_str())), 0);
}

bool CRegistry::DeleteValue(const WString& name) {
    if (m_bReadOnly) return false;
    return Record(RegDeleteValueW(m_hKey, name.c_str()), 0);
}

// False when the destination cannot be created; otherwise `result` is the copy's.
bool CRegistry::CopyTree(const WString& source, const WString& destination, LSTATUS& result) {
    UniqueRegKey target;
    if (RegCreateKeyExW(m_hKey, destination.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                        kCopyAccess, nullptr, target.put(), nullptr) != ERROR_SUCCESS) {
        return false;
    }
    result = static_cast<LSTATUS>(SHCopyKeyW(m_hKey, source.c_str(), target.get(), 0));
    return true;
}

bool CRegistry::CopyKey(const WString& source, const WString& destination) {
    LSTATUS result = ERROR_SUCCESS;
    if (m_bReadOnly || !CopyTree(source, destination, result)) return false;
    return Record(result, 0);
}

bool CRegistry::MoveKey(const WString& source, const WString& destination) {
    if (m_bReadOnly) return false;
    if (source.empty()) return Record(ERROR_INVALID_PARAMETER, 0);  // names the current key itself
    LSTATUS result = ERROR_SUCCESS;
    if (!CopyTree(source, destination, result)) return false;
    if (result != ERROR_SUCCESS) {
        RegDeleteKeyW(m_hKey, destination.c_str());
    } else {
        SHDeleteKeyW(m_hKey, source.c_str());
    }
    return Record(result, 0);
}

bool CRegistry::EnumValueNames(std::vector<WString>& names) {
    for (DWORD index = 0;; ++index) {
        WCHAR name[kNameCapacity];
        DWORD length = kNameCapacity;
        if (RegEnumValueW(m_hKey, index, name, &length, nullptr, nullptr, nullptr, nullptr) !=
            ERROR_SUCCESS) {
            return index > 0;
        }
        names.emplace_back(name, length);
    }
}

bool CRegistry::EnumSubKeys(std::vector<WString>& names) {
    for (DWORD index = 0;; ++index) {
        WCHAR name[kNameCapacity];
        DWORD length = kNameCapacity;
        const LSTATUS result =
            RegEnumKeyExW(m_hKey, index, name, &length, nullptr, nullptr, nullptr, nullptr);
        if (result != ERROR_SUCCESS) return index > 0 || result != ERROR_NO_MORE_ITEMS;
        names.emplace_back(name, length);
    }
}

// --- Values -----------------------------------------------------------------------------------

bool CRegistry::ValueExists(const WString& name) {
    return Record(RegQueryValueExW(m_hKey, name.c_str(), nullptr, nullptr, nullptr, nullptr), 0);
}

bool CRegistry::GetDWORD(const WString& name, DWORD& number) {
    DWORD value = 0;
    DWORD type = 0;
    DWORD size = sizeof value;
    const LSTATUS result = RegQueryValueExW(m_hKey, name.c_str(), nullptr, &type,
                                            reinterpret_cast<BYTE*>(&value), &size);
    if (result == ERROR_SUCCESS) number = value;
    return Record(result, type, size);
}

bool CRegistry::GetString(const WString& name, WString& text) {
    WCHAR* value = nullptr;
    if (!reg_getstringW(m_hKey, name.c_str(), &value, nullptr) || value == nullptr) return false;
    text = value;
    reg_free(value);
    return true;
}

bool CRegistry::GetBinary(const WString& name, std::unique_ptr<BYTE[]>& bytes, DWORD& size) {
    bytes.reset();
    DWORD length = 0;
    LSTATUS result = RegQueryValueExW(m_hKey, name.c_str(), nullptr, nullptr, nullptr, &length);
    if (result == ERROR_SUCCESS) {
        bytes = std::make_unique<BYTE[]>(length);
        result = RegQueryValueExW(m_hKey, name.c_str(), nullptr, nullptr, bytes.get(), &length);
    }
    if (result == ERROR_SUCCESS) {
        size = length;
    } else {
        bytes.reset();
    }
    return Record(result, REG_BINARY, length);
}

bool CRegistry::GetMultiString(const WString& name, std::vector<WString>& texts) {
    DWORD type = 0;
    DWORD size = 0;
    if (RegQueryValueExW(m_hKey, name.c_str(), nullptr, &type, nullptr, &size) != ERROR_SUCCESS ||
        type != REG_MULTI_SZ || size < sizeof(WCHAR)) {
        return false;
    }
    // Two units more than the value holds: whatever it lacks, the list is terminated.
    std::vector<WCHAR> list((size + 1) / sizeof(WCHAR) + 2);
    if (RegQueryValueExW(m_hKey, name.c_str(), nullptr, nullptr,
                         reinterpret_cast<BYTE*>(list.data()), &size) != ERROR_SUCCESS) {
        return false;
    }
    for (const WCHAR* text = list.data(); *text != 0; text += texts.back().size() + 1) {
        texts.emplace_back(text);
    }
    return true;
}

bool CRegistry::SetString(const WString& name, const WString& text, bool protect) {
    if (m_bReadOnly) return false;
    const bool written = protect ? reg_setstring_encW(m_hKey, name.c_str(), text.c_str())
                                 : reg_setstringW(m_hKey, name.c_str(), text.c_str());
    return Record(written ? ERROR_SUCCESS : ERROR_INVALID_DATA, REG_SZ,
                  static_cast<DWORD>(text.size() + 1));
}

bool CRegistry::SetDWORD(const WString& name, DWORD number) {
    return SetData(name, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof number);
}

bool CRegistry::SetBinary(const WString& name, const BYTE* bytes, DWORD length) {
    return SetData(name, REG_BINARY, bytes, length);
}

bool CRegistry::SetMultiString(const WString& name, const BYTE* bytes, DWORD length) {
    return SetData(name, REG_MULTI_SZ, bytes, length);
}

bool CRegistry::SetData(const WString& name, DWORD type, const BYTE* bytes, DWORD length) {
    if (m_bReadOnly) return false;
    return Record(RegSetValueExW(m_hKey, name.c_str(), 0, type, bytes, length), type, length);
}
