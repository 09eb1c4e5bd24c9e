// Where the client's random bytes come from.
#pragma once

// Fills a buffer from the crypto service, which has 5 seconds for it, else from the client's crypto
// library. False when neither could; the buffer's content then means nothing. OpenSSL's C
// functions are among the callers, so nothing is thrown.
bool FillFromRandomSource(void* buffer, int size) noexcept;
