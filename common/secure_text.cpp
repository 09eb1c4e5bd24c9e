#include "common/secure_text.h"

void WipeMemory(void* memory, std::size_t size) {
    SecureZeroMemory(memory, size);
}

SecureText::SecureText(WStringView text) {
    *this = text;
}

SecureText& SecureText::operator=(WStringView text) {
    std::vector<WCHAR, WipingAllocator<WCHAR>> units;
    units.reserve(text.size() + 1);
    units.assign(text.begin(), text.end());
    units.push_back(WCHAR{0});
    units_ = std::move(units);
    return *this;
}
