// The random provider "snt_rng": the client's random source for OpenSSL's provider-based random
// interface, as the engine is for the default one.
#pragma once

#include <openssl/types.h>

// Registers and loads the provider and makes it the context's generator; a generator that the
// context already uses stays in use. True also when the provider is loaded already, in whatever
// context. False when OpenSSL refuses it.
bool CryptdRegisterRngProvider(OSSL_LIB_CTX* context);

// Unloads the provider if it is loaded.
void CryptdUnregisterRngProvider();
