// The key material of protected files: a key and a salt for the machine and for the user.
#pragma once

#include "protect/protected_memory.h"

inline constexpr std::size_t kSlotSize = 64;
using KeySlot = ProtectedMemory<kSlotSize>;

// Whom a file is protected for. Stored as one byte; any value but 0 reads as user scope.
enum class ProtectionScope : BYTE { kMachine = 0, kUser = 1 };

// One hive's slots, in protected memory outside their uses.
struct KeyMaterial {
    KeySlot salt;
    KeySlot key;
};

// The material of a scope. Process-wide; not to be used from two threads at once.
KeyMaterial& KeyMaterialOf(ProtectionScope scope);

// Fills the slots for this run - random defaults, mixed with the registry's "datasalt" and
// "datakey" of HKEY_LOCAL_MACHINE and HKEY_CURRENT_USER - and protects them. False when the HMAC
// failed; in FIPS mode the crypto service is told. Nothing is ever written: what must be read again
// carries its own entropy.
bool PrepareKeyMaterial();

// Derives the entropy for one protection from a key and a salt with HKDF-SHA3-512 and replaces the
// salt, so that no two protections of a run share it. False, with `entropy` unchanged and the slots
// protected, when the derivation fails.
bool DataDeriveEntropy(KeySlot& key, KeySlot& salt, BYTE (&entropy)[kSlotSize]);
