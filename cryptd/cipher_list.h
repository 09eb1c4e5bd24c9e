// The TLS ciphers of the client's connections.
#pragma once

// In OpenSSL's notation, for SSL_CTX_set_cipher_list.
const char* CryptdGetCipherList();
