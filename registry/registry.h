// One open registry key at a time, with a memory of how its last operation went.
#pragma once

#include <windows.h>

#include <memory>
#include <vector>

#include "common/text.h"

// Works on the registry's native view. Every operation that returns a flag returns true on success;
// those that say so record the Win32 result code (0: success), the value type and the data size.
// Writes on a read-only object return false at once and record nothing. Not copied, used on one
// thread.
class CRegistry {
  public:
    // Starts at the root of HKEY_LOCAL_MACHINE or of HKEY_CURRENT_USER, or at a key of the
    // caller's.
    CRegistry(bool useLocalMachine, bool readOnly);
    CRegistry(HKEY root, bool readOnly);
    CRegistry(const CRegistry&) = delete;
    CRegistry& operator=(const CRegistry&) = delete;
    virtual ~CRegistry();

    // Makes the root the current key without closing the key that it replaces.
    void SetRoot(bool useLocalMachine);
    void SetRoot(HKEY root);

    // Opens a key below the current one and moves to it; one trailing "\" is allowed. After a
    // failure the current key stays. The key that was current before is not closed. Records.
    bool OpenKey(const WString& path);
    // The same, creating the key when it is missing. Records.
    bool CreateKey(const WString& path);
    // Closes the current key; only destruction is meaningful afterwards.
    void CloseKey();

    // Deletes a key and its subtree, from the root of a hive and not from the current key. The root
    // itself is refused. Records.
    bool DeleteKeyTree(const WString& path, bool useLocalMachine);
    // Deletes a subkey of the current key with its subtree. Records.
    bool DeleteSubKeyTree(const WString& name);
    bool DeleteValue(const WString& name);  // records
    // Copies the tree of a subkey into another subkey, creating that. Records the copy's result;
    // nothing when the destination cannot be created.
    bool CopyKey(const WString& source, const WString& destination);
    // The same; then deletes the source, or the destination when the copy failed.
    bool MoveKey(const WString& source, const WString& destination);
    // Append names until the first failure. EnumValueNames is false when not even the first name
    // could be read, EnumSubKeys only when there is no subkey at all. Record nothing.
    bool EnumValueNames(std::vector<WString>& names);
    bool EnumSubKeys(std::vector<WString>& names);

    bool ValueExists(const WString& name);  // records
    // Reads 4 bytes at most whatever the type; on failure `number` stays. Records the stored type.
    bool GetDWORD(const WString& name, DWORD& number);
    // Plain text, also of a protected value. Records nothing.
    bool GetString(const WString& name, WString& text);
    // On failure `bytes` is null. Records.
    bool GetBinary(const WString& name, std::unique_ptr<BYTE[]>& bytes, DWORD& size);
    // Appends the strings of a REG_MULTI_SZ up to the first empty one. Records nothing.
    bool GetMultiString(const WString& name, std::vector<WString>& texts);

    // Writes; all record. `protect` stores the text in the utility library's protected form; a
    // failure is recorded as ERROR_INVALID_DATA, the size in characters with the terminator.
    bool SetString(const WString& name, const WString& text, bool protect);
    bool SetDWORD(const WString& name, DWORD number);
    bool SetBinary(const WString& name, const BYTE* bytes, DWORD length);
    // The bytes as they are: zero-terminated UTF-16 strings ended by an empty one.
    bool SetMultiString(const WString& name, const BYTE* bytes, DWORD length);

    DWORD LastError() const { return m_dwLastError; }
    DWORD LastType() const { return m_dwLastType; }
    DWORD LastSize() const { return m_dwLastSize; }

  private:
    bool Record(LSTATUS result, DWORD type);
    bool Record(LSTATUS result, DWORD type, DWORD size);
    bool CopyTree(const WString& source, const WString& destination, LSTATUS& result);
    bool SetData(const WString& name, DWORD type, const BYTE* bytes, DWORD length);

    DWORD m_dwLastError = ERROR_SUCCESS;
    DWORD m_dwLastType = 0;
    DWORD m_dwLastSize = 0;
    HKEY m_hKey = nullptr;
    WString m_strPath;
    DWORD m_bReadOnly = FALSE;
};
