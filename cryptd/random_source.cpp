#include "cryptd/random_source.h"

#include <sncryptdll.h>

#include <exception>

#include "cryptd/SNCryptdAPI.h"

bool FillFromRandomSource(void* buffer, int size) noexcept try {
    if (CryptdGetRandomBytes(buffer, size, kCryptdRandomBytes, kCryptdTimeLimitMilliseconds) >= 0) {
        return true;
    }
    return SncGetRandomBytes(buffer, size) >= 0;
} catch (const std::exception&) {
    return false;  // memory ran out
}
