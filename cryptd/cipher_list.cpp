#include "cryptd/cipher_list.h"

const char* CryptdGetCipherList() {
    return "DHE-RSA-AES256-SHA:AES256-SHA:DHE-RSA-AES128-SHA:AES128-SHA:"
           "DHE-RSA-AES256-SHA256:AES256-SHA256:DHE-RSA-AES128-SHA256:AES128-SHA256@STRENGTH";
}
