// The client's cipher list, as OpenSSL's TLS library understands it.
#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include "cryptd/cipher_list.h"

TEST(CipherList, IsTakenWholeStrongestFirst) {
    SSL_CTX* const context = SSL_CTX_new(TLS_method());
    ASSERT_EQ(SSL_CTX_set_ciphersuites(context, ""), 1);  // the list has no say in those of TLS 1.3
    ASSERT_EQ(SSL_CTX_set_cipher_list(context, CryptdGetCipherList()), 1);
    STACK_OF(SSL_CIPHER)* const ciphers = SSL_CTX_get_ciphers(context);
    ASSERT_EQ(sk_SSL_CIPHER_num(ciphers), 8);
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(SSL_CIPHER_get_bits(sk_SSL_CIPHER_value(ciphers, i), nullptr), i < 4 ? 256 : 128);
    }
    SSL_CTX_free(context);
}
