#include "handles.h"

#include <processthreadsapi.h>
#include <synchapi.h>

#include <mutex>
#include <unordered_map>

#include "deadline.h"

#include "last_error.h"

namespace platform {
namespace {

class HandleTable {
  public:
    HANDLE Add(std::shared_ptr<KernelObject> object) {
        const std::lock_guard lock(mutex_);
        // Values are multiples of four, as on Windows, and are not used again soon: a stale handle
        // is caught instead of naming somebody else's object.
        next_ += 4;
        const auto handle = reinterpret_cast<HANDLE>(next_);
        objects_.emplace(handle, std::move(object));
        return handle;
    }

    std::shared_ptr<KernelObject> Find(HANDLE handle) {
        const std::lock_guard lock(mutex_);
        const auto found = objects_.find(handle);
        return found == objects_.end() ? nullptr : found->second;
    }

    std::shared_ptr<KernelObject> Remove(HANDLE handle) {
        const std::lock_guard lock(mutex_);
        const auto found = objects_.find(handle);
        if (found == objects_.end()) return nullptr;
        auto object = std::move(found->second);
        objects_.erase(found);
        return object;
    }

  private:
    std::mutex mutex_;
    std::unordered_map<HANDLE, std::shared_ptr<KernelObject>> objects_;
    ULONG_PTR next_ = 0;
};

// Never destroyed: handles are closed by destructors that may run after this library's own.
HandleTable& Table() {
    static auto* const table = new HandleTable;
    return *table;
}

}  // namespace

KernelObject::~KernelObject() = default;

DWORD KernelObject::Wait(const Deadline& /*deadline*/) {
    SetLastError(ERROR_INVALID_HANDLE);
    return WAIT_FAILED;
}

std::optional<uid_t> KernelObject::Owner() {
    return Fail<std::optional<uid_t>>(ERROR_NOT_SUPPORTED);
}

HANDLE OpenHandle(std::shared_ptr<KernelObject> object) {
    return Table().Add(std::move(object));
}

std::shared_ptr<KernelObject> ObjectOf(HANDLE handle) {
    auto object = Table().Find(handle);
    if (!object) SetLastError(ERROR_INVALID_HANDLE);
    return object;
}

bool ReleaseHandle(HANDLE handle) {
    // The object is destroyed here, outside the table's lock: its destructor may close handles.
    const bool known = Table().Remove(handle) != nullptr;
    if (!known) SetLastError(ERROR_INVALID_HANDLE);
    return known;
}

}  // namespace platform

using namespace platform;

extern "C" BOOL WINAPI CloseHandle(HANDLE hObject) {
    return ReleaseHandle(hObject) ? TRUE : FALSE;
}

extern "C" DWORD WINAPI WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds) {
    const auto object = ObjectOf(hHandle);
    return object ? object->Wait(Deadline(dwMilliseconds)) : WAIT_FAILED;
}

extern "C" BOOL WINAPI DuplicateHandle(HANDLE hSourceProcessHandle, HANDLE hSourceHandle,
                                       HANDLE hTargetProcessHandle, LPHANDLE lpTargetHandle,
                                       DWORD /*dwDesiredAccess*/, BOOL /*bInheritHandle*/,
                                       DWORD dwOptions) {
    if (hSourceProcessHandle != GetCurrentProcess() ||
        hTargetProcessHandle != GetCurrentProcess() || dwOptions != DUPLICATE_SAME_ACCESS) {
        return Fail(ERROR_NOT_SUPPORTED);
    }
    auto object = ObjectOf(hSourceHandle);
    if (!object) return FALSE;
    *lpTargetHandle = OpenHandle(std::move(object));
    return TRUE;
}
