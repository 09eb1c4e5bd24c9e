#include "common/path.h"

#include <filesystem>

const WCHAR kPathSeparator = static_cast<WCHAR>(std::filesystem::path::preferred_separator);

namespace {

std::size_t LastSeparator(WStringView path) {
    return path.find_last_of(TEXT("\\/"));
}

}  // namespace

bool FitsAnsiPath(WStringView path) {
    return WideToAnsi(path).size() < kPathCapacity;
}

WString JoinPath(WStringView folder, WStringView name) {
    WString path(folder);
    if (!path.empty() && LastSeparator(path) != path.size() - 1) path += kPathSeparator;
    return path.append(name);
}

WString FolderOfPath(WStringView path) {
    const std::size_t separator = LastSeparator(path);
    return WString(separator == WStringView::npos ? WStringView() : path.substr(0, separator));
}

WString FileNameOfPath(WStringView path) {
    return WString(path.substr(LastSeparator(path) + 1));
}
