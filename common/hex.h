// Hexadecimal text: two digits per byte, high nibble first, no separators.
#pragma once

#include <windows.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// The bytes as upper-case digits; exactly 2 * size characters.
std::string BytesToHex(const BYTE* bytes, std::size_t size);

// Reads floor(n / 2) bytes from n characters into `bytes`, replacing what it held. Each pair is
// read by strtol's rules for base 16: digits of either case, leading blanks and a sign, up to the
// first character that is no digit. An odd last character is ignored. False, with `bytes`
// unchanged, only when memory runs out.
bool HexToBytes(std::string_view text, std::vector<BYTE>& bytes);
