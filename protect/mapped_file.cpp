#include "protect/mapped_file.h"

#include "common/security.h"

bool MappedFile::Open(const WCHAR* path, Sharing sharing) {
    file_.reset(CreateFileW(path, GENERIC_READ | GENERIC_WRITE, static_cast<DWORD>(sharing),
                            nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    return static_cast<bool>(file_);
}

bool MappedFile::Map() {
    LARGE_INTEGER size = {};
    if (!GetFileSizeEx(file_.get(), &size) || size.QuadPart < 1 || size.QuadPart > kMaxSize) {
        return false;
    }
    EveryoneAccess everyone;
    mapping_.reset(CreateFileMappingW(file_.get(), everyone.get(), PAGE_READWRITE, 0, 0, nullptr));
    if (!mapping_) return false;
    view_.reset(MapViewOfFile(mapping_.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0));
    size_ = static_cast<DWORD>(size.QuadPart);
    return static_cast<bool>(view_);
}

void MappedFile::Unmap() {
    view_.reset();
    mapping_.reset();
}
