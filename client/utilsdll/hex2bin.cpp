#include "client/include/utilsdll.h"

namespace {

// The value of a digit, or -1.
int DigitValue(WCHAR digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    return -1;
}

}  // namespace

extern "C" int hex2bin(const WCHAR* text, DWORD length, BYTE* output, DWORD* outputSize) {
    constexpr int kFailed = 1;
    if ((text == nullptr && length != 0) || outputSize == nullptr || length % 2 != 0 ||
        *outputSize < length / 2 || (output == nullptr && length != 0)) {
        return kFailed;
    }
    for (DWORD i = 0; i < length; ++i) {
        if (DigitValue(text[i]) < 0) return kFailed;
    }
    for (std::size_t i = 0; i < length / 2; ++i) {
        output[i] = static_cast<BYTE>(DigitValue(text[2 * i]) * 16 + DigitValue(text[2 * i + 1]));
    }
    *outputSize = length / 2;
    return 0;
}
