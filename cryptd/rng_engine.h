// The random generator "SNT_FIPS_RNG_ENGINE": OpenSSL draws its random bytes from the client's
// random source.
#pragma once

// Makes an engine OpenSSL's default random method, for every library context of the process and for
// good. False when it could not be made or set.
bool InstallRngEngine();
