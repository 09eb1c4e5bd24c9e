// A whole file in memory, to be transformed in place.
#pragma once

#include <cstdint>

#include "common/handles.h"

struct ViewKind {
    using Type = LPVOID;
    static bool IsOpen(LPVOID view) { return view != nullptr; }
    static void Close(LPVOID view) { UnmapViewOfFile(view); }
};
using UniqueView = UniqueResource<ViewKind>;

// An existing file opened for reading and writing, and mapped. Closed with the object.
class MappedFile {
  public:
    // Whether others may read the file meanwhile.
    enum class Sharing : DWORD { kNone = 0, kRead = FILE_SHARE_READ };
    // The largest file that is mapped.
    static constexpr std::int64_t kMaxSize = 4'294'967'294;

    // False when the file does not exist or cannot be opened so.
    bool Open(const WCHAR* path, Sharing sharing);
    // False when the file is empty or too large, or cannot be mapped.
    bool Map();
    // Gives the view back; the file stays open.
    void Unmap();

    BYTE* Bytes() const { return static_cast<BYTE*>(view_.get()); }
    DWORD Size() const { return size_; }
    HANDLE File() const { return file_.get(); }

  private:
    UniqueHandle file_;
    UniqueHandle mapping_;
    UniqueView view_;
    DWORD size_ = 0;
};
