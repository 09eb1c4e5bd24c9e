// Registry handles: what the calls of the registry do with an HKEY before they turn to its hive.
#pragma once

#include <winreg.h>

#include <new>

#include "handles.h"
#include "hive.h"

namespace platform {

// What an opened handle names.
class OpenedKey : public KernelObject {
  public:
    OpenedKey(std::shared_ptr<Hive> inHive, KeyId key, REGSAM rights)
        : hive(std::move(inHive)), id(key), granted(rights) {}
    const std::shared_ptr<Hive> hive;
    const KeyId id;
    const REGSAM granted;
};

// A key of a hive.
struct KeyPlace {
    std::shared_ptr<Hive> hive;
    KeyId id = kRootKey;
};

// Where a path leads: a path in a hive, from one of its keys.
struct PathPlace {
    KeyPlace start;
    KeyPath path;
};

// These throw HiveError: the code that the call is to return.

// The place that a handle - opened or predefined - and a path name; the key need not exist.
PathPlace Locate(HKEY key, LPCWSTR path);
// The key there, else ERROR_FILE_NOT_FOUND.
KeyPlace Find(const PathPlace& place);
// The key behind a handle, which must have the right. A predefined key has the rights that the
// thread's account has.
KeyPlace KeyWithRight(HKEY key, REGSAM right);
// A new handle, with the rights that the thread's account is granted of the desired ones.
HKEY OpenKeyHandle(const KeyPlace& place, REGSAM desired);
// Refuses what the thread's account may not do (ERROR_ACCESS_DENIED).
void DemandRead(const Hive& hive);
void DemandWrite(const Hive& hive);

// A name given to a call; null is the empty name.
inline std::u16string NameOf(LPCWSTR name) {
    return name == nullptr ? u"" : name;
}

// Gives a name to the caller's buffer, whose size is in characters; when it does not fit both are
// left as they were (ERROR_MORE_DATA).
void DemandRoom(std::u16string_view name, const DWORD* capacity);
void DeliverName(std::u16string_view name, LPWSTR buffer, LPDWORD capacity);

// Runs a call's body and gives its return value.
template <typename Body>
LSTATUS Report(Body body) {
    try {
        body();
        return ERROR_SUCCESS;
    } catch (const HiveError& error) {
        return error.code;
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

}  // namespace platform
