// Owners of the system's handles: one type for each kind, which gives its handle back when it goes.
#pragma once

#include <windows.h>

#include <utility>

// Owns one handle. `Kind` says which type it is, which value means "none", and how it is closed.
template <typename Kind>
class UniqueResource {
  public:
    using Type = typename Kind::Type;

    UniqueResource() = default;
    explicit UniqueResource(Type handle) : handle_(handle) {}
    UniqueResource(UniqueResource&& other) noexcept : handle_(other.release()) {}
    UniqueResource& operator=(UniqueResource&& other) noexcept {
        reset(other.release());
        return *this;
    }
    ~UniqueResource() { reset(); }

    Type get() const { return handle_; }
    explicit operator bool() const { return Kind::IsOpen(handle_); }
    Type release() { return std::exchange(handle_, Type{}); }
    void reset(Type handle = Type{}) {
        const Type old = std::exchange(handle_, handle);
        if (Kind::IsOpen(old)) Kind::Close(old);
    }
    // The place where a call stores a new handle; what was owned before is closed.
    Type* put() {
        reset();
        return &handle_;
    }

  private:
    Type handle_{};
};

struct HandleKind {
    using Type = HANDLE;
    static bool IsOpen(HANDLE handle) {
        return handle != nullptr && handle != INVALID_HANDLE_VALUE;
    }
    static void Close(HANDLE handle) { CloseHandle(handle); }
};
struct RegKeyKind {
    using Type = HKEY;
    static bool IsOpen(HKEY key) { return key != nullptr; }
    static void Close(HKEY key) { RegCloseKey(key); }
};
struct ServiceHandleKind {
    using Type = SC_HANDLE;
    static bool IsOpen(SC_HANDLE service) { return service != nullptr; }
    static void Close(SC_HANDLE service) { CloseServiceHandle(service); }
};
struct LibraryKind {
    using Type = HMODULE;
    static bool IsOpen(HMODULE library) { return library != nullptr; }
    static void Close(HMODULE library) { FreeLibrary(library); }
};

using UniqueHandle = UniqueResource<HandleKind>;
using UniqueRegKey = UniqueResource<RegKeyKind>;
using UniqueServiceHandle = UniqueResource<ServiceHandleKind>;
using UniqueLibrary = UniqueResource<LibraryKind>;
