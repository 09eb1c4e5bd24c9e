// The mask of protected files: byte i of the data XORed with byte (i mod 128) of the mask. Masking
// is its own inverse.
#pragma once

#include <windows.h>

#include <cstddef>

// Builds the mask from its stored form and puts it into protected memory; later calls do nothing.
void BuildFileMask();

// Masks memory, the index of the mask starting at 0. False when the mask could not be unprotected -
// the bytes are then as they were - or not be protected again.
bool ApplyFileMask(BYTE* bytes, std::size_t size);
