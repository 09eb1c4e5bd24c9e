// OpenSSL's set-up for the client: its modules and its configuration are those of the current
// folder.
#pragma once

// Keeps OpenSSL from reading a configuration that the environment names, or that lies where others
// may write. In FIPS mode the configuration is that of the current folder, and this does nothing.
// Comes before anything else that OpenSSL does for the process.
void CryptdShutOutConfiguration();

// Prepares OpenSSL for the crypto library's mode. In FIPS mode the module "fips" is loaded into a
// library context of its own, with the configuration "fipsmodule.cnf", and the random engine serves
// the whole process from then on; without FIPS mode the module "legacy" is loaded into the default
// context. Sets the process's variables OPENSSL_MODULES and OPENSSL_CONF, so it comes before
// anything else that OpenSSL does for the process.
//
// 0, also when a provider cannot be loaded (what is missing is said on standard output, and there
// is no engine then), or -1 when OpenSSL cannot be set up. Not for several threads at once.
int CryptdLoadProviders();

// Forgets the FIPS, base and random providers without unloading them, and frees the FIPS provider's
// context. Always 0.
int CryptdUnloadProviders();
